// capture_seeds OUT FROM...: makes inputs for the frame targets from the first frames of every
// capture file below FROM and below the directory in ZX_CAPTURES, if these directories exist. The
// bytes that tell the target what to do precede each frame.
#include <pcap/pcap.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include "support.hpp"

namespace {

constexpr int kFramesPerCapture = 32;
constexpr std::size_t kMaxFrame = 1514;

using Capture = std::unique_ptr<pcap_t, decltype([](pcap_t* capture) { pcap_close(capture); })>;

// FNV-1a. The hash is also the name of the input.
std::uint64_t hash(zx::fuzz::Bytes bytes) {
    std::uint64_t value = 0xCBF29CE484222325U;
    for (const std::uint8_t byte : bytes) {
        value = (value ^ byte) * 0x100000001B3U;
    }
    return value;
}

void write_seed(const std::filesystem::path& to, zx::fuzz::Bytes frame) {
    std::uint64_t state = hash(frame);
    char name[17];
    std::snprintf(name, sizeof name, "%016lx", state);
    std::array<char, zx::fuzz::kControlSize> control{};
    for (char& byte : control) {
        state = state * 6364136223846793005U + 1442695040888963407U;
        byte = static_cast<char>(state >> 56U);
    }
    std::ofstream file(to / name, std::ios::binary);
    file.write(control.data(), control.size());
    file.write(reinterpret_cast<const char*>(frame.data()),
               static_cast<std::streamsize>(frame.size()));
}

void read_capture(const std::filesystem::path& from, const std::filesystem::path& to) {
    char error[PCAP_ERRBUF_SIZE];
    const Capture capture(pcap_open_offline(from.c_str(), error));
    if (capture == nullptr || pcap_datalink(capture.get()) != DLT_EN10MB) {
        return;
    }
    pcap_pkthdr* header = nullptr;
    const std::uint8_t* bytes = nullptr;
    for (int i = 0; i < kFramesPerCapture && pcap_next_ex(capture.get(), &header, &bytes) == 1;
         ++i) {
        write_seed(to, {bytes, std::min<std::size_t>(header->caplen, kMaxFrame)});
    }
}

}  // namespace

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s OUT FROM...\n", argv[0]);
        return 2;
    }
    fs::create_directories(argv[1]);
    std::vector<fs::path> sources(argv + 2, argv + argc);
    if (const char* const captures = std::getenv("ZX_CAPTURES")) {
        sources.emplace_back(captures);
    }
    for (const fs::path& source : sources) {
        std::error_code none;
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(source, none)) {
            const fs::path extension = entry.path().extension();
            if (extension == ".pcap" || extension == ".pcapng") {
                read_capture(entry.path(), argv[1]);
            }
        }
    }
}

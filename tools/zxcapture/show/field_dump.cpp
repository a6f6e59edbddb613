#include "show/field_dump.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>

#include "common/failure.hpp"
#include "zxlog.h"

namespace capture {
namespace {

constexpr std::uint32_t kLevelOff = 0;
constexpr std::uint32_t kLevelInformation = 4;
constexpr std::string_view kIndent = "    ";

// Removes time, level and tag, which are each in brackets.
std::string_view without_front(std::string_view line) {
    for (int i = 0; i < 3 && line.starts_with('['); ++i) {
        line.remove_prefix(std::min(line.find(']'), line.size() - 1) + 1);
    }
    return line;
}

// The engine shows the flags and the offset as one number. This is what they mean.
void add_fragment_fields(std::string& text, const Packet& packet) {
    text += "Flags:";
    text += packet.dont_fragment ? " DF" : "";
    text += packet.more_fragments ? " MF" : "";
    text += packet.dont_fragment || packet.more_fragments ? "\n" : " none\n";
    text.append(kIndent).append("Fragment offset: ");
    text += std::to_string(packet.fragment_offset);
}

std::string readable(std::string_view log, const Packet& packet) {
    constexpr std::string_view kLineEnd = "\r\n";
    std::string text;
    while (!log.empty()) {
        const std::size_t size = std::min(log.find(kLineEnd), log.size());
        const std::string_view line = without_front(log.substr(0, size));
        text += kIndent;
        if (line.starts_with("Fragment offset:")) {
            add_fragment_fields(text, packet);
        } else {
            text += line;
        }
        text += '\n';
        log.remove_prefix(std::min(size + kLineEnd.size(), log.size()));
    }
    return text;
}

}  // namespace

FieldDump::FieldDump(const TimeForm& time, const LineForm& form)
    : line_(time, form), memory_(memfd_create("field dump", MFD_CLOEXEC)) {
    const std::string path = "/proc/self/fd/" + std::to_string(memory_.get());
    if (memory_.get() < 0 || zxlog_api_setFile(path.c_str()) != 0) {
        throw tools::system_failure("cannot collect the field dump");
    }
}

void FieldDump::add(const Frame& frame, const Packet& packet, std::uint64_t, Output& output) {
    output.add(line_.print(frame, packet));
    output.add(fields(frame, packet));
    output.add(line_.print_bytes(frame, packet));
}

std::string FieldDump::fields(const Frame& frame, const Packet& packet) {
    zxlog_api_setLoglevel(kLevelInformation);
    engine_.dump(frame, packet);
    zxlog_api_setLoglevel(kLevelOff);
    std::string text = readable(take_log(), packet);
    const std::size_t dumped = std::min<std::size_t>(engine_.record().data_len, ZXFRAME_DATA_SIZE);
    const std::size_t there = captured_payload(frame, packet).size();
    if (packet.depth == Depth::transport && packet.transport == Transport::udp &&
        packet.flaw == Flaw::none && there < dumped) {
        text.append(kIndent).append("Data: only the first ");
        text += std::to_string(there) + " bytes are in this frame\n";
    }
    return text;
}

std::string FieldDump::take_log() {
    const off_t size = lseek(memory_.get(), 0, SEEK_END);
    std::string log(static_cast<std::size_t>(std::max<off_t>(size, 0)), '\0');
    const ssize_t got = pread(memory_.get(), log.data(), log.size(), 0);
    log.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    if (ftruncate(memory_.get(), 0) != 0) {
        throw tools::system_failure("cannot collect the field dump");
    }
    return log;
}

}  // namespace capture

// Runs a fuzz target over files and over the files in directories, without libFuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// A target may define this function to run more than its seeds.
[[gnu::weak]] void zx_fuzz_sweep();

namespace {

void run(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        if (!fs::is_directory(argv[i])) {
            run(argv[i]);
            ++count;
            continue;
        }
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(argv[i])) {
            if (entry.is_regular_file()) {
                run(entry.path());
                ++count;
            }
        }
    }
    if (zx_fuzz_sweep != nullptr) {
        zx_fuzz_sweep();
    }
    std::printf("%d inputs\n", count);
    return count > 0 ? 0 : 1;
}

// The files of a test and of its process.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace zx::test {

// A directory for one test. It is removed with everything in it.
class Folder {
public:
    Folder() = default;
    ~Folder() { std::filesystem::remove_all(path_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_ = mkdtemp(std::string("/tmp/zxtest.XXXXXX").data());
};

// The content of a file. It is empty when the file is missing, or belongs to a process that ends
// meanwhile.
inline std::string content_of(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

inline std::ptrdiff_t open_descriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

}  // namespace zx::test

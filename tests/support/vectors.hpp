// Published test vectors. They are not part of the project.
#pragma once

#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace zx::test {

// The path of a file of the vectors, or an empty path when ZX_VECTORS is not set.
inline std::string vectors(const std::string& file) {
    const char* const folder = std::getenv("ZX_VECTORS");
    return folder != nullptr ? std::string(folder) + "/" + file : std::string();
}

// Reads a file in the form of NIST's response files. Without the vectors there are no records. A
// record is the "NAME = value" lines between two empty ones. The "[section]" above them is
// "section".
inline std::vector<std::map<std::string, std::string>> read_records(const std::string& file) {
    std::vector<std::map<std::string, std::string>> records;
    std::ifstream in(vectors(file));
    std::string section;
    bool begins = true;
    for (std::string line; std::getline(in, line);) {
        line.erase(line.find_last_not_of('\r') + 1);
        const std::size_t sign = line.find(" = ");
        if (line.starts_with('[')) {
            section = line.substr(1, line.find(']') - 1);
        } else if (sign != std::string::npos && !line.starts_with('#')) {
            if (begins) {
                records.push_back({{"section", section}});
            }
            records.back()[line.substr(0, sign)] = line.substr(sign + 3);
        }
        begins = line.empty() || (begins && sign == std::string::npos);
    }
    return records;
}

}  // namespace zx::test

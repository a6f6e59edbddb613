#include "vectors.hpp"

#include <cstdlib>
#include <fstream>
#include <utility>

std::string zx::test::vectors(const std::string& file) {
    const char* const folder = std::getenv("ZX_VECTORS");
    return folder != nullptr ? std::string(folder) + "/" + file : std::string();
}

std::vector<zx::test::Record> zx::test::read_records(const std::string& file) {
    std::vector<Record> records;
    std::ifstream in(vectors(file));
    std::string line, section;
    Record record;
    for (bool more = true; more;) {
        more = static_cast<bool>(std::getline(in, line));
        while (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        const std::size_t sign = line.find(" = ");
        if (!more || line.empty()) {
            if (!record.empty()) {
                record["section"] = section;
                records.push_back(std::exchange(record, {}));
            }
        } else if (line.front() == '[') {
            section = line.substr(1, line.find(']') - 1);
        } else if (line.front() != '#' && sign != std::string::npos) {
            record[line.substr(0, sign)] = line.substr(sign + 3);
        }
    }
    return records;
}

// Published test vectors, which lie outside of the project.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace zx::test {

// Where a file of the vectors is; empty when ZX_VECTORS is not set.
std::string vectors(const std::string& file);

// The "NAME = value" lines between two empty ones. The "[section]" above them stands as "section".
using Record = std::map<std::string, std::string>;

// A file in the form of NIST's response files; without the vectors there are no records.
std::vector<Record> read_records(const std::string& file);

}  // namespace zx::test

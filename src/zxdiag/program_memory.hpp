// Reading memory of the program that may be given back at any time.
#pragma once

#include <cstddef>

namespace zx::diag {

class ProgramMemory {
public:
    ProgramMemory();
    ProgramMemory(const ProgramMemory&) = delete;
    ProgramMemory& operator=(const ProgramMemory&) = delete;
    ~ProgramMemory();

    // False: no descriptor was left.
    [[nodiscard]] bool can_read() const { return ends_[1] >= 0; }

    // Copies up to a page. False: the memory is gone, or no descriptor was left. What comes may be
    // about to change, or already be something else.
    [[nodiscard]] bool read(const void* from, void* to, std::size_t size) const;

private:
    int ends_[2];
};

}  // namespace zx::diag

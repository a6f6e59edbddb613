#include "zxdiag/program_memory.hpp"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "internal/cancel.hpp"

namespace zx::diag {

// The kernel takes the bytes out of the memory: where there is none, it returns an error, and no
// signal is raised.
ProgramMemory::ProgramMemory() : ends_{-1, -1} {
    (void)!pipe2(ends_, O_CLOEXEC | O_NONBLOCK);
}

ProgramMemory::~ProgramMemory() {
    for (const int end : ends_) {
        if (end >= 0) {
            close_uncancelled(end);
        }
    }
}

// The bare system calls, because the sanitizers check the memory that the C library's functions are
// given.
bool ProgramMemory::read(const void* from, void* to, std::size_t size) const {
    const long written = syscall(SYS_write, ends_[1], from, size);
    if (written <= 0) {
        return false;
    }
    const long got = syscall(SYS_read, ends_[0], to, static_cast<std::size_t>(written));
    return got == static_cast<long>(size);
}

}  // namespace zx::diag

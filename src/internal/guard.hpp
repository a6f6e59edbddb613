// Owners, which give back or wipe what they hold at the end of the block.
#pragma once

#include <cstring>
#include <utility>

#include "internal/cancel.hpp"

namespace zx {

class UniqueFd {
public:
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    ~UniqueFd() { reset(); }

    [[nodiscard]] int get() const { return fd_; }
    void reset() {
        if (fd_ >= 0) {
            close_uncancelled(fd_);
            fd_ = -1;
        }
    }

private:
    int fd_;
};

// A secret on the stack. It is wiped, so that nobody finds it there later.
template <typename T>
class Wiped {
public:
    // cppcheck-suppress uninitMemberVar  // whoever wipes it fills it, too
    Wiped() = default;
    Wiped(const Wiped&) = delete;
    Wiped& operator=(const Wiped&) = delete;
    ~Wiped() { explicit_bzero(&value_, sizeof value_); }

    T& operator*() { return value_; }
    T* operator->() { return &value_; }

private:
    T value_;
};

}  // namespace zx

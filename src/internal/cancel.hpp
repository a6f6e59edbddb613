// What a thread that is cancelled must not leave behind. Destructors do not run then: this library
// is compiled without exceptions.
#pragma once

#include <pthread.h>
#include <unistd.h>

namespace zx {

// While one lives, a cancellation waits: for calls that hold what nobody could give back.
class NotCancelled {
public:
    NotCancelled() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~NotCancelled() { pthread_setcancelstate(before_, nullptr); }
    NotCancelled(const NotCancelled&) = delete;
    NotCancelled& operator=(const NotCancelled&) = delete;

private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

// close() looks for a cancellation before it closes.
inline void close_uncancelled(int fd) {
    const NotCancelled not_cancelled;
    close(fd);
}

// Gives what `work` gives. When the thread is cancelled inside, `undo(argument)` is called.
template <typename Work>
auto undone_if_cancelled(void (*undo)(void*), void* argument, const Work& work) {
    decltype(work()) result{};
    pthread_cleanup_push(undo, argument);
    result = work();
    pthread_cleanup_pop(0);
    return result;
}

// Lets `work` use a descriptor, which is closed afterwards, also when the thread is cancelled.
template <typename Work>
auto with_fd(int fd, const Work& work) {
    constexpr auto kClose = [](void* argument) {
        if (const int open_fd = *static_cast<const int*>(argument); open_fd >= 0) {
            close_uncancelled(open_fd);
        }
    };
    const auto result = undone_if_cancelled(kClose, &fd, [&] { return work(fd); });
    kClose(&fd);
    return result;
}

}  // namespace zx

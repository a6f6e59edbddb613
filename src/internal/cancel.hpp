// Threads that are cancelled. Their destructors do not run, because this library is compiled
// without exceptions. So a function holds something only while its thread cannot be cancelled, or
// while a handler would give it back.
#pragma once

#include <pthread.h>
#include <unistd.h>

#include <type_traits>

namespace zx {

// Returns the result of `work`. When the thread is cancelled inside, `undo` is called.
template <typename Work, typename Undo>
auto undone_if_cancelled(const Work& work, Undo undo) {
    std::invoke_result_t<Work> result{};
    pthread_cleanup_push([](void* own) { (*static_cast<Undo*>(own))(); }, &undo);
    result = work();
    pthread_cleanup_pop(0);
    return result;
}

// The thread is not cancelled as long as an object of this class exists. A cancellation takes
// effect afterwards.
class CancelHeld {
public:
    CancelHeld() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    CancelHeld(const CancelHeld&) = delete;
    CancelHeld& operator=(const CancelHeld&) = delete;
    ~CancelHeld() { pthread_setcancelstate(before_, nullptr); }

    // For work that may take long. During it the thread can be cancelled if it could be before;
    // `undo` then gives back what the function holds.
    template <typename Work, typename Undo>
    auto wait(const Work& work, Undo undo) {
        const auto cancellable = [&] {
            pthread_setcancelstate(before_, nullptr);
            const auto result = work();
            pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
            return result;
        };
        return undone_if_cancelled(cancellable, undo);
    }

private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

// close() is a cancellation point, and a thread that is cancelled there leaves the file open.
inline void close_uncancelled(int fd) {
    const CancelHeld held;
    close(fd);
}

// Lets `work` use a descriptor, and closes it afterwards, also when the thread is cancelled.
template <typename Work>
auto with_fd(int fd, const Work& work) {
    const auto close_it = [fd] {
        if (fd >= 0) {
            close_uncancelled(fd);
        }
    };
    const auto result = undone_if_cancelled([&] { return work(fd); }, close_it);
    close_it();
    return result;
}

}  // namespace zx

// Threads that are cancelled. No destructor runs then: this library is compiled without exceptions.
// So what a function holds is held only while its thread cannot be cancelled, or while a handler
// gives it back.
#pragma once

#include <pthread.h>
#include <unistd.h>

#include <type_traits>

namespace zx {

// Gives what `work` gives. When the thread is cancelled inside, `undo` is called.
template <typename Work, typename Undo>
auto undone_if_cancelled(const Work& work, Undo undo) {
    std::invoke_result_t<Work> result{};
    pthread_cleanup_push([](void* own) { (*static_cast<Undo*>(own))(); }, &undo);
    result = work();
    pthread_cleanup_pop(0);
    return result;
}

// While one lives, the thread is not cancelled; a cancellation takes effect afterwards.
class CancelHeld {
public:
    CancelHeld() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    CancelHeld(const CancelHeld&) = delete;
    CancelHeld& operator=(const CancelHeld&) = delete;
    ~CancelHeld() { pthread_setcancelstate(before_, nullptr); }

    // For a part that may take long: the thread can be cancelled there if it could be before, and
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

// close() looks for a cancellation before it closes.
inline void close_uncancelled(int fd) {
    const CancelHeld held;
    close(fd);
}

// Lets `work` use a descriptor, which is closed afterwards, also when the thread is cancelled.
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

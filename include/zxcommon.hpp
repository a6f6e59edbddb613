/**
 * @file zxcommon.hpp
 * The C interface for C++20 callers: owners that free what they make, guards that release what they
 * take, spans in place of pointers with lengths.
 *
 * Everything here is one inline call of the C interface. Results, logging and safety (threads,
 * signal handlers, cancellation) are those of the function that a member names. The caller's
 * function, file and line are passed on. When an object cannot be made, the C interface logs the
 * failure, and the object converts to false.
 */
#ifndef ZXCOMMON_HPP
#define ZXCOMMON_HPP

#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "zxdiag.h"
#include "zxepoll.h"
#include "zxfifo.h"
#include "zxlock.h"
#include "zxlog.h"
#include "zxmem.h"
#include "zxthread.h"

#ifndef __cpp_lib_span
#error "zxcommon.hpp needs C++20; older versions of C++ can include the C headers"
#endif

namespace zxcommon {

/** The caller of a function that has Caller::current() as a default argument. */
struct Caller {
    const char* function; /**< name of the function */
    const char* file;     /**< its source file, a literal */
    int line;             /**< source line of the call */

    /**
     * Names the place of a call.
     * @param function, file, line  filled in by the compiler.
     * @return the place of the call of the function that has it as a default argument.
     */
    [[nodiscard]] static constexpr Caller current(const char* function = __builtin_FUNCTION(),
                                                  const char* file = __builtin_FILE(),
                                                  int line = __builtin_LINE()) noexcept {
        return {function, file, line};
    }
};

/**
 * Gives the text of a fixed name field, such as zxlock_ctt::name.
 *
 * @param field  where the text is; it is not copied.
 * @return the text before the first NUL; the whole field when it has none, as for a name that was
 *         cut.
 */
template <std::size_t Size>
[[nodiscard]] constexpr std::string_view text(const char (&field)[Size]) noexcept {
    const std::string_view whole(field, Size);
    return whole.substr(0, whole.find('\0'));
}

/** Owns a named lock: zxlock_api_init(), zxlock_api_deinit(). */
class Lock {
public:
    /**
     * Makes the lock.
     * @param name  copied; what the lock is for.
     */
    explicit Lock(const char* name) noexcept { zxlock_api_init(&record_, name); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock() { zxlock_api_deinit(&record_); }

    /** Tells whether it was made. @return true when it was. */
    [[nodiscard]] explicit operator bool() const noexcept { return record_.initialised == 1; }
    /** Gives access to the record. @return the record, which stays the owner's. */
    [[nodiscard]] zxlock_ctt* get() noexcept { return &record_; }
    /**
     * Tells who holds the lock. The text is in the record and changes with the holder: copy it. The
     * copy may be mixed from two holders if another thread takes the lock meanwhile.
     * @return the holder as "function,line", or "nolock".
     */
    [[nodiscard]] std::string_view holder() const noexcept { return text(record_.holder); }

private:
    zxlock_ctt record_{};
};

/** Holds a lock until the end of the block: zxlock_api_obtain(), zxlock_api_release(). */
class [[nodiscard]] LockGuard {
public:
    /**
     * Takes the lock.
     * @param lock    must outlive the guard.
     * @param caller  recorded as holder.
     */
    explicit LockGuard(zxlock_ctt* lock, const Caller& caller = Caller::current()) noexcept
        : lock_(lock), caller_(caller) {
        is_held_ = zxlock_api_obtain(lock_, caller_.function, caller_.line) == 0;
    }
    /**
     * Takes the lock.
     * @param lock    must outlive the guard.
     * @param caller  recorded as holder.
     */
    explicit LockGuard(Lock& lock, const Caller& caller = Caller::current()) noexcept
        : LockGuard(lock.get(), caller) {}
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;
    ~LockGuard() {
        if (is_held_) {
            zxlock_api_release(lock_, caller_.function, caller_.line);
        }
    }

    /** Tells whether the lock is held. @return false when the lock cannot be used. */
    [[nodiscard]] explicit operator bool() const noexcept { return is_held_; }

private:
    zxlock_ctt* lock_;
    Caller caller_;
    bool is_held_ = false;
};

/** Frees a buffer of the tracked allocator: zxmem_api_free(). */
struct TrackedDeleter {
    /** Frees the buffer. @param buffer  from zxmem_api_malloc(). */
    void operator()(void* buffer) const noexcept { zxmem_api_free(&buffer); }
};

/** A tracked buffer of plain data. */
template <typename T>
using Tracked = std::unique_ptr<T[], TrackedDeleter>;

/**
 * Makes a zeroed, tracked buffer: zxmem_api_malloc().
 *
 * @param count   objects.
 * @param name    copied; what the buffer is for.
 * @param caller  its file and line are stored in the buffer's node.
 * @return the buffer; null when memory is short, and when its size in bytes does not fit 32 bits,
 *         which is not logged.
 */
template <typename T>
[[nodiscard]] Tracked<T> make_tracked(std::uint32_t count, const char* name,
                                      const Caller& caller = Caller::current()) noexcept {
    static_assert(std::is_trivially_default_constructible_v<T> &&
                  std::is_trivially_destructible_v<T>);
    static_assert(alignof(T) <= alignof(std::max_align_t));
    if (count > UINT32_MAX / sizeof(T)) {
        return nullptr;
    }
    return Tracked<T>(
        static_cast<T*>(zxmem_api_malloc(count * static_cast<std::uint32_t>(sizeof(T)), name,
                                         caller.file, static_cast<std::uint32_t>(caller.line))));
}

/**
 * Owns a block FIFO: zxfifo_api_blockInit(), zxfifo_api_blockDeinit().
 *
 * Spans may be empty. With a span of more than INT32_MAX bytes nothing is stored or taken.
 */
class Fifo {
public:
    /**
     * Makes the FIFO.
     * @param capacity  bytes; a message needs #ZXFIFO_PREFIX_SIZE besides its payload.
     * @param name      copied.
     */
    Fifo(std::uint32_t capacity, const char* name) noexcept
        : fifo_(zxfifo_api_blockInit(capacity, name)) {}

    /** Tells whether it was made. @return true when it was. */
    [[nodiscard]] explicit operator bool() const noexcept { return fifo_ != nullptr; }
    /** Gives access to the FIFO. @return the FIFO, which stays the owner's. */
    [[nodiscard]] zxfifoblock_ctt* get() const noexcept { return fifo_.get(); }

    /** Calls zxfifo_api_blockSizeUsed(). @return bytes held. */
    [[nodiscard]] std::int32_t used() const noexcept { return zxfifo_api_blockSizeUsed(get()); }
    /** Calls zxfifo_api_blockSizeLeft(); do so before storing. @return bytes free. */
    [[nodiscard]] std::int32_t left() const noexcept { return zxfifo_api_blockSizeLeft(get()); }
    /** Drops the content: zxfifo_api_blockReset(). @return its result. */
    std::int32_t reset() noexcept { return zxfifo_api_blockReset(get()); }

    /**
     * Stores bytes: zxfifo_api_blockIn().
     * @param bytes  copied.
     * @return bytes stored, perhaps fewer than there are in `bytes`; -1 without a FIFO.
     */
    std::int32_t in(std::span<const std::uint8_t> bytes) noexcept {
        return zxfifo_api_blockIn(get(), data_of(bytes), length_of(bytes), nullptr);
    }
    /**
     * Takes bytes: zxfifo_api_blockOut().
     * @param room  the span to fill.
     * @return bytes taken, perhaps fewer than there are in `room`; -1 without a FIFO.
     */
    std::int32_t out(std::span<std::uint8_t> room) noexcept {
        return zxfifo_api_blockOut(get(), data_of(room), length_of(room), nullptr);
    }
    /**
     * Stores a message: zxfifo_api_blockLenIn().
     * @param payload  copied.
     * @return payload bytes stored; -1 for a payload that is too long, or without a FIFO.
     */
    std::int32_t message_in(std::span<const std::uint8_t> payload) noexcept {
        return zxfifo_api_blockLenIn(get(), data_of(payload), length_of(payload));
    }
    /**
     * Takes a message: zxfifo_api_blockLenOut1(). Call used() first, because an empty FIFO is not
     * detected. If a message is larger than `room`, call reset() afterwards.
     * @param room    receives the payload.
     * @param caller  named in the log when the payload is too large.
     * @return payload bytes taken; -1 when they do not fit or there is no FIFO.
     */
    std::int32_t message_out(std::span<std::uint8_t> room,
                             const Caller& caller = Caller::current()) noexcept {
        const auto size = std::min<std::size_t>(room.size(), UINT32_MAX);
        return zxfifo_api_blockLenOut1(get(), data_of(room), static_cast<std::uint32_t>(size),
                                       caller.function, caller.line);
    }

private:
    // The C interface refuses a NULL buffer, which an empty span may have. It accepts a negative
    // length and moves nothing, and it refuses a message of that length.
    static inline std::uint8_t no_bytes_{};

    static const std::uint8_t* data_of(std::span<const std::uint8_t> bytes) noexcept {
        return bytes.data() != nullptr ? bytes.data() : &no_bytes_;
    }
    static std::uint8_t* data_of(std::span<std::uint8_t> bytes) noexcept {
        return bytes.data() != nullptr ? bytes.data() : &no_bytes_;
    }
    static std::int32_t length_of(std::span<const std::uint8_t> bytes) noexcept {
        return bytes.size() <= INT32_MAX ? static_cast<std::int32_t>(bytes.size()) : -1;
    }

    struct Deleter {
        void operator()(zxfifoblock_ctt* fifo) const noexcept { zxfifo_api_blockDeinit(&fifo); }
    };
    std::unique_ptr<zxfifoblock_ctt, Deleter> fifo_;
};

/** Holds the mutex of a worker's record until the end of the block: zxthread_api_lock(). */
class [[nodiscard]] StateGuard {
public:
    /**
     * Takes the mutex.
     * @param thread  must outlive the guard.
     */
    explicit StateGuard(zxthread_ctt* thread) noexcept
        : thread_(zxthread_api_lock(thread) == 0 ? thread : nullptr) {}
    StateGuard(const StateGuard&) = delete;
    StateGuard& operator=(const StateGuard&) = delete;
    ~StateGuard() {
        if (thread_ != nullptr) {
            zxthread_api_unlock(thread_);
        }
    }

    /** Tells whether the mutex is held. @return false when the record cannot be used. */
    [[nodiscard]] explicit operator bool() const noexcept { return thread_ != nullptr; }

private:
    zxthread_ctt* thread_;
};

/** How long to wait for the other side and how often to check, in milliseconds. */
struct Wait {
    std::uint32_t timeout_ms; /**< in total */
    std::uint32_t step_ms;    /**< between two checks */
};

/**
 * Owns a worker thread: zxthread_api_create(), zxthread_api_destroy().
 *
 * Stop the worker before its owner is destroyed (see zxthread.h). A worker that still runs is
 * cancelled wherever it is. If that is in a noexcept function, the program ends.
 *
 * If the worker uses an object that has its Thread as a member, declare this member last. Then the
 * worker starts after the other members are made, and ends before they are destroyed.
 */
class Thread {
public:
    /**
     * Starts the worker.
     * @param name      copied.
     * @param func      the function that the thread runs.
     * @param argument  passed to `func`; often the object that contains this record.
     */
    Thread(const char* name, zxthread_func_cb func, void* argument) noexcept {
        zxthread_api_create(&record_, name, func, argument);
    }
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    ~Thread() {
        if (*this) {
            int state = 0;
            // Joining is a cancellation point, and a cancellation must not leave a destructor.
            pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
            zxthread_api_destroy(&record_);
            pthread_setcancelstate(state, nullptr);
        }
    }

    /** Tells whether it was created. @return true when it was. */
    [[nodiscard]] explicit operator bool() const noexcept { return record_.created == 1; }
    /** Gives access to the record. @return the record, which stays the owner's. */
    [[nodiscard]] zxthread_ctt* get() noexcept { return &record_; }

    /**
     * For the controller: tells a worker that waits in zxthread_api_waitCmdStarting() to start.
     * Waiting is a cancellation point, here and in stop().
     * @param wait  how long to wait for its answer.
     * @return true when it answered in time.
     */
    [[nodiscard]] bool start(Wait wait) {
        return zxthread_api_waitStateTimeout(&record_, ZXTHREAD_STATE_START,
                                             ZXTHREAD_STATE_STARTING, wait.timeout_ms,
                                             wait.step_ms) == 1;
    }
    /** For the controller, after start(): tells the worker to keep running. */
    void run() noexcept {
        if (const StateGuard guard(&record_); guard) {
            record_.state = ZXTHREAD_STATE_RUN;
        }
    }
    /**
     * For the controller: tells the worker to stop, which it sees in zxthread_api_isStop().
     * @param wait  how long to wait for its answer.
     * @return true when it answered in time.
     */
    [[nodiscard]] bool stop(Wait wait) {
        return zxthread_api_waitStateTimeout(&record_, ZXTHREAD_STATE_NONE, ZXTHREAD_STATE_STOPPED,
                                             wait.timeout_ms, wait.step_ms) == 1;
    }

private:
    zxthread_ctt record_{};
};

/**
 * The worker's side of Thread::stop(). It calls zxthread_api_isStop() until that returns 1, so that
 * the stop is answered and logged once.
 */
class StopRequest {
public:
    /** @param thread  outlives this object. */
    explicit StopRequest(zxthread_ctt* thread) noexcept : thread_(thread) {}

    /** @return whether the controller has asked the worker to stop. The controller is answered. */
    [[nodiscard]] bool seen() noexcept {
        is_seen_ = is_seen_ || zxthread_api_isStop(thread_) != 0;
        return is_seen_;
    }

private:
    zxthread_ctt* thread_;
    bool is_seen_ = false;
};

/**
 * The worker's side of the whole handshake, for the function that a thread runs: it answers
 * Thread::start(), waits for Thread::run(), calls `body`, and answers Thread::stop(). It returns
 * after the stop, also when `body` returns earlier.
 *
 * @param thread  the worker's record.
 * @param wait    how long to wait for the start.
 * @param body    called with a StopRequest; it must return soon after it sees the request. If a
 *                stop follows the start at once, the request may be there from the beginning. Not
 *                called if the controller does not start the worker in time.
 */
template <typename Body>
void run_worker(zxthread_ctt* thread, Wait wait, const Body& body) {
    const timespec step{wait.step_ms / 1000, static_cast<long>(wait.step_ms % 1000) * 1000000};
    const auto is_starting = [thread] {
        const StateGuard guard(thread);
        return guard && thread->state == ZXTHREAD_STATE_STARTING;
    };
    StopRequest stop(thread);
    if (zxthread_api_waitCmdStarting(thread, wait.timeout_ms, wait.step_ms) == 1) {
        while (is_starting()) {
            nanosleep(&step, nullptr);
        }
        body(stop);
    }
    while (!stop.seen()) {
        nanosleep(&step, nullptr);
    }
}

/** Owns an open descriptor. */
class Descriptor {
public:
    Descriptor() noexcept = default;
    /** @param fd  owned from now on; below 0: none. */
    explicit Descriptor(int fd) noexcept : fd_(fd) {}
    /** @param other  has none afterwards. */
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    /** @param other  has none afterwards. @return this object; what it owned is closed. */
    Descriptor& operator=(Descriptor&& other) noexcept {
        reset(std::exchange(other.fd_, -1));
        return *this;
    }
    ~Descriptor() { reset(); }

    /** @return whether it has one. */
    [[nodiscard]] explicit operator bool() const noexcept { return fd_ >= 0; }
    /** @return the descriptor, which stays the owner's; below 0: none. */
    [[nodiscard]] int get() const noexcept { return fd_; }
    /** Closes what it owns. @param fd  owned from now on; below 0: none. */
    void reset(int fd = -1) noexcept {
        const int old = std::exchange(fd_, fd);
        if (old >= 0) {
            int state = 0;
            // close() is a cancellation point, and nothing may leave a destructor.
            pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
            close(old);
            pthread_setcancelstate(state, nullptr);
        }
    }

private:
    int fd_ = -1;
};

/** Owns an epoll instance: zxepoll_innerapi_open(), zxepoll_close(). */
class Epoll {
public:
    /** @param caller  named when no instance can be opened. */
    explicit Epoll(const Caller& caller = Caller::current()) noexcept
        : instance_(zxepoll_innerapi_open(1, caller.function, caller.line)) {}

    /** @return whether it was opened. */
    [[nodiscard]] explicit operator bool() const noexcept { return static_cast<bool>(instance_); }
    /** @return the instance, which stays the owner's. */
    [[nodiscard]] int get() const noexcept { return instance_.get(); }

    /**
     * Watches a descriptor: zxepoll_add().
     * @param fd      the descriptor.
     * @param events  EPOLLIN and others of epoll_ctl().
     * @return whether it is watched.
     */
    bool add(int fd, std::uint32_t events) noexcept { return zxepoll_add(get(), fd, events) == 0; }
    /**
     * Changes the events of a watched descriptor: zxepoll_mod().
     * @param fd      the descriptor.
     * @param events  EPOLLIN and others of epoll_ctl().
     * @return whether they were changed.
     */
    bool mod(int fd, std::uint32_t events) noexcept { return zxepoll_mod(get(), fd, events) == 0; }
    /** Stops watching: zxepoll_del(). @param fd  the descriptor. @return whether it stopped. */
    bool del(int fd) noexcept { return zxepoll_del(get(), fd, 0) == 0; }
    /**
     * Waits for events: zxepoll_wait_timeout().
     * @param events      receives them.
     * @param timeout_ms  milliseconds; below 0: no timeout.
     * @return the events that came: none after the timeout or after a signal handler.
     */
    [[nodiscard]] std::span<epoll_event> wait(std::span<epoll_event> events,
                                              int timeout_ms = -1) noexcept {
        const int count =
            zxepoll_wait_timeout(get(), events.data(), static_cast<int>(events.size()), timeout_ms);
        return events.first(count > 0 ? static_cast<std::size_t>(count) : 0);
    }

private:
    Descriptor instance_;
};

/** The level of a log line. */
enum class Level : std::uint32_t { error = 1, warning, notice, info, debug };

/** What a log line says about its origin. */
struct LogLine {
    /**
     * @param its_level   level of the line.
     * @param its_tag     tag of the module, such as "RELAY"; must outlive the call.
     * @param its_caller  named in the line if #flag_printLineFunc is set.
     */
    LogLine(Level its_level, const char* its_tag,
            const Caller& its_caller = Caller::current()) noexcept
        : level(its_level), tag(its_tag), caller(its_caller) {}

    Level level;     /**< compared with the level of the log */
    const char* tag; /**< searched for in #strfilterTags */
    Caller caller;   /**< the function and line that log */
};

/**
 * Logs a line in the format of the library, and prints it in colour if #flag_stdPrint is set.
 *
 * A call is `zxcommon::log({zxcommon::Level::notice, "RELAY"}, "client %s has left", name)`. If the
 * level or the tag is filtered out, zxdiag_log_keep() gets the line while the diagnosis is on.
 * Control characters in the message are escaped. Do not call it in a signal handler: it allocates
 * memory for a message of 1024 bytes and more.
 *
 * @param line    level, tag and caller.
 * @param format  a printf() format for the message, without a line end.
 */
[[gnu::format(printf, 2, 3)]] inline void log(LogLine line, const char* format, ...) {
    const auto level = static_cast<std::uint32_t>(line.level);
    const bool is_written = zxlog_api_getLoglevel() >= level &&
                            zxlog_api_strCasestrNum(strfilterTags, line.tag, 1, 1) == 0;
    if (!is_written && std::atomic_ref(zxdiag_log_isOn).load(std::memory_order_relaxed) == 0) {
        return;
    }
    char place[256] = "";
    if (std::atomic_ref(flag_printLineFunc).load(std::memory_order_relaxed) != 0) {
        std::snprintf(place, sizeof place, "[%s %d]", line.caller.function, line.caller.line);
    }
    char room[1024];
    std::string longer;
    const char* message = room;
    std::va_list args;
    std::va_list again;
    va_start(args, format);
    va_copy(again, args);
    const int length = std::vsnprintf(room, sizeof room, format, args);
    if (length >= static_cast<int>(sizeof room)) {
        longer.resize(static_cast<std::size_t>(length));
        std::vsnprintf(longer.data(), longer.size() + 1, format, again);
        message = longer.c_str();
    }
    va_end(again);
    va_end(args);
    const char* const name = strLoglevel_simple[level];
    const auto put = is_written ? zxlog_innerapi_file : zxdiag_log_keep;
    put("%s[%s][%s]%s%s\r\n", zxlog_innerapi_logTime(), name, line.tag, place, message);
    if (is_written && std::atomic_ref(flag_stdPrint).load(std::memory_order_relaxed) != 0) {
        constexpr const char* kColours[] = {"", "1;31", "1;33", "1;36", "0", "0;32"};
        std::printf("\033[%sm %s[%s][%s]%s%s\033[0m\r\n", kColours[level], zxlog_innerapi_logTime(),
                    name, line.tag, place, message);
        std::fflush(stdout);
    }
}

}  // namespace zxcommon

#endif

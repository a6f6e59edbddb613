#include "faults.hpp"

#include <fcntl.h>
#include <fnmatch.h>
#include <grp.h>
#include <link.h>
#include <netdb.h>
#include <pthread.h>
#include <pwd.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <new>
#include <span>
#include <tuple>
#include <type_traits>

#include "files.hpp"
#include "zxlog.h"

#ifdef ZX_ASAN
extern "C" void __asan_handle_no_return();
#else
static void __asan_handle_no_return() {}
#endif

extern "C" [[gnu::weak]] void __gcov_dump();  // there when coverage is counted

namespace zx::test {

std::string g_directory;

namespace {

// ------------------------------------------------------------------ stand-ins

// Moves paths that the library uses into the directory: one that other tests use, too, and one of
// the kernel's.
std::string within(std::string text) {
    constexpr std::pair<std::string_view, const char*> kOutside[] = {{"/tmp/zxcmd_info", "/info"},
                                                                     {"/sys/class/net/lo", ""}};
    for (const auto& [outside, inside] : kOutside) {
        if (const std::size_t at = text.find(outside); at != std::string::npos) {
            text.replace(at, outside.size(), g_directory + inside);
        }
    }
    return text;
}

int system_within(const char* command) {
    zxlog_innerapi_file("$ %s\r\n", command);
    const std::string ours = within(command);
    return ours.find(g_directory) != std::string::npos ? system(ours.c_str()) : 0;
}

int open_within(const char* path, int flags, mode_t mode) {
    return open(within(path).c_str(), flags, mode);
}

int rename_within(const char* from, const char* to) {
    return std::rename(from, within(to).c_str());
}

int keep_interface(int fd, unsigned long what, void* request) {
    return what == SIOCSIFADDR || what == SIOCSIFFLAGS || what == SIOCSIFNETMASK
               ? 0
               : ioctl(fd, what, request);
}

void note_sync() noexcept {
    zxlog_innerapi_file("$ sync\r\n");
}

int note_reboot(int what) noexcept {
    zxlog_innerapi_file("$ reboot %#x\r\n", static_cast<unsigned>(what));
    return 0;
}

int keep_clock(const timeval*, const struct timezone*) {
    return 0;
}

unsigned sleep_briefly(unsigned) {
    usleep(1000);
    return 0;
}

// The clock of the libraries moves only when they wait, so that a busy machine changes no outcome.
std::atomic<std::uint64_t> g_clock_us{1'700'000'000'000'000};
constexpr int kSpeed = 20;  // the waits are this many times shorter

int wait_briefly(int epfd, epoll_event* events, int max, int ms) {
    const int count = epoll_wait(epfd, events, max, ms / kSpeed);
    g_clock_us += count == 0 ? static_cast<std::uint64_t>(ms) * 1000 : 0;
    return count;
}

int select_briefly(int count, fd_set* readable, fd_set* writable, fd_set* failed, timeval* wait) {
    if (wait == nullptr) {
        return select(count, readable, writable, failed, nullptr);
    }
    const auto us = wait->tv_sec * std::int64_t{1000000} + wait->tv_usec;
    timeval brief{us / kSpeed / 1000000, us / kSpeed % 1000000};
    const int ready = select(count, readable, writable, failed, &brief);
    g_clock_us += ready == 0 ? static_cast<std::uint64_t>(us) : 0;
    return ready;
}

int pause_briefly(useconds_t us) {
    g_clock_us += us;
    return usleep(us / kSpeed);
}

}  // namespace

// The clock moves on by a microsecond each time somebody reads it.
std::uint64_t clock_us() {
    return ++g_clock_us;
}

namespace {

// The coarse clock moves on by a second each time somebody reads it. The log uses it to check its
// file.
int step_clock(clockid_t clock, timespec* out) {
    static std::atomic<long> seconds{0};
    const int result = clock_gettime(clock, out);
    if (clock == CLOCK_MONOTONIC_COARSE) {
        out->tv_sec = ++seconds;
    }
    return result;
}

// ------------------------------------------------------------------- counting

enum Held { nothing, memory, threads, pages, address_lists, kinds_held };
std::array<std::atomic<int>, kinds_held> g_held;

enum class When { instead, after };  // after: the work is done, but reported as failed

// How a call fails.
struct Way {
    long result = -1;
    int code = 0;         // errno
    Held held = nothing;  // what a success takes or gives back
    int change = 0;
    When when = When::instead;
    int most = 0;
};

struct Call {
    const char* name;
    void* hook;
    int* row;
    Way way{};
};
const std::vector<Call>& calls();

// This is in memory that child processes share.
struct Plan {
    std::atomic<int> row{-1};
    std::atomic<int> nth{0};
    std::atomic<Fails> mode{Fails::never};
    std::atomic<bool> counts{false};
    std::array<std::atomic<int>, 128> seen{};
};
Plan* g_plan;

bool g_is_leaving = false;

bool must_fail(int row) {
    if (!g_plan->counts || g_is_leaving) {
        return false;
    }
    const int count = ++g_plan->seen.at(static_cast<std::size_t>(row));
    if (g_plan->mode == Fails::cancelled) {
        // A cancellation that was held back takes effect in a later call. The sanitizer does not
        // notice that the frames are left, so nothing in them may be poisoned then.
        __asan_handle_no_return();
        if (g_plan->row == row && count == g_plan->nth) {
            pthread_cancel(pthread_self());
            pthread_testcancel();  // returns when cancellation is off
        }
        return false;
    }
    if (g_plan->row != row) {
        return false;
    }
    return count == g_plan->nth || (g_plan->mode == Fails::onwards && count > g_plan->nth);
}

// The calls in which the C library ends a cancelled thread.
constexpr char kCancellationPoints[] =
    "@(close|connect|epoll_wait|fflush|fsync|getaddrinfo|nanosleep|open|pclose|popen|pthread_join|"
    "read|recv|select|send|sleep|system|usleep|waitpid|write)";

template <typename R>
R as_result(long value) {
    if constexpr (std::is_pointer_v<R>) {
        return reinterpret_cast<R>(value);
    } else {
        return static_cast<R>(value);
    }
}

// Takes the place of a function in the table of imports. A variadic function is called with three
// more arguments. They have any values when the caller passed fewer.
template <auto Function>
struct Hook {
    static inline int row = -1;

    template <typename R, typename... Args>
    static R run(Args... args) {
        const Way& way = calls()[static_cast<std::size_t>(row)].way;
        if constexpr (std::is_void_v<R>) {
            g_held.at(way.held) += ((args != nullptr) || ...) ? way.change : 0;
            Function(args...);
        } else {
            const R failure = as_result<R>(way.result);
            const bool fails = must_fail(row);
            R result = failure;
            if (!fails || way.when == When::after) {
                result = Function(args...);
                const bool is_done = std::is_pointer_v<R> ? result != failure : result == R{};
                g_held.at(way.held) += is_done ? way.change : 0;
            }
            if (fails) {
                errno = way.code;
                result = failure;
            }
            return result;
        }
    }
    template <typename R, typename... Args>
    static void* of(R (*)(Args...)) {
        return reinterpret_cast<void*>(static_cast<R (*)(Args...)>(run<R, Args...>));
    }
    template <typename R, typename... Args>
    static void* of(R (*)(Args..., ...)) {
        using Longer = R (*)(Args..., long, long, long);
        return reinterpret_cast<void*>(static_cast<Longer>(run<R, Args..., long, long, long>));
    }
};

template <auto Function>
Call hooked(const char* name) {
    return {name, Hook<Function>::of(Function), &Hook<Function>::row};
}
#define ZX_CALL_AS(name, function) hooked<&function>(#name)
#define ZX_CALL(name)              ZX_CALL_AS(name, ::name)

// malloc counts as calloc, because compilers turn one into the other. syscall writes lines of the
// log. Where the library does not distinguish errors, the error is a general one.
std::vector<Call> make_calls() {
    std::vector<Call> all;
    const auto add = [&](const Way& way, const auto&... same) {
        (all.push_back({same.name, same.hook, same.row, way}), ...);
    };
    add({-1, EACCES}, ZX_CALL(access), ZX_CALL(bind), ZX_CALL(chdir), ZX_CALL(dup3),
        ZX_CALL(epoll_create1), ZX_CALL(fcntl), ZX_CALL(listen), ZX_CALL(fork), ZX_CALL(fstat),
        ZX_CALL(getrlimit), ZX_CALL(getsockopt), ZX_CALL(initgroups),
        ZX_CALL_AS(reboot, note_reboot), ZX_CALL_AS(ioctl, keep_interface), ZX_CALL(lstat),
        ZX_CALL_AS(open, open_within), ZX_CALL(prctl), ZX_CALL(putenv), ZX_CALL(remove),
        ZX_CALL(setenv), ZX_CALL(setresgid), ZX_CALL(setrlimit), ZX_CALL(setsid),
        ZX_CALL_AS(settimeofday, keep_clock), ZX_CALL(setresuid), ZX_CALL(sigaction),
        ZX_CALL(signal), ZX_CALL(sigprocmask), ZX_CALL(socket), ZX_CALL(stat), ZX_CALL(syscall),
        ZX_CALL(sysconf), ZX_CALL_AS(system, system_within), ZX_CALL(unsetenv), ZX_CALL(fsync),
        ZX_CALL(read), ZX_CALL(write), ZX_CALL(mkostemp), ZX_CALL(fchmod),
        ZX_CALL_AS(rename, rename_within), ZX_CALL(statvfs));
    add({0, EACCES}, ZX_CALL(getcwd), ZX_CALL(getpwnam), ZX_CALL(popen), ZX_CALL(realpath));
    add({-1, ECONNRESET}, ZX_CALL(recv), ZX_CALL(send));
    add({-1, ENODEV}, ZX_CALL(setsockopt));
    add({-1, ENOSPC}, ZX_CALL(epoll_ctl));
    add({EAGAIN}, ZX_CALL(pthread_mutex_init), ZX_CALL(pthread_cancel), ZX_CALL(pthread_sigmask));

    add({.code = ECONNREFUSED, .most = 1}, ZX_CALL(connect));
    add({.code = EINTR, .most = 3}, ZX_CALL_AS(epoll_wait, wait_briefly));
    add({.code = EINTR, .most = -3}, ZX_CALL_AS(select, select_briefly));
    add({.code = EINTR, .most = -1}, ZX_CALL(nanosleep), ZX_CALL(waitpid));

    add({EAI_MEMORY, 0, address_lists, 1}, ZX_CALL(getaddrinfo));
    add({0, ENOMEM, memory, 1}, ZX_CALL(calloc));
    add({-1, ENOMEM, pages, 1}, ZX_CALL(mmap));
    add({EAGAIN, 0, threads, 1}, ZX_CALL(pthread_create));
    add({.code = EIO, .when = When::after}, ZX_CALL(close), ZX_CALL(fflush), ZX_CALL(pclose));
    add({-1, EINVAL, pages, -1, When::after}, ZX_CALL(munmap));
    add({EINVAL, 0, threads, -1, When::after}, ZX_CALL(pthread_join));

    add({0, 0, address_lists, -1}, ZX_CALL(freeaddrinfo));
    add({0, 0, memory, -1}, ZX_CALL(free));
    add({0, 0}, ZX_CALL(malloc), ZX_CALL_AS(sync, note_sync), ZX_CALL_AS(clock_gettime, step_clock),
        ZX_CALL_AS(sleep, sleep_briefly), ZX_CALL_AS(zxlog_api_us, clock_us));
    add({.result = 0, .most = 3}, ZX_CALL_AS(usleep, pause_briefly));
    return all;
}

// This is never destroyed, because calls are made until the end.
const std::vector<Call>& calls() {
    static const auto& all = *new std::vector<Call>(make_calls());
    return all;
}

// These cannot fail, or their answer is only yes or no.
constexpr char kNeedsNoFault[] =
    "@(_*|bcmp|explicit_bzero|fdelt|zxlog_*|flag_*|opt@(arg|ind|opt)|mem*|str!(?(n)dup)|inet_*|"
    "@(hton|ntoh)@(l|s)|?(v)snprintf|printf|"
    "?(secure_)getenv|geteuid|getpid|getopt|?(s)rand|time|tzset|localtime_r|mktime|sched_yield|"
    "ch@(mod|own)|fileno|getauxval|getresuid|unlink|pthread_atfork|"
    "sig@(addset|delset|emptyset|ismember|pending)|umask|exit|usleep|"
    "@(hto|nto)*|pthread_@(mutex_@(lock|unlock|destroy)|once|setcancelstate))";

// What only the diagnosis calls while it runs. It has tests of its own.
constexpr char kCallsOfDiagnosis[] =
    "@(cJSON_*|accept4|poll|shutdown|pipe2|opendir|readdir|closedir|dirfd|readlink|"
    "openat|dlsym|gettid|sched_getscheduler|setpriority|sigfillset|program_invocation_short_name|"
    "pthread_@(mutex_@(try|timed)lock|setspecific|key_create|getcpuclockid|attr_*))";

// What coverage calls in the libraries.
constexpr char kCallsOfCoverage[] =
    "@(f@(open|dopen|close|read|write|seek|printf)|vfprintf|stderr|sprintf|mkdir|abort|quick_exit)";

// The function to call in place of `name`, or NULL to keep it. Adds an unknown name to `unknown`.
// "__NAME_chk" is NAME, with more arguments.
void* replacement(std::string name, std::vector<std::string>& unknown) {
    if (name.starts_with("__") && name.ends_with("_chk")) {
        name = name.substr(2, name.size() - 6);
    }
    for (const Call& call : calls()) {
        if (name == call.name) {
            return call.hook;
        }
    }
    const bool is_counted = __gcov_dump != nullptr;
    if (fnmatch(kNeedsNoFault, name.c_str(), FNM_EXTMATCH) != 0 &&
        fnmatch(kCallsOfDiagnosis, name.c_str(), FNM_EXTMATCH) != 0 &&
        !(is_counted && fnmatch(kCallsOfCoverage, name.c_str(), FNM_EXTMATCH) == 0)) {
        unknown.push_back(name);
    }
    return nullptr;
}

void replace_imports(const link_map& library, std::vector<std::string>& unknown) {
    std::map<long, ElfW(Addr)> values;
    for (const ElfW(Dyn)* entry = library.l_ld; entry->d_tag != DT_NULL; ++entry) {
        values[entry->d_tag] = entry->d_un.d_ptr;
    }
    const auto* const symbols = reinterpret_cast<const ElfW(Sym)*>(values[DT_SYMTAB]);
    const auto* const names = reinterpret_cast<const char*>(values[DT_STRTAB]);
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    for (const auto& [table, size] : {std::pair(DT_JMPREL, DT_PLTRELSZ), {DT_RELA, DT_RELASZ}}) {
        const auto* const entries = reinterpret_cast<const ElfW(Rela)*>(values[table]);
        for (const ElfW(Rela) & entry : std::span(entries, values[size] / sizeof *entries)) {
            const auto index = ELF64_R_SYM(entry.r_info);
            if (index == 0 || symbols[index].st_shndx != SHN_UNDEF) {
                continue;
            }
            if (void* const hook = replacement(names + symbols[index].st_name, unknown)) {
                const std::uintptr_t at = library.l_addr + entry.r_offset;
                mprotect(reinterpret_cast<void*>(at & ~(page - 1)), page, PROT_READ | PROT_WRITE);
                *reinterpret_cast<void**>(at) = hook;
            }
        }
    }
}

}  // namespace

std::vector<std::string> take_over_calls() {
    void* const shared =
        mmap(nullptr, sizeof(Plan), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    g_plan = new (shared) Plan;
    for (std::size_t i = 0; i < calls().size(); ++i) {
        *calls()[i].row = static_cast<int>(i);
    }
    Hook<& ::malloc>::row = Hook<&::calloc>::row;
    const auto leave = [] { g_is_leaving = true; };
    std::atexit(leave);
    std::at_quick_exit(leave);
    std::vector<std::string> unknown;
    for (const link_map* library = _r_debug.r_map; library != nullptr; library = library->l_next) {
        const std::string_view name(library->l_name);
        if (name.find("/libzxcommon.so") != name.npos || name.find("/libzxlog.so") != name.npos) {
            replace_imports(*library, unknown);
        }
    }
    return unknown;
}

void arm(const Fault& fault) {
    g_plan->row = -1;
    for (std::size_t i = 0; i < calls().size(); ++i) {
        g_plan->seen.at(i) = 0;
        if (fault.call == calls()[i].name) {
            g_plan->row = static_cast<int>(i);
        }
    }
    g_plan->nth = fault.nth;
    g_plan->mode = fault.mode;
    g_plan->counts = true;
}

bool count_calls(bool on) {
    return g_plan->counts.exchange(on);
}

std::vector<Fallible> hooked_calls() {
    std::vector<Fallible> found;
    for (std::size_t i = 0; i < calls().size(); ++i) {
        const auto& [name, hook, row, way] = calls()[i];
        found.push_back({name, way.most, g_plan->seen.at(i), way.when == When::after,
                         fnmatch(kCancellationPoints, name, FNM_EXTMATCH) == 0,
                         way.result != 0 || way.code != 0});
    }
    return found;
}

std::string holdings() {
    std::string text;
    for (const auto& count : g_held) {
        text += std::to_string(count) + " ";
    }
    return text + std::to_string(open_descriptors());
}

}  // namespace zx::test

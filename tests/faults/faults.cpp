#include "faults.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <grp.h>
#include <link.h>
#include <net/if.h>
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
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <tuple>
#include <type_traits>

#include "zxlog.h"

namespace zx::test {

namespace {

// ------------------------------------------------------------------ stand-ins

std::string g_directory;

// The one path outside that the library has a name for, which other tests use, too.
std::string within(std::string text) {
    constexpr std::string_view kShared = "/tmp/zxcmd_info";
    if (const std::size_t at = text.find(kShared); at != std::string::npos) {
        text.replace(at, kShared.size(), g_directory + "/info");
    }
    return text;
}

int system_within(const char* command) {
    const std::string ours = within(command);
    return ours.find(g_directory) != std::string::npos ? system(ours.c_str()) : 0;
}

int open_within(const char* path, int flags, mode_t mode) {
    return open(within(path).c_str(), flags, mode);
}

int unlink_within(const char* path) {
    return unlink(within(path).c_str());
}

int keep_interface(int fd, unsigned long what, void* request) {
    return what == SIOCSIFADDR || what == SIOCSIFFLAGS || what == SIOCSIFNETMASK
               ? 0
               : ioctl(fd, what, request);
}

int keep_clock(const timeval*, const struct timezone*) {
    return 0;
}

unsigned sleep_briefly(unsigned) {
    usleep(1000);
    return 0;
}

constexpr int kSpeed = 20;

int wait_briefly(int epfd, epoll_event* events, int max, int ms) {
    return epoll_wait(epfd, events, max, ms / kSpeed);
}

std::uint64_t fast_us() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (static_cast<std::uint64_t>(now.tv_sec) * 1000000U +
            static_cast<std::uint64_t>(now.tv_nsec) / 1000U) *
           kSpeed;
}

// Every look at the coarse clock, with which the log looks after its file, is a second later.
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

enum class When { instead, behind };  // behind: what was asked for is done, and reported as failed

struct Call {
    const char* name;
    void* hook;
    int* row;
    long failure;  // the result
    int code;      // errno
    int most = 0;
    When when = When::instead;
    Held held = nothing;  // what a success takes (or gives back)
    int change = 0;
};
const std::vector<Call>& calls();

// In memory that child processes share.
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
    return g_plan->row == row &&
           (count == g_plan->nth || (g_plan->mode == Fails::onwards && count > g_plan->nth));
}

template <typename R>
R as_result(long value) {
    if constexpr (std::is_pointer_v<R>) {
        return reinterpret_cast<R>(value);
    } else {
        return static_cast<R>(value);
    }
}

// What stands in the table of imports in place of a function. A variadic one is called with three
// more arguments, which may be whatever was in their registers.
template <auto Function>
struct Hook {
    static inline int row = -1;

    template <typename R, typename... Args>
    static R run(Args... args) {
        const Call& call = calls()[static_cast<std::size_t>(row)];
        if constexpr (std::is_void_v<R>) {
            g_held.at(call.held) += std::get<0>(std::tuple(args...)) != nullptr ? call.change : 0;
            Function(args...);
        } else {
            const R failure = as_result<R>(call.failure);
            const bool fails = must_fail(row);
            R result = failure;
            if (!fails || call.when == When::behind) {
                result = Function(args...);
                const bool is_done = std::is_pointer_v<R> ? result != failure : result == R{};
                g_held.at(call.held) += is_done ? call.change : 0;
            }
            if (fails) {
                errno = call.code;
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

// clang-format off
#define ZX_CALL_AS(name, function, ...) \
    {#name, Hook<&function>::of(&function), &Hook<&function>::row, __VA_ARGS__}
// clang-format on
#define ZX_CALL(name, ...) ZX_CALL_AS(name, ::name, __VA_ARGS__)

// malloc counts as calloc, as compilers make the one of the other; syscall writes lines of the log.
const std::vector<Call>& calls() {
    constexpr When kBehind = When::behind;
    static const auto& rows = *new std::vector<Call>{
        ZX_CALL(access, -1, EACCES),
        ZX_CALL(calloc, 0, ENOMEM, 0, When::instead, memory, 1),
        ZX_CALL(chdir, -1, EACCES),
        ZX_CALL(close, -1, EIO, 0, kBehind),
        ZX_CALL(connect, -1, ECONNREFUSED, 1),
        ZX_CALL(dup3, -1, EMFILE),
        ZX_CALL(epoll_create1, -1, EMFILE),
        ZX_CALL(epoll_ctl, -1, ENOSPC),
        ZX_CALL_AS(epoll_wait, wait_briefly, -1, EINTR, 3),
        ZX_CALL(fclose, EOF, ENOSPC, 0, kBehind),
        ZX_CALL(fcntl, -1, EMFILE),
        ZX_CALL(fdopen, 0, ENOMEM),
        ZX_CALL(fflush, EOF, ENOSPC, 0, kBehind),
        ZX_CALL(fopen, 0, EMFILE),
        ZX_CALL(fork, -1, EAGAIN),
        ZX_CALL(fread, 0, EIO),
        ZX_CALL(free, 0, 0, 0, kBehind, memory, -1),
        ZX_CALL(freeaddrinfo, 0, 0, 0, kBehind, address_lists, -1),
        ZX_CALL(fstat, -1, EIO),
        ZX_CALL(fwrite, 0, ENOSPC),
        ZX_CALL(getaddrinfo, EAI_MEMORY, 0, 0, When::instead, address_lists, 1),
        ZX_CALL(getcwd, 0, ENOENT),
        ZX_CALL(getpwnam, 0, EIO),
        ZX_CALL(getrlimit, -1, EPERM),
        ZX_CALL(getsockopt, -1, ENOBUFS),
        ZX_CALL(initgroups, -1, ENOMEM),
        ZX_CALL_AS(ioctl, keep_interface, -1, EIO),
        ZX_CALL(lstat, -1, EACCES),
        ZX_CALL(malloc, 0, 0),
        ZX_CALL(mmap, -1, ENOMEM, 0, When::instead, pages, 1),
        ZX_CALL(munmap, -1, EINVAL, 0, kBehind, pages, -1),
        ZX_CALL(nanosleep, -1, EINTR, -1),
        ZX_CALL_AS(open, open_within, -1, EMFILE),
        ZX_CALL(pclose, -1, ECHILD, 0, kBehind),
        ZX_CALL(popen, 0, EMFILE),
        ZX_CALL(prctl, -1, EPERM),
        ZX_CALL(pthread_cancel, ESRCH, 0),
        ZX_CALL(pthread_create, EAGAIN, 0, 0, When::instead, threads, 1),
        ZX_CALL(pthread_join, EINVAL, 0, 0, kBehind, threads, -1),
        ZX_CALL(pthread_mutex_init, EAGAIN, 0),
        ZX_CALL(pthread_sigmask, EINVAL, 0),
        ZX_CALL(putenv, -1, ENOMEM),
        ZX_CALL(realpath, 0, EACCES),
        ZX_CALL(recv, -1, ECONNRESET),
        ZX_CALL(remove, -1, EACCES),
        ZX_CALL(select, -1, EINTR),
        ZX_CALL(send, -1, ECONNRESET),
        ZX_CALL(setenv, -1, ENOMEM),
        ZX_CALL(setgid, -1, EPERM),
        ZX_CALL(setrlimit, -1, EPERM),
        ZX_CALL(setsid, -1, EPERM),
        ZX_CALL(setsockopt, -1, ENODEV),
        ZX_CALL_AS(settimeofday, keep_clock, -1, EPERM),
        ZX_CALL(setuid, -1, EAGAIN),
        ZX_CALL(setvbuf, -1, ENOMEM),
        ZX_CALL(sigaction, -1, EINVAL),
        ZX_CALL(signal, -1, EINVAL),
        ZX_CALL(sigprocmask, -1, EINVAL),
        ZX_CALL(socket, -1, EMFILE),
        ZX_CALL(stat, -1, EACCES),
        ZX_CALL(syscall, -1, ENOSPC),
        ZX_CALL(sysconf, -1, EINVAL),
        ZX_CALL_AS(system, system_within, -1, EAGAIN),
        ZX_CALL_AS(unlink, unlink_within, -1, EACCES),
        ZX_CALL(unsetenv, -1, EINVAL),
        ZX_CALL(waitpid, -1, EINTR, -1)};
    return rows;
}

// Cannot fail, or says no more than no; and what restarts the machine, which is never called.
constexpr char kNeedsNoFault[] =
    "@(_*|explicit_bzero|fdelt|zxlog_*|flag_*|opt@(arg|ind|opt)|mem*|str!(?(n)dup)|inet_*|"
    "@(hton|ntoh)@(l|s)|?(v)snprintf|printf|"
    "?(secure_)getenv|geteuid|getpid|getopt|?(s)rand|time|tzset|localtime_r|mktime|sched_yield|"
    "sig@(addset|emptyset|ismember|pending)|umask|sync|exit|usleep|reboot|"
    "@(hto|nto)*|vfprintf|fprintf|stderr|sprintf|mkdir|abort|quick_exit|fseek|"
    "pthread_@(mutex_@(lock|unlock|destroy)|setcancelstate))";

// Functions in whose place others stand, which do not fail.
struct StandIn {
    std::string_view name;
    void* function;
};
const StandIn kStandIns[] = {
    {"clock_gettime", reinterpret_cast<void*>(step_clock)},
    {"sleep", reinterpret_cast<void*>(sleep_briefly)},
    {"zxlog_api_us", reinterpret_cast<void*>(fast_us)},
};

// The function that is to be called in place of `name`, null for the same; complains of an unknown
// one. "__NAME_chk" is NAME, with more arguments.
void* replacement(std::string name, std::vector<std::string>& unknown) {
    if (name.starts_with("__") && name.ends_with("_chk")) {
        name = name.substr(2, name.size() - 6);
    }
    for (const Call& call : calls()) {
        if (name == call.name) {
            return call.hook;
        }
    }
    for (const StandIn& stand_in : kStandIns) {
        if (name == stand_in.name) {
            return stand_in.function;
        }
    }
    if (fnmatch(kNeedsNoFault, name.c_str(), FNM_EXTMATCH) != 0) {
        unknown.push_back(name);
    }
    return nullptr;
}

// The dynamic section of a library, as far as it tells what is imported.
struct Imports {
    explicit Imports(const dl_phdr_info& info) : base(info.dlpi_addr) {
        const ElfW(Phdr)* segment = info.dlpi_phdr;
        while (segment->p_type != PT_DYNAMIC) {
            ++segment;
        }
        const auto* entry = reinterpret_cast<const ElfW(Dyn)*>(base + segment->p_vaddr);
        for (; entry->d_tag != DT_NULL; ++entry) {
            if (entry->d_tag >= 0 && static_cast<std::size_t>(entry->d_tag) < values.size()) {
                values.at(static_cast<std::size_t>(entry->d_tag)) = entry->d_un.d_ptr;
            }
        }
    }

    void replace(std::size_t table, std::size_t size, std::vector<std::string>& unknown) const {
        const auto* const symbols = reinterpret_cast<const ElfW(Sym)*>(values[DT_SYMTAB]);
        const auto* const names = reinterpret_cast<const char*>(values[DT_STRTAB]);
        const auto* const entries = reinterpret_cast<const ElfW(Rela)*>(values.at(table));
        for (std::size_t i = 0; i < values.at(size) / sizeof *entries; ++i) {
            const ElfW(Sym)& symbol = symbols[ELF64_R_SYM(entries[i].r_info)];
            if (ELF64_R_SYM(entries[i].r_info) == 0 || symbol.st_shndx != SHN_UNDEF) {
                continue;
            }
            if (void* const hook = replacement(names + symbol.st_name, unknown)) {
                auto* const slot = reinterpret_cast<void**>(base + entries[i].r_offset);
                const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
                const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(slot) & ~(page - 1);
                mprotect(reinterpret_cast<void*>(at), page, PROT_READ | PROT_WRITE);
                *slot = hook;
            }
        }
    }

    ElfW(Addr) base;
    std::array<ElfW(Addr), DT_NUM> values{};
};

}  // namespace

std::vector<std::string> take_over_calls(const std::string& directory) {
    g_directory = directory;
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
    const auto visit = [](dl_phdr_info* info, std::size_t, void* argument) {
        const std::string_view name(info->dlpi_name);
        if (name.find("/libzxcommon.so") != name.npos || name.find("/libzxlog.so") != name.npos) {
            auto& found = *static_cast<std::vector<std::string>*>(argument);
            const Imports imports(*info);
            imports.replace(DT_JMPREL, DT_PLTRELSZ, found);
            imports.replace(DT_RELA, DT_RELASZ, found);
        }
        return 0;
    };
    dl_iterate_phdr(visit, &unknown);
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

void disarm() {
    g_plan->counts = false;
}

Uncounted::Uncounted() : counted_(g_plan->counts.exchange(false)) {}

Uncounted::~Uncounted() {
    g_plan->counts = counted_;
}

std::vector<Fallible> fallible_calls() {
    std::vector<Fallible> found;
    for (std::size_t i = 0; i < calls().size(); ++i) {
        const Call& call = calls()[i];
        if (call.failure != 0 || call.code != 0) {
            found.push_back({call.name, call.most, g_plan->seen.at(i), call.when == When::behind});
        }
    }
    return found;
}

std::string holdings() {
    std::string text;
    for (const auto& count : g_held) {
        text += std::to_string(count) + " ";
    }
    DIR* const open_files = opendir("/proc/self/fd");
    int descriptors = 0;
    while (readdir(open_files) != nullptr) {
        ++descriptors;
    }
    closedir(open_files);
    return text + std::to_string(descriptors);
}

}  // namespace zx::test

// Facts about the host.
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

#include "internal/safe_name.hpp"
#include "shared/trusted_format.hpp"
#include "zxmd.h"
#include "zxmd/messages.hpp"
#include "zxt.h"

namespace {

constexpr int kMaxCpus = 256;
constexpr std::size_t kCommandSize = 128;
constexpr std::size_t kPathSize = 1024;

constexpr std::array kProgramDirectories{"/bin",  "/usr/bin",  "/usr/local/bin",
                                         "/sbin", "/usr/sbin", "/usr/local/sbin"};
#if defined __x86_64__
#define ZX_MULTIARCH "x86_64-linux-gnu"
#elif defined __aarch64__
#define ZX_MULTIARCH "aarch64-linux-gnu"
#else  // internal/layout.cpp refuses all others
#define ZX_MULTIARCH "s390x-linux-gnu"
#endif
constexpr std::array kLibraryDirectories{"/usr/lib/" ZX_MULTIARCH, "/lib/" ZX_MULTIARCH,
                                         "/usr/local/lib"};

// True for the plain name of a file. A path could lead to another directory.
bool is_name(const char* text) {
    const std::string_view name(text);
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}

bool is_file(const char* path) {
    struct stat status {};
    return stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

// A directory may have execute permission but is no program.
bool stands_in(const char* directory, const char* name, int mode) {
    char path[kPathSize];
    const int length = std::snprintf(path, sizeof path, "%s/%s", directory, name);
    return zx::is_whole(length, sizeof path) && access(path, mode) == 0 &&
           (mode != X_OK || is_file(path));
}

bool has_package(const char* package) {
    return is_name(package) && stands_in("/usr/share/doc", package, F_OK);
}

// True when the greeting of the system, which names its release, begins with `wanted`.
bool is_release(const char* wanted) {
    char issue[kCommandSize]{};
    zxmd_api_read("/etc/issue", issue, sizeof issue - 1);
    return std::strncmp(issue, wanted, std::strlen(wanted)) == 0;
}

// Two of the directories may be the same one through a link. That is no conflict.
bool stands_twice(const char* name, zx::Caller caller = {}) {
    char found[kLibraryDirectories.size()][kPathSize];
    std::size_t count = 0;
    for (const char* const directory : kLibraryDirectories) {
        char path[kPathSize];
        char real[PATH_MAX];
        const int length = std::snprintf(path, sizeof path, "%s/%s", directory, name);
        if (!zx::is_whole(length, sizeof path) || realpath(path, real) == nullptr ||
            std::strlen(real) >= sizeof found[0]) {
            continue;
        }
        const bool is_new =
            std::none_of(std::begin(found), std::begin(found) + count,
                         [&](const char* other) { return std::strcmp(other, real) == 0; });
        if (is_new) {
            std::strcpy(found[count++], real);
        }
    }
    for (std::size_t i = 0; count > 1 && i < count; ++i) {
        ZX_LOG_AT(caller, warning, "%s stands in %s, too", name, found[i]);
    }
    return count > 1;
}

template <typename T>
void print_type(const char* name) {
    std::printf("%s: %zu bytes, -1 is %lld\n", name, sizeof(T),
                static_cast<long long>(static_cast<T>(-1)));
}

}  // namespace

extern "C" int32_t zxmd_api_getCpuNum(void) {
    const long count = sysconf(_SC_NPROCESSORS_CONF);
    if (count > kMaxCpus) {
        ZX_LOG(warning, "[%s]Oh my god,what? cpu_num > %d ???,set to default %d,please fix me",
               "brightbox", kMaxCpus, kMaxCpus);
        return kMaxCpus;
    }
    return static_cast<int32_t>(count);
}

extern "C" int32_t zxmd_api_setCpuFreq(uint32_t cpu) {
    char command[kCommandSize];
    const char* const format =
        has_package("cpufrequtils")
            ? "cpufreq-set -c %d -g  performance"
            : "echo performance > /sys/bus/cpu/drivers/processor/cpu%d/cpufreq/scaling_governor";
    zx::print_trusted(command, sizeof command, format, static_cast<int>(cpu));
    return zx::run(command);
}

extern "C" int32_t zxmd_api_isInstall(const char* package) {
    if (!ZX_ARE_GIVEN({package, "package"})) {
        return 0;
    }
    return has_package(package) ? 1 : 0;
}

extern "C" int32_t zxmd_api_isInstallByBin(const char* program) {
    if (!ZX_ARE_GIVEN({program, "program"})) {
        return 0;
    }
    const auto has_it = [=](const char* directory) { return stands_in(directory, program, X_OK); };
    return is_name(program) && std::ranges::any_of(kProgramDirectories, has_it) ? 1 : 0;
}

extern "C" int32_t zxmd_api_pstree(int32_t pid, char* out, uint32_t size) {
    if (!ZX_ARE_GIVEN({out, "out"})) {
        return -1;
    }
    char command[kCommandSize];
    // pstree of that release has no option for threads.
    const char* const format =
        is_release("Ubuntu 16.04") ? "pstree -p %d -n -A" : "pstree -p %d -n -A  -t";
    zx::print_trusted(command, sizeof command, format, pid);
    return zxt_innerapi_cmdReadByPipe(command, out, size);
}

extern "C" int32_t zxmd_api_getDecEncMode(void) {
    if (zxt_innerapi_cmdIsGrep("inxi -SG | grep NVIDIA") > 0) {
        ZX_LOG(info, "Use hwaccel cuvid(nvidia)");
        return 1;
    }
    ZX_LOG(info, "Use sw decoder and encoder");
    return 0;
}

extern "C" int32_t zxmd_api_parseOpt(int argc, char** argv, const char* optstring) {
    if (!ZX_ARE_GIVEN({argv, "argv"}, {optstring, "optstring"})) {
        return 0;
    }
    optind = 0;  // start over at the first argument
    int32_t count = 0;
    for (int option = 0; (option = getopt(argc, argv, optstring)) != -1; ++count) {
        // optopt is set only for an option that getopt() refuses.
        const int name = option == '?' ? optopt : option;
        std::printf("optopt=%c, optarg=%s\n", name, optarg != nullptr ? optarg : "");
        std::printf("result =%c,\n", option);
    }
    return count;
}

extern "C" void zxmd_api_checkVarTypeLen(void) {
    print_type<char>("char");
    print_type<short>("short");
    print_type<int>("int");
    print_type<long>("long");
    print_type<std::int64_t>("int64_t");
}

extern "C" int32_t zxmd_api_isConflictLib(const char* name, const char* release,
                                          const char* version) {
    if (!ZX_ARE_GIVEN({name, "name"}, {release, "release"}, {version, "version"})) {
        return 0;
    }
    char with_release[kPathSize];
    char plain[kPathSize];
    const int length =
        std::snprintf(with_release, sizeof with_release, "%s-%s.so.%s", name, release, version);
    std::snprintf(plain, sizeof plain, "%s.so.%s", name, version);  // shorter than with_release
    if (!is_name(name) || !zx::is_whole(length, sizeof with_release)) {
        return 0;
    }
    const bool release_twice = stands_twice(with_release);
    return stands_twice(plain) || release_twice ? 1 : 0;
}

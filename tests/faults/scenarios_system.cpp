// Files, commands, processes, limits, facts about the host, the clock.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "child.hpp"
#include "faults.hpp"
#include "files.hpp"
#include "zxmd.h"
#include "zxnet.h"
#include "zxsysctl.h"
#include "zxt.h"
#include "zxtime.h"

namespace zx::test {
namespace {

// ----------------------------------------------------------------------- files

ZX_SCENARIO(files) {
    const std::string path = in_directory("file");
    char text[] = "hello";
    char out[16] = "?", same[16] = "?", all[16] = "?";
    return Said{zxmd_api_write(path.c_str(), text, 5, "w"),
                text,
                zxmd_api_read(path.c_str(), out, sizeof out),
                out,
                zxmd_api_read2(path.c_str(), same, sizeof same),
                zxmd_api_read3(path.c_str(), all, sizeof all)};
}

ZX_SCENARIO(replaced_file) {
    const std::string path = in_directory("file");
    std::ofstream(path) << "old";
    std::ofstream(path + "_tmp") << "left over";
    char text[] = "new";
    return Said{zxmd_api_writeProtect(path.c_str(), text, 3), content_of(in_directory("file"))};
}

// A program that is found before those of the host.
void put_program(const char* name, const char* script) {
    const std::string path = in_directory(name);
    std::ofstream(path) << "#!/bin/sh\n" << script;
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    setenv("PATH", (g_directory + ":/usr/bin:/bin").c_str(), 1);
}

// The first copy damages the file and fails. The file that the link names gets the new content.
ZX_SCENARIO(broken_copy) {
    count_calls(false);
    namespace fs = std::filesystem;
    const std::string path = in_directory("file"), target = in_directory("target");
    std::ofstream(target) << "old";
    fs::permissions(target, fs::perms::owner_all);
    fs::create_symlink("target", path);
    put_program("cp", "echo spoiled >\"$3\"; exit 1");
    char text[] = "new";
    return Said{zxmd_api_writeProtect(path.c_str(), text, 3), content_of(target),
                fs::status(target).permissions() == fs::perms::owner_all, fs::is_symlink(path),
                fs::exists(path + "_tmp")};
}

// The text needs more pages than are left. Either the old content stays, or the new one is
// complete.
ZX_SCENARIO(replaced_large_file) {
    const std::string path = in_directory("file");
    std::ofstream(path) << "old";
    std::string text(8000, 'n');
    const int written = zxmd_api_writeProtect(path.c_str(), text.data(), 8000);
    const std::string now = content_of(in_directory("file"));
    return Said{written, now == text ? "new" : now.substr(0, 3),
                std::filesystem::exists(path + "_tmp") ? "beside it" : "alone"};
}

ZX_SCENARIO(refused_files) {
    count_calls(false);
    char text[] = "new";
    const auto write = [&](const char* path) { return zxmd_api_writeProtect(path, text, 3); };
    return results_of(write, {in_directory("a b"), in_directory("$(id)"), "-f", "~root/x",
                              "/" + std::string(247, 'x')});
}

// The first call creates the file, and the second one finds it.
ZX_SCENARIO(touched_file) {
    count_calls(false);
    char text[] = "new";
    const std::string missing = in_directory("missing"), unsafe = in_directory("a;b");
    return Said{zxmd_api_write(missing.c_str(), text, 3, "r+"),
                zxmd_api_write(missing.c_str(), text, 3, "r+"),
                zxmd_api_write(unsafe.c_str(), text, 3, "r+")};
}

ZX_SCENARIO(appended_file) {
    const std::string path = in_directory("file");
    std::string text(12000, 'n');
    return Said{zxmd_api_writea(path.c_str(), text.data(), 6000),
                zxmd_api_writea(path.c_str(), text.data(), 6000),
                content_of(in_directory("file")).size()};
}

ZX_SCENARIO(file_facts) {
    const std::string path = in_directory("file");
    std::ofstream(path) << "hello";
    return Said{zxmd_api_getFileSize(path.c_str()), zxmd_api_getFileType(path.c_str()),
                zxmd_api_isFileExsit(path.c_str())};
}

ZX_SCENARIO(file_names) {
    count_calls(false);
    std::ofstream(in_directory("five")) << "abcde";
    return Said{results_of(zxmd_api_getFileSize,
                           {"file://" + in_directory("five"), std::string(1024, 'x')}),
                results_of(zxmd_api_getFileType, {"/", "/proc/self/exe", "/nowhere/x"}),
                results_of(zxmd_api_fileFormatFilter,
                           {"a.ts", ".ts", "a.mp3", "b.mp4", "ts", "a.TS", "a.ts.gz", ""})};
}

// Files at the limit, above it, and with a name that does not fit a command.
ZX_SCENARIO(rotated_file) {
    std::string said;
    for (const auto& [name, over] : {std::pair{"below", 0U}, {"file", 1U}, {"a&b", 1U}}) {
        const std::string path = in_directory(name);
        std::ofstream(path).close();
        std::error_code none;
        std::filesystem::resize_file(path, ZXMD_MSG_FILE_LIMIT + over, none);
        zxmd_api_newMsgFile(path.c_str());
        said += std::filesystem::exists(path) ? "stays " : "moved ";
    }
    return said;
}

// The longest path is in a command of 511 characters.
ZX_SCENARIO(playlist_names) {
    count_calls(false);
    const auto expand = [](const std::string& name) {
        char path[700] = "old";
        const auto made = zxt_innerapi_getHlsPath((name + ".m3u8").c_str(), "/v", path);
        return std::to_string(made) + (path == "/v/" + name ? "new" : path);
    };
    return results_of(expand, {"live/chan1", "a..b", std::string(240, 'x'), std::string(241, 'x'),
                               std::string(600, 'x'), "../x", "a/..", "/", "./.", "a;id", "/v/a"});
}

ZX_SCENARIO(playlist) {
    char path[256] = "";
    return Said{zxt_innerapi_getHlsPath("live.m3u8", g_directory.c_str(), path),
                path == in_directory("live"), std::filesystem::exists(path)};
}

// -------------------------------------------------------------------- commands

ZX_SCENARIO(command) {
    char text[256] = "echo ";
    in_directory("x").copy(text + 5, 200);
    return Said{zxt_innerapi_cmdRet(text)};
}

ZX_SCENARIO(command_results) {
    count_calls(false);
    const auto run = [](const std::string& text) {
        std::string command = text + " #" + g_directory;
        command.resize(command.size() + ZXT_CMD_ROOM);
        return zxt_innerapi_cmdRet(command.data());
    };
    return results_of(run, {"true", "false", "kill -9 $$"});
}

ZX_SCENARIO(piped_command) {
    char out[16] = "";
    return Said{zxt_innerapi_cmdReadByPipe("echo -n told", out, sizeof out - 1), out,
                zxt_innerapi_cmdIsGrep("echo told")};
}

ZX_SCENARIO(filed_command) {
    char out[16] = "";
    return Said{zxt_innerapi_cmdReadByTmp("echo -n told", out, sizeof out), out};
}

// No process has this number, and the kill command is not run.
ZX_SCENARIO(killing_command) {
    return Said{zxt_innerapi_kill("echo 99999999")};
}

ZX_SCENARIO(killing_nothing) {
    count_calls(false);
    return results_of(zxt_innerapi_kill, {"true", "echo #" + std::string(1007, 'x')});
}

// How many bytes are read, and a buffer of 8 that were "x", with a dot for NUL.
template <typename Read>
std::string read_to_buffer(Read read, const std::string& from, std::uint32_t size) {
    std::string buf(8, 'x');
    const std::int32_t count = read(from.c_str(), buf.data(), size);
    std::ranges::replace(buf, '\0', '.');
    return Said{count, buf};
}

// Zeros stand after what was read where there is room. A command that would be cut is not run.
ZX_SCENARIO(read_sizes) {
    count_calls(false);
    const std::string five = in_directory("five"), endless = "tr '\\0' y </dev/zero";
    const std::string nowhere = "/nowhere/x", longest = "echo -n " + std::string(998, 'o');
    std::ofstream(five) << "abcde";
    const auto by_pipe = zxt_innerapi_cmdReadByPipe;
    const auto by_file = zxt_innerapi_cmdReadByTmp;
    return Said{
        Said{read_to_buffer(zxmd_api_read, five, 8), read_to_buffer(zxmd_api_read, five, 5),
             read_to_buffer(zxmd_api_read2, five, 2), read_to_buffer(zxmd_api_read3, five, 8),
             read_to_buffer(zxmd_api_read3, five, 3)},
        Said{read_to_buffer(zxmd_api_read, nowhere, 3000000000U),
             read_to_buffer(zxmd_api_read3, nowhere, 3000000000U)},
        Said{read_to_buffer(by_pipe, "echo -n abc", 8), read_to_buffer(by_pipe, endless, 3),
             read_to_buffer(by_pipe, "echo abc >&2", 4), zxt_innerapi_cmdIsGrep("echo abc >&2")},
        Said{read_to_buffer(by_file, longest, 2), read_to_buffer(by_file, longest + "o", 2)}};
}

// ------------------------------------------------------------------- processes

// Writes a note that survives the process.
void write_note(const char* file, const std::string& text) {
    std::ofstream(in_directory(file), std::ios::app) << text;
}

void note_failure(int status, void*) {
    if (status != 0) {
        write_note("exit", Said{"exit", status & 0377, complaints()});
    }
}

std::string in_noting_child(std::string (*work)()) {
    const std::string result = in_child([work] {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        on_exit(note_failure, nullptr);
        const std::string told = work();
        return told + "," + complaints();
    });
    return result + content_of(in_directory("worker")) + content_of(in_directory("complaints")) +
           content_of(in_directory("exit"));
}

ZX_SCENARIO(daemon_process) {
    return in_noting_child([]() -> std::string {
        umask(0);
        const pid_t session = getsid(0);
        return Said{zxmd_api_startDaemon("/"), std::filesystem::current_path() == "/", umask(0),
                    fcntl(0, F_GETFD) + fcntl(1, F_GETFD) + fcntl(2, F_GETFD),
                    getsid(0) != session && getsid(0) != getpid()};
    });
}

int32_t supervised(void*) {
    if (content_of(in_directory("worker")) == "w") {
        write_note("complaints", complaints());  // the watchdog's so far
        kill(getppid(), SIGKILL);
    }
    write_note("worker", "w");
    return 7;
}

ZX_SCENARIO(watchdog) {
    return in_noting_child([] {
        zxmd_api_watchdog(supervised, nullptr);
        return std::string();
    });
}

ZX_SCENARIO(user) {
    return in_noting_child([]() -> std::string { return Said{zxmd_api_changeUser("nobody")}; });
}

ZX_SCENARIO(limits) {
    for (const auto resource : {RLIMIT_CORE, RLIMIT_NOFILE}) {
        const rlimit low{100, 200};
        EXPECT_EQ(setrlimit(resource, &low), 0);
    }
    return Said{zxmd_api_setUlimit(), zxmd_api_setRlimit(RLIMIT_CORE, "cores"),
                sysconf(_SC_OPEN_MAX), zxmd_api_setRlimit(999, nullptr)};
}

// ------------------------------------------------------------------------ host

ZX_SCENARIO(host) {
    char library[] = "libfaulty";
    char tree[256];
    return Said{zxmd_api_getCpuNum() > 0,
                zxmd_api_isInstallByBin("sh"),
                zxmd_api_isInstall("sh"),
                zxmd_api_setCpuFreq(0),
                zxmd_api_pstree(1, tree, sizeof tree) >= 0,
                zxmd_api_getDecEncMode(),
                zxmd_api_isConflictLib(library, "1", "1")};
}

// Puts programs in front of those of the host, and asks for names that are no programs.
ZX_SCENARIO(host_programs) {
    count_calls(false);
    char tree[64] = "";
    put_program("pstree", "echo \"$@\"");
    put_program("inxi", "[ \"$*\" = -SG ] && echo Device: NVIDIA");
    Said said{zxmd_api_pstree(42, tree, sizeof tree), std::string(tree, 14),
              zxmd_api_getDecEncMode()};
    put_program("inxi", "echo Device: other");
    said +=
        Said{"", zxmd_api_getDecEncMode(),
             zxmd_api_isInstall("libc6") == std::filesystem::exists("/usr/share/doc/libc6"), ""};
    return said + results_of(zxmd_api_isInstall, {"../doc/libc6", "..", ".", ""}) +
           results_of(zxmd_api_isInstallByBin, {"../bin/sh", "..", "."});
}

ZX_SCENARIO(tunables) {
    return Said{zxmd_api_clearCache(3), zxsysctl_api_setGw_rpfilter(1),
                zxsysctl_api_setIgmpVersion(2), zxsysctl_api_getIgmpVersion()};
}

// Names that a shell takes literally, and names that it would interpret.
ZX_SCENARIO(tunable_names) {
    count_calls(false);
    const auto set = [](const char* name) { return zxsysctl_api_setEth_rpfilter(name, 0); };
    return results_of(set, {"br+lan", "v/7", "eth0.7", "-a~b#=@^", "eth0;reboot", "a b", "", "a*",
                            std::string(230, 'x')});
}

// Counts those that succeed.
ZX_SCENARIO(housekeeping) {
    const int results[] = {zxmd_api_clearSysLog(), zxmd_api_clearAppLog(),
                           zxmd_api_cleanKernelUpgradeFile(),
                           zxsysctl_api_setEth_rpfilter("lo", 0)};
    return Said{std::ranges::count(results, 0)};
}

ZX_SCENARIO(clock_set) {
    return Said{zxtime_api_setDTime("20240501083000")};
}

}  // namespace
}  // namespace zx::test

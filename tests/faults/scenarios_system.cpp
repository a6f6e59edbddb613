// Files, commands, processes, limits, facts about the host, the clock.
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "child.hpp"
#include "scenarios.hpp"
#include "zxmd.h"
#include "zxnet.h"
#include "zxsysctl.h"
#include "zxt.h"
#include "zxtime.h"

namespace zx::test {
namespace {

// ----------------------------------------------------------------------- files

std::string content_of(const char* name) {
    std::ifstream file(in_directory(name));
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string files() {
    const std::string path = in_directory("file");
    char text[] = "hello";
    char out[16] = "?";
    const int written = zxmd_api_write(path.c_str(), text, 5, "w");
    const int read = zxmd_api_read(path.c_str(), out, sizeof out);
    char all[16] = "?";
    return Said{written, text, read, out, zxmd_api_read3(path.c_str(), all, sizeof all)};
}

std::string replaced_file() {
    const std::string path = in_directory("file");
    std::ofstream(path) << "old";
    std::ofstream(path + "_tmp") << "left over";
    char text[] = "new";
    const int result = zxmd_api_writeProtect(path.c_str(), text, 3);
    return Said{result, content_of("file")};
}

std::string file_facts() {
    const std::string path = in_directory("file");
    std::ofstream(path) << "hello";
    return Said{zxmd_api_getFileSize(path.c_str()), zxmd_api_getFileType(path.c_str()),
                zxmd_api_isFileExsit(path.c_str())};
}

std::string rotated_file() {
    const std::string path = in_directory("file");
    std::ofstream(path).close();
    std::filesystem::resize_file(path, ZXMD_MSG_FILE_LIMIT + 1);
    zxmd_api_newMsgFile(path.c_str());
    return Said{std::filesystem::exists(path) ? "stays" : "moved"};
}

std::string playlist() {
    char path[256] = "";
    const int result = zxt_innerapi_getHlsPath("live.m3u8", g_directory.c_str(), path);
    return Said{result, path == in_directory("live"), std::filesystem::exists(path)};
}

// -------------------------------------------------------------------- commands

std::string command() {
    char text[256] = "echo ";
    in_directory("x").copy(text + 5, 200);
    return Said{zxt_innerapi_cmdRet(text)};
}

std::string piped_command() {
    char out[16] = "";
    const int read = zxt_innerapi_cmdReadByPipe("echo told", out, sizeof out - 1);
    return Said{read, std::string(out).substr(0, 4), zxt_innerapi_cmdIsGrep("echo told")};
}

std::string filed_command() {
    char out[16] = "";
    const int read = zxt_innerapi_cmdReadByTmp("echo told", out, sizeof out);
    return Said{read, std::string(out).substr(0, 4)};
}

// No process has such a number, and the command is not run.
std::string killing_command() {
    return Said{zxt_innerapi_kill("echo 99999999")};
}

// ------------------------------------------------------------------- processes

// What processes leave behind that end, or are ended.
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
    return result + content_of("worker") + content_of("complaints") + content_of("exit");
}

std::string daemon_process() {
    return in_noting_child([]() -> std::string {
        const int result = zxmd_api_startDaemon("/");
        return Said{result, std::filesystem::current_path() == "/"};
    });
}

int32_t supervised(void*) {
    if (content_of("worker") == "w") {
        write_note("complaints", complaints());  // those of the supervisor, up to here
        kill(getppid(), SIGKILL);
    }
    write_note("worker", "w");
    return 7;
}

std::string watchdog() {
    return in_noting_child([] {
        zxmd_api_watchdog(supervised, nullptr);
        return std::string();
    });
}

std::string user() {
    return in_noting_child([]() -> std::string { return Said{zxmd_api_changeUser("nobody")}; });
}

std::string limits() {
    return Said{zxmd_api_setUlimit()};
}

// ------------------------------------------------------------------------ host

std::string host() {
    char library[] = "libfaulty";
    char tree[256];
    return Said{zxmd_api_getCpuNum() > 0, zxmd_api_isInstallByBin("sh"),
                zxmd_api_setCpuFreq(0),   zxmd_api_pstree(1, tree, sizeof tree) >= 0,
                zxmd_api_getDecEncMode(), zxmd_api_isConflictLib(library, "1", "1")};
}

std::string tunables() {
    return Said{zxmd_api_clearCache(1), zxsysctl_api_setGw_rpfilter(0),
                zxsysctl_api_setIgmpVersion(0), zxsysctl_api_getIgmpVersion()};
}

std::string clock_set() {
    return Said{zxtime_api_setDTime("20240501083000")};
}

}  // namespace

const std::vector<Scenario> kSystemScenarios{{"files", files},
                                             {"replaced_file", replaced_file},
                                             {"file_facts", file_facts},
                                             {"rotated_file", rotated_file},
                                             {"playlist", playlist},
                                             {"command", command},
                                             {"piped_command", piped_command},
                                             {"filed_command", filed_command},
                                             {"killing_command", killing_command},
                                             {"daemon_process", daemon_process},
                                             {"watchdog", watchdog},
                                             {"user", user, true},
                                             {"limits", limits},
                                             {"host", host},
                                             {"tunables", tunables},
                                             {"clock_set", clock_set}};

}  // namespace zx::test

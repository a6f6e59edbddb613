// Locks, threads, memory, queues, signals, the environment, the log.
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "faults.hpp"
#include "scenarios.hpp"
#include "sha1.h"
#include "zxenv.h"
#include "zxfifo.h"
#include "zxlog.h"
#include "zxmd.h"
#include "zxmd5.h"
#include "zxmem.h"
#include "zxsignal.h"
#include "zxt.h"
#include "zxthread.h"

namespace zx::test {
namespace {

constexpr std::uint32_t kLimitMs = 10000;

std::string lock() {
    zxlock_ctt record{};
    const int made = zxlock_api_init(&record, "faulty");
    const int obtained = zxlock_api_obtain(&record, __func__, __LINE__);
    const int released = zxlock_api_release(&record, __func__, __LINE__);
    const int gone = zxlock_api_deinit(&record);
    const auto listed = std::ranges::count(zxlocklist_ctt, 1, &zxlocklist_entry_ctt::used);
    return Said{made, obtained, released, gone, listed};
}

std::atomic<int> g_named;

void* work(void* argument) {
    auto* const thread = static_cast<zxthread_ctt*>(argument);
    g_named = zxthread_api_setName("faulty");
    zxthread_api_waitCmdStarting(thread, kLimitMs, 1);
    for (std::uint32_t state = ZXTHREAD_STATE_STARTING; state != ZXTHREAD_STATE_NONE;) {
        usleep(100);
        zxthread_api_lock(thread);
        state = thread->state;
        zxthread_api_unlock(thread);
    }
    zxthread_api_isStop(thread);
    return nullptr;
}

std::string thread() {
    zxthread_ctt record{};
    g_named = 1;
    const int made = zxthread_api_create(&record, "faulty", work, &record);
    const int started = zxthread_api_waitStateTimeout(&record, ZXTHREAD_STATE_START,
                                                      ZXTHREAD_STATE_STARTING, kLimitMs, 1);
    const int stopped = zxthread_api_waitStateTimeout(&record, ZXTHREAD_STATE_NONE,
                                                      ZXTHREAD_STATE_STOPPED, kLimitMs, 1);
    return Said{made, started, stopped, zxthread_api_destroy(&record), g_named};
}

// Whether there is a buffer, and whether it is listed.
std::string memory() {
    zxmem_api_init(1);
    void* buffer = zxmem_api_malloc(64, "faulty", "source", __LINE__);
    const bool is_there = buffer != nullptr;
    char html[4096] = "";
    zxmem_api_info(html, nullptr);
    zxmem_api_free(&buffer);
    zxmem_api_deinit();
    return Said{is_there, std::strstr(html, "faulty") != nullptr};
}

// One buffer more than the first index of the list is for.
std::string memory_growth() {
    std::array<void*, 129> buffers{};
    {
        const Uncounted preparation;
        zxmem_api_init(1);
        for (std::size_t i = 0; i + 1 < buffers.size(); ++i) {
            buffers.at(i) = zxmem_api_malloc(1, "faulty", "source", __LINE__);
        }
    }
    buffers.back() = zxmem_api_malloc(1, "faulty", "source", __LINE__);
    const bool is_there = buffers.back() != nullptr;
    for (void*& buffer : buffers) {
        zxmem_api_free(&buffer);
    }
    return Said{is_there};
}

std::string digests() {
    std::uint32_t words[4]{};
    const int is_there = zxmd5_api_outNum(nullptr, 0, words);
    void* text = sha1_api_hash("abc");
    const Said said{is_there, words[0], text != nullptr ? static_cast<char*>(text) : "none"};
    if (text != nullptr) {
        zxmem_api_free(&text);  // as free(), but seen
    }
    return said;
}

std::string block_fifo() {
    {
        const Uncounted preparation;
        zxmem_api_init(1);
    }
    zxfifoblock_ctt* fifo = zxfifo_api_blockInit(16, "faulty");
    if (fifo == nullptr) {
        return "none";
    }
    char out[8] = "";
    const int in = zxfifo_api_blockLenIn(fifo, "hello", 5);
    zxfifo_api_blockLenOut1(fifo, out, sizeof out, __func__, __LINE__);
    zxfifoblockstat_ctt status{};
    status.fifo = fifo;
    const int reset = zxfifo_api_blockReset(fifo) + zxfifo_api_blockReset2(&status);
    zxfifo_api_blockDeinit(&fifo);
    return Said{in, out, reset, status.free};
}

std::string list_pool() {
    zxfifolist_ctt* head = nullptr;
    zxfifo_api_listIn(&head, zxfifo_api_listMalloc(8, "faulty"));
    zxfifo_api_listIn(&head, zxfifo_api_listMalloc(8, "faulty"));
    const std::uint32_t count = zxfifo_api_listTotalNum(&head);
    zxfifo_api_listReset(&head);
    return Said{count};
}

std::string shared_list() {
    zxsharelist_ctt list{};
    list.keep_seconds = 100;
    if (zxfifo_api_shareListInit(&list, "faulty") != 0) {
        return "none";
    }
    for (int i = 0; i < 2; ++i) {
        zxfifo_api_shareListIn(&list, zxfifo_api_shareListMalloc(8, "faulty"));
    }
    const bool is_read = zxfifo_api_shareListRead(&list, 0) != nullptr;
    const std::uint32_t count = zxfifo_api_shareListTotalNum(&list);
    return Said{count, is_read, zxfifo_api_shareListDeinit(&list)};
}

std::string buffer() {
    std::uint8_t bytes[] = "__abc";
    const int moved = zxt_innerapi_bufOffset(bytes, 2, 3);
    return Said{moved, reinterpret_cast<const char*>(bytes)};
}

std::string signals() {
    return Said{zxsignal_api_catch() == SIG_ERR ? "refused" : "set"};
}

std::string environment() {
    static char text[] = "ZX_FAULTY=put";
    unsetenv("ZX_FAULTY");
    const int set = zxenv_api_set("ZX_FAULTY", "set", 1);
    const int put = zxenv_api_put(text);
    const std::string value = zxenv_api_get("ZX_FAULTY", "none");
    return Said{set, put, value, zxenv_api_unset("ZX_FAULTY")};
}

// What was written to a file, line by line, each cut to its beginning and its size.
std::string lines_of(const std::string& path) {
    std::string text;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const bool is_long = line.size() > 80;
        text += is_long ? line.substr(0, 8) + "..." + std::to_string(line.size()) : line;
        text += line.ends_with('\r') ? ";" : "<torn>";
    }
    std::erase_if(text, [](char c) { return c == '\r' || c == '\033'; });
    return text;
}

const std::string kLong(5000, 'x');

// The capture of this program stands before the library's function.
std::string log_file() {
    const auto write =
        reinterpret_cast<decltype(&zxlog_innerapi_file)>(dlsym(RTLD_NEXT, "zxlog_innerapi_file"));
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(null, STDERR_FILENO);  // gets what the file does not
    close(null);
    std::filesystem::current_path(g_directory);
    const int set = zxlog_api_setFile("log");
    write("one\r\n");
    write("%s\r\n", kLong.c_str());
    write("two\r\n");
    {
        const Uncounted recovery;
        write("end\r\n");
    }
    const int reset = zxlog_api_setFile(nullptr);
    std::filesystem::current_path("/");
    return Said{set, lines_of(in_directory("log")), reset};
}

std::string echo() {
    const std::string path = in_directory("echo");
    const int kept = dup(STDOUT_FILENO);
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    dup2(file, STDOUT_FILENO);
    flag_stdPrint = 1;
    zxmd_api_isFileExsit(nullptr);
    zxmd_api_getFileType(kLong.c_str());
    flag_stdPrint = 0;
    dup2(kept, STDOUT_FILENO);
    close(file);
    close(kept);
    return lines_of(path);
}

}  // namespace

const std::vector<Scenario> kBasicScenarios{{"lock", lock},
                                            {"thread", thread},
                                            {"memory", memory},
                                            {"memory_growth", memory_growth},
                                            {"digests", digests},
                                            {"block_fifo", block_fifo},
                                            {"list_pool", list_pool},
                                            {"shared_list", shared_list},
                                            {"buffer", buffer},
                                            {"signals", signals},
                                            {"environment", environment},
                                            {"log_file", log_file},
                                            {"echo", echo}};

}  // namespace zx::test

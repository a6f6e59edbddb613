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
#include <memory>

#include "faults.hpp"
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

ZX_SCENARIO(lock) {
    zxlock_ctt record{};
    return Said{zxlock_api_init(&record, "faulty"), zxlock_api_obtain(&record, __func__, 1),
                zxlock_api_release(&record, __func__, 2), zxlock_api_deinit(&record),
                std::ranges::count(zxlocklist_ctt, 1, &zxlocklist_entry_ctt::used)};
}

ZX_SCENARIO(lock_waits) {
    zxlock_ctt record{};
    std::uint32_t word = 1;
    zxlock_api_init(&record, "faulty");
    const std::unique_ptr<zxlock_ctt, int (*)(zxlock_ctt*)> until_the_end(&record,
                                                                          zxlock_api_deinit);
    return Said{zxlock_api_waitStateTimeout(&record, &word, 1, 2, 2, 1),
                zxlock_api_waitCmdStarting(&record, &word, 2, 1)};
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

// Ends a thread when its creator is cancelled.
struct Ender {
    zxthread_ctt& record;
    ~Ender() {
        if (record.created == 1) {
            zxthread_api_destroy(&record);
        }
    }
};

ZX_SCENARIO(thread) {
    zxthread_ctt record{};
    const Ender ender{record};
    g_named = 1;
    return Said{zxthread_api_create(&record, "faulty", work, &record),
                zxthread_api_waitStateTimeout(&record, ZXTHREAD_STATE_START,
                                              ZXTHREAD_STATE_STARTING, kLimitMs, 1),
                zxthread_api_waitStateTimeout(&record, ZXTHREAD_STATE_NONE, ZXTHREAD_STATE_STOPPED,
                                              kLimitMs, 1),
                zxthread_api_destroy(&record), g_named};
}

// Whether there is a buffer, and whether it is listed.
ZX_SCENARIO(memory) {
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
ZX_SCENARIO(memory_growth) {
    std::array<void*, 129> buffers{};
    const bool counted = count_calls(false);
    zxmem_api_init(1);
    for (void*& buffer : buffers) {
        count_calls(counted && &buffer == &buffers.back());
        buffer = zxmem_api_malloc(1, "faulty", "source", __LINE__);
    }
    const bool is_there = buffers.back() != nullptr;
    for (void*& buffer : buffers) {
        zxmem_api_free(&buffer);
    }
    return Said{is_there};
}

ZX_SCENARIO(digests) {
    std::uint32_t words[4]{};
    const int is_there = zxmd5_api_outNum(nullptr, 0, words);
    char* const text = sha1_api_hash("abc");
    const Said said{is_there, words[0], text != nullptr ? text : "none"};
    void* taken = text;
    zxmem_api_free(&taken);  // as free(), but seen
    return said;
}

ZX_SCENARIO(block_fifo) {
    const bool counted = count_calls(false);
    zxmem_api_init(1);
    count_calls(counted);
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

ZX_SCENARIO(list_pool) {
    zxfifolist_ctt* head = nullptr;
    zxfifo_api_listIn(&head, zxfifo_api_listMalloc(8, "faulty"));
    zxfifo_api_listIn(&head, zxfifo_api_listMalloc(8, "faulty"));
    const Said said{zxfifo_api_listTotalNum(&head)};
    zxfifo_api_listReset(&head);
    return said;
}

ZX_SCENARIO(shared_list) {
    zxsharelist_ctt list{};
    list.keep_seconds = 100;
    if (zxfifo_api_shareListInit(&list, "faulty") != 0) {
        return "none";
    }
    for (int i = 0; i < 2; ++i) {
        zxfifo_api_shareListIn(&list, zxfifo_api_shareListMalloc(8, "faulty"));
    }
    return Said{zxfifo_api_shareListTotalNum(&list), zxfifo_api_shareListRead(&list, 0) != nullptr,
                zxfifo_api_shareListDeinit(&list)};
}

ZX_SCENARIO(buffer) {
    std::uint8_t bytes[] = "__abc";
    return Said{zxt_innerapi_bufOffset(bytes, 2, 3), reinterpret_cast<const char*>(bytes)};
}

ZX_SCENARIO(signals) {
    return Said{zxsignal_api_catch() == SIG_ERR ? "refused" : "set"};
}

ZX_SCENARIO(environment) {
    static char text[] = "ZX_FAULTY=put";
    unsetenv("ZX_FAULTY");
    return Said{zxenv_api_set("ZX_FAULTY", "set", 1), zxenv_api_put(text),
                std::string(zxenv_api_get("ZX_FAULTY", "none")), zxenv_api_unset("ZX_FAULTY")};
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

void redirect(int fd, const char* path) {
    const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    dup2(file, fd);
    close(file);
}

// The capture of this program stands before the library's function.
ZX_SCENARIO(log_file) {
    const auto write =
        reinterpret_cast<decltype(&zxlog_innerapi_file)>(dlsym(RTLD_NEXT, "zxlog_innerapi_file"));
    redirect(STDERR_FILENO, "/dev/null");  // gets what the file does not
    std::filesystem::current_path(g_directory);
    const int set = zxlog_api_setFile("log");
    write("one\r\n");
    write("%s\r\n", kLong.c_str());
    write("two\r\n");
    const bool counted = count_calls(false);
    write("end\r\n");
    count_calls(counted);
    const int reset = zxlog_api_setFile(nullptr);
    std::filesystem::current_path("/");
    return Said{set, lines_of(in_directory("log")), reset};
}

ZX_SCENARIO(echo) {
    const std::string path = in_directory("echo");
    redirect(STDOUT_FILENO, path.c_str());
    flag_stdPrint = 1;
    zxmd_api_isFileExsit(nullptr);
    zxmd_api_getFileType(kLong.c_str());
    flag_stdPrint = 0;
    redirect(STDOUT_FILENO, "/dev/null");
    return lines_of(path);
}

}  // namespace
}  // namespace zx::test

// Locks, threads, memory, queues, signals, the environment, the log.
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include "faults.hpp"
#include "log_capture.hpp"
#include "sha1.h"
#include "zxaes.h"
#include "zxcommon.h"
#include "zxdes.h"
#include "zxdiag.h"
#include "zxenv.h"
#include "zxfifo.h"
#include "zxlog.h"
#include "zxmd.h"
#include "zxmd5.h"
#include "zxmem.h"
#include "zxsignal.h"
#include "zxstr.h"
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

ZX_SCENARIO(diagnosis) {
    const std::string path = in_directory("socket");
    const Said served{zxdiag_api_serve(path.c_str()), access(path.c_str(), F_OK)};
    zxdiag_api_stop();
    return Said{served, access(path.c_str(), F_OK)};
}

std::ptrdiff_t times_listed(const zxlock_ctt& lock) {
    return std::ranges::count(zxlocklist_ctt, &lock, &zxlocklist_entry_ctt::lock);
}

template <typename Record>
bool is_zeroed(const Record& record) {
    const Record zeros{};
    return std::memcmp(&record, &zeros, sizeof record) == 0;
}

ZX_SCENARIO(lock_from_init_to_deinit) {
    count_calls(false);
    zxlock_ctt lock{};
    const Said twice{zxlock_api_init(&lock, "first"), zxlock_api_init(&lock, "other"), lock.name,
                     times_listed(lock)};
    std::uint32_t state = 0;
    const Said waits{zxlock_api_waitStateTimeout(&lock, &state, 4, 4, 0, 0),
                     zxlock_api_waitStateTimeout(&lock, &state, 2, 4, 5, 0),
                     zxlock_api_waitStateTimeout(&lock, &state, 2, 4, 5, 5),
                     zxlock_api_waitCmdStarting(&lock, &state, 0, 0),
                     state,
                     lock.holder};
    const Said end{zxlock_api_deinit(&lock), times_listed(lock), is_zeroed(lock),
                   zxlock_api_deinit(&lock)};
    zxlock_api_init(&lock, nullptr);
    const std::string unnamed = lock.name;
    zxlock_api_deinit(&lock);
    return Said{twice, waits, end, unnamed};
}

// Only the second lock has report_misuse set.
ZX_SCENARIO(lock_misuse) {
    std::string said;
    for (const std::uint8_t reports : {std::uint8_t{0}, std::uint8_t{1}}) {
        std::uint32_t word = 7;
        zxlock_ctt lock{};
        lock.report_misuse = reports;
        std::fill_n(lock.name, sizeof lock.name, 'm');
        said += Said{zxlock_api_obtain(&lock, "caller", 12),
                     zxlock_api_release(&lock, "caller", 12),
                     zxlock_api_waitStateTimeout(&lock, &word, 1, 1, 1, 1),
                     zxlock_api_waitCmdStarting(&lock, &word, 1, 1),
                     word,
                     ""};
    }
    return said;
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

void* idle(void*) {
    return nullptr;
}

ZX_SCENARIO(thread_states) {
    count_calls(false);
    zxthread_ctt thread{};
    const Said begun{zxthread_api_create(&thread, "t", idle, nullptr),
                     zxthread_api_create(&thread, "u", idle, nullptr),
                     thread.name,
                     zxthread_api_waitStateTimeout(&thread, 3, 3, 0, 0),
                     zxthread_api_waitStateTimeout(&thread, 1, 3, 4, 5),
                     zxthread_api_waitCmdStarting(&thread, 2, 1)};
    const Said ended{Said{zxthread_api_isStop(&thread), thread.state},
                     zxthread_api_destroy(&thread), is_zeroed(thread),
                     zxthread_api_destroy(&thread)};
    char name[16] = "";
    zxthread_api_setName("a name of twenty bytes");
    prctl(PR_GET_NAME, name);
    zxlock_ctt lock{};
    zxlock_api_init(&lock, "listed");
    zxthread_api_envInit();
    return Said{begun, ended, name, times_listed(lock), zxlock_api_deinit(&lock)};
}

// The misuse is logged only once.
ZX_SCENARIO(thread_misuse) {
    zxthread_ctt thread{};
    std::strcpy(thread.name, "early");
    return Said{zxthread_api_lock(&thread),
                zxthread_api_unlock(&thread),
                zxthread_api_isStop(&thread),
                zxthread_api_waitStateTimeout(&thread, 1, 1, 0, 0),
                zxthread_api_waitCmdStarting(&thread, 0, 0),
                thread.state};
}

// The results: whether there is a buffer, and whether it is listed.
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

// Allocates one buffer more than the first index of the list is made for.
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
    zxmem_api_free(&taken);  // like free(), but counted
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

// The dispositions of signals 1 to 31: caught, ignored or the default. A capital letter means
// blocked.
std::string dispositions() {
    sigset_t blocked;
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    std::string all;
    for (int number = 1; number < 32; ++number) {
        struct sigaction now {};
        sigaction(number, nullptr, &now);
        const char letter = now.sa_handler == zxsignal_innerapi_handler ? 'c'
                            : now.sa_handler == SIG_IGN                 ? 'i'
                                                                        : 'd';
        all += sigismember(&blocked, number) == 1 ? static_cast<char>(letter - 32) : letter;
    }
    return all;
}

// Each signal is logged, and `errno` of the process is kept.
ZX_SCENARIO(caught_signals) {
    count_calls(false);
    for (int number = 1; number < NSIG; ++number) {
        signal(number, number == SIGSYS || number == SIGCHLD ? SIG_IGN : SIG_DFL);
    }
    const Said before{zxsignal_api_catch() == SIG_IGN,
                      zxsignal_api_catch() == zxsignal_innerapi_handler};
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    EXPECT_EQ(write(ends[1], "x", 1), -1);
    for (const int number : {SIGHUP, SIGINT, SIGUSR1, SIGTERM, SIGTTIN}) {
        kill(getpid(), number);
    }
    const int kept = errno;
    close(ends[1]);
    return Said{before, dispositions(), kept};
}

ZX_SCENARIO(signal_names) {
    const auto is_named = [](const char* name) { return name != nullptr; };
    for (const int number : {-1, 0, 6, 17, 31, 32, ZXSIGNAL_COUNT, INT32_MAX}) {
        zxsignal_innerapi_handler(number);
    }
    zxsignal_innerapi_sigMask(0);
    return Said{std::ranges::count_if(zxsignal_desstring, is_named)};
}

ZX_SCENARIO(power) {
    return Said{zx_api_reboot(), zx_api_forceReboot(), zx_api_poweroff()};
}

ZX_SCENARIO(version) {
    char text[1 + ZXCOMMON_INFO_SIZE] = "x";
    zxcommon_api_info(text);
    return Said{zxcommon_api_version(), ZXCOMMON_VERSION, text,
                std::strlen(text) + 1 - sizeof text};
}

// How many lines pass a level and a filter of tags; then one line with function and line.
ZX_SCENARIO(log_filter) {
    std::string said;
    for (const auto& [level, filter] :
         {std::pair{0U, ""}, {1U, ""}, {1U, "zxcommon_inner"}, {5U, "FIFO_STRU,ZXCOMMON_INNER"}}) {
        LogCapture log(level);
        std::strcpy(strfilterTags, filter);
        zxcommon_api_info(nullptr);
        said += Said{log.take().size(), ""};
    }
    LogCapture().set_level(5);
    flag_printLineFunc = 1;
    zxcommon_api_info(nullptr);
    flag_printLineFunc = 0;
    return said;
}

ZX_SCENARIO(environment_values) {
    count_calls(false);
    static char text[] = "ZX_TEST=three";
    const auto value = [] { return std::string(zxenv_api_get("ZX_TEST", "none")); };
    const Said sets{zxenv_api_set("ZX_TEST", "", 0), value() + "<empty>",
                    zxenv_api_set("ZX_TEST", "one", 1), zxenv_api_set("ZX_TEST", "two", 0),
                    value()};
    std::strcpy(text, "ZX_TEST=three");
    zxenv_api_put(text);
    text[8] = 'T';  // putenv() uses the text itself
    return Said{sets,
                value(),
                zxenv_api_unset("ZX_TEST"),
                value(),
                zxenv_api_unset("a=b"),
                zxenv_api_set("a=b", "c", 1)};
}

// Impossible arguments are refused or do nothing.
ZX_SCENARIO(refusals) {
    char text[64] = "kept", digits[ZXMD5_TEXT_SIZE] = "";
    std::uint32_t words[4]{};
    std::uint8_t out[32]{};
    const std::uint8_t in[32]{};
    zxstr_api_urlSplit(nullptr, 9, nullptr, 9, nullptr, 9, nullptr, nullptr, 9, nullptr,
                       "s://a@[h]:1/p");
    zxstr_api_buildListurl("p", "", "h", 1, "", 1, 0, text);
    const Said digests{zxmd5_api_outStr(in, std::uint64_t{ZXMD5_MAX_INPUT} + 1, digits), digits,
                       zxmd5_api_outNum(in, 0x1FFFFFFFFFFFFFFF, words),
                       zxmd5_api_outNum(in, 0x2000000000000000, words), is_zeroed(words)};
    const Said ciphers{zxaes_api_done(0, 1, in, out, 20, in, 8),
                       zxaes_api_done(0, 1, in, out, 20, in, 16),
                       zxaes_api_done(2, 1, in, out, 32, in, 16),
                       zxdes_api_done(0, in, out, 12, in, 24),
                       zxdes_api_done(0, in, out, 0, in, 24),
                       zxdes_api_done(0, in, out, 16, in, 7),
                       is_zeroed(out)};
    return Said{digests, ciphers, zxmd_api_write("/nowhere", text, 1, ""),
                zxstr_api_lcpy(nullptr, "hello", 0), text};
}

ZX_SCENARIO(environment) {
    static char text[] = "ZX_FAULTY=put";
    unsetenv("ZX_FAULTY");
    return Said{zxenv_api_set("ZX_FAULTY", "set", 1), zxenv_api_put(text),
                std::string(zxenv_api_get("ZX_FAULTY", "none")), zxenv_api_unset("ZX_FAULTY")};
}

// The lines of a file. A long line is cut to its start and its size.
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

// This program's log capture hides the library's function, so this looks up the function.
ZX_SCENARIO(log_file) {
    const auto write =
        reinterpret_cast<decltype(&zxlog_innerapi_file)>(dlsym(RTLD_NEXT, "zxlog_innerapi_file"));
    redirect(STDERR_FILENO, "/dev/null");  // takes lines that miss the file
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

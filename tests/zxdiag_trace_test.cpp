// What a trace tells about the waits of a program.
#include <cjson/cJSON.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include <utility>

#include "diag_client.hpp"
#include "files.hpp"
#include "zxdiag.h"
#include "zxepoll.h"
#include "zxfifo.h"
#include "zxlock.h"
#include "zxnet.h"
#include "zxt.h"

namespace {

using testing::HasSubstr;

double number(const cJSON* object, const char* key) {
    return cJSON_GetNumberValue(cJSON_GetObjectItem(object, key));
}

struct Event {
    double begin;
    double length;
    double amount;
    bool is_open;
    int tid;
};

// The spans of a trace by kind and name, "lock hold outer"; of several with the same, the last.
std::map<std::string, Event> events_of(const cJSON* answer) {
    std::map<std::string, Event> events;
    const cJSON* each = nullptr;
    cJSON_ArrayForEach(each, cJSON_GetObjectItem(answer, "traceEvents")) {
        const auto text = [each](const char* key) {
            return std::string(cJSON_GetStringValue(cJSON_GetObjectItem(each, key)));
        };
        if (text("ph") == "X") {
            const cJSON* const args = cJSON_GetObjectItem(each, "args");
            const char* const amount = text("cat").starts_with("fifo") ? "bytes" : "descriptor";
            events[text("cat") + " " + text("name")] = {
                number(each, "ts"), number(each, "dur"), number(args, amount),
                cJSON_IsTrue(cJSON_GetObjectItem(args, "open")) != 0,
                static_cast<int>(number(each, "tid"))};
        }
    }
    return events;
}

// A listener on the loopback that takes no more connections.
class FullListener {
public:
    FullListener() {
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd_.get(), generic(), size);
        listen(fd_.get(), 0);
        getsockname(fd_.get(), generic(), &size);
        for (zxcommon::Descriptor& client : clients_) {
            client = zxcommon::Descriptor(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
            EXPECT_TRUE(connect(client.get(), generic(), size) == 0 || errno == EINPROGRESS);
        }
    }
    sockaddr* generic() { return reinterpret_cast<sockaddr*>(&address); }

    sockaddr_in address{};
    socklen_t size = sizeof address;

private:
    zxcommon::Descriptor fd_{socket(AF_INET, SOCK_STREAM, 0)};
    zxcommon::Descriptor clients_[2];
};

constexpr int kWaitMs = 20;
// What a call does before it waits is part of its timeout. On a busy machine this may take long.
constexpr int kHalfUs = kWaitMs * 1000 / 2;

// A socket in which nothing arrives for a while.
zxcommon::Descriptor silent_socket() {
    zxcommon::Descriptor fd(socket(AF_INET, SOCK_DGRAM, 0));
    const timeval timeout{0, kWaitMs * 1000};
    setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    return fd;
}

TEST(DiagTrace, ShowsWhatEachThreadWaitedFor) {
    const zx::test::Folder folder;
    const std::string path = folder.path() + "/socket";
    ASSERT_EQ(zxdiag_api_serve(path.c_str()), 0);
    zx::test::DiagClient client(path);
    zx::test::DiagClient other(path);
    FullListener listener;
    zxlock_ctt jam{};  // from before the trace until after it
    zxlock_api_init(&jam, "jam");
    zxlock_api_obtain(&jam, __func__, __LINE__);
    std::thread stuck([&] {
        zxlock_api_obtain(&jam, __func__, __LINE__);
        zxlock_api_release(&jam, __func__, __LINE__);
    });
    int quiet[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, quiet), 0);
    std::thread patient([&] {
        char byte;
        EXPECT_EQ(zxnet_api_epollRecv(quiet[0], &byte, 1, 60000), 1);
    });
    usleep(kWaitMs * 1000);

    client.send_question("trace seconds=5");  // long enough on a busy machine
    const auto is_taken = [&] {
        return other.ask("trace seconds=60").find("somebody traces") != std::string::npos;
    };
    EXPECT_TRUE(is_taken());
    EXPECT_THAT(other.ask("trace seconds=61"), HasSubstr("\"error\":"));
    zxfifoblock_ctt* fifo = zxfifo_api_blockInit(100, "queue");
    zxlock_ctt outer{};
    zxlock_api_init(&outer, "outer");
    zxlock_api_obtain(&outer, __func__, __LINE__);
    EXPECT_EQ(zxfifo_api_blockIn(fifo, "hello", 5, nullptr), 5);
    zxlock_api_release(&outer, __func__, __LINE__);
    const int epfd = zxepoll_innerapi_open(1, __func__, __LINE__);
    epoll_event event{};
    EXPECT_EQ(zxepoll_wait_timeout(epfd, &event, 1, kWaitMs), 0);
    const zxcommon::Descriptor fd(socket(AF_INET, SOCK_STREAM, 0));
    EXPECT_EQ(
        zxnet_api_socketConnect(fd.get(), listener.generic(), listener.size, kWaitMs * 1000, 0),
        -1);
    const zxcommon::Descriptor silent = silent_socket();
    char said[16] = {};
    EXPECT_EQ(zxnet_api_epollRecv(silent.get(), said, sizeof said, ZXNET_NO_WAIT), ZXNET_IO_ERROR);
    EXPECT_EQ(zxt_innerapi_cmdReadByPipe("sleep 0.02; echo x", said, sizeof said), 2);

    cJSON* const answer = cJSON_Parse(client.line().c_str());
    EXPECT_THAT(client.ask("program"), HasSubstr("\"pid\":"));  // the trace is told once
    EXPECT_NE(answer, nullptr);
    std::map<std::string, Event> events = events_of(answer);
    EXPECT_TRUE(events.contains("fifo in queue") && events.contains("lock hold outer"));
    EXPECT_EQ(events["fifo in queue"].amount, 5);
    EXPECT_FALSE(events["fifo in queue"].is_open);
    EXPECT_LE(events["fifo in queue"].length, events["lock hold outer"].length);
    EXPECT_LE(events["lock hold outer"].begin, events["fifo in queue"].begin);
    double before = 0;
    const std::pair<const char*, int> waits[] = {{"socket wait zxepoll_wait_timeout", epfd},
                                                 {"socket wait zxnet_api_socketConnect", fd.get()},
                                                 {"socket wait zxnet_api_epollRecv", silent.get()},
                                                 {"command sleep 0.02; echo x", -1}};
    for (const auto& [name, descriptor] : waits) {
        EXPECT_TRUE(events.contains(name)) << name;
        const Event& wait = events[name];
        EXPECT_TRUE(descriptor == -1 || wait.amount == descriptor) << name;
        EXPECT_FALSE(wait.is_open);
        EXPECT_EQ(wait.tid, gettid());
        EXPECT_GE(wait.begin, before) << name;
        EXPECT_GE(wait.length, kHalfUs) << name;
        before = wait.begin + wait.length;
    }
    EXPECT_EQ(events["lock hold jam"].tid, gettid());
    EXPECT_NE(events["lock wait jam"].tid, gettid());
    EXPECT_EQ(events["socket wait zxepoll_waitfd_timeout_noopt"].amount, quiet[0]);
    for (const char* const name :
         {"lock hold jam", "lock wait jam", "socket wait zxepoll_waitfd_timeout_noopt"}) {
        EXPECT_TRUE(events[name].is_open) << name;
        EXPECT_GE(events[name].length, 1e6) << name;
        EXPECT_LT(events[name].begin, events["fifo in queue"].begin) << name;
    }
    EXPECT_EQ(number(answer, "dropped"), 0);
    cJSON_Delete(answer);
    zxlock_api_release(&jam, __func__, __LINE__);
    stuck.join();
    EXPECT_EQ(zxnet_api_epollSend(quiet[1], "x", 1, ZXNET_NO_WAIT), 1);
    patient.join();
    for (const int each : {epfd, quiet[0], quiet[1]}) {
        close(each);
    }
    zxfifo_api_blockDeinit(&fifo);
    zxlock_api_deinit(&outer);
    zxlock_api_deinit(&jam);
    zxdiag_api_stop();
}

// For perf and bpftrace.
TEST(DiagTrace, HasProbes) {
    Dl_info library{};
    ASSERT_NE(dladdr(dlsym(RTLD_DEFAULT, "zxdiag_api_serve"), &library), 0);
    std::FILE* const notes = popen(("readelf -n " + std::string(library.dli_fname)).c_str(), "re");
    std::map<std::string, std::size_t> probes;  // and how many arguments each has
    std::string name;
    for (char line[1024]; std::fgets(line, sizeof line, notes) != nullptr;) {
        const std::string text(line);
        if (const std::size_t at = text.find("Name: "); at != std::string::npos) {
            name = text.substr(at + 6, text.find('\n') - at - 6);
        } else if (const std::size_t arguments = text.find("Arguments: ");
                   arguments != std::string::npos) {
            probes[name] =
                static_cast<std::size_t>(std::count(line + arguments, line + text.size(), '@'));
        }
    }
    pclose(notes);
    const std::map<std::string, std::size_t> wanted = {
        {"fifo_in", 2},       {"fifo_out", 2},   {"lock_wanted", 1}, {"lock_taken", 1},
        {"lock_released", 1}, {"wait_begin", 3}, {"wait_end", 3}};
    EXPECT_EQ(probes, wanted);
}

}  // namespace

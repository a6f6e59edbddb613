// The relay as a server: processes that come and go, and what has passed for those who ask.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include "channel.hpp"
#include "internal/guard.hpp"
#include "loopback.hpp"
#include "process.hpp"
#include "request.hpp"
#include "store.hpp"
#include "zxlog.h"

namespace {

std::atomic<std::uint64_t> g_clock_us{0};  // 0: the real one

}  // namespace

// The clock of the library, in place of libzxlog's.
extern "C" uint64_t zxlog_api_us(void) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const auto real = static_cast<std::uint64_t>(now.tv_sec) * 1000000 +
                      static_cast<std::uint64_t>(now.tv_nsec) / 1000;
    return g_clock_us != 0 ? g_clock_us.load() : real;
}

namespace {

using namespace zx::test;
using relay::kMessageSize;
using relay::kPacketSize;
using testing::HasSubstr;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::chrono::seconds kBackWithin{6};
#else
constexpr std::chrono::seconds kBackWithin{2};
#endif

// Packets that carry their number.
Bytes packets(std::uint64_t first, std::uint64_t count) {
    Bytes bytes(count * kPacketSize);
    for (std::uint64_t i = 0; i < count; ++i) {
        std::uint8_t* const packet = bytes.data() + i * kPacketSize;
        const std::uint64_t number = first + i;
        std::memset(packet, static_cast<int>(number % 251), kPacketSize);
        packet[0] = 0x47;
        std::memcpy(packet + 4, &number, sizeof number);
    }
    return bytes;
}

std::uint64_t number_at(const Bytes& bytes, std::size_t at) {
    std::uint64_t number;
    std::memcpy(&number, bytes.data() + at + 4, sizeof number);
    return number;
}

// Empty for one that is gone: reading a file of a process that ends can fail at any time.
std::string contents(const fs::path& path) {
    const std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

bool comes_true(const std::function<bool()>& condition,
                Clock::duration limit = std::chrono::seconds(10)) {
    for (const auto end = Clock::now() + limit; Clock::now() < end; usleep(5000)) {
        if (condition()) {
            return true;
        }
    }
    return condition();
}

class RelayServer : public testing::Test {
protected:
    void SetUp() override {
        std::string name = fs::temp_directory_path() / "zxrelay.XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        dir = name;
        fs::permissions(dir, fs::perms::all);
    }
    void TearDown() override {
        for (const pid_t pid : relays()) {
            kill(pid, SIGKILL);
        }
        fs::remove_all(dir);
    }

    // A command line with these options, and with usual ones for what they leave out.
    std::vector<std::string> command(const std::string& scheme, std::vector<std::string> args) {
        in_port = free_port(scheme == "udp" ? SOCK_DGRAM : SOCK_STREAM);
        out_port = free_port(SOCK_STREAM);
        const auto add = [&](const std::string& name, const std::string& value) {
            if (std::find(args.begin(), args.end(), name) == args.end()) {
                args.insert(args.begin(), {name, value});
            }
        };
        add("--input", scheme + "://127.0.0.1:" + std::to_string(in_port));
        add("--output", "127.0.0.1:" + std::to_string(out_port));
        add("--log", dir / "log");
        add("--log-level", "4");
        add("--pid-file", dir / "pid");
        args.insert(args.begin(), ZX_RELAY);
        return args;
    }

    void start_daemon(const std::vector<std::string>& more) {
        Process starter(command("udp", more));
        ASSERT_EQ(starter.wait(), 0) << starter.errors();
        supervisor = std::stoi(contents(dir / "pid"));
    }

    [[nodiscard]] bool logs(const std::string& text) const {
        return comes_true([&] { return contents(dir / "log").find(text) != std::string::npos; });
    }

    // All processes of this test's relays: the name of its directory is on their command lines.
    [[nodiscard]] std::vector<pid_t> relays() const {
        std::vector<pid_t> pids;
        for (const auto& entry : fs::directory_iterator("/proc")) {
            const std::string pid = entry.path().filename();
            if (pid.find_first_not_of("0123456789") == std::string::npos &&
                contents(entry.path() / "cmdline").find(dir.string()) != std::string::npos) {
                pids.push_back(std::stoi(pid));
            }
        }
        return pids;
    }

    // The worker beside the supervisor; 0: none now.
    [[nodiscard]] pid_t worker() const {
        for (const pid_t pid : relays()) {
            if (pid != supervisor) {
                return pid;
            }
        }
        return 0;
    }

    // True when a client can connect and receives whole packets.
    [[nodiscard]] bool serves() const {
        const zx::UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const sockaddr_in address = loopback(out_port);
        const timeval limit{0, 500000};
        setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        return connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
                   0 &&
               receive_all(fd.get(), kPacketSize).size() >= kPacketSize;
    }

    // Nothing is left behind but the log.
    void expect_nothing_left() {
        EXPECT_TRUE(comes_true([this] { return relays().empty(); }));
        EXPECT_FALSE(fs::exists(dir / "pid"));
        // The kernel closes the sockets of a process when its command line is gone already.
        EXPECT_TRUE(comes_true([this] { return is_free(out_port); }));
    }

    static bool is_free(int port) {
        const zx::UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address = loopback(port);
        const int on = 1;  // what the clients left is in TIME_WAIT
        setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        return bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
               listen(fd.get(), 1) == 0;
    }

    fs::path dir;
    int in_port = 0;
    int out_port = 0;
    pid_t supervisor = 0;
};

TEST_F(RelayServer, DetachesWorksAsItsUserAndEndsAsAWhole) {
    const bool is_root = geteuid() == 0;
    std::vector<std::string> more = {"--daemon", "--watchdog"};
    if (is_root) {
        more.insert(more.end(), {"--user", "nobody"});
    }
    start_daemon(more);
    EXPECT_NE(getsid(supervisor), getsid(0));
    EXPECT_NE(getsid(supervisor), supervisor);
    const fs::path proc = "/proc/" + std::to_string(supervisor);
    EXPECT_EQ(fs::read_symlink(proc / "cwd"), "/");
    EXPECT_EQ(fs::read_symlink(proc / "fd" / "1"), "/dev/null");
    if (is_root) {
        const std::string status = contents("/proc/" + std::to_string(worker()) + "/status");
        EXPECT_THAT(status, HasSubstr("Uid:\t65534\t65534\t65534\t65534\n"));
        EXPECT_THAT(status, HasSubstr("Gid:\t65534\t65534\t65534\t65534\n"));
        EXPECT_THAT(status, testing::ContainsRegex("Groups:\t65534 ?\n"));
    } else {
        std::puts("the change of the user is not tested: only root may");
    }

    const int port = out_port;
    Process second(command("udp", {"--daemon"}));
    out_port = port;
    EXPECT_EQ(second.wait(), 1);
    EXPECT_THAT(second.errors(), HasSubstr("belongs to a relay that runs"));
    EXPECT_EQ(std::stoi(contents(dir / "pid")), supervisor);

    kill(supervisor, SIGTERM);
    EXPECT_TRUE(comes_true([this] { return !fs::exists(dir / "pid"); }));
    EXPECT_THAT(relays(), testing::AnyOf(testing::IsEmpty(), testing::ElementsAre(supervisor)));
    expect_nothing_left();
}

TEST_F(RelayServer, IsBackAfterEveryDeathOfItsWorker) {
    start_daemon({"--daemon", "--watchdog"});
    const zx::UniqueFd source(connected(SOCK_DGRAM, in_port));
    std::jthread stream([&](const std::stop_token& stop) {
        for (std::uint64_t first = 0; !stop.stop_requested(); first += 7, usleep(2000)) {
            const Bytes message = packets(first, 7);
            send(source.get(), message.data(), message.size(), 0);
        }
    });
    ASSERT_TRUE(serves());
    for (int i = 0; i < 10; ++i) {
        SCOPED_TRACE(i);
        const pid_t before = worker();
        ASSERT_GT(before, 0);
        kill(before, SIGKILL);
        EXPECT_TRUE(comes_true([&] { return worker() != before && serves(); }, kBackWithin));
    }
    EXPECT_THAT(contents(dir / "log"), HasSubstr("is end by signal:Kill, unblockable"));

    const pid_t last = worker();
    kill(last, SIGTERM);  // the worker alone: is started again, too
    EXPECT_TRUE(comes_true([&] { return worker() != last && serves(); }, kBackWithin));
    kill(supervisor, SIGKILL);
    expect_nothing_left();
}

TEST_F(RelayServer, TellsWhyItCannotStartAndLeavesNothing) {
    std::ofstream(dir / "text") << "somebody's own words\n";
    const struct {
        std::vector<std::string> args;
        std::string sentence;
        std::string logged;
    } cases[] = {
        {{"--user", "no-such-user"},
         "cannot become the user no-such-user (-1",
         "ERROR: can't find user 'no-such-user': getpwnam failed"},
        {{"--input", "udp://239.1.2.3:5000", "--interface", "nowhere0"},
         "no network interface nowhere0 (-1",
         "ioctl SIOCGIFHWADDR failed"},
        {{"--pid-file", "/nonexistent/pid"}, "cannot write the pid file /nonexistent/pid", ""},
        {{"--pid-file", dir / "text"}, "is no pid file", ""},
        {{"--log", "/nonexistent/log"}, "cannot write the log /nonexistent/log", ""},
    };
    const std::vector<std::string> ways[] = {
        {}, {"--daemon"}, {"--watchdog"}, {"--daemon", "--watchdog"}};
    for (const auto& c : cases) {
        for (const auto& way : ways) {
            SCOPED_TRACE(testing::PrintToString(c.args) + testing::PrintToString(way));
            std::vector<std::string> args = c.args;
            args.insert(args.end(), way.begin(), way.end());
            Process starter(command("udp", args));
            EXPECT_EQ(starter.wait(), 1);
            const std::string said = starter.errors();
            EXPECT_THAT(said,
                        testing::AllOf(testing::StartsWith("zxrelay: "), HasSubstr(c.sentence)));
            EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
            EXPECT_THAT(contents(dir / "log"), HasSubstr(c.logged));
            fs::remove(dir / "log");
            expect_nothing_left();
        }
    }
    EXPECT_EQ(contents(dir / "text"), "somebody's own words\n");
}

TEST_F(RelayServer, BeginsALogThatHasGrownAnew) {
    std::ofstream(dir / "log").close();
    fs::resize_file(dir / "log", 10485761);
    start_daemon({"--daemon"});
    const auto is_renamed = [this] {
        return std::any_of(fs::directory_iterator(dir), fs::directory_iterator(),
                           [](const fs::directory_entry& entry) {
                               const std::string name = entry.path().filename();
                               return name.starts_with("log_") && name.ends_with(".txt") &&
                                      entry.file_size() >= 10485761;
                           });
    };
    EXPECT_TRUE(comes_true(is_renamed));
    EXPECT_TRUE(comes_true([this] {
        zx::UniqueFd(connected(SOCK_STREAM, out_port)).reset();  // which is logged
        return contents(dir / "log").find("has connected") != std::string::npos;
    }));
    kill(supervisor, SIGTERM);
    expect_nothing_left();
}

TEST_F(RelayServer, GivesWhatHasPassedAndGoesOnWithoutASeam) {
    Process relay(command("tcp", {"--watchdog", "--once", "--keep", "60"}));
    ASSERT_TRUE(logs("relaying"));
    const Bytes stream = packets(0, 70000);
    const std::size_t half = 35000 * kPacketSize;
    const zx::UniqueFd watcher(connected(SOCK_STREAM, out_port));
    zx::UniqueFd source(connected(SOCK_STREAM, in_port));
    std::jthread feeder([&] {
        for (std::size_t at = 0; at < stream.size(); at += 100 * kPacketSize, usleep(500)) {
            send_all(source.get(),
                     Bytes(stream.data() + at, stream.data() + at + 100 * kPacketSize));
        }
        source.reset();
    });
    receive_all(watcher.get(), half);
    std::jthread drain([&] { receive_all(watcher.get()); });

    const zx::UniqueFd client(connected(SOCK_STREAM, out_port));
    const std::string said = "what is this\nlast 99999999999999999999999999\nlast 30\r\n";
    send_all(client.get(), Bytes(said.begin(), said.end()));
    const Bytes got = receive_all(client.get());
    // Live packets up to the request, then everything from the first one on.
    std::size_t start = 0;
    while (start < got.size() && number_at(got, start) != 0) {
        start += kPacketSize;
    }
    EXPECT_LT(start, half);
    EXPECT_EQ(Bytes(got.begin() + static_cast<std::ptrdiff_t>(start), got.end()), stream);
    EXPECT_EQ(relay.wait(), 0);  // the watchdog, too: there is nothing left to do
    expect_nothing_left();
}

TEST_F(RelayServer, ASlowShiftedClientLosesOnlyItsOwnPlace) {
    Process relay(command("tcp", {"--once", "--keep", "2"}));
    ASSERT_TRUE(logs("relaying"));
    const zx::UniqueFd slow(connected(SOCK_STREAM, out_port));
    const zx::UniqueFd quick(connected(SOCK_STREAM, out_port));
    for (const int fd : {slow.get(), quick.get()}) {
        send_all(fd, {'l', 'a', 's', 't', ' ', '1', '\n'});
    }
    ASSERT_TRUE(logs("from 1 s ago"));
    Bytes seen;
    std::jthread reader([&] { seen = receive_all(quick.get()); });
    zx::UniqueFd source(connected(SOCK_STREAM, in_port));
    std::uint64_t sent = 0;
    for (const auto end = Clock::now() + std::chrono::milliseconds(4500); Clock::now() < end;
         sent += 700) {
        send_all(source.get(), packets(sent, 700));
        usleep(10000);
    }
    source.reset();
    const Bytes got = receive_all(slow.get());
    reader.join();
    EXPECT_EQ(seen, packets(0, sent));

    ASSERT_EQ(got.size() % kPacketSize, 0U);
    unsigned gaps = 0;
    for (std::size_t at = kPacketSize; at < got.size(); at += kPacketSize) {
        const std::uint64_t before = number_at(got, at - kPacketSize);
        ASSERT_GT(number_at(got, at), before);
        gaps += number_at(got, at) != before + 1 ? 1U : 0U;
    }
    EXPECT_EQ(gaps, 1U);
    EXPECT_EQ(number_at(got, got.size() - kPacketSize), sent - 1);
    EXPECT_EQ(relay.wait(), 0);
}

// Fills a node and closes it.
void add_node(relay::Store& store, std::uint64_t first, std::uint64_t count) {
    store.add(packets(first, count));
    while (!store.close_when_due()) {
        usleep(1000);
    }
}

TEST(RelayStore, FollowsThePacketsWhateverTheClockSays) {
    constexpr std::uint64_t kNode = 1400;  // packets: as large as closes at once
    constexpr std::uint64_t kStart = 1000000000;
    Bytes buffer(100 * kPacketSize);
    std::uint64_t lost = 0;
    const auto read_numbers = [&](relay::Store& store, relay::Store::Place& place) {
        std::vector<std::uint64_t> ends;  // first and last of what was read
        for (auto got = store.read(place, buffer, lost); !got.empty();
             got = store.read(place, buffer, lost)) {
            const Bytes bytes(got.begin(), got.end());
            const std::uint64_t first = number_at(bytes, 0);
            EXPECT_EQ(bytes, packets(first, bytes.size() / kPacketSize));
            EXPECT_TRUE(ends.empty() || first == ends.back() + 1);
            ends = {ends.empty() ? first : ends.front(),
                    number_at(bytes, bytes.size() - kPacketSize)};
        }
        return ends;
    };
    const auto range = [](std::uint64_t first, std::uint64_t end) {
        return testing::ElementsAre(first * kNode, end * kNode - 1);
    };

    g_clock_us = kStart;
    relay::Store store(10);
    relay::Store::Place early = store.back(5);
    add_node(store, 0, kNode);
    add_node(store, kNode, kNode);  // in the same microsecond
    EXPECT_THAT(read_numbers(store, early), range(0, 2));
    g_clock_us = kStart + 4000000;
    add_node(store, 2 * kNode, kNode);
    EXPECT_EQ(store.nodes(), 3U);
    EXPECT_EQ(store.bytes(), 3 * kNode * kPacketSize);
    relay::Store::Place recent = store.back(3);
    relay::Store::Place oldest = store.back(1000000);
    EXPECT_THAT(read_numbers(store, recent), range(2, 3));
    EXPECT_THAT(read_numbers(store, early), range(2, 3));
    EXPECT_EQ(lost, 0U);

    g_clock_us = kStart + 11000000;  // the first two are too old now, and the fourth comes
    relay::Store::Place late = store.back(2);
    add_node(store, 3 * kNode, kNode);
    EXPECT_EQ(store.nodes(), 2U);
    EXPECT_THAT(read_numbers(store, late), range(3, 4));
    EXPECT_EQ(lost, 0U);
    EXPECT_THAT(read_numbers(store, oldest), range(2, 4));
    EXPECT_EQ(lost, 2 * kNode);

    g_clock_us = kStart - 1000000;  // set back: what was kept looks old
    add_node(store, 4 * kNode, kNode);
    lost = 0;
    EXPECT_THAT(read_numbers(store, early), range(4, 5));
    EXPECT_EQ(lost, kNode);
    EXPECT_EQ(store.waiting(early), 0U);
    g_clock_us = 0;
}

TEST(RelayRequest, TakesWholeLinesWithDigitsOnly) {
    const struct {
        std::vector<std::string> pieces;
        std::optional<std::uint64_t> seconds;
    } cases[] = {
        {{"la", "st 3", "0", "\r\n"}, 30},
        {{"last 1\nlast 2\nlast"}, 2},
        {{std::string(100000, 'x'), "\nlast 00000000007\n"}, 7},
        {{"last 000000000001\n"}, std::nullopt},  // too long
        {{std::string(40, ' ') + "last 3\n"}, std::nullopt},
        {{"last \nlast -1\nlast 3s\nLast 3\nlast 3"}, std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pieces.front().substr(0, 50));
        relay::RequestReader reader;
        std::optional<std::uint64_t> seconds;
        for (const std::string& piece : c.pieces) {
            const auto heard = reader.feed(piece);
            seconds = heard ? heard : seconds;
        }
        EXPECT_EQ(seconds, c.seconds);
    }
}

}  // namespace

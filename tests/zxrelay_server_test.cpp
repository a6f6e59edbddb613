// The relay as its users see it: processes between sockets that come and go.
#include <gmock/gmock.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <thread>

#include "files.hpp"
#include "loopback.hpp"
#include "packets.hpp"
#include "process.hpp"
#include "stream/channel.hpp"
#include "stream/net.hpp"
#include "zxcommon.hpp"

namespace {

using namespace zx::test;
using relay::kPacketSize;
using testing::HasSubstr;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// Counts the gaps in a stream. Checks that its packets are complete and in order.
unsigned gaps_in(const Bytes& stream) {
    unsigned gaps = 0;
    for (std::size_t at = kPacketSize; at + kPacketSize <= stream.size(); at += kPacketSize) {
        const std::uint64_t before = number_at(stream, at - kPacketSize);
        EXPECT_GT(number_at(stream, at), before);
        gaps += number_at(stream, at) != before + 1 ? 1U : 0U;
    }
    return gaps;
}

std::string text_of(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

// Keeps a thread of another process from going on.
class Halt {
public:
    explicit Halt(pid_t thread) : thread_(thread) {
        EXPECT_EQ(ptrace(PTRACE_SEIZE, thread_, nullptr, nullptr), 0);
        EXPECT_EQ(ptrace(PTRACE_INTERRUPT, thread_, nullptr, nullptr), 0);
        waitpid(thread_, nullptr, __WALL);
    }
    ~Halt() { ptrace(PTRACE_DETACH, thread_, nullptr, nullptr); }
    Halt(const Halt&) = delete;
    Halt& operator=(const Halt&) = delete;

private:
    const pid_t thread_;
};

pid_t thread_of(pid_t process, const std::string& name) {
    for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        if (content_of(entry.path() / "comm") == name + "\n") {
            return std::stoi(entry.path().filename());
        }
    }
    return 0;
}

class RelayServer : public testing::Test {
protected:
    RelayServer() { fs::permissions(dir, fs::perms::all); }
    ~RelayServer() override {
        for (const pid_t pid : relays()) {
            kill(pid, SIGKILL);
        }
    }

    // Adds usual arguments for everything that `arguments` leaves out.
    std::string with_usual(const std::string& scheme, std::string arguments) {
        in_port = free_port(scheme == "udp" ? SOCK_DGRAM : SOCK_STREAM);
        out_port = free_port(SOCK_STREAM);
        const auto add = [&](const std::string& name, const std::string& value) {
            if (arguments.find(name + " ") == std::string::npos) {
                arguments.append(" ").append(name).append(" ").append(value);
            }
        };
        if (arguments.find("--config ") == std::string::npos) {
            add("--input", scheme + "://127.0.0.1:" + std::to_string(in_port));
        }
        add("--output", "127.0.0.1:" + std::to_string(out_port));
        add("--log", dir / "log");
        add("--log-level", "4");
        add("--pid-file", dir / "pid");
        return arguments;
    }

    void start(const std::string& scheme, const std::string& arguments = "",
               const std::string& before = "") {
        relay.emplace(before + "exec '" ZX_RELAY "' " + with_usual(scheme, arguments));
        if (!logs("relaying")) {
            throw std::runtime_error("the relay does not start: " + relay->errors());
        }
    }
    void start_daemon(const std::string& arguments, const std::string& before = "") {
        relay.emplace(before + "exec '" ZX_RELAY "' --daemon " + with_usual("udp", arguments));
        ASSERT_EQ(relay->wait(), 0) << relay->errors();
        watchdog = std::stoi(content_of(dir / "pid"));
    }
    void signal_supervisor(int number) const {
        ASSERT_GT(watchdog, 0);  // 0 would be all processes around this one
        kill(watchdog, number);
    }

    [[nodiscard]] bool logs(const std::string& text) const {
        return comes_true([&] { return content_of(dir / "log").find(text) != std::string::npos; });
    }

    // Connects a client, and waits until the relay knows it.
    [[nodiscard]] zxcommon::Descriptor join() const {
        zxcommon::Descriptor fd(connected(SOCK_STREAM, out_port));
        const std::string port = std::to_string(port_of(fd.get()));
        EXPECT_TRUE(logs("client 127.0.0.1:" + port + " has connected"));
        return fd;
    }

    // A client that sends something at once.
    [[nodiscard]] zxcommon::Descriptor say(const std::string& text) const {
        zxcommon::Descriptor fd(connected(SOCK_STREAM, out_port));
        send_all(fd.get(), {text.begin(), text.end()});
        return fd;
    }

    // Says for a second as much as the relay takes. Returns its size.
    [[nodiscard]] static std::uint64_t talk(const zxcommon::Descriptor& client) {
        const Bytes words(65536, 'x');
        std::uint64_t size = 0;
        const auto end = Clock::now() + std::chrono::seconds(1);
        while (Clock::now() < end) {
            const ssize_t sent =
                send(client.get(), words.data(), words.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
            size += sent > 0 ? static_cast<std::uint64_t>(sent) : 0;
        }
        return size;
    }

    // All processes of this test's relays: the name of its directory is on their command lines.
    [[nodiscard]] std::vector<pid_t> relays() const {
        std::vector<pid_t> pids;
        for (const auto& entry : fs::directory_iterator("/proc")) {
            const std::string pid = entry.path().filename();
            if (pid.find_first_not_of("0123456789") == std::string::npos &&
                content_of(entry.path() / "cmdline").find(dir.string()) != std::string::npos) {
                pids.push_back(std::stoi(pid));
            }
        }
        return pids;
    }

    // The worker of the watchdog, or 0 when there is none.
    [[nodiscard]] pid_t worker() const {
        const std::vector<pid_t> all = relays();
        const auto found = std::ranges::find_if(all, [&](pid_t pid) { return pid != watchdog; });
        return found != all.end() ? *found : 0;
    }

    // True when a client can connect and receives `size` bytes.
    [[nodiscard]] bool serves(std::size_t size = kPacketSize) const {
        const zxcommon::Descriptor fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const sockaddr_in address = loopback(out_port);
        const timeval limit{0, 500000};
        setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        return connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
                   0 &&
               receive_all(fd.get(), size).size() >= size;
    }

    // Waits until the relay serves what this source sends now.
    [[nodiscard]] bool serves_from(const zxcommon::Descriptor& source) const {
        const std::jthread feeder([&source](const std::stop_token& stop) {
            for (; !stop.stop_requested(); usleep(10000)) {
                send_all(source.get(), packets(0, 1));
            }
        });
        return comes_true([this] { return serves(); });
    }

    // Sends many packets, for at least the time `least`, and checks that a fast client gets them at
    // once. Returns their number. If this took much longer, the kernel would give up a client that
    // accepts nothing.
    [[nodiscard]] std::uint64_t stream_beside_quick_client(std::chrono::milliseconds least) const {
        const zxcommon::Descriptor quick = join();
        const zxcommon::Descriptor source(connected(SOCK_STREAM, in_port));
        const auto end = Clock::now() + least;
        std::uint64_t sent = 0;
        for (bool is_whole = true; is_whole && (sent < 88200 || Clock::now() < end); sent += 350) {
            send_all(source.get(), packets(sent, 350));
            is_whole = receive_all(quick.get(), 350 * kPacketSize) == packets(sent, 350);
            EXPECT_TRUE(is_whole) << sent;
            usleep(5000);
        }
        return sent;
    }

    // Checks that nothing remains but the log.
    void expect_nothing_left() {
        EXPECT_TRUE(comes_true([this] { return relays().empty(); }));
        EXPECT_FALSE(fs::exists(dir / "pid"));
        // The command line of a process is gone before the kernel closes its sockets.
        EXPECT_TRUE(comes_true([this] { return !serves(0); }));
    }

    const Folder folder;
    const fs::path dir = folder.path();
    int in_port = 0;
    int out_port = 0;
    std::optional<Process> relay;
    pid_t watchdog = 0;
};

TEST_F(RelayServer, TakesDatagramsAndLeavesOutWhatIsNoStream) {
    start("udp", "--stats", "exec > >(true); ");  // nobody reads the statistics
    const zxcommon::Descriptor client = join();
    const zxcommon::Descriptor source(connected(SOCK_DGRAM, in_port));
    send_all(source.get(), Bytes(100, 'x'));
    for (std::uint64_t first = 0; first < 140; first += 7) {
        send_all(source.get(), packets(first, 7));
    }
    EXPECT_EQ(receive_all(client.get(), 140 * kPacketSize), packets(0, 140));
    relay->signal(SIGTERM);
    EXPECT_EQ(relay->wait(), 0);
    EXPECT_TRUE(logs("skipped 100 bytes of the source"));
}

TEST_F(RelayServer, TakesSourcesOneAfterTheOtherAndEndsOnASignal) {
    start("tcp");
    const zxcommon::Descriptor clients[] = {join(), join()};
    for (std::uint64_t first = 0; first < 66; first += 22) {
        Bytes part = packets(first, 22);
        part.resize(part.size() + 5, 0x47);  // ends in the middle of a packet
        send_all(zxcommon::Descriptor(connected(SOCK_STREAM, in_port)).get(), part);
    }
    for (const zxcommon::Descriptor& client : clients) {
        EXPECT_EQ(receive_all(client.get(), 66 * kPacketSize), packets(0, 66));
    }
    relay->signal(SIGINT);
    EXPECT_EQ(relay->wait(), 0) << relay->errors();
}

TEST_F(RelayServer, ASlowClientCostsOnlyItself) {
    start("tcp", "--once --stall 1 --client-buffer 128k");
    const zxcommon::Descriptor slow = join();
    const zxcommon::Descriptor vanishing = join();
    shutdown(vanishing.get(), SHUT_RDWR);
    const zxcommon::Descriptor talking = join();
    EXPECT_LT(talk(talking), 32U << 20U);  // most of what it says waits in its socket
    const std::uint64_t sent = stream_beside_quick_client(std::chrono::milliseconds(0));
    EXPECT_EQ(relay->wait(), 0);
    EXPECT_TRUE(logs("has accepted no data for too long"));
    const Bytes part = receive_all(slow.get());
    EXPECT_LT(part.size(), sent * kPacketSize);
    gaps_in(part);  // complete packets in order
}

TEST_F(RelayServer, ASlowShiftedClientLosesOnlyItsOwnPlace) {
    start("tcp", "--once --keep 2");
    const zxcommon::Descriptor slow = join();
    send_all(slow.get(), {'l', 'a', 's', 't', ' ', '1', '\n'});
    ASSERT_TRUE(logs("starting 1 s ago"));
    const std::uint64_t sent = stream_beside_quick_client(std::chrono::milliseconds(4500));
    const Bytes got = receive_all(slow.get());
    EXPECT_EQ(got.size() % kPacketSize, 0U);
    EXPECT_GE(gaps_in(got), 1U);  // more than one if the machine is busy
    EXPECT_EQ(number_at(got, got.size() - kPacketSize), sent - 1);
    EXPECT_EQ(relay->wait(), 0);
}

TEST_F(RelayServer, RefusesClientsBeyondTheLimitAndTheOthersNoticeNothing) {
    start("tcp", "", "ulimit -n 64; ");
    const zxcommon::Descriptor source(connected(SOCK_STREAM, in_port));
    std::vector<zxcommon::Descriptor> clients;
    const auto begin = Clock::now();
    for (int i = 0; i < 150; ++i) {
        clients.emplace_back(connected(SOCK_STREAM, out_port));
    }
    ASSERT_TRUE(logs("refused "));
    ASSERT_TRUE(comes_true([this] {  // a client receives what comes after it is known
        const std::string log = content_of(dir / "log");
        const std::size_t most = log.find("at most ") + std::string_view("at most ").size();
        unsigned known = 0;
        for (std::size_t at = 0; (at = log.find("]client ", at)) != std::string::npos; ++at) {
            ++known;
        }
        return known == std::stoul(log.substr(most));
    }));
    for (std::uint64_t first = 0; first < 3500; first += 350, usleep(5000)) {
        send_all(source.get(), packets(first, 350));
    }
    unsigned served = 0;
    unsigned refused = 0;
    for (const zxcommon::Descriptor& client : clients) {
        const Bytes got = receive_all(client.get(), 3500 * kPacketSize);
        served += got == packets(0, 3500) ? 1U : 0U;
        refused += text_of(got).starts_with("HTTP/1.1 503 Service Unavailable\r\n") ? 1U : 0U;
    }
    EXPECT_GT(served, 0U);
    EXPECT_EQ(served + refused, clients.size());
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));  // none waits until others have gone
    clients.clear();
    EXPECT_TRUE(serves_from(source));  // there is room again
    EXPECT_THAT(content_of(dir / "log"), testing::Not(HasSubstr("has ended")));
}

TEST_F(RelayServer, KeepsToItsMemoryWhateverItsClientsDo) {
    start("tcp", "--once --memory 2m --client-buffer 64m --keep 60 --stall 1");
    std::vector<zxcommon::Descriptor> idle;
    for (int i = 0; i < 15; ++i) {
        idle.push_back(join());
    }
    send_all(idle.front().get(), {'l', 'a', 's', 't', ' ', '1', '\n'});
    ASSERT_TRUE(logs("starting 1 s ago"));
    std::jthread witness([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            relay->signal(SIGUSR1);
            usleep(50000);
        }
    });
    EXPECT_GT(stream_beside_quick_client(std::chrono::milliseconds(0)), 0U);
    witness.request_stop();
    witness.join();
    EXPECT_EQ(relay->wait(), 0);
    for (const zxcommon::Descriptor& client : idle) {
        gaps_in(receive_all(client.get()));  // whole packets in their order
    }
    const std::string log = content_of(dir / "log");
    std::uint64_t most = 0;
    for (std::size_t at = 0; (at = log.find("memry leak:", at)) != std::string::npos; ++at) {
        most = std::max<std::uint64_t>(most, std::stoull(log.substr(at + 11)));
    }
    EXPECT_GT(most, 4U << 20U);  // the FIFO
    EXPECT_LT(most, 7U << 20U);
}

#if !defined(ZX_ASAN) && !defined(ZX_TSAN)  // they take what they want
TEST_F(RelayServer, LosesAClientRatherThanItselfWhenThereIsNoMemory) {
    start("tcp", "--client-buffer 256m");
    const pid_t pid = relays().front();
    const zxcommon::Descriptor source(connected(SOCK_STREAM, in_port));
    const zxcommon::Descriptor first = join();
    send_all(source.get(), packets(0, 350));
    ASSERT_EQ(receive_all(first.get(), 350 * kPacketSize), packets(0, 350));  // the source is known
    const rlimit none{1, RLIM_INFINITY};
    const rlimit enough{RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(prlimit(pid, RLIMIT_DATA, &none, nullptr), 0);
    std::vector<zxcommon::Descriptor> clients;
    for (int i = 0; i < 1000; ++i) {
        clients.emplace_back(connected(SOCK_STREAM, out_port));
    }
    for (std::uint64_t sent = 350; sent < 88200; sent += 350) {
        send_all(source.get(), packets(sent, 350));
    }
    ASSERT_EQ(prlimit(pid, RLIMIT_DATA, &enough, nullptr), 0);
    EXPECT_TRUE(serves_from(source));
    relay->signal(SIGTERM);
    EXPECT_EQ(relay->wait(), 0);
}
#endif

TEST_F(RelayServer, SpeaksHttpWithThoseWhoAskForIt) {
    start("tcp", "--name news --keep 60 --cors https://player.example --senders 2");
    const zxcommon::Descriptor source(connected(SOCK_STREAM, in_port));
    send_all(source.get(), packets(0, 700));
    const std::string host = " HTTP/1.1\r\nHost: relay:8000\r\n\r\n";
    const struct {
        std::string request;
        std::vector<const char*> parts;
    } cases[] = {
        {"GET /playlist.m3u" + host,
         {"HTTP/1.1 200 OK\r\n", "audio/x-mpegurl", "-1,news\nhttp://relay:8000/news\n"}},
        {"GET /play%6Cist.m3u HTTP/1.1\r\nHost: a\r\nX-Forwarded-Proto: HTTPS, http\r\n\r\n",
         {"-1,news\nhttps://a/news\n"}},
        {"HEAD /news" + host,
         {"HTTP/1.1 200 OK\r\n", "Content-Type: video/mp2t\r\n", "Accept-Ranges: none\r\n",
          "Access-Control-Allow-Origin: https://player.example\r\n"}},
        {"OPTIONS *" + host, {"HTTP/1.1 204 ", "Allow: GET, HEAD, OPTIONS\r\n"}},
        {"POST /news" + host, {"HTTP/1.1 405 ", "Allow: GET, HEAD, OPTIONS\r\n"}},
        {"CONNECT relay:1" + host, {"HTTP/1.1 405 "}},
        {"GET http://relay:8000/other" + host, {"HTTP/1.1 404 "}},
        {"GET /news?last=x" + host, {"HTTP/1.1 400 "}},
        {"GET / HTTP/1.1\r\n\r\n", {"HTTP/1.1 400 "}},
        {"GET / HTTP/1.1\r\nHost: a\r\nHost: b\r\n\r\n", {"HTTP/1.1 400 "}},
        {"GET /playlist.m3u HTTP/1.1\r\nHost: a\tb\r\n\r\n", {"HTTP/1.1 400 "}},
        {"GARBAGE\r\n\r\n", {"HTTP/1.1 400 "}},
        {"GET /news HTTP/1.1\r\nA: " + std::string(9000, 'a'), {"HTTP/1.1 431 "}},
        {"GET /news HTTP/1.1\r\nA: ", {"HTTP/1.1 408 "}},
    };
    for (const auto& c : cases) {
        const std::string answer = text_of(receive_all(say(c.request).get()));
        for (const char* const part : c.parts) {
            EXPECT_THAT(answer, HasSubstr(part)) << c.request.substr(0, 40);
        }
    }
    for (const char* const target : {"/?last=60", "/news?last=99999"}) {
        const zxcommon::Descriptor client = say(std::string("GET ") + target + host);
        shutdown(client.get(), SHUT_WR);  // it still wants its answer
        Bytes got;
        std::size_t head = 0;
        while (got.size() < head + 700 * kPacketSize) {
            const Bytes part = receive_all(client.get(), 1);
            ASSERT_FALSE(part.empty());
            got.insert(got.end(), part.begin(), part.end());
            head = text_of(got).find("\r\n\r\n") + 4;
        }
        EXPECT_THAT(text_of(got), testing::StartsWith("HTTP/1.1 200 OK\r\n"));
        got.erase(got.begin(), got.begin() + static_cast<std::ptrdiff_t>(head));
        EXPECT_TRUE(got == packets(0, 700));
        // It may be gone altogether, and while the source is silent, nothing else shows that.
        EXPECT_THAT(receive_all(client.get()), testing::IsEmpty());
    }
}

TEST_F(RelayServer, ServesOnlyThoseWhoMayEnterAndKnowTheToken) {
    start("tcp",
          "--allow 2001:db8::/32 --allow 127.0.0.1 --max-per-address 2 --token secret --name news");
    const zxcommon::Descriptor source(connected(SOCK_STREAM, in_port));
    const std::string end = " HTTP/1.1\r\nHost: a\r\n";
    const auto answer = [&](const std::string& request) {
        return text_of(receive_all(say(request).get(), 100));
    };
    const struct {
        std::string request;
        const char* status;
    } cases[] = {
        {"last 1\n", "401 Unauthorized\r\n"},
        {"GET /news" + end + "\r\n", "401 "},
        {"GET /playlist.m3u?token=secre" + end + "\r\n", "401 "},
        {"HEAD /news?last=1&token=secreT" + end + "\r\n", "401 "},
        {"HEAD /news" + end + "Authorization: Bearer secret \r\n\r\n", "200 "},
        {"GET /news" + end + "Authorization: Basic secret\r\n\r\n", "401 "},
        {"HEAD /news?token=secret" + end + "\r\n", "200 "},
        {"HEAD /news" + end + "Authorization: bearer secret\r\n\r\n", "200 "},
    };
    for (const auto& c : cases) {
        EXPECT_TRUE(comes_true([&] {  // 429 while another one is still leaving
            return answer(c.request).starts_with(std::string("HTTP/1.1 ") + c.status);
        })) << c.request;
    }
    EXPECT_TRUE(comes_true([&] {
        return text_of(receive_all(say("GET /playlist.m3u?token=secret" + end + "\r\n").get()))
            .ends_with("http://a/news?token=secret\n");
    }));
    std::vector<zxcommon::Descriptor> clients;
    EXPECT_TRUE(comes_true([&] {
        clients.push_back(say("GET /news?token=secret" + end + "\r\n"));
        return text_of(receive_all(clients.back().get(), 12)).starts_with("HTTP/1.1 429");
    }));
    EXPECT_GE(clients.size(), 3U);
    const zxcommon::Descriptor other(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = loopback(0);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);
    ASSERT_EQ(bind(other.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    address = loopback(out_port);
    ASSERT_EQ(connect(other.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_THAT(text_of(receive_all(other.get())), testing::StartsWith("HTTP/1.1 403 Forbidden"));
}

TEST_F(RelayServer, TellsWhyItCannotStartAndLeavesNothing) {
    expect_complaint(ZX_RELAY, "--inptu tcp://[::1]:1", "'--inptu' is not an option");
    const std::string config = dir / "config";
    std::ofstream(config) << "log-level = 4\nfifo_size = \"1m\"\n";
    expect_complaint(ZX_RELAY, "--config " + config,
                     config + ":2: 'fifo_size' is not an option here");
    const struct {
        std::string text;
        std::string complaint;
    } demands[] = {
        {"networks = ['239.0.0.0/8', '127.0.0.0/8']", ":2: networks: '127.0.0.0/8' contains no"},
        {"networks = ['::/0']\n[[on-demand]]", ":3: there are two tables [on-demand]"},
        {"networks = ['0.0.0.0/0']\ninterface = 'none0'",
         ":3: there is no network interface none0"},
        {"networks = ['239.0.0.0/8']", "--once does not go with [on-demand]"},
        {"[[channel]]\nname='a'\ninput='-'\nbackup=['rtp://[::1]:9']\noutputs=['udp://[::1]:9']",
         ":6: outputs: 'udp://[::1]:9' is an input of the channel 'a'"},
    };
    for (const auto& [its_text, complaint] : demands) {
        std::ofstream(config) << "[[on-demand]]\n" << its_text << "\n";
        expect_complaint(ZX_RELAY, "--once -o [::1]:2 --config " + config, complaint);
    }
    expect_complaint(ZX_RELAY, "--config /nonexistent/file", "/nonexistent/file");
    expect_complaint(ZX_RELAY, "-i tcp://[::1]:1 -o [::1]:2 --daemon", "--daemon requires --log");
    expect_complaint(ZX_RELAY, "-i udp://0.0.0.0:9 -o [::1]:2 --send rtp://localhost:9",
                     "--send 'rtp://localhost:9' is an input of the channel 'stream'");
    const zxcommon::Descriptor listener = relay::open_listener({"127.0.0.1", "0"}, 1);
    const std::string taken = "127.0.0.1:" + std::to_string(port_of(listener.get()));
    const std::string text = dir / "text";
    std::ofstream(text) << "somebody's own words\n";
    const struct {
        std::string arguments;
        const char* sentence;
        const char* logged = "";
    } cases[] = {
        {"--fifo-size 1", "--fifo-size"},
        {"--keep 86401", "--keep"},
        {"--input ftp://127.0.0.1:1", "is not an input"},
        {"--input tcp://127.0.0.1:0", "is not an address with a port"},
        {"--output 8000", "is not an address with a port"},
        {"--output " + taken, "cannot listen on"},
        {"--status " + taken, "cannot listen on"},
        {"--input tcp://" + taken, "Address already in use"},
        {"--user no-such-user", "there is no user no-such-user"},
        {"--user ''", "--user: it is empty"},
        {"--input udp://239.1.2.3:5000 --interface nowhere0", "no network interface nowhere0"},
        {"--pid-file /nonexistent/pid", "cannot write the pid file /nonexistent/pid"},
        {"--pid-file " + text, "is not a pid file"},
        {"--log /nonexistent/log", "cannot write the log /nonexistent/log"},
    };
    for (const auto& c : cases) {
        for (const char* const way : {"", "--daemon ", "--watchdog ", "--daemon --watchdog "}) {
            expect_complaint(ZX_RELAY, with_usual("udp", way + c.arguments), c.sentence);
            EXPECT_THAT(content_of(dir / "log"), HasSubstr(c.logged));
            fs::remove(dir / "log");
            expect_nothing_left();
        }
    }
    EXPECT_EQ(content_of(text), "somebody's own words\n");
}

TEST_F(RelayServer, ReadsItsFileAgainWhileWhatHasNotChangedGoesOn) {
    const std::string file = dir / "relay.toml";
    const int ports[] = {free_port(SOCK_STREAM), free_port(SOCK_STREAM), free_port(SOCK_STREAM)};
    const auto datagrams = [port = std::to_string(free_port(SOCK_DGRAM))](const std::string& way) {
        return "[[channel]]\nname = \"d\"\ninput = \"" + way + "://127.0.0.1:" + port + "\"\n";
    };
    const auto channel = [&](std::size_t i, const std::string& more = "") {
        return "[[channel]]\nname = \"c" + std::to_string(i) +
               "\"\ninput = \"tcp://127.0.0.1:" + std::to_string(ports[i]) + "\"\n" + more;
    };
    const auto ask = [&](const std::string& path) {
        zxcommon::Descriptor client = say("GET /" + path + " HTTP/1.1\r\nHost: x\r\n\r\n");
        std::string head;
        while (head.find("\r\n\r\n") == std::string::npos && head.size() < 1000) {
            head += text_of(receive_all(client.get(), 1));
        }
        EXPECT_THAT(head, testing::StartsWith("HTTP/1.1 200 OK"));
        return client;
    };
    std::ofstream(file) << channel(0) << channel(1) << datagrams("udp");
    start_daemon("--watchdog --config " + file, "ulimit -n 256; ");
    const zxcommon::Descriptor source(connected(SOCK_STREAM, ports[0]));
    const zxcommon::Descriptor same = ask("c0");
    const zxcommon::Descriptor changed = ask("c1");
    {
        const std::jthread feeder([&] {
            for (std::uint64_t first = 0; first < 3500; first += 7, usleep(1000)) {
                send_all(source.get(), packets(first, 7));
            }
        });
        std::ofstream(file) << channel(2) << channel(0) << channel(1, "keep = 3\n")
                            << datagrams("rtp");
        signal_supervisor(SIGHUP);
        EXPECT_EQ(receive_all(changed.get()), Bytes());
        EXPECT_TRUE(logs("3 channels opened, 2 closed, 0 not opened, 1 go on"));
        EXPECT_EQ(receive_all(same.get(), 3500 * kPacketSize), packets(0, 3500));
    }
    const zxcommon::Descriptor fresh = ask("c2");
    send_all(zxcommon::Descriptor(connected(SOCK_STREAM, ports[2])).get(), packets(0, 7));
    EXPECT_EQ(receive_all(fresh.get(), 7 * kPacketSize), packets(0, 7));
    const auto lists = [&](const std::string& first, const std::string& second) {
        const std::string list = "#EXTINF:-1," + first + "\nhttp://x/" + first + "\n#EXTINF:-1," +
                                 second + "\nhttp://x/" + second + "\n";
        return comes_true([&] {
            const auto client = say("GET /playlist.m3u HTTP/1.1\r\nHost: x\r\n\r\n");
            return text_of(receive_all(client.get())).ends_with(list);
        });
    };

    std::ofstream(file) << "nonsense = 1\n" << channel(0);
    signal_supervisor(SIGHUP);
    EXPECT_TRUE(logs("nothing changes: " + file + ":1: 'nonsense' is not an option here"));
    std::ofstream(file) << "stall = 9\n" << channel(0) << channel(2);
    signal_supervisor(SIGHUP);
    EXPECT_TRUE(logs("the option --stall changes only when zxrelay is restarted"));
    EXPECT_TRUE(logs("0 channels opened, 2 closed"));
    EXPECT_TRUE(lists("c0", "c2"));
    EXPECT_THAT(content_of(dir / "log"), testing::Not(HasSubstr("at most ")));
    std::ofstream(file) << "stall = 9\n"
                        << channel(2) << channel(0)
                        << "[on-demand]\nnetworks = ['239.0.0.0/8']\nmost = 20\n";
    signal_supervisor(SIGHUP);
    EXPECT_TRUE(logs("clients: the limit of open files allows no more"));
    EXPECT_TRUE(logs("0 channels opened, 0 closed, 0 not opened, 2 go on"));
    EXPECT_THAT(content_of(dir / "log"),
                testing::ContainsRegex("--stall changes only(.|\n)*--stall changes only"));
    EXPECT_TRUE(lists("c2", "c0"));
    kill(worker(), SIGKILL);
    EXPECT_TRUE(lists("c2", "c0"));
    std::ofstream(file) << "nonsense = 1\n";
    kill(worker(), SIGKILL);
    const auto lists_all = [&] {
        const auto client = say("GET /playlist.m3u HTTP/1.1\r\nHost: x\r\n\r\n");
        return text_of(receive_all(client.get()))
            .ends_with("/c0\n#EXTINF:-1,c1\nhttp://x/c1\n#EXTINF:-1,d\nhttp://x/d\n");
    };
    EXPECT_TRUE(comes_true(lists_all));
    EXPECT_TRUE(
        logs("refused, and the channels of the start come back: " + file + ":1: 'nonsense'"));
    zxcommon::Descriptor blocker = relay::open_listener({"127.0.0.1", std::to_string(ports[2])}, 1);
    std::ofstream(file) << channel(0) << channel(2);
    signal_supervisor(SIGHUP);
    EXPECT_TRUE(logs("0 channels opened, 2 closed, 1 not opened, 1 go on"));
    blocker.reset();
    EXPECT_TRUE(logs("the channel c2 is open now"));
    EXPECT_TRUE(lists("c0", "c2"));
    fs::remove(file);
    mkfifo(file.c_str(), 0600);
    signal_supervisor(SIGHUP);
    EXPECT_TRUE(logs("nothing changes: " + file + " is no longer a regular file"));
    signal_supervisor(SIGTERM);
    expect_nothing_left();
}

TEST_F(RelayServer, DetachesAndEndsAsAWhole) {
    start_daemon("--watchdog");
    EXPECT_NE(getsid(watchdog), getsid(0));
    EXPECT_NE(getsid(watchdog), watchdog);
    const fs::path proc = "/proc/" + std::to_string(watchdog);
    EXPECT_EQ(fs::read_symlink(proc / "cwd"), "/");
    EXPECT_EQ(fs::read_symlink(proc / "fd" / "1"), "/dev/null");
    const int port = out_port;
    expect_complaint(ZX_RELAY, with_usual("udp", "--daemon"), "belongs to a running relay");
    out_port = port;
    EXPECT_EQ(std::stoi(content_of(dir / "pid")), watchdog);

    signal_supervisor(SIGTERM);
    EXPECT_TRUE(comes_true([this] { return !fs::exists(dir / "pid"); }));
    EXPECT_THAT(relays(), testing::AnyOf(testing::IsEmpty(), testing::ElementsAre(watchdog)));
    expect_nothing_left();
}

TEST_F(RelayServer, HasNoMoreRightsThanItsUser) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root may become somebody else";
    }
    const fs::path prey = dir / "root" / "prey";  // where only root can make a file
    fs::create_directory(prey.parent_path());
    fs::permissions(prey.parent_path(), fs::perms::owner_all);  // for any umask
    fs::create_symlink(prey, dir / "log");
    const std::string arguments = "--watchdog --user nobody --status 127.86.4.2:81";
    expect_complaint(ZX_RELAY, with_usual("udp", arguments), "cannot write the log");
    EXPECT_FALSE(fs::exists(prey));
    fs::remove(dir / "log");

    start_daemon(arguments);
    ASSERT_TRUE(comes_true([this] { return relays().size() == 2; }));  // those in between have gone
    const pid_t first = worker();
    for (const pid_t pid : {watchdog, first}) {
        EXPECT_THAT(content_of("/proc/" + std::to_string(pid) + "/status"),
                    testing::AllOf(HasSubstr("Uid:\t65534\t65534\t65534\t65534\n"),
                                   HasSubstr("Gid:\t65534\t65534\t65534\t65534\n"),
                                   testing::ContainsRegex("Groups:\t65534 ?\n"),
                                   testing::ContainsRegex(
                                       "CapInh:\t0+\nCapPrm:\t0+\nCapEff:\t0+\nCapBnd:\t0+\n"
                                       "CapAmb:\t0+\nNoNewPrivs:\t1\n")));
    }
    const fs::path proc = "/proc/" + std::to_string(first);
    for (const auto& entry : fs::directory_iterator(proc / "fd")) {
        if (fs::read_symlink(entry) == dir / "pid") {
            EXPECT_THAT(content_of(proc / "fdinfo" / entry.path().filename()),
                        testing::ContainsRegex("flags:\t[0-7]+0\n"));  // for reading
        }
    }
    fs::remove(dir / "log");
    fs::create_symlink(prey, dir / "log");
    kill(first, SIGKILL);  // which the watchdog logs
    EXPECT_TRUE(comes_true([&] {
        const pid_t now = worker();
        return now != 0 && now != first;
    }));
    EXPECT_FALSE(fs::exists(prey));
}

TEST_F(RelayServer, RestartsEveryDeadWorkerAndReplacesALogThatIsTooLong) {
    for (const char* const name : {"log", "log.1", "log.2", "log.3"}) {
        std::ofstream(dir / name) << name;
    }
    fs::resize_file(dir / "log", 10485761);
    start_daemon("--watchdog --log-keep 2");
    EXPECT_EQ(fs::file_size(dir / "log.1"), 10485761U);
    EXPECT_EQ(content_of(dir / "log.2"), "log.1");
    EXPECT_FALSE(fs::exists(dir / "log.3"));
    signal_supervisor(SIGHUP);
    EXPECT_TRUE(logs("signal 1: the log is open again"));
    const zxcommon::Descriptor source(connected(SOCK_DGRAM, in_port));
    std::jthread stream([&](const std::stop_token& stop) {
        for (std::uint64_t first = 0; !stop.stop_requested(); first += 7, usleep(2000)) {
            const Bytes message = packets(first, 7);
            send(source.get(), message.data(), message.size(), 0);
        }
    });
    ASSERT_TRUE(comes_true([this] { return serves(); }));
    for (int i = 0; i <= 10; ++i) {
        SCOPED_TRACE(i);
        ASSERT_TRUE(comes_true([this] { return worker() > 0; }));
        const pid_t before = worker();
        kill(before, i < 10 ? SIGKILL : SIGTERM);  // this ends only the worker
        EXPECT_TRUE(comes_true([&] { return worker() != before && serves(); }));
    }
    EXPECT_THAT(
        content_of(dir / "log"),
        testing::AllOf(
            testing::StartsWith("["), HasSubstr("[INFO][ZXMD]I am father\r\n"),
            testing::ContainsRegex(
                "\\[ERROR\\]\\[ZXMD\\]child\\[[0-9]+\\] is end by signal:Kill, unblockable\r\n"),
            testing::ContainsRegex("\\[INFO\\]\\[ZXMD\\]child\\[[0-9]+\\] has exited\r\n")));
    signal_supervisor(SIGKILL);
    expect_nothing_left();
}

TEST_F(RelayServer, TellsItsServiceManagerHowItIs) {
    const zxcommon::Descriptor manager(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{AF_UNIX, ""};
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", (dir / "manager").c_str());
    ASSERT_EQ(bind(manager.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const auto hears = [&](const std::string& wanted, int wait_sec = 20) {
        char text[512] = "";
        while (std::string(text).find(wanted) == std::string::npos) {
            const timeval limit{wait_sec, 0};
            setsockopt(manager.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
            std::fill(std::begin(text), std::end(text), '\0');
            if (recv(manager.get(), text, sizeof text - 1, 0) < 0) {
                return false;
            }
        }
        return true;
    };
    setenv("NOTIFY_SOCKET", address.sun_path, 1);
    setenv("WATCHDOG_USEC", "300000", 1);
    start("tcp");
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");
    EXPECT_TRUE(hears("READY=1\nSTATUS=relaying tcp://"));
    const zxcommon::Descriptor client = join();
    EXPECT_TRUE(hears("STATUS=1 clients"));
    EXPECT_TRUE(hears("WATCHDOG=1"));
    EXPECT_TRUE(hears("WATCHDOG=1"));
    {
        const Halt halt(thread_of(relays().front(), "relay-send"));
        EXPECT_TRUE(comes_true([&] { return !hears("WATCHDOG=1", 1); }));
        EXPECT_TRUE(logs("a sender hangs"));
    }
    EXPECT_TRUE(hears("WATCHDOG=1"));
    relay->signal(SIGTERM);
    EXPECT_TRUE(hears("STOPPING=1"));
    EXPECT_EQ(relay->wait(), 0);
}

TEST_F(RelayServer, GivesItsLinesPrioritiesInTheJournal) {
    const std::string input = "udp://127.0.0.1:" + std::to_string(free_port(SOCK_DGRAM));
    relay.emplace("export JOURNAL_STREAM=$(stat -L -c %d:%i /dev/stderr); exec '" ZX_RELAY
                  "' --watchdog --log-level 4 --input " +
                  input + " --output 127.0.0.1:" + std::to_string(free_port(SOCK_STREAM)) +
                  " --pid-file " + (dir / "pid").string());
    EXPECT_TRUE(comes_true([&] { return relay->errors().find("relaying") != std::string::npos; }));
    relay->signal(SIGTERM);
    EXPECT_EQ(relay->wait(), 0);
    EXPECT_TRUE(comes_true([&] { return relay->errors().find(" leak:") != std::string::npos; }));
    EXPECT_THAT(
        relay->errors(),
        testing::AllOf(testing::StartsWith("<6>["), HasSubstr("][INFO][ZXMD]I am father\r\n<5>["),
                       HasSubstr("][NOTICE][RELAY]relaying udp"), HasSubstr("\r\n<5>["),
                       testing::EndsWith(" leak:0 byte\r\n")));
    EXPECT_TRUE(comes_true([this] { return relays().empty(); }));
}

TEST_F(RelayServer, StrangersFillNoLog) {
    start("tcp", "--keep 1");
    const zxcommon::Descriptor asking = join();
    const std::string words = "last 0\n";
    for (int i = 0; i < 1000; ++i) {
        if (i % 20 == 0) {  // only one source waits at a time
            zxcommon::Descriptor(connected(SOCK_STREAM, in_port)).reset();
        }
        zxcommon::Descriptor(connected(SOCK_STREAM, out_port)).reset();
        send_all(asking.get(), {words.begin(), words.end()});
        usleep(1000);  // so that the relay reads each request by itself
    }
    relay->signal(SIGTERM);
    EXPECT_EQ(relay->wait(), 0);
    EXPECT_THAT(content_of(dir / "log"),
                testing::AllOf(HasSubstr("981 more clients have connected in the last minute"),
                               HasSubstr(" more clients have asked for the past stream"),
                               HasSubstr(" more sources have come and gone")));
    EXPECT_LT(fs::file_size(dir / "log"), 20000U);
}

TEST_F(RelayServer, SendsTheStoredPastAndThenTheLiveStreamWithoutAGap) {
    start("tcp", "--watchdog --once --keep 60 --fifo-size 16m");  // room for the whole stream
    const Bytes stream = packets(0, 70000);
    const std::size_t half = 35000 * kPacketSize;
    const zxcommon::Descriptor watcher(connected(SOCK_STREAM, out_port));
    zxcommon::Descriptor source(connected(SOCK_STREAM, in_port));
    std::jthread feeder([&] {
        for (std::uint64_t first = 0; first < 70000; first += 100, usleep(500)) {
            send_all(source.get(), packets(first, 100));
        }
        source.reset();
    });
    receive_all(watcher.get(), half);
    std::jthread drain([&] { receive_all(watcher.get()); });

    const zxcommon::Descriptor client(connected(SOCK_STREAM, out_port));
    const std::string said = "what is this\nlast 99999999999999999999999999\nlast 30\r\n";
    send_all(client.get(), Bytes(said.begin(), said.end()));
    const Bytes got = receive_all(client.get());
    // First live packets up to the request, then everything from the first packet on.
    std::size_t start = 0;
    while (start < got.size() && number_at(got, start) != 0) {
        start += kPacketSize;
    }
    EXPECT_LT(start, half);
    EXPECT_EQ(Bytes(got.begin() + static_cast<std::ptrdiff_t>(start), got.end()), stream);
    EXPECT_EQ(relay->wait(), 0);  // the watchdog ends, too: its work is done
    EXPECT_THAT(content_of(dir / "log"), testing::Not(HasSubstr("[WARN]")));
    expect_nothing_left();
}

}  // namespace

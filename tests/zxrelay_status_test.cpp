// The status page as programs see it that ask for it, friendly or not.
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "files.hpp"
#include "loopback.hpp"
#include "process.hpp"
#include "status/service.hpp"
#include "stream/net.hpp"
#include "zxjson.h"
#include "zxmem.h"
#include "zxthread.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

// Limited memory for cJSON.
std::atomic<int> allocations_left;

void* allocate(std::size_t size) {
    return --allocations_left < 0 ? nullptr : std::malloc(size);
}

class StatusTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        zxthread_api_envInit();
        zxmem_api_init(1);
    }
    void SetUp() override {
        roster.change({}, {channel, other});
        serve("127.0.0.1");
    }

    void serve(const std::string& host) {
        const relay::Endpoint endpoint{host, "0"};
        server.emplace(relay::open_listener(endpoint, 128), endpoint, settings, roster, board);
    }

    [[nodiscard]] zxcommon::Descriptor say(const std::string& request) const {
        zxcommon::Descriptor fd(zx::test::connected(SOCK_STREAM, server->port()));
        zx::test::send_all(fd.get(), {request.begin(), request.end()});
        return fd;
    }

    // The whole answer, up to the end of the connection.
    [[nodiscard]] std::string ask(const std::string& request) const {
        const auto answer = zx::test::receive_all(say(request).get());
        return {answer.begin(), answer.end()};
    }
    [[nodiscard]] std::string get(const std::string& path) const {
        return ask("GET " + path + " HTTP/1.0\r\n\r\n");
    }

    static relay::ChannelPtr make_channel(const std::string& name, const std::string& source) {
        relay::ChannelSettings its_settings{name, 2 * relay::kMessageSize, 0};
        its_settings.source = source;
        return std::make_shared<relay::Channel>(its_settings);
    }

    std::atomic<std::uint64_t> disconnected{0};  // the number of the last client
    relay::StatusSettings settings{"[::]:8000", "secret",
                                   [this](std::uint64_t client) { disconnected = client; }};
    const relay::ChannelPtr channel = make_channel("stream", "udp://239.1.1.1:1234");
    const relay::ChannelPtr other = make_channel("other", "-");
    relay::Stats& stats = channel->stats;
    relay::Roster roster;
    relay::Board board;
    std::optional<relay::StatusServer> server;
};

TEST_F(StatusTest, GivesEveryNumberAsJson) {
    const std::string hostile = "<img src=x onerror=alert(1)>\"\n\\";
    board.publish({{{1, "stream", hostile, 10, 20, 30, 40, true}},
                   {{"a lock", "func,12"}},
                   {{"stream", 50, 60}, {"stream", 1, 2}},
                   1000});
    stats.bytes_in = (1ULL << 53U) - 1;  // the largest number that every reader of JSON accepts
    stats.messages_in = 2;
    stats.bytes_no_stream = 3;
    stats.datagrams_lost = 7;
    stats.bytes_out = 4;
    stats.dropped_fifo_full = 5;
    stats.dropped_slow_client = 6;
    stats.clients = 1;
    other->stats.bytes_out = 8;
    ASSERT_TRUE(channel->push(std::vector<std::uint8_t>(relay::kMessageSize)));
    const std::string status = get("/status.json");
    for (
        const char* const part : {
            R"("source":"udp://239.1.1.1:1234","output":"[::]:8000","uptime_sec":)",
            R"("can_disconnect":true,"in":{"bytes":9007199254740991,"bytes_per_sec":)",
            R"("messages":2,"bytes_no_stream":3,"datagrams_lost":7},"out":{"bytes":12,)",
            R"("dropped_messages":{"fifo_full":5,"slow_clients":6},)",
            R"("fifo":{"fill":0.5,"size":2632},"store":{"bytes":51,"nodes":62},)",
            R"("channels":[{"name":"stream","source":"udp://239.1.1.1:1234","clients":1,"in":{"bytes":)",
            R"("out":{"bytes":4,"bytes_per_sec":)",
            R"({"name":"other","source":"-","clients":0,"in":{"bytes":0,)",
            R"("out":{"bytes":8,"bytes_per_sec":)",
            R"("fifo":{"fill":0,"size":2632},"store":{"bytes":0,"nodes":0},)",
            R"("clients":[{"id":1,"channel":"stream",)",
            R"("address":"<img src=x onerror=alert(1)>\"\n\\","bytes_per_sec":20,"bytes_sent":10,)",
            R"("bytes_waiting":40,"dropped_messages":30,"is_shifted":true}],)",
            R"("locks":[{"name":"a lock","holder":"func,12"}],"memory":{"rows":[{"number":1,)",
            R"("history":{"step_sec":1,"in_bytes_per_sec":[],)",
            R"("name":"relay_zxfifoblock",)",
        }) {
        EXPECT_THAT(status, HasSubstr(part));
    }
    EXPECT_THAT(get("/live.json"), testing::Not(HasSubstr("memory")));
}

TEST_F(StatusTest, TakesASampleEverySecond) {
    stats.bytes_in = 1000000;
    int samples[2] = {};
    ASSERT_TRUE(zx::test::comes_true([&] {
        const std::string live = get("/live.json");
        const std::size_t at = std::min(live.find("\"in_bytes_per_sec\""), live.size());
        return std::sscanf(&live[at], "\"in_bytes_per_sec\":[%d,%d", &samples[0], &samples[1]) == 2;
    }));
    EXPECT_THAT(samples[0], testing::AllOf(testing::Gt(0), testing::Lt(1500000)));
    EXPECT_EQ(samples[1], 0);
}

TEST_F(StatusTest, ListsEveryBufferEvenIfManyDoNotReadTheList) {
    std::vector<void*> buffers(20000);  // their list does not fit into the buffers of a connection
    for (void*& buffer : buffers) {
        buffer = zxmem_api_malloc(1, std::string(200, 'n').c_str(), __FILE__, 4711);
    }
    board.publish({{}, {}, {}, buffers.size()});
    EXPECT_THAT(get("/status.json"), HasSubstr(R"("line":4711}],"buffers":20004,)"));
    std::vector<zxcommon::Descriptor> readers;
    for (int i = 0; i < 50; ++i) {
        readers.push_back(say("GET /memory HTTP/1.0\r\n\r\n"));
        EXPECT_FALSE(zx::test::receive_all(readers.back().get(), 1).empty()) << i;
    }
    EXPECT_NE(get("/memory").find(">00020004<"), std::string::npos);
    std::ranges::for_each(buffers, [](void*& buffer) { zxmem_api_free(&buffer); });
}

TEST_F(StatusTest, RefusesWhatIsNoPlainRequestAndGoesOn) {
    const auto before = zx::test::open_descriptors();
    const std::string close = "\r\nConnection: close\r\n";
    const std::string host = " HTTP/1.1\r\nHost: [::1]:80" + close;
    const std::pair<std::string, std::string> refused[] = {
        {"GET /../etc/passwd" + host + "\r\n", "404"},
        {"POST /" + host + "Content-Length: 3\r\n\r\nabc", "405"},
        {"GET /" + host + "Content-Length: 3\r\n\r\nabc", "413"},
        {"GET /" + host + "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", "413"},
        {"GET /" + std::string(20000, 'a') + host + "\r\n", "414"},
        {"GET /" + host + "A: " + std::string(20000, 'a') + "\r\n\r\n", "431"},
        {"GET / HTTP/1.1\r\n\r\n", "400"},
        {"GET / HTTP/1.1\r\nHost: rebound.example" + close + "\r\n", "403"},
        {"GET / HTTP/1.1\r\nHost: 127.0.0.1.example:80" + close + "\r\n", "403"},
        {"\x16\x03\x01 no HTTP\r\n\r\n", "400"},
    };
    const zxcommon::Descriptor slow = say("GET / HT");
    for (const auto& [request, status] : refused) {
        EXPECT_THAT(ask(request), StartsWith("HTTP/1.1 " + status)) << request.substr(0, 40);
        EXPECT_THAT(get("/live.json"), StartsWith("HTTP/1.1 200"));
    }
    EXPECT_LE(zx::test::open_descriptors(),
              before + 3);  // both ends of the slow connection, and the last request
    server.reset();
    EXPECT_LT(zx::test::open_descriptors(), before);
    serve("::ffff:127.0.0.1");
    EXPECT_THAT(ask("GET / HTTP/1.0\r\nHost: rebound.example\r\n\r\n"), StartsWith("HTTP/1.1 403"));
}

// Each sends a byte of its request now and then, for ever.
TEST_F(StatusTest, AnswersWhateverOthersHoldOpen) {
    std::vector<zxcommon::Descriptor> dripping(64);
    for (int i = 0; i < 3; ++i) {
        for (zxcommon::Descriptor& one : dripping) {
            if (!one || send(one.get(), "G", 1, MSG_NOSIGNAL) < 0) {
                one = say("G");
            }
        }
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_THAT(get("/healthz"), testing::EndsWith("\r\n\r\nok\nwaiting for the source\n"));
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
        sleep(1);
    }
    dripping.resize(1);  // after five seconds its time is over, however few there are
    dripping[0] = say("G");
    EXPECT_TRUE(
        zx::test::comes_true([&] { return send(dripping[0].get(), "G", 1, MSG_NOSIGNAL) < 0; }));
}

TEST_F(StatusTest, TellsPrometheusWhatItUnderstands) {
    stats.bytes_in = 7;
    const std::string page = get("/metrics");
    EXPECT_THAT(page,
                testing::AllOf(HasSubstr("text/plain; version=0.0.4"),
                               HasSubstr("\nzxrelay_source_bytes_total{channel=\"stream\"} 7\n"
                                         "zxrelay_source_bytes_total{channel=\"other\"} 0\n")));
    if (std::system("command -v promtool >/dev/null") != 0) {
        GTEST_SKIP() << "there is no promtool";
    }
    std::unique_ptr<FILE, int (*)(FILE*)> promtool(popen("promtool check metrics", "w"), pclose);
    std::fputs(&page[page.find("\r\n\r\n") + 4], promtool.get());
    EXPECT_EQ(pclose(promtool.release()), 0);
}

TEST_F(StatusTest, DisconnectsAClientForTheOneWhoKnowsTheToken) {
    const std::string host = " HTTP/1.1\r\nHost: localhost:1\r\nConnection: close\r\n";
    const std::string token = "Authorization: Bearer secret\r\n";
    const std::pair<std::string, std::string> refused[] = {
        {"GET /disconnect?id=7" + host + token, "405"},
        {"POST /disconnect?id=7" + host, "401"},
        {"POST /disconnect?id=7" + host + "Authorization: Bearer secreT\r\n", "401"},
        {"POST /disconnect?id=7" + host + token + "Content-Length: 3\r\n", "413"},
        {"POST /disconnect?id=7" + host + token + "Origin: http://evil.example\r\n", "403"},
        {"POST /disconnect?id=7" + host + token + "Origin: null\r\n", "403"},
        {"POST /disconnect?id=7" + host + token + "Sec-Fetch-Site: same-site\r\n", "403"},
        {"POST /disconnect?id=7x" + host + token, "400"},
        {"POST /disconnect?id" + host + token, "400"},
        {"POST /disconnect?id=99999999999999999999" + host + token, "400"},
    };
    for (const auto& [request, status] : refused) {
        EXPECT_THAT(ask(request + "\r\n"), StartsWith("HTTP/1.1 " + status)) << request;
    }
    const std::string good = "POST /disconnect?id=7" + host + token;
    EXPECT_EQ(disconnected, 0U);
    EXPECT_THAT(ask(good + "Origin: http://localhost:1\r\n\r\n"), StartsWith("HTTP/1.1 202"));
    EXPECT_EQ(disconnected, 7U);
    settings.token.clear();
    serve("127.0.0.1");
    EXPECT_THAT(ask(good + "\r\n"), StartsWith("HTTP/1.1 403"));
    EXPECT_THAT(get("/live.json"), HasSubstr("\"can_disconnect\":false"));
}

TEST_F(StatusTest, ServesThePageForItselfAlone) {
    EXPECT_THAT(get("/"), testing::AllOf(HasSubstr("Content-Type: text/html"),
                                         HasSubstr("Content-Security-Policy: default-src 'none';"),
                                         HasSubstr("</html>")));
    EXPECT_THAT(ask("HEAD / HTTP/1.0\r\n\r\n"), testing::EndsWith("\r\n\r\n"));
}

TEST_F(StatusTest, SaysThatMemoryIsShort) {
    cJSON_Hooks hooks{allocate, std::free};
    cJSON_InitHooks(&hooks);
    constexpr int kEnough = 100000;
    allocations_left = kEnough;
    EXPECT_THAT(get("/status.json"), StartsWith("HTTP/1.1 200"));
    const int needed = kEnough - allocations_left;
    EXPECT_GT(needed, 50);
    serve("127.0.0.1");                 // that answer is not known any more
    for (int i = 0; i < needed; ++i) {  // with each second that passes, it needs more
        allocations_left = i;
        EXPECT_THAT(get("/status.json"), StartsWith("HTTP/1.1 503")) << i;
        EXPECT_THAT(get("/"), StartsWith("HTTP/1.1 200"));
    }
    cJSON_InitHooks(nullptr);
}

}  // namespace

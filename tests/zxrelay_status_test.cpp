// The status page as a program meets it that asks for it, friendly or not.
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>

#include "common/failure.hpp"
#include "loopback.hpp"
#include "process.hpp"
#include "status.hpp"
#include "zxjson.h"
#include "zxmem.h"
#include "zxthread.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

std::size_t open_descriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

// Memory for cJSON that ends.
std::atomic<int> allocations_left;
std::atomic<int> allocated;

void* allocate(std::size_t size) {
    if (--allocations_left < 0) {
        return nullptr;
    }
    ++allocated;
    return std::malloc(size);
}

void release(void* memory) {
    allocated -= memory == nullptr ? 0 : 1;
    std::free(memory);
}

class StatusTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        zxthread_api_envInit();
        zxmem_api_init(1);
    }
    void SetUp() override { server.emplace(endpoint, facts, stats, channel, board); }

    [[nodiscard]] zx::UniqueFd say(const std::string& request) const {
        zx::UniqueFd fd(zx::test::connected(SOCK_STREAM, server->port()));
        zx::test::send_all(fd.get(), {request.begin(), request.end()});
        return fd;
    }

    // The whole answer, until the server closes.
    [[nodiscard]] std::string ask(const std::string& request) const {
        const auto answer = zx::test::receive_all(say(request).get());
        return {answer.begin(), answer.end()};
    }
    [[nodiscard]] std::string get(const std::string& path) const {
        return ask("GET " + path + " HTTP/1.0\r\n\r\n");
    }
    [[nodiscard]] Json json(const std::string& path) const {
        const std::string answer = get(path);
        const std::size_t body = std::min(answer.find("\r\n\r\n"), answer.size());
        return {cJSON_Parse(answer.c_str() + body), cJSON_Delete};
    }

    const relay::Endpoint endpoint{"127.0.0.1", "0"};
    const relay::Facts facts{"udp://239.1.1.1:1234", "[::]:8000", 131072};
    relay::Stats stats;
    relay::Channel channel{131072};
    relay::Board board;
    std::optional<relay::StatusServer> server;
};

// `path` is "clients.0.address".
const cJSON* at(const cJSON* item, const std::string& path) {
    std::size_t from = 0;
    while (item != nullptr && from < path.size()) {
        const std::size_t dot = std::min(path.find('.', from), path.size());
        const std::string key = path.substr(from, dot - from);
        item = cJSON_IsArray(item) ? cJSON_GetArrayItem(item, std::stoi(key))
                                   : cJSON_GetObjectItemCaseSensitive(item, key.c_str());
        from = dot + 1;
    }
    return item;
}

TEST_F(StatusTest, GivesEveryNumberAsJson) {
    const std::string hostile = "<img src=x onerror=alert(1)>\"\n\\";
    board.publish({{{hostile, 10, 20, 30, 40, true}}, {{"a lock", "func,12"}}, 50, 60, 1000});
    stats.bytes_in = (1ULL << 53U) - 1;  // the largest that every reader of JSON takes
    stats.messages_in = 2;
    stats.bytes_no_stream = 3;
    stats.bytes_out = 4;
    stats.dropped_fifo_full = 5;
    stats.dropped_slow_client = 6;
    const std::vector<std::uint8_t> message(relay::kMessageSize);
    ASSERT_TRUE(channel.push(message));

    const std::string status = get("/status.json");
    for (
        const char* const part : {
            R"("source":"udp://239.1.1.1:1234","output":"[::]:8000","uptime_sec":)",
            R"("in":{"bytes":9007199254740991,"bytes_per_sec":)",
            R"("messages":2,"bytes_no_stream":3},"out":{"bytes":4,"bytes_per_sec":)",
            R"("size":131072},"dropped_messages":{"fifo_full":5,"slow_clients":6},)",
            R"("store":{"bytes":50,"nodes":60},"clients":[{)",
            R"("address":"<img src=x onerror=alert(1)>\"\n\\","bytes_per_sec":20,"bytes_sent":10,)",
            R"("bytes_waiting":40,"dropped_messages":30,"is_shifted":true}],)",
            R"("locks":[{"name":"a lock","holder":"func,12"}],"history":{"step_sec":1,)",
            R"("memory":{"rows":[{"number":1,"address":)",
            R"("name":"relay_zxfifoblock",)",
        }) {
        EXPECT_THAT(status, HasSubstr(part));
    }
    EXPECT_EQ(at(json("/status.json").get(), "fifo.fill")->valuedouble, channel.fill());
    EXPECT_EQ(at(json("/live.json").get(), "memory"), nullptr);
}

TEST_F(StatusTest, TakesASampleEverySecond) {
    stats.bytes_in = 1000000;
    Json status(nullptr, cJSON_Delete);
    ASSERT_TRUE(zx::test::comes_true([&] {
        status = json("/live.json");
        return at(status.get(), "history.in_bytes_per_sec.1") != nullptr;
    }));
    EXPECT_NEAR(at(status.get(), "history.in_bytes_per_sec.0")->valuedouble, 1000000, 500000);
    EXPECT_EQ(at(status.get(), "history.in_bytes_per_sec.1")->valuedouble, 0);
}

TEST_F(StatusTest, ListsEveryBuffer) {
    std::vector<void*> buffers(1000);
    for (void*& buffer : buffers) {
        buffer = zxmem_api_malloc(1, std::string(200, 'n').c_str(), __FILE__, __LINE__);
    }
    board.publish({{}, {}, 0, 0, buffers.size()});
    const Json status = json("/status.json");
    ASSERT_EQ(cJSON_GetArraySize(at(status.get(), "memory.rows")), 1002);  // two of the FIFO
    EXPECT_EQ(at(status.get(), "memory.rows.1001.line")->valuedouble, __LINE__ - 5);
    const std::string table = get("/memory");
    int count = 0;
    for (std::size_t at = 0; (at = table.find("<tr>", at)) != std::string::npos; ++at) {
        ++count;
    }
    EXPECT_EQ(count, 1003);
    for (void*& buffer : buffers) {
        zxmem_api_free(&buffer);
    }
}

TEST_F(StatusTest, RefusesWhatIsNoPlainRequestAndGoesOn) {
    const std::size_t before = open_descriptors();
    const std::string host = " HTTP/1.1\r\nHost: a\r\nConnection: close\r\n";
    const std::pair<std::string, std::string> refused[] = {
        {"GET /../etc/passwd" + host + "\r\n", "404"},
        {"POST /" + host + "Content-Length: 3\r\n\r\nabc", "405"},
        {"GET /" + host + "Content-Length: 3\r\n\r\nabc", "413"},
        {"GET /" + host + "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", "413"},
        {"GET /" + std::string(20000, 'a') + host + "\r\n", "414"},
        {"GET /" + host + "A: " + std::string(20000, 'a') + "\r\n\r\n", "431"},
        {"GET / HTTP/1.1\r\n\r\n", "400"},
        {"\x16\x03\x01 no HTTP\r\n\r\n", "400"},
    };
    const zx::UniqueFd slow = say("GET / HT");
    for (const auto& [request, status] : refused) {
        EXPECT_THAT(ask(request), StartsWith("HTTP/1.1 " + status)) << request.substr(0, 40);
        EXPECT_THAT(get("/live.json"), StartsWith("HTTP/1.1 200"));
    }
    EXPECT_LE(open_descriptors(), before + 3);  // both ends of the slow one, and the last asked
}

TEST_F(StatusTest, ServesThePageForItselfAlone) {
    EXPECT_THAT(get("/"), testing::AllOf(HasSubstr("Content-Type: text/html"),
                                         HasSubstr("Content-Security-Policy: default-src 'none';"),
                                         HasSubstr("</html>")));
    const std::string head = ask("HEAD / HTTP/1.0\r\n\r\n");
    EXPECT_EQ(head.size(), head.find("\r\n\r\n") + 4);
}

TEST_F(StatusTest, SaysThatMemoryIsShort) {
    cJSON_Hooks hooks{allocate, release};
    cJSON_InitHooks(&hooks);
    int refusals = 0;
    for (int enough = 0; enough < 1000; ++enough) {
        allocations_left = enough;
        if (get("/status.json").starts_with("HTTP/1.1 200")) {
            break;
        }
        ++refusals;
        EXPECT_THAT(get("/"), StartsWith("HTTP/1.1 200"));
        ASSERT_EQ(allocated, 0);
    }
    cJSON_InitHooks(nullptr);
    EXPECT_THAT(refusals, testing::AllOf(testing::Gt(50), testing::Lt(1000)));
    EXPECT_EQ(allocated, 0);
}

TEST_F(StatusTest, LeavesNothingBehind) {
    const relay::Endpoint taken{"127.0.0.1", std::to_string(server->port())};
    const std::size_t before = open_descriptors();
    try {
        const relay::StatusServer second(taken, facts, stats, channel, board);
        ADD_FAILURE();
    } catch (const tools::Failure& failure) {
        EXPECT_THAT(failure.what(), StartsWith("cannot listen on " + taken.text()));
    }
    EXPECT_EQ(open_descriptors(), before);
    const zx::UniqueFd asking = say("GET / HTTP/1.1\r\n");
    server.reset();
    EXPECT_LT(open_descriptors(), before);
}

}  // namespace

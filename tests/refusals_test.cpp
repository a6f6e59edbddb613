// What the functions answer to an impossible argument, and what they say.
#include <gmock/gmock.h>

#include <functional>

#include "log_capture.hpp"
#include "zxaes.h"
#include "zxdes.h"
#include "zxenv.h"
#include "zxlock.h"
#include "zxmd.h"
#include "zxmd5.h"
#include "zxstr.h"

namespace {

struct Refusal {
    const char* call;
    std::function<std::int64_t()> answer;
    std::int64_t expected;
    const char* says = "";  // a part of the one line that is logged; nothing: none is
};

// The call stands in a table with its text.
#define ZX_CALL(call) #call, [&] { return static_cast<std::int64_t>(call); }

TEST(Refusals, AnswerAnImpossibleArgument) {
    constexpr std::uint64_t kTooLong = std::uint64_t{ZXMD5_MAX_INPUT} + 1;
    char text[64] = "kept", digits[ZXMD5_TEXT_SIZE] = "";
    std::uint32_t words[4]{};
    std::uint8_t out[32]{};
    const std::uint8_t in[32]{};
    zxlock_ctt unused{};
    const Refusal refusals[] = {
        {ZX_CALL(zxlock_api_obtain(&unused, nullptr, 1)), -1},
        // Files and the host
        {ZX_CALL(zxmd_api_write("/nowhere", text, 1, "")), -1, "[ERROR]"},
        {ZX_CALL(zxenv_api_set("a=b", "c", 1)), 0, "[ENV]setenv(a=b=c, overwrite:1)  failed"},
        // Texts
        {ZX_CALL(zxstr_api_lcpy(nullptr, "hello", 0)), 5},
        {ZX_CALL((zxstr_api_urlSplit(nullptr, 9, nullptr, 9, nullptr, 9, nullptr, nullptr, 9,
                                     nullptr, "s://a@[h]:1/p"),
                  0)),
         0},
        {ZX_CALL((zxstr_api_buildListurl("p", "", "h", 1, "", 1, 0, text), 0)), 0},
        // Digests, checks and ciphers
        {ZX_CALL(zxmd5_api_outStr(in, kTooLong, digits)), 16, "[ZXMD5]Param error####len"},
        {ZX_CALL(zxmd5_api_outNum(in, 0x1FFFFFFFFFFFFFFF, words)), 0, "####len"},
        {ZX_CALL(zxmd5_api_outNum(in, 0x2000000000000000, words)), 0,
         "[ERROR][ZXMD5]期望输入信息的长度小于等于为 2 的 64 比特，期望没有满足\n"},
        {ZX_CALL(zxaes_api_done(0, 1, in, out, 20, in, 8)), 0, "Keylen(8) must be 32,16 or 24"},
        {ZX_CALL(zxaes_api_done(0, 1, in, out, 20, in, 16)), 0, "datalen(20) must be 16*N"},
        {ZX_CALL(zxaes_api_done(2, 1, in, out, 32, in, 16)), 1},
        {ZX_CALL(zxdes_api_done(0, in, out, 12, in, 24)), 0},
        {ZX_CALL(zxdes_api_done(0, in, out, 0, in, 24)), 0},
        {ZX_CALL(zxdes_api_done(0, in, out, 16, in, 7)), 0},
    };
    zx::test::LogCapture log;
    for (const Refusal& refusal : refusals) {
        SCOPED_TRACE(refusal.call);
        EXPECT_EQ(refusal.answer(), refusal.expected);
        const auto lines = log.take();
        ASSERT_EQ(lines.size(), *refusal.says != '\0' ? 1U : 0U);
        if (!lines.empty()) {
            EXPECT_THAT(lines[0], testing::HasSubstr(refusal.says));
        }
    }
    EXPECT_STREQ(text, "kept");
    EXPECT_EQ(digits, std::string(32, '0'));
    EXPECT_THAT(words, testing::Each(0));
    EXPECT_THAT(out, testing::Each(0));
}

}  // namespace

// What the functions answer to a missing or impossible argument, and what they say.
#include <gmock/gmock.h>

#include <functional>

#include "log_capture.hpp"
#include "sha1.h"
#include "zxaes.h"
#include "zxcrc.h"
#include "zxdes.h"
#include "zxenv.h"
#include "zxlock.h"
#include "zxmd.h"
#include "zxmd5.h"
#include "zxnet.h"
#include "zxstr.h"
#include "zxsysctl.h"
#include "zxt.h"
#include "zxtime.h"

namespace {

struct Refusal {
    const char* call;
    std::function<std::int64_t()> answer;
    std::int64_t expected;
    const char* says = "";  // a part of the one line that is logged; nothing: none is
};

// The call stands in a table with its text.
#define ZX_CALL(call) #call, [&] { return static_cast<std::int64_t>(call); }

TEST(Refusals, AnswerAMissingArgument) {
    constexpr std::uint64_t kTooLong = std::uint64_t{ZXMD5_MAX_INPUT} + 1;
    rstime t{};
    char text[64] = "kept", digits[ZXMD5_TEXT_SIZE] = "";
    std::uint32_t words[4]{};
    std::uint8_t out[32]{};
    const std::uint8_t in[32]{};
    std::int8_t state = 7;
    std::uint8_t counter = 7;
    zxlock_ctt unused{};
    SHA1Context context;
    const Refusal refusals[] = {
        // Time
        {ZX_CALL(zxtime_api_isVaildDate(&t, nullptr, "")), 0},
        {ZX_CALL(zxtime_api_isVaildTime(nullptr, "", "")), 0},
        {ZX_CALL(zxtime_api_isVaildWDay(nullptr, ~0U)), 0},
        {ZX_CALL(zxtime_api_isNewLoop("", 1, &state, nullptr)), 0},
        {ZX_CALL(zxtime_api_isNewDay(nullptr)), 0},
        {ZX_CALL(zxtime_api_isWholeClock(nullptr)), 0},
        {ZX_CALL(zxtime_api_isPass(nullptr)), 0},
        {ZX_CALL(zxtime_api_moreThan(&t, nullptr)), 0},
        {ZX_CALL(zxtime_api_timeout(nullptr, &t, 0)), 0},
        {ZX_CALL(zxtime_api_counterAsyncUs(nullptr, 0)), 0},
        {ZX_CALL(zxtime_api_counterAsyncSec(nullptr, 0)), 0},
        {ZX_CALL(zxtime_api_curDate(nullptr) != nullptr), 0},
        {ZX_CALL(zxtime_api_curYM(nullptr) != nullptr), 0},
        {ZX_CALL(zxtime_api_curTime(nullptr) != nullptr), 0},
        {ZX_CALL(zxtime_api_ms2str2(0, nullptr) != nullptr), 0},
        {ZX_CALL(zxtime_api_us2str2(0, nullptr) != nullptr), 0},
        {ZX_CALL(zxtime_api_sec2str2(0, nullptr) != nullptr), 0},
        {ZX_CALL(zxtime_api_rtstime2DTime("", &t, nullptr) != nullptr), 0, "####outstr"},
        {ZX_CALL(zxtime_api_setDTime(nullptr)), 0, "####strDateTime"},
        // Network
        {ZX_CALL(zxnet_api_isIpv6(nullptr)), 0, "[ERROR]"},
        {ZX_CALL(zxnet_api_isMulticast(nullptr)), 0, "[ERROR]"},
        {ZX_CALL((zxnet_api_outIpv6(nullptr), 0)), 0, "[ERROR]"},
        {ZX_CALL(zxnet_api_ipStr2Byte(nullptr)), 0, "[ERROR]"},
        {ZX_CALL(zxnet_api_ipByte2Str(1, nullptr)), 0, "[ERROR]"},
        {ZX_CALL(zxnet_api_getIpList("1.1.1.1", nullptr, text, 64)), 0, "[ERROR]"},
        {ZX_CALL(zxnet_api_epollRecv(0, nullptr, 1, 1)), -5, "####pbuf"},
        {ZX_CALL(zxnet_api_epollSend(0, nullptr, 1, 1)), -5, "####pbuf"},
        {ZX_CALL(zxnet_api_isReachable(nullptr, 1)), 0, "[ERROR]"},
        {ZX_CALL(zxnet_api_ping(nullptr)), 0},
        {ZX_CALL(zxnet_api_setIfaceInfo(nullptr)), -1, "####pnetcfg_info"},
        {ZX_CALL(zxnet_api_getIfaceIpMask("lo", text, nullptr)), -1, "####pnetmask"},
        {ZX_CALL(zxnet_api_macStr2Byte(nullptr, nullptr)), -1, "####pmacstr"},
        {ZX_CALL(zxnet_api_macStr2Byte("", nullptr)), -1, "####poutbuf"},
        {ZX_CALL(zxnet_api_parseDomainName(nullptr, nullptr, nullptr)), -1, "####hostname"},
        {ZX_CALL(zxnet_api_checksum(nullptr, 2)), 0xFFFF, "####paddr"},
        {ZX_CALL(zxnet_api_checksum_ptc(nullptr, 1, 2, 17, 8, "", 1)), 0xFFFF, "####pether_pkt"},
        // Locks
        {ZX_CALL(zxlock_api_init(nullptr, "x")), -1, "[ERROR]"},
        {ZX_CALL(zxlock_api_deinit(nullptr)), -1, "[ERROR]"},
        {ZX_CALL(zxlock_api_obtain(nullptr, "f", 1)), -1, "[ERROR]"},
        {ZX_CALL(zxlock_api_release(nullptr, "f", 1)), -1, "[ERROR]"},
        {ZX_CALL(zxlock_api_obtain(&unused, nullptr, 1)), -1},
        // Files and the host
        {ZX_CALL(zxmd_api_read(nullptr, text, 8)), -1, "###filename"},
        {ZX_CALL(zxmd_api_read("x", nullptr, 8)), -1, "###buf"},
        {ZX_CALL(zxmd_api_read2("x", nullptr, 8)), -1, "###buf"},
        {ZX_CALL(zxmd_api_read3("x", nullptr, 8)), -1, "###buf"},
        {ZX_CALL(zxmd_api_writeProtect(nullptr, text, 1)), -1, "###filename"},
        {ZX_CALL(zxmd_api_write(nullptr, text, 1, "w")), -1, "dbuf is null"},
        {ZX_CALL(zxmd_api_writea("x", nullptr, 1)), -1, "dbuf is null"},
        {ZX_CALL(zxmd_api_write("/nowhere", text, 1, "")), -1, "[ERROR]"},
        {ZX_CALL(zxmd_api_getFileSize(nullptr)), 0, "[ERROR]"},
        {ZX_CALL(zxmd_api_startDaemon(nullptr)), -1, "####logdir"},
        {ZX_CALL(zxmd_api_watchdog(nullptr, nullptr)), -1, "####childfunc"},
        {ZX_CALL(zxmd_api_changeUser(nullptr)), -1, "###username"},
        {ZX_CALL(zxsysctl_api_setEth_rpfilter(nullptr, 0)), -1, "[ERROR]"},
        {ZX_CALL(zxmd_api_isInstall(nullptr) > 0), 0, "[ERROR]"},
        {ZX_CALL(zxmd_api_isInstallByBin(nullptr) > 0), 0, "[ERROR]"},
        {ZX_CALL(zxmd_api_isConflictLib("a", nullptr, "c") > 0), 0, "[ERROR]"},
        {ZX_CALL(zxenv_api_get(nullptr, text) == text), 1, "[ENV]Param error####name"},
        {ZX_CALL(zxenv_api_set("ZX", nullptr, 1)), 0, "[ENV]Param error####str_value"},
        {ZX_CALL(zxenv_api_set("a=b", "c", 1)), 0, "[ENV]setenv(a=b=c, overwrite:1)  failed"},
        {ZX_CALL(zxenv_api_put(nullptr)), 0, "[ENV]Param error####name_val"},
        // Texts
        {ZX_CALL(zxstr_api_lcpy(text, nullptr, 64)), 0},
        {ZX_CALL(zxstr_api_lcpy(nullptr, "hello", 0)), 5},
        {ZX_CALL((zxstr_api_urlSplit(nullptr, 9, nullptr, 9, nullptr, 9, nullptr, nullptr, 9,
                                     nullptr, "s://a@[h]:1/p"),
                  0)),
         0},
        {ZX_CALL(zxstr_api_findTag(text, 64, "a", nullptr)), 0},
        {ZX_CALL((zxstr_api_buildListurl("p", "", "h", 1, "", 1, 0, text), 0)), 0},
        {ZX_CALL(zxstr_api_lcat(text, nullptr, 64)), 0},
        {ZX_CALL(zxt_innerapi_bufSwitch(nullptr, text, 1)), -1, "####buf1"},
        {ZX_CALL(zxt_innerapi_bufSwitch(text, nullptr, 1)), -1, "####buf2"},
        {ZX_CALL(zxt_innerapi_bufOffset(nullptr, 0, 1)), -1, "####buf"},
        {ZX_CALL(zxt_api_isDatatypeChange(&state, nullptr, &counter, "", "", "")), 0, "####last"},
        {ZX_CALL((zxt_innerapi_getHlsName(nullptr, nullptr, nullptr), 0)), 0, "####hls_url"},
        {ZX_CALL((zxt_innerapi_getHlsName("", nullptr, nullptr), 0)), 0, "####vodpath"},
        {ZX_CALL((zxt_innerapi_getHlsName("", "", nullptr), 0)), 0, "####programname"},
        {ZX_CALL(zxt_innerapi_cmdRet(nullptr)), -1, "Error param ###cmd"},
        {ZX_CALL(zxt_innerapi_cmdReadByPipe(nullptr, nullptr, 4)), -1, "####cmd"},
        {ZX_CALL(zxt_innerapi_cmdReadByPipe("echo", nullptr, 4)), -1, "####info"},
        // Digests, checks and ciphers
        {ZX_CALL(zxcrc_api_CRC16(nullptr, 100)), 0xFFFF},
        {ZX_CALL(zxcrc_api_CRC32(nullptr, 100)), 0xFFFFFFFF},
        {ZX_CALL(zxcrc_api_CRC(nullptr, 100)), 0},
        {ZX_CALL(zxmd5_api_outStr(in, kTooLong, digits)), 16, "[ZXMD5]Param error####len"},
        {ZX_CALL(zxmd5_api_outStr(in, 1, nullptr)), 0, "####out"},
        {ZX_CALL(zxmd5_api_outNum(in, 0x1FFFFFFFFFFFFFFF, words)), 0, "####len"},
        {ZX_CALL(zxmd5_api_outNum(in, 0x2000000000000000, words)), 0,
         "[ERROR][ZXMD5]期望输入信息的长度小于等于为 2 的 64 比特，期望没有满足\n"},
        {ZX_CALL(zxmd5_api_outNum(nullptr, 1, words)), 0, "####data"},
        {ZX_CALL(zxmd5_api_outNum(in, 1, nullptr)), 0, "####digest"},
        {ZX_CALL((SHA1Reset(nullptr), 0)), 0, "[SHA1]Param error####ctx"},
        {ZX_CALL((SHA1Input(nullptr, in, 1), 0)), 0, "####ctx"},
        {ZX_CALL((SHA1Reset(&context), SHA1Input(&context, nullptr, 1), 0)), 0, "####bytes"},
        {ZX_CALL((SHA1PadMessage(nullptr), 0)), 0, "####ctx"},
        {ZX_CALL((SHA1ProcessMessageBlock(nullptr), 0)), 0, "####ctx"},
        {ZX_CALL(SHA1Result(nullptr)), 0, "####ctx"},
        {ZX_CALL(sha1_api_hash(nullptr) != nullptr), 0, "####text"},
        {ZX_CALL(zxaes_api_done(0, 1, nullptr, nullptr, 20, nullptr, 8)), 0, "####bufin"},
        {ZX_CALL(zxaes_api_done(0, 1, in, nullptr, 20, nullptr, 8)), 0, "####bufout"},
        {ZX_CALL(zxaes_api_done(0, 1, in, out, 20, nullptr, 8)), 0, "[zxaes]Param error####key"},
        {ZX_CALL(zxaes_api_done(0, 1, in, out, 20, in, 8)), 0, "Keylen(8) must be 32,16 or 24"},
        {ZX_CALL(zxaes_api_done(0, 1, in, out, 20, in, 16)), 0, "datalen(20) must be 16*N"},
        {ZX_CALL(zxaes_api_done(2, 1, in, out, 32, in, 16)), 1},
        {ZX_CALL(zxdes_api_done(0, nullptr, out, 16, in, 24)), 0},
        {ZX_CALL(zxdes_api_done(0, in, nullptr, 16, in, 24)), 0},
        {ZX_CALL(zxdes_api_done(0, in, out, 16, nullptr, 24)), 0},
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
    EXPECT_EQ(state, 7);
    EXPECT_THAT(words, testing::Each(0));
    EXPECT_THAT(out, testing::Each(0));
}

}  // namespace

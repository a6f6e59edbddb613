// What the functions answer to a missing argument, and whether they say so.
#include <gmock/gmock.h>

#include <functional>

#include "log_capture.hpp"
#include "zxlock.h"
#include "zxmd.h"
#include "zxnet.h"
#include "zxstr.h"
#include "zxsysctl.h"
#include "zxtime.h"

namespace {

using testing::HasSubstr;

struct Refusal {
    const char* name;
    int64_t result;
    bool says_so;
    std::function<int64_t()> call;
    const char* says = "[ERROR]";
};

TEST(Refusals, AnswerAMissingArgument) {
    rstime t{};
    char text[64] = "kept";
    int8_t state = 7;
    zxlock_ctt unused{};
    const Refusal refusals[] = {
        {"isVaildDate", 0, false, [&] { return zxtime_api_isVaildDate(&t, nullptr, ""); }},
        {"isVaildTime", 0, false, [&] { return zxtime_api_isVaildTime(nullptr, "", ""); }},
        {"isVaildWDay", 0, false, [&] { return zxtime_api_isVaildWDay(nullptr, ~0U); }},
        {"isNewLoop", 0, false, [&] { return zxtime_api_isNewLoop("", 1, &state, nullptr); }},
        {"isNewDay", 0, false, [&] { return zxtime_api_isNewDay(nullptr); }},
        {"isWholeClock", 0, false, [&] { return zxtime_api_isWholeClock(nullptr); }},
        {"isPass", 0, false, [&] { return zxtime_api_isPass(nullptr); }},
        {"moreThan", 0, false, [&] { return zxtime_api_moreThan(&t, nullptr); }},
        {"timeout", 0, false, [&] { return zxtime_api_timeout(nullptr, &t, 0); }},
        {"counterAsyncUs", 0, false, [&] { return zxtime_api_counterAsyncUs(nullptr, 0); }},
        {"counterAsyncSec", 0, false, [&] { return zxtime_api_counterAsyncSec(nullptr, 0); }},
        {"curDate", 0, false, [&] { return zxtime_api_curDate(nullptr) != nullptr; }},
        {"curYM", 0, false, [&] { return zxtime_api_curYM(nullptr) != nullptr; }},
        {"curTime", 0, false, [&] { return zxtime_api_curTime(nullptr) != nullptr; }},
        {"ms2str2", 0, false, [&] { return zxtime_api_ms2str2(0, nullptr) != nullptr; }},
        {"us2str2", 0, false, [&] { return zxtime_api_us2str2(0, nullptr) != nullptr; }},
        {"sec2str2", 0, false, [&] { return zxtime_api_sec2str2(0, nullptr) != nullptr; }},
        {"isIpv6", 0, true, [&] { return zxnet_api_isIpv6(nullptr); }},
        {"isMulticast", 0, true, [&] { return zxnet_api_isMulticast(nullptr); }},
        {"outIpv6", 0, true, [&] { return zxnet_api_outIpv6(nullptr), 0; }},
        {"ipStr2Byte", 0, true, [&] { return zxnet_api_ipStr2Byte(nullptr); }},
        {"ipByte2Str", 0, true, [&] { return zxnet_api_ipByte2Str(1, nullptr); }},
        {"getIpList", 0, true, [&] { return zxnet_api_getIpList("1.1.1.1", nullptr, text, 64); }},
        {"epollRecv", -5, true, [&] { return zxnet_api_epollRecv(0, nullptr, 1, 1); }, "####pbuf"},
        {"epollSend", -5, true, [&] { return zxnet_api_epollSend(0, nullptr, 1, 1); }, "####pbuf"},
        {"isReachable", 0, true, [&] { return zxnet_api_isReachable(nullptr, 1); }},
        {"ping", 0, false, [&] { return zxnet_api_ping(nullptr); }},
        {"setIfaceInfo", -1, true, [] { return zxnet_api_setIfaceInfo(nullptr); },
         "####pnetcfg_info"},
        {"getIfaceIpMask", -1, true, [&] { return zxnet_api_getIfaceIpMask("lo", text, nullptr); },
         "####pnetmask"},
        {"macStr2Byte", -1, true, [] { return zxnet_api_macStr2Byte(nullptr, nullptr); },
         "####pmacstr"},
        {"macStr2Byte out", -1, true, [] { return zxnet_api_macStr2Byte("", nullptr); },
         "####poutbuf"},
        {"parseDomainName", -1, true,
         [] { return zxnet_api_parseDomainName(nullptr, nullptr, nullptr); }, "####hostname"},
        {"checksum", 0xFFFF, true, [] { return zxnet_api_checksum(nullptr, 2); }, "####paddr"},
        {"checksum_ptc", 0xFFFF, true,
         [] { return zxnet_api_checksum_ptc(nullptr, 1, 2, 17, 8, "", 1); }, "####pether_pkt"},
        {"lock init", -1, true, [&] { return zxlock_api_init(nullptr, "x"); }},
        {"lock deinit", -1, true, [&] { return zxlock_api_deinit(nullptr); }},
        {"lock obtain", -1, true, [&] { return zxlock_api_obtain(nullptr, "f", 1); }},
        {"lock release", -1, true, [&] { return zxlock_api_release(nullptr, "f", 1); }},
        {"unused lock", -1, false, [&] { return zxlock_api_obtain(&unused, nullptr, 1); }},
        {"read", -1, true, [&] { return zxmd_api_read(nullptr, text, 8); }, "###filename"},
        {"read buf", -1, true, [&] { return zxmd_api_read("x", nullptr, 8); }, "###buf"},
        {"read2", -1, true, [&] { return zxmd_api_read2("x", nullptr, 8); }, "###buf"},
        {"read3", -1, true, [&] { return zxmd_api_read3("x", nullptr, 8); }, "###buf"},
        {"writeProtect", -1, true, [&] { return zxmd_api_writeProtect(nullptr, text, 1); },
         "###filename"},
        {"write", -1, true, [&] { return zxmd_api_write(nullptr, text, 1, "w"); }, "dbuf is null"},
        {"writea", -1, true, [] { return zxmd_api_writea("x", nullptr, 1); }, "dbuf is null"},
        {"write mode", -1, true, [&] { return zxmd_api_write("/nowhere", text, 1, ""); }},
        {"getFileSize", 0, true,
         [&] { return static_cast<int64_t>(zxmd_api_getFileSize(nullptr)); }},
        {"startDaemon", -1, true, [] { return zxmd_api_startDaemon(nullptr); }, "####logdir"},
        {"watchdog", -1, true, [] { return zxmd_api_watchdog(nullptr, nullptr); }, "####childfunc"},
        {"changeUser", -1, true, [] { return zxmd_api_changeUser(nullptr); }, "###username"},
        {"setEth_rpfilter", -1, true, [] { return zxsysctl_api_setEth_rpfilter(nullptr, 0); }},
        {"isInstall", 0, true, [&] { return zxmd_api_isInstall(nullptr) > 0; }},
        {"isInstallByBin", 0, true, [&] { return zxmd_api_isInstallByBin(nullptr) > 0; }},
        {"isConflictLib", 0, true, [&] { return zxmd_api_isConflictLib("a", nullptr, "c") > 0; }},
        {"lcpy", 0, false, [&] { return static_cast<int64_t>(zxstr_api_lcpy(text, nullptr, 64)); }},
        {"lcpy of no size", 5, false,
         [&] { return static_cast<int64_t>(zxstr_api_lcpy(nullptr, "hello", 0)); }},
        {"urlSplit", 0, false,
         [&] {
             zxstr_api_urlSplit(nullptr, 9, nullptr, 9, nullptr, 9, nullptr, nullptr, 9, nullptr,
                                "s://a@[h]:1/p");
             return 0;
         }},
        {"findTag", 0, false, [&] { return zxstr_api_findTag(text, 64, "a", nullptr); }},
        {"buildListurl", 0, false,
         [&] { return zxstr_api_buildListurl("p", "", "h", 1, "", 1, 0, text), 0; }},
        {"lcat", 0, false, [&] { return static_cast<int64_t>(zxstr_api_lcat(text, nullptr, 64)); }},
    };
    zx::test::LogCapture log;
    for (const Refusal& refusal : refusals) {
        EXPECT_EQ(refusal.call(), refusal.result) << refusal.name;
        const auto lines = log.take();
        EXPECT_EQ(lines.size(), refusal.says_so ? 1U : 0U) << refusal.name;
        if (!lines.empty()) {
            EXPECT_THAT(lines[0], HasSubstr(refusal.says)) << refusal.name;
        }
    }
    EXPECT_STREQ(text, "kept");
    EXPECT_EQ(state, 7);
}

}  // namespace

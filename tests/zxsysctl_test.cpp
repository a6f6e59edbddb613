#include "zxsysctl.h"

#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <vector>

#include "log_capture.hpp"
#include "zxmd.h"

namespace {

std::vector<std::string> g_commands;
std::string g_file;  // what the kernel's file holds

}  // namespace

// In place of the shell and of the file.
extern "C" [[gnu::visibility("default")]] int system(const char* command) {
    g_commands.emplace_back(command);
    return static_cast<int>(g_commands.size());
}
extern "C" int32_t zxmd_api_read(const char* path, void* buf, uint32_t len) {
    EXPECT_STREQ(path, "/proc/sys/net/ipv4/conf/all/force_igmp_version");
    return static_cast<int32_t>(g_file.copy(static_cast<char*>(buf), len));
}

namespace {

using testing::ElementsAre;

TEST(SysctlTest, FilterIsAlwaysSwitchedOff) {
    zx::test::LogCapture log;
    EXPECT_EQ(zxsysctl_api_setEth_rpfilter("eth0.7", 1), 1);
    EXPECT_EQ(zxsysctl_api_setGw_rpfilter(1), 3);
    const std::string eth = "sysctl  -w   net.ipv4.conf.eth0.7.rp_filter=0 > /dev/null";
    const std::string all = "sysctl  -w   net.ipv4.conf.all.rp_filter=0 > /dev/null";
    const std::string others = "sysctl  -w   net.ipv4.conf.default.rp_filter=0 > /dev/null";
    EXPECT_THAT(g_commands, ElementsAre(eth, all, others));
    const std::string said = "[INFO][SYSCTL]rp_filter cmd:";
    EXPECT_THAT(log.take(), ElementsAre(said + eth, said + all, said + others));

    for (const std::string& hostile : {std::string("eth0;reboot"), std::string("a b"),
                                       std::string(), std::string("-w"), std::string(230, 'x')}) {
        EXPECT_EQ(zxsysctl_api_setEth_rpfilter(hostile.c_str(), 0), -1);
        EXPECT_THAT(log.take(),
                    ElementsAre("[ERROR][SYSCTL]Name(" + hostile + ") is not fit for a command"));
    }
    EXPECT_EQ(g_commands.size(), 3U);
}

TEST(SysctlTest, IgmpVersionIsForcedAndRead) {
    zx::test::LogCapture log;
    g_commands.clear();
    EXPECT_EQ(zxsysctl_api_setIgmpVersion(2), 1);
    EXPECT_THAT(g_commands, ElementsAre("echo 2 > /proc/sys/net/ipv4/conf/all/force_igmp_version"));
    EXPECT_THAT(log.take(), ElementsAre("[DEBUG][SYSCTL]config igmp version to version to 2"));
    g_file = "2\n";
    EXPECT_EQ(zxsysctl_api_getIgmpVersion(), 2);
    g_file = "104";
    EXPECT_EQ(zxsysctl_api_getIgmpVersion(), 10) << "two digits";
}

}  // namespace

// Network interfaces, in a network namespace that the test makes for itself.
#include <gmock/gmock.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "child.hpp"
#include "log_capture.hpp"
#include "zxnet.h"

namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kTooLong[] = "abcdefghijklmnop";  // cut, it names an existing interface
constexpr char kNotAllowed[] = "no network namespace with a pair of interfaces is allowed here";

bool enter_network() {
    return unshare(CLONE_NEWNET | CLONE_NEWNS) == 0 &&
           mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("sysfs", "/sys", "sysfs", 0, nullptr) == 0 &&
           std::system(
               "ip link add zx0 address 02:00:5e:1a:2b:3c type veth peer name "
               "abcdefghijklmno 2>/dev/null && ip link set abcdefghijklmno up") == 0;
}

netcfg_info config(const char* name, const char* ipaddr, const char* netmask) {
    netcfg_info info;
    std::memset(&info, 'x', sizeof info);
    std::memcpy(info.ifname, name, strnlen(name, sizeof info.ifname - 1) + 1);
    std::strcpy(info.ipaddr, ipaddr);
    std::strcpy(info.netmask, netmask);
    return info;
}

class InterfaceTest : public testing::Test {
protected:
    // Runs the test in a namespace with the pair of interfaces zx0 and abcdefghijklmno.
    void in_network(const std::function<void()>& work) {
        const std::string result = zx::test::in_child([&]() -> std::string {
            if (!enter_network()) {
                return kNotAllowed;
            }
            fd = socket(AF_INET, SOCK_DGRAM, 0);
            work();
            return HasFailure() ? "failed" : "as wanted";
        });
        if (result == kNotAllowed) {
            GTEST_SKIP() << result;
        }
        EXPECT_EQ(result, "as wanted");
    }
    int flags() const {
        ifreq request{{"zx0"}, {}};
        EXPECT_EQ(ioctl(fd, SIOCGIFFLAGS, &request), 0);
        return request.ifr_flags;
    }

    zx::test::LogCapture log;
    int fd = -1;  // a socket of the test's own
    char text[32] = "";
};

TEST_F(InterfaceTest, AddressAndMaskAreSetAndReadBack) {
    in_network([this] {
        netcfg_info info = config("zx0", "10.9.8.7", "255.255.240.0");
        EXPECT_EQ(zxnet_api_setIfaceInfo(&info), 0);
        EXPECT_EQ(std::system("ip -br addr show zx0 | grep -q ' 10.9.8.7/20 '"), 0);
        EXPECT_EQ(flags(), 0x43) << "multicast is gone";

        netcfg_info read = config("zx0", "255.255.255.255", "");
        EXPECT_EQ(zxnet_api_getIfaceInfo(&read), 0);
        EXPECT_STREQ(read.ipaddr, "10.9.8.7");
        EXPECT_STREQ(read.netmask, "255.255.240.0");
        EXPECT_THAT(read.reserved, Each('x'));
        EXPECT_EQ(zxnet_api_getIfaceIp("zx0", text), 0);
        EXPECT_STREQ(text, "10.9.8.7");

        info = config("zx0", "10.9.8.6", "junk");
        EXPECT_EQ(zxnet_api_setIfaceInfo(&info), -1);
        info = config("zx0", "junk", "255.0.0.0");
        EXPECT_EQ(zxnet_api_setIfaceInfo(&info), -1);
        EXPECT_THAT(log.take(), ElementsAre("[ERROR][NETWORK]SIOCSIFNETMASK  failed",
                                            "[ERROR][NETWORK]SIOCSIFADDR  failed"));
    });
}

TEST_F(InterfaceTest, WhatHasNoAddressSaysSo) {
    in_network([this] {
        ASSERT_EQ(std::system("ip addr add 10.1.2.3/8 dev abcdefghijklmno"), 0);
        for (const char* const name : {"zx0", "none", kTooLong}) {
            char ipaddr[ZXNET_IP_TEXT_SIZE] = "255.255.255.255";
            EXPECT_EQ(zxnet_api_getIfaceIpMask(name, ipaddr, text), -2);
            EXPECT_EQ(zxnet_api_getIfaceIp(name, ipaddr), -1);
            netcfg_info info = config(name, "1.1.1.1", "255.0.0.0");
            EXPECT_EQ(zxnet_api_getIfaceInfo(&info), 0);
            EXPECT_EQ(std::string(info.ipaddr) + info.netmask, "");
        }
        EXPECT_EQ(zxnet_api_getIfaceIp("abcdefghijklmno", text), 0);
        EXPECT_STREQ(text, "10.1.2.3");
    });
}

TEST_F(InterfaceTest, MtuAndMacAndFlags) {
    in_network([this] {
        EXPECT_EQ(zxnet_api_setIfaceMtu("zx0", 1400), 4);
        EXPECT_EQ(zxnet_api_setIfaceMtu("zx0", 4000000000U), 0) << "refused";
        EXPECT_EQ(zxnet_api_getIfaceMtu("zx0", text, 16), 0);
        EXPECT_STREQ(text, "1400\n");
        std::memset(text, 'x', sizeof text);
        EXPECT_EQ(zxnet_api_getIfaceMac_string("zx0", text, 18), 0);
        EXPECT_EQ(std::string(text, 19), "02:00:5e:1a:2b:3c\nx") << "without a NUL";
        std::array<uint8_t, ZXNET_MAC_SIZE> mac{};
        EXPECT_EQ(zxnet_api_getIfaceMac_byte("zx0", mac.data()), 0);
        EXPECT_THAT(mac, ElementsAre(0x02, 0, 0x5e, 0x1a, 0x2b, 0x3c));
        const int before = flags();
        EXPECT_EQ(zxnet_api_setIfaceFlags(fd, "zx0", IFF_PROMISC), 0);
        EXPECT_EQ(flags(), before | IFF_PROMISC);

        EXPECT_EQ(zxnet_api_setIfaceFlags(fd, kTooLong, IFF_UP), -1);
        EXPECT_EQ(zxnet_api_getIfaceMac_byte(kTooLong, mac.data()), 0) << "cut";
        EXPECT_EQ(zxnet_api_setIfaceMtu("a;b", 1400), -1);
        EXPECT_THAT(log.take(), ElementsAre("[ERROR][NETWORK]ioctl(SIOCGIFFLAGS) failed",
                                            HasSubstr("buf1 (16 < 17)(abcdefghijklmnop)"),
                                            "[ERROR][ZXMD]Open (/sys/class/net/a;b/mtu) failed",
                                            "[ERROR][NETWORK]Write mtu val failed"));
        std::strcpy(text, "kept");
        for (const char* const other : {"", ".", "..", "../net/zx0", "zx0/../zx0", kTooLong}) {
            EXPECT_EQ(zxnet_api_setIfaceMtu(other, 1300), -1);
            EXPECT_EQ(zxnet_api_getIfaceMtu(other, text, 32), -1);
            EXPECT_EQ(zxnet_api_getIfaceMac_string(other, text, 32), -1);
            EXPECT_THAT(log.take(), Contains(std::string("[ERROR][NETWORK]Name(") + other +
                                             ") is not fit for a path")
                                        .Times(3));
        }
        EXPECT_STREQ(text, "kept");
        EXPECT_EQ(zxnet_api_getIfaceMac_string("lo", text, 17), -2);
        EXPECT_EQ(zxnet_api_getIfaceMtu("lo", text, 15), -2);
        EXPECT_THAT(log.take(),
                    ElementsAre("[ERROR][NETWORK]Mac bufsize(17) must be lagre than 18",
                                "[ERROR][NETWORK]MTU bufsize(15) must be lagre than 16"));
    });
}

}  // namespace

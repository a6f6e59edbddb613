#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netdb.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "log_capture.hpp"
#include "zxnet.h"

namespace {

std::vector<sockaddr_storage> g_resolved;
std::vector<addrinfo> g_list;

}  // namespace

// In place of the C library's, also for the library under test.
extern "C" [[gnu::visibility("default")]] int getaddrinfo(const char*, const char* service,
                                                          const addrinfo* hints, addrinfo** list) {
    EXPECT_STREQ(service, "http");
    EXPECT_EQ(hints->ai_family, AF_UNSPEC);
    EXPECT_EQ(hints->ai_socktype, SOCK_STREAM);
    g_list.assign(g_resolved.size(), {});
    for (std::size_t i = 0; i < g_list.size(); ++i) {
        g_list[i].ai_family = g_resolved[i].ss_family;
        g_list[i].ai_addr = reinterpret_cast<sockaddr*>(&g_resolved[i]);
        g_list[i].ai_next = i + 1 < g_list.size() ? &g_list[i + 1] : nullptr;
    }
    *list = g_list.empty() ? nullptr : g_list.data();
    return 0;
}
extern "C" [[gnu::visibility("default")]] void freeaddrinfo(addrinfo* list) {
    EXPECT_EQ(list, g_list.data());
}

namespace {

using testing::ElementsAre;

sockaddr_storage socket_address(const char* text) {
    sockaddr_storage storage{};
    const bool is_ipv6 = std::strchr(text, ':') != nullptr;
    storage.ss_family = is_ipv6 ? AF_INET6 : AF_INET;
    inet_pton(storage.ss_family, text,
              reinterpret_cast<char*>(&storage) +
                  (is_ipv6 ? offsetof(sockaddr_in6, sin6_addr) : offsetof(sockaddr_in, sin_addr)));
    return storage;
}

class AddressTest : public testing::Test {
protected:
    static int32_t length(const char* text) { return static_cast<int32_t>(std::strlen(text)); }

    zx::test::LogCapture log;
    char out[64] = "an older text that is longer than the new one";
};

TEST_F(AddressTest, SaysWhatIsOddAboutATextAndGoesOn) {
    const std::string dots(300, '.');  // more fields than an address could have
    EXPECT_EQ(zxnet_api_ipStr2Byte(".1.2.3."), 0U);
    EXPECT_EQ(zxnet_api_ipStr2Byte("111.222.133.0144"), 0x6FDE8590U);
    EXPECT_EQ(zxnet_api_getNetmaskBitNum("255.255"), 0);
    EXPECT_EQ(zxnet_api_subnet("1.2", "255", out), 0);
    EXPECT_EQ(zxnet_api_getGatewayByNetmask("1.2", "255.0.0.0", out, out), 0);
    EXPECT_EQ(zxnet_api_isResIpaddr("100.64.1"), 0);
    EXPECT_EQ(zxnet_api_isResIpaddr(dots.c_str()), 0);
    EXPECT_EQ(zxnet_api_isResIpaddr("::100.64.0.1"), 0);
    const std::string cut = "[WARN][NETWORK]There is a bug that buf1 ";
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][NETWORK]Error pipaddr_start(.1),num is 3",
                                        cut + "(16 < 17)(111.222.133.0144),please fix!!",
                                        "[ERROR][NETWORK]Error netmask(255),num is 2",
                                        "[ERROR][NETWORK]Error netmask(255),num is 1",
                                        "[ERROR][NETWORK]Error ipaddr(1),num is 2",
                                        "[ERROR][NETWORK]Error ipaddr(100),num is 3",
                                        cut + "(256 < 301)(" + dots + "),please fix!!",
                                        "[ERROR][NETWORK]Error ipaddr(),num is 256",
                                        "[INFO][NETWORK]no support  ipv6"));

    EXPECT_EQ(zxnet_api_isResIpaddr("100.64..1"), 1);
    EXPECT_EQ(zxnet_api_isResIpaddr("356.320.0.1."), 1);
    EXPECT_EQ(zxnet_api_isMulticast("name") + zxnet_api_isMulticast("ff02::1::"), 0);
    EXPECT_EQ(zxnet_api_getIpList("10.0.0.2", "10.0.0.1", out, 16), 0U);
    EXPECT_EQ(zxnet_api_subnet("10.1.2.3", "255.0.0.0", nullptr), 0);
    EXPECT_EQ(zxnet_api_getGatewayByNetmask("10.1.2.3", "255.0.0.0", nullptr, nullptr), 0);
    EXPECT_EQ(length(out), 45) << "kept";
}

TEST_F(AddressTest, PrintsEveryOctetAtEveryPlaceAndNothingBehindIt) {
    for (uint32_t octet = 0; octet < 256; ++octet) {
        const char* const expected = inet_ntoa({octet * 0x01010101U});
        std::memset(std::strcpy(out, "") + 1, '#', sizeof out - 1);
        ASSERT_EQ(zxnet_api_ipByte2Str(octet * 0x01010101U, out), length(expected));
        ASSERT_STREQ(out, expected);
        ASSERT_EQ(out[length(expected) + 1], '#');
        ASSERT_EQ(zxnet_api_ipStr2Byte(out), octet * 0x01010101U);
    }
    EXPECT_EQ(zxnet_api_subnet("10.1.2.3", "255.0.255.1", out), 8);
    EXPECT_EQ(std::string(out, 16), std::string("10.0.2.1") + std::string(8, '\0'));
}

TEST_F(AddressTest, PrintsBytes) {
    const uint8_t mac[] = {0x00, 0x1A, 0x2B, 0x0C, 0x0D, 0x0E};
    std::strcpy(out, "mac ");
    EXPECT_EQ(zxnet_api_macByte2str(mac, 6, out), 6);
    EXPECT_STREQ(out, "mac 0:1a:2b:c:d:e");
    EXPECT_EQ(zxnet_api_num2str16(mac, 3, out), 3);
    EXPECT_STREQ(out, "mac 0:1a:2b:c:d:e001a2b");
    EXPECT_EQ(zxnet_api_getMulticastDestMac(out, "239.255.1.10"), 17);
    EXPECT_STREQ(out, "01:00:5e:ff:01:0a");
    EXPECT_EQ(std::string(out + 17, 7), std::string(7, '\0')) << "the old text is cleared";
    zxnet_api_num2str("abc", 2, out);
    zxnet_api_str2num("xyz", 2, out + 2);
    EXPECT_STREQ(out, "abxy0:5e:ff:01:0a");
    const uint32_t ip = htonl(0x7F000001);
    EXPECT_STREQ(zxnet_api_net2str(&ip), "127.0.0.1");
}

TEST_F(AddressTest, CountsTheBitsOfAMaskByteForByte) {
    const char* const cases[][4] = {
        {"192.168.1.77", "255.255.255.0", "192.168.1.0/24", "192.168.1.1"},
        {"10.1.2.3", "255.0.255.1", "10.0.2.1/16", "10.0.2.2"},
        {"255.255.255.255", "128.192.224.240", "128.192.224.240/10", "128.192.224.241"},
        {"255.255.255.255", "248.252.254.255", "248.252.254.255/26", "248.252.254.256"},
    };
    for (const auto& [ip, netmask, network, gateway] : cases) {
        char at[ZXNET_IP_TEXT_SIZE];
        EXPECT_EQ(zxnet_api_getGatewayByNetmask(ip, netmask, out, at), length(gateway));
        EXPECT_STREQ(out, network);
        EXPECT_STREQ(at, gateway);
    }
}

TEST_F(AddressTest, PrintsSocketAddresses) {
    const char* const cases[][3] = {
        {"192.0.2.1", "192.0.2.1", "---ipv4:192.0.2.1"},
        {"2001:db8::1", "2001:db8::1", "---ipv6:2001:db8::1"},
        {"::ffff:192.0.2.1", "192.0.2.1", "---ipv6,ipv4:::ffff:192.0.2.1,192.0.2.1"},
    };
    for (const auto& [address, text, line] : cases) {
        const sockaddr_storage storage = socket_address(address);
        zxnet_api_getIpaddr(reinterpret_cast<const sockaddr*>(&storage), out);
        EXPECT_STREQ(out, text);
        EXPECT_THAT(log.take(), ElementsAre(std::string("[DEBUG][NETWORK]") + line));
    }
}

TEST_F(AddressTest, ResolvesNamesIntoTheRecord) {
    const char* const longest = "2001:db8:1111:2222:3333:4444:5555:6666";
    struct {
        domainaddr_ctt record;
        char behind[256];
    } found;
    std::memset(&found, 0xEE, sizeof found);
    g_resolved = {socket_address("192.0.2.1"), socket_address(longest), socket_address("::1")};
    EXPECT_EQ(zxnet_api_parseDomainName("host", "http", &found.record), 0);
    EXPECT_EQ(found.record.count, 3);
    EXPECT_STREQ(found.record.address[0], "192.0.2.1");
    EXPECT_EQ(std::string(found.record.address[1], 32) + "::1",
              std::string(longest, 32) + found.record.address[2]);
    EXPECT_THAT(std::vector(found.record.family, found.record.family + 3), ElementsAre(0, 1, 1));
    EXPECT_EQ(log.take().front(), "[DEBUG][NETWORK]phostname:host--0:192.0.2.1");

    g_resolved.assign(200, socket_address(longest));
    EXPECT_EQ(zxnet_api_parseDomainName("host", "http", &found.record), 0);
    EXPECT_EQ(found.record.count, 200);
    EXPECT_EQ(std::string(found.behind, sizeof found.behind), std::string(256, '\xEE'));
    log.take();

    g_resolved.clear();
    EXPECT_EQ(zxnet_api_parseDomainName("host", "http", &found.record), -2);
    EXPECT_EQ(found.record.count, 0);
    EXPECT_EQ(zxnet_api_parseDomainName("", nullptr, &found.record), -1);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][NETWORK]No addrinfo",
                                        "[ERROR][NETWORK]phostname  len is 0,ret -1"));
}

TEST_F(AddressTest, KnowsModesAndDescriptors) {
    const char* const modes[] = {"unkonw", "static", "dhcp", "bond-slaver", "bond-master"};
    for (int i = 0; i < ZXNET_IPMODE_MAX; ++i) {
        EXPECT_EQ(zxnet_api_getIpMode(modes[i]), i);
        EXPECT_EQ(zxnet_api_getIpMode(modes[i] + 1), 0);
    }
    EXPECT_EQ(zxnet_api_getIpMode("dhcp0"), 0);
    EXPECT_EQ(zxnet_api_isVaildFd(2), 0);
    EXPECT_EQ(zxnet_api_isVaildFd(3), 1);
}

}  // namespace

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netdb.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "log_capture.hpp"
#include "zxnet.h"

namespace {

union Address {
    sockaddr generic;
    sockaddr_in v4;
    sockaddr_in6 v6;
};

Address socket_address(const std::string& text) {
    Address address{};
    const bool is_ipv6 = text.find(':') != std::string::npos;
    address.generic.sa_family = is_ipv6 ? AF_INET6 : AF_INET;
    inet_pton(address.generic.sa_family, text.c_str(),
              is_ipv6 ? static_cast<void*>(&address.v6.sin6_addr) : &address.v4.sin_addr);
    return address;
}

std::vector<Address> g_resolved;
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
        g_list[i].ai_family = g_resolved[i].generic.sa_family;
        g_list[i].ai_addr = &g_resolved[i].generic;
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

class AddressTest : public testing::Test {
protected:
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
    EXPECT_EQ(zxnet_api_isMulticast("name") + zxnet_api_isMulticast("ff02::1::"), 0);
    EXPECT_EQ(zxnet_api_getIpList("10.0.0.2", "10.0.0.1", out, 16), 0U);
    EXPECT_EQ(zxnet_api_subnet("10.1.2.3", "255.0.0.0", nullptr), 0);
    EXPECT_EQ(zxnet_api_getGatewayByNetmask("10.1.2.3", "255.0.0.0", nullptr, nullptr), 0);
    EXPECT_EQ(std::strlen(out), 45U) << "kept";
}

TEST_F(AddressTest, PrintsEveryOctetAtEveryPlaceAndNothingBehindIt) {
    for (uint32_t octet = 0; octet < 256; ++octet) {
        const std::string expected = inet_ntoa({octet * 0x01010101U});
        std::memset(std::strcpy(out, "") + 1, '#', sizeof out - 1);
        zxnet_api_ipByte2Str(octet * 0x01010101U, out);
        ASSERT_EQ(std::string(out, expected.size() + 2), expected + '\0' + '#');
        ASSERT_EQ(zxnet_api_ipStr2Byte(out), octet * 0x01010101U);
    }
    EXPECT_EQ(zxnet_api_subnet("10.1.2.3", "255.0.255.1", out), 8);
    EXPECT_EQ(std::string(out, 16), std::string("10.0.2.1") + std::string(8, '\0'));
}

TEST_F(AddressTest, PrintsBytes) {
    const uint8_t mac[] = {0x00, 0x1A, 0x2B, 0x0C, 0x0D, 0x0E};
    std::strcpy(out, "mac ");
    EXPECT_EQ(zxnet_api_macByte2str(mac, 6, out), 6);
    EXPECT_EQ(zxnet_api_num2str16(mac, 3, out), 3);
    EXPECT_STREQ(out, "mac 0:1a:2b:c:d:e001a2b");
    EXPECT_EQ(zxnet_api_getMulticastDestMac(out, "239.255.1.10"), 17);
    EXPECT_EQ(std::string(out, 24), "01:00:5e:ff:01:0a" + std::string(7, '\0')) << "cleared";
    zxnet_api_num2str("abc", 2, out);
    zxnet_api_str2num("xyz", 2, out + 2);
    EXPECT_STREQ(out, "abxy0:5e:ff:01:0a");
    const uint32_t ip = htonl(0x7F000001);
    EXPECT_STREQ(zxnet_api_net2str(&ip), "127.0.0.1");
}

TEST_F(AddressTest, CountsTheBitsOfAMaskByteForByte) {
    char gateway[ZXNET_IP_TEXT_SIZE];
    EXPECT_EQ(zxnet_api_getGatewayByNetmask("10.1.2.3", "255.0.255.1", out, gateway), 8);
    EXPECT_STREQ(out, "10.0.2.1/16");
    zxnet_api_getGatewayByNetmask("255.255.255.255", "248.252.254.255", out, gateway);
    EXPECT_STREQ(out, "248.252.254.255/26");
    EXPECT_STREQ(gateway, "248.252.254.256");
}

TEST_F(AddressTest, PrintsSocketAddresses) {
    for (const auto& [text, printed, line] : std::vector<std::array<std::string, 3>>{
             {"192.0.2.1", "192.0.2.1", "---ipv4:192.0.2.1"},
             {"2001:db8::1", "2001:db8::1", "---ipv6:2001:db8::1"},
             {"::ffff:192.0.2.1", "192.0.2.1", "---ipv6,ipv4:::ffff:192.0.2.1,192.0.2.1"}}) {
        const Address address = socket_address(text);
        zxnet_api_getIpaddr(&address.generic, out);
        EXPECT_EQ(out, printed);
        EXPECT_THAT(log.take(), ElementsAre("[DEBUG][NETWORK]" + line));
    }
}

TEST_F(AddressTest, ResolvesNamesIntoTheRecord) {
    const std::string longest = "2001:db8:1111:2222:3333:4444:5555:6666";
    struct {
        domainaddr_ctt record;
        char behind[256];
    } found{};
    g_resolved = {socket_address("192.0.2.1"), socket_address(longest), socket_address("::1")};
    EXPECT_EQ(zxnet_api_parseDomainName("host", "http", &found.record), 0);
    EXPECT_EQ(found.record.count, 3);
    EXPECT_STREQ(found.record.address[0], "192.0.2.1");
    EXPECT_EQ(std::string(found.record.address[1], 36), longest.substr(0, 32) + "::1" + '\0');
    EXPECT_THAT(std::vector(found.record.family, found.record.family + 3), ElementsAre(0, 1, 1));
    EXPECT_EQ(log.take().front(), "[DEBUG][NETWORK]phostname:host--0:192.0.2.1");

    g_resolved.assign(200, socket_address(longest));
    EXPECT_EQ(zxnet_api_parseDomainName("host", "http", &found.record), 0);
    EXPECT_EQ(found.record.count, 200);
    EXPECT_THAT(found.behind, testing::Each('\0'));
    log.take();

    g_resolved.clear();
    EXPECT_EQ(zxnet_api_parseDomainName("host", "http", &found.record), -2);
    EXPECT_EQ(found.record.count, 0);
    EXPECT_EQ(zxnet_api_parseDomainName("", nullptr, &found.record), -1);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][NETWORK]No addrinfo",
                                        "[ERROR][NETWORK]phostname  len is 0,ret -1"));
}

TEST_F(AddressTest, KnowsModesAndDescriptors) {
    int mode = 0;
    for (const char* const name : {"unkonw", "static", "dhcp", "bond-slaver", "bond-master"}) {
        EXPECT_EQ(zxnet_api_getIpMode(name), mode++);
        EXPECT_EQ(zxnet_api_getIpMode(name + 1), 0);
    }
    EXPECT_EQ(zxnet_api_getIpMode("dhcp0"), 0);
    EXPECT_EQ(zxnet_api_isVaildFd(2), 0);
    EXPECT_EQ(zxnet_api_isVaildFd(3), 1);
}

}  // namespace

#include "packet/icmp.hpp"

#include <algorithm>

#include "common/big_endian.hpp"

namespace capture {
namespace {

using Bytes = std::span<const std::uint8_t>;

struct TypeName {
    std::uint8_t type;
    std::string_view name;
};

constexpr std::uint8_t kEchoReply = 0;
constexpr std::uint8_t kUnreachable = 3;
constexpr std::uint8_t kRedirect = 5;
constexpr std::uint8_t kEchoRequest = 8;
constexpr std::uint8_t kTooBig6 = 2;
constexpr std::uint8_t kEchoRequest6 = 128;
constexpr std::uint8_t kEchoReply6 = 129;
constexpr std::uint8_t kNeighbourSolicitation = 135;
constexpr std::uint8_t kNeighbourAdvertisement = 136;
constexpr std::uint8_t kRedirect6 = 137;
constexpr std::uint8_t kFragmentationNeeded = 4;  // a code of kUnreachable

constexpr TypeName kNames[] = {
    {kEchoReply, "echo reply"},  {kUnreachable, "unreachable"},  {4, "source quench"},
    {kRedirect, "redirect"},     {kEchoRequest, "echo request"}, {9, "router advertisement"},
    {10, "router solicitation"}, {11, "time exceeded"},          {12, "parameter problem"},
    {13, "timestamp request"},   {14, "timestamp reply"},        {15, "information request"},
    {16, "information reply"},   {17, "address mask request"},   {18, "address mask reply"}};

constexpr TypeName kNames6[] = {{1, "unreachable"},
                                {kTooBig6, "packet too big"},
                                {3, "time exceeded"},
                                {4, "parameter problem"},
                                {kEchoRequest6, "echo request"},
                                {kEchoReply6, "echo reply"},
                                {130, "MLD query"},
                                {131, "MLD report"},
                                {132, "MLD done"},
                                {133, "router solicitation"},
                                {134, "router advertisement"},
                                {kNeighbourSolicitation, "neighbour solicitation"},
                                {kNeighbourAdvertisement, "neighbour advertisement"},
                                {kRedirect6, "redirect"},
                                {143, "MLDv2 report"}};

// The codes of unreachable.
constexpr TypeName kCodes[] = {{0, "net"},
                               {1, "host"},
                               {2, "protocol"},
                               {3, "port"},
                               {kFragmentationNeeded, "fragmentation needed"},
                               {5, "source route"},
                               {9, "net prohibited"},
                               {10, "host prohibited"},
                               {13, "prohibited"}};
constexpr TypeName kCodes6[] = {{0, "no route"},      {1, "prohibited"}, {2, "beyond scope"},
                                {3, "address"},       {4, "port"},       {5, "source policy"},
                                {6, "rejected route"}};

std::string_view find_name(std::span<const TypeName> names, std::uint8_t type) {
    const auto at = std::ranges::find(names, type, &TypeName::type);
    return at == names.end() ? std::string_view() : at->name;
}

void add_rest(Icmp& icmp, Bytes bytes) {
    constexpr std::size_t kHeader = 8;
    if (bytes.size() < kHeader) {
        return;
    }
    if (icmp.type == kEchoRequest || icmp.type == kEchoReply) {
        icmp.echo = {tools::load_be16(&bytes[4]), tools::load_be16(&bytes[6])};
    } else if (icmp.type == kRedirect) {
        std::copy_n(&bytes[4], 4, icmp.target.emplace().bytes.begin());
    } else if (icmp.type == kUnreachable && icmp.code == kFragmentationNeeded) {
        icmp.largest_packet = tools::load_be16(&bytes[6]);
    }
}

void add_rest6(Icmp& icmp, Bytes bytes) {
    constexpr std::size_t kHeader = 8;
    constexpr std::size_t kAddress = 16;
    if (bytes.size() < kHeader) {
        return;
    }
    if (icmp.type == kEchoRequest6 || icmp.type == kEchoReply6) {
        icmp.echo = {tools::load_be16(&bytes[4]), tools::load_be16(&bytes[6])};
    } else if (icmp.type == kTooBig6) {
        icmp.largest_packet = tools::load_be32(&bytes[4]);
    } else if (icmp.type >= kNeighbourSolicitation && icmp.type <= kRedirect6 &&
               bytes.size() >= kHeader + kAddress) {
        Address& target = icmp.target.emplace();
        target.is_ipv6 = true;
        std::copy_n(&bytes[kHeader], kAddress, target.bytes.begin());
    }
}

}  // namespace

std::optional<Icmp> read_icmp(const Frame& frame, const Packet& packet) {
    const Bytes bytes = captured_transport(frame, packet);
    const bool is_v6 = packet.transport == Transport::icmpv6;
    if ((packet.transport != Transport::icmp && !is_v6) || bytes.size() < 4) {
        return std::nullopt;
    }
    Icmp icmp;
    icmp.type = bytes[0];
    icmp.code = bytes[1];
    if (is_v6) {
        icmp.name = find_name(kNames6, icmp.type);
        icmp.reason = icmp.type == 1 ? find_name(kCodes6, icmp.code) : "";
        add_rest6(icmp, bytes);
    } else {
        icmp.name = find_name(kNames, icmp.type);
        icmp.reason = icmp.type == kUnreachable ? find_name(kCodes, icmp.code) : "";
        add_rest(icmp, bytes);
    }
    return icmp;
}

}  // namespace capture

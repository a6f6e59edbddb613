// Decodes, dumps and filters any bytes as a frame. Reading more bytes than the contract asks for
// crashes, and so does writing after the record. The whole record and the whole log are compared
// with those of a plain model.
#include <arpa/inet.h>
#include <dlfcn.h>

#include <array>
#include <set>
#include <string>

#include "frame_model.hpp"
#include "support.hpp"
#include "zxframe.h"

namespace {

using zx::fuzz::Bytes;
using zx::fuzz::Input;
using zx::fuzz::ip_text;
using zx::fuzz::require;

// What our zxlog_api_strCasestrNum() returns. If negative, it asks the logging library's function.
int g_matches = -1;

// Decodes with the library into one record and with the model into another, equal one.
void check_decode(ether_ctt& record, ether_ctt& expected, const std::uint8_t* wire,
                  std::uint32_t level) {
    zxlog_api_setLoglevel(level);
    zx::fuzz::take_said();
    zx::fuzz::FrameModel model(expected, level);
    model.frame(wire);
    require(zxframe_api_doFrame(&record, wire) == 0, "a frame is decoded");
    require(std::memcmp(&record, &expected, sizeof record) == 0, "the record");
    require(zx::fuzz::take_said() == model.said(), "the lines");
}

// Decodes frames with every type, protocol and option that has a name, and with others that have
// none.
bool check_names() {
    static ether_ctt record;
    static ether_ctt expected;
    record.print_flag = expected.print_flag = 1;
    std::uint8_t wire[ZXFRAME_READABLE]{};
    const auto check = [&] {
        record.tcp.option_count = expected.tcp.option_count = 0;
        check_decode(record, expected, wire, 5);
    };
    const auto put = [&wire](std::size_t at, unsigned value) {
        wire[at] = static_cast<std::uint8_t>(value >> 8U);
        wire[at + 1] = static_cast<std::uint8_t>(value);
    };
    for (unsigned length = 0; length < 0x0610; ++length) {
        put(12, length);
        check();
    }
    for (const auto& [type, name] : zx::fuzz::kEtherNames) {
        for (const unsigned near : {type - 1, type, type + 1}) {
            put(12, near);
            check();
        }
    }
    for (unsigned hardware = 0; hardware < 32; ++hardware) {
        put(12, 0x0806);
        put(14, hardware);
        put(16, hardware % 2 == 0 ? 0x0800 : 0x86DD);
        put(20, hardware % 5);
        check();
    }
    put(12, 0x0800);
    put(14, 0x4500);
    put(46, 0xF000);  // 40 bytes of options
    for (unsigned protocol = 0; protocol < 256; ++protocol) {
        put(22, 0x4000 + protocol);
        check();
    }
    put(22, 0x4006);
    for (unsigned kind = 0; kind < 40; ++kind) {
        for (unsigned len = 0; len < 256; len += len < 20 ? 1 : 47) {
            put(54, kind << 8U | len);
            for (const unsigned first : {kind, 1U}) {
                put(56, first << 8U | len);
                check();
            }
        }
    }
    return true;
}

void check_predicates(const ether_ctt& record, const std::string& stranger) {
    const bool is_ip = record.ether_type == 0x0800;
    const bool is_arp = record.ether_type == 0x0806;
    const bool is_tcp = is_ip && record.ipv4.protocol == 6;
    const tcp_view& tcp = record.tcp;
    const std::string source = ip_text(is_arp ? record.arp.sender_ip : record.ipv4.saddr);
    const std::string dest = ip_text(is_arp ? record.arp.target_ip : record.ipv4.daddr);
    const bool acks_alone = tcp.ack == 1 && (tcp.urg | tcp.psh | tcp.rst | tcp.syn) == 0;
    require(zxframe_api_is_ipArp(&record) == (is_ip || is_arp), "IPv4 or ARP");
    require(zxframe_api_isTcp(&record) == is_tcp, "TCP");
    for (const std::string& text : {source, dest, stranger}) {
        in_addr address{};
        const bool is_address = inet_aton(text.c_str(), &address) != 0;
        const bool is_source = is_address && source == ip_text(address.s_addr);
        const bool is_dest = is_address && dest == ip_text(address.s_addr);
        const char* const asked = text.c_str();
        require(zxframe_api_is_IparpOrIpaddr(&record, asked, nullptr) ==
                    ((is_ip || is_arp) && is_source),
                "from the address");
        require(
            zxframe_api_is_IparpOrIpaddr(&record, nullptr, asked) == ((is_ip || is_arp) && is_dest),
            "to the address");
        require(zxframe_api_isTcp_dTos_ack(&record, asked) ==
                    (is_tcp && acks_alone && tcp.fin == 0 && record.data_len == 0 && is_dest),
                "an acknowledgment");
        require(zxframe_api_isTcp_dTos_close(&record, asked) ==
                    (is_tcp && acks_alone && tcp.fin == 1 && is_dest),
                "a close");
        require(zxframe_api_isTcp_sTod_data(&record, asked) ==
                    (is_tcp && record.data_len != 0 && is_source),
                "data");
    }
}

// For a text that is no address, inet_addr() gives the broadcast address. Such a text must not
// match it.
bool check_broadcast() {
    static ether_ctt record;
    record.ether_type = 0x0800;
    record.ipv4.protocol = 6;
    record.ipv4.saddr = record.ipv4.daddr = INADDR_NONE;
    record.tcp.ack = 1;
    for (const char* const stranger : {"nobody", "1.2.3.256", "255.255.255.25"}) {
        check_predicates(record, stranger);
    }
    return true;
}

// A text that a filter compares: a variant of the frame's own, none, or one from the input.
class Wanted {
public:
    Wanted(Input& control, const std::string& own) {
        const auto form = control.take<std::uint8_t>() % 8;
        text_ = form == 1   ? own
                : form == 2 ? own + "4"
                : form == 3 ? "1" + own
                : form == 4 ? "9," + own
                : form == 5 ? own.substr(1)
                : form == 6 ? control.take_text(8)
                            : "";
        is_null_ = form == 0;
    }
    [[nodiscard]] const char* get() const { return is_null_ ? nullptr : text_.c_str(); }
    [[nodiscard]] bool is_set() const { return !is_null_ && !text_.empty(); }
    [[nodiscard]] bool names(const std::string& own) const {
        return g_matches >= 0 ? g_matches != 0 : !is_gone && text_.find(own) != std::string::npos;
    }
    inline static bool is_gone = false;  // the filter's texts became NULL after its flags were set

private:
    std::string text_;
    bool is_null_ = false;
};

std::int32_t wanted_port(Input& control, const ether_ctt& record) {
    switch (control.take<std::uint8_t>() % 4) {
        case 0:
            return 0;
        case 1:
            return record.tcp.source;
        case 2:
            return record.tcp.dest;
        default:
            return control.take<std::int32_t>();
    }
}

// The texts of a frame, and the conditions of a filter on them.
struct Conditions {
    Conditions(Input& control, const ether_ctt& record)
        : source_mac(record.str_source_mac),
          dest_mac(record.str_dest_mac),
          source_ip(ip_text(record.ipv4.saddr)),
          dest_ip(ip_text(record.ipv4.daddr)),
          macs{Wanted(control, source_mac), Wanted(control, source_mac), Wanted(control, dest_mac)},
          ips{Wanted(control, source_ip), Wanted(control, source_ip), Wanted(control, dest_ip)},
          ports{wanted_port(control, record), wanted_port(control, record),
                wanted_port(control, record)} {
        constexpr std::array<const char*, 4> kProtocols{nullptr, "tcp", "udp", "tcpx"};
        protocol = control.take<std::uint8_t>() % kProtocols.size();
        protocol_text = kProtocols[protocol];
    }

    void set(frame_filter_ctt& filter) const {
        filter.mac = macs[0].get();
        filter.source_mac = macs[1].get();
        filter.dest_mac = macs[2].get();
        filter.protocol = protocol_text;
        filter.ip = ips[0].get();
        filter.source_ip = ips[1].get();
        filter.dest_ip = ips[2].get();
        filter.port = ports[0];
        filter.source_port = ports[1];
        filter.dest_port = ports[2];
        filter.initialized = 0;
    }

    [[nodiscard]] bool any() const {
        const auto is_set = [](const Wanted& text) { return text.is_set(); };
        return std::any_of(macs.begin(), macs.end(), is_set) || has_ip_condition() ||
               std::any_of(ports.begin(), ports.end(), [](std::int32_t port) { return port > 0; });
    }

    // The flags that the library computes from a filter.
    [[nodiscard]] std::array<std::uint8_t, 13> flags() const {
        const auto of = [](bool is_set) { return static_cast<std::uint8_t>(is_set ? 1 : 0); };
        const bool has_protocol = protocol == 1 || protocol == 2;
        return {1,
                of(any()),
                of(macs[0].is_set()),
                of(macs[1].is_set()),
                of(macs[2].is_set()),
                of(has_protocol),
                of(ips[0].is_set()),
                of(ips[1].is_set()),
                of(ips[2].is_set()),
                of(ports[0] > 0),
                of(ports[1] > 0),
                of(ports[2] > 0),
                static_cast<std::uint8_t>(protocol == 1   ? 6
                                          : protocol == 2 ? 17
                                                          : 0)};
    }

    [[nodiscard]] bool let_pass(const ether_ctt& record) const {
        if (!either(macs, source_mac, dest_mac)) {
            return false;
        }
        if (!has_ip_condition()) {
            return true;
        }
        const std::uint8_t number = record.ipv4.protocol;
        if (record.ether_type != 0x0800 || (protocol == 1 && number != 6) ||
            (protocol == 2 && number != 17) || !either(ips, source_ip, dest_ip)) {
            return false;
        }
        const bool has_ports = number == 6 || number == 17;  // TCP and UDP ports share their place
        const std::int32_t source = has_ports ? record.tcp.source : -1;
        const std::int32_t dest = has_ports ? record.tcp.dest : -1;
        if (ports[0] > 0) {
            return ports[0] == source || ports[0] == dest;
        }
        return (ports[1] <= 0 || ports[1] == source) && (ports[2] <= 0 || ports[2] == dest);
    }

    std::string source_mac, dest_mac, source_ip, dest_ip;
    std::array<Wanted, 3> macs, ips;
    std::array<std::int32_t, 3> ports;
    std::size_t protocol = 0;
    const char* protocol_text = nullptr;

private:
    [[nodiscard]] bool has_ip_condition() const {
        return protocol == 1 || protocol == 2 ||
               std::any_of(ips.begin(), ips.end(),
                           [](const Wanted& text) { return text.is_set(); });
    }
    static bool either(const std::array<Wanted, 3>& wanted, const std::string& source,
                       const std::string& dest) {
        if (wanted[0].is_set()) {
            return wanted[0].names(source) || wanted[0].names(dest);
        }
        return (!wanted[1].is_set() || wanted[1].names(source)) &&
               (!wanted[2].is_set() || wanted[2].names(dest));
    }
};

// Calls a part of the decoder with the number of bytes that it needs.
void check_layer(std::uint8_t which, ether_ctt& record, ether_ctt& expected, Bytes frame) {
    using Parse = void (*)(ether_ctt*, const std::uint8_t*);
    using Model = zx::fuzz::FrameModel;
    constexpr struct {
        std::size_t frame_at, readable;
        Parse parse;
        void (Model::*model)(const std::uint8_t*);
    } kLayers[] = {
        {0, 14, zxframe_innerapi_parseEthrt, &Model::ethernet},
        {14, 20, zxframe_innerapi_parseIpv4, &Model::ipv4},
        {14, 374, zxframe_innerapi_doIpv4, &Model::packet},
        {14, 0, zxframe_innerapi_doIpv6, &Model::nothing},
        {14, 28, zxframe_innerapi_parseArp, &Model::arp},
        {14, 28, zxframe_innerapi_doArp, &Model::arp},
        {34, 314, zxframe_innerapi_doTcp, &Model::tcp},
        {34, 8, zxframe_innerapi_doUdp, &Model::udp},
        {34, 8,
         [](ether_ctt* to, const std::uint8_t* at) { zxframe_innerapi_parseUdp(to, at, at); },
         &Model::udp},
        {34, 20,
         [](ether_ctt* to, const std::uint8_t* at) { zxframe_innerapi_parseTcp(to, at, nullptr); },
         &Model::tcp_without_options},
        {34, 314,
         [](ether_ctt* to, const std::uint8_t* at) { zxframe_innerapi_parseTcpOpt(to, at, at); },
         &Model::options},
    };
    static zx::fuzz::GuardedMemory memory(ZXFRAME_READABLE);
    const auto& layer = kLayers[which % std::size(kLayers)];
    const Bytes bytes = frame.subspan(std::min(layer.frame_at, frame.size()));
    const std::uint8_t* const wire =
        memory.copy(bytes.first(std::min(bytes.size(), layer.readable)), layer.readable);
    Model model(expected, zxlog_api_getLoglevel());
    (model.*layer.model)(wire);
    zx::fuzz::take_said();
    layer.parse(&record, wire);
    require(std::memcmp(&record, &expected, sizeof record) == 0, "the record of a layer");
    require(zx::fuzz::take_said() == model.said(), "the lines of a layer");
}

// A log line names a function and a source line of that function, even if a helper wrote the line.
bool check_places() {
    static ether_ctt record;
    std::uint8_t arp[ZXFRAME_READABLE]{};
    arp[12] = 8;
    arp[13] = 6;
    flag_printLineFunc = 1;
    zxlog_api_setLoglevel(5);
    record.print_flag = 1;
    require(zxframe_api_isTcp(nullptr) + zxframe_api_is_ipArp(nullptr) == 0 &&
                zxframe_api_doFrame(&record, arp) == 0,
            "some calls");
    flag_printLineFunc = 0;
    const std::string said = zx::fuzz::take_said();
    std::map<std::string, std::set<std::string>> places;  // the lines of each function
    for (std::size_t at = 0, end = 0; (end = said.find('\n', at)) != std::string::npos;
         at = end + 1) {
        const std::size_t begin = said.find("][", said.find("][", at) + 2) + 2;
        const std::size_t blank = said.find(' ', begin);
        places[said.substr(begin, blank - begin)].insert(
            said.substr(blank + 1, said.find(']', blank) - blank - 1));
    }
    require(places.size() == 5 && places["zxframe_innerapi_parseEthrt"].size() == 1 &&
                places["zxframe_innerapi_printEthrtType"].size() == 1 &&
                places["zxframe_innerapi_parseArp"].size() == 1 &&
                places["zxframe_api_isTcp"].size() == 1 &&
                places["zxframe_api_isTcp"] != places["zxframe_api_is_ipArp"],
            "the places of the lines");
    return true;
}

}  // namespace

// Takes the place of the logging library's function, which decides what a filter matches.
extern "C" std::int32_t zxlog_api_strCasestrNum(const char* text, const char* part,
                                                std::int32_t max, std::int32_t match_case) {
    static const auto kReal = reinterpret_cast<decltype(&zxlog_api_strCasestrNum)>(
        dlsym(RTLD_NEXT, "zxlog_api_strCasestrNum"));
    return g_matches >= 0 ? g_matches : kReal(text, part, max, match_case);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool is_checked_once = check_places() && check_names() && check_broadcast();
    require(is_checked_once, "what no input changes");
    static zx::fuzz::GuardedMemory wires(1U << 16U);
    static zx::fuzz::GuardedMemory short_wires(ZXFRAME_READABLE);
    static zx::fuzz::GuardedMemory records(sizeof(ether_ctt));
    static zx::fuzz::GuardedMemory models(sizeof(ether_ctt));
    static zx::fuzz::GuardedMemory filters(sizeof(frame_filter_ctt));

    Input input({data, size});
    Input control(input.take_bytes(zx::fuzz::kControlSize));
    const Bytes frame = input.rest().first(std::min<std::size_t>(input.rest().size(), 1U << 16U));
    const std::uint32_t level = control.take<std::uint8_t>() % 6;
    const auto print_flag = static_cast<std::int8_t>(control.take<std::uint8_t>() % 2);
    const auto fill = control.take<std::uint8_t>();
    const std::uint32_t option_count = control.take<std::uint8_t>() % (ZXFRAME_TCP_OPTIONS + 2U);
    const auto layer = control.take<std::uint8_t>();

    const std::uint8_t* const wire = wires.copy(frame, ZXFRAME_READABLE);
    auto& record = records.record<ether_ctt>(fill);
    record.print_flag = print_flag;
    record.tcp.option_count = option_count;
    auto& expected = models.record<ether_ctt>(fill);
    expected.print_flag = print_flag;
    expected.tcp.option_count = option_count;
    check_decode(record, expected, wire, level);
    check_predicates(record, control.take_text(8));

    // Decodes again through a filter, from a buffer that has only the bytes that must be readable.
    const Conditions conditions(control, record);
    auto& filter = filters.record<frame_filter_ctt>(fill);
    filter.frame.print_flag = print_flag;
    filter.frame.tcp.option_count = option_count;
    conditions.set(filter);
    const std::int32_t passes =
        zxframe_api_filterFrame(nullptr, short_wires.copy({wire, ZXFRAME_READABLE}), &filter);
    require(passes == (!conditions.any() || conditions.let_pass(record)), "what passes");
    if (conditions.any()) {
        record.print_flag = 0;
        require(std::memcmp(&filter.frame, &record, sizeof record) == 0, "the same record");
    }
    require(std::memcmp(&filter.initialized, conditions.flags().data(), 13) == 0, "the flags");

    // The library remembers the flags, and asks the logging library for each match.
    filter.mac = filter.source_mac = filter.dest_mac = filter.protocol = nullptr;
    filter.ip = filter.source_ip = filter.dest_ip = nullptr;
    Wanted::is_gone = true;
    for (g_matches = 1; g_matches >= -1; --g_matches) {
        filter.frame.tcp.option_count = option_count;
        require(
            zxframe_api_filterFrame(nullptr, short_wires.copy({wire, ZXFRAME_READABLE}), &filter) ==
                (!conditions.any() || conditions.let_pass(record)),
            "what passes by another rule");
    }
    g_matches = -1;
    Wanted::is_gone = false;
    zx::fuzz::Lines lines{"NETFRAME", level};
    if (conditions.any()) {
        lines.say(1, "Param error####frame_buf");
    }
    zx::fuzz::take_said();
    require(zxframe_api_filterFrame(nullptr, nullptr, &filter) == (conditions.any() ? 0 : 1) &&
                zx::fuzz::take_said() == lines.said,
            "no frame");

    record.print_flag = expected.print_flag = print_flag;
    check_layer(layer, record, expected, frame);
    return 0;
}

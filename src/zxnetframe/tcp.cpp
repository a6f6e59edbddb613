// The TCP header.
#include "internal/bytes.hpp"
#include "zxframe.h"
#include "zxnetframe/layers.hpp"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/tcp_options.hpp"
#include "zxnetframe/wire.hpp"
#include "zxnetframe/write.hpp"

using namespace zx::frame;

namespace {

constexpr std::uint16_t kWindow = 64240;
constexpr char kParse[] = "zxframe_innerapi_parseTcp";

[[gnu::cold, gnu::noinline]] void dump_header(const tcp_view& tcp, zx::Caller caller) {
    ZX_LOG_AT(caller, info, "==================== TCP Header Info =====================");
    ZX_LOG_AT(caller, info, "Source Port: %d", tcp.source);
    ZX_LOG_AT(caller, info, "Destination port:%d", tcp.dest);
    ZX_LOG_AT(caller, info, "Sequence_number :%u", tcp.seq);
    ZX_LOG_AT(caller, info, "Acknowledgment number:%u", tcp.ack_seq);
    ZX_LOG_AT(caller, info, "Header Length: %d bytes", static_cast<int>(kWord * tcp.doff));
    ZX_LOG_AT(caller, info, "Flags: ");
    ZX_LOG_AT(caller, info, "    Urgent:%d", static_cast<int>(tcp.urg));
    ZX_LOG_AT(caller, info, "    Acknowledgment:%d", static_cast<int>(tcp.ack));
    ZX_LOG_AT(caller, info, "    Push :%d", static_cast<int>(tcp.psh));
    ZX_LOG_AT(caller, info, "    Reset :%d", static_cast<int>(tcp.rst));
    ZX_LOG_AT(caller, info, "    Syn :%d", static_cast<int>(tcp.syn));
    ZX_LOG_AT(caller, info, "    Fin : %d", static_cast<int>(tcp.fin));
    ZX_LOG_AT(caller, info, "Window size: %d", tcp.window);
    ZX_LOG_AT(caller, info, "Checksum: %d", tcp.check);
    ZX_LOG_AT(caller, info, "Urgent pointer: %d", tcp.urg_ptr);
}

[[gnu::cold, gnu::noinline]] void dump_sizes(const ether_ctt& record, zx::Caller caller) {
    const ipv4_view& ip = record.ipv4;
    ZX_LOG_AT(caller, info, "total_len len,ip_header_len,tcp_header_len: %d,%d,%d", ip.total_len,
              static_cast<int>(ip.header_len), static_cast<int>(record.tcp.doff));
    ZX_LOG_AT(caller, info, "data len: %d", record.data_len);
}

[[gnu::cold, gnu::noinline]] void report_short(std::uint32_t size, zx::Caller caller) {
    ZX_LOG_AT(caller, error, "Header Length(%d) is less than 20,maybe error",
              static_cast<int>(size));
}

[[gnu::cold, gnu::noinline]] void dump_built_length(std::uint32_t words, zx::Caller caller) {
    ZX_LOG_AT(caller, info, "-----ptcpheader_ctt->header_len:%d", static_cast<int>(words));
}

// These fields share a word of the record. Set together, they cost one store.
void store_offset_and_flags(tcp_view& tcp, std::uint8_t offset, std::uint8_t flags) {
    tcp.doff = offset >> 4U & kNibble;
    tcp.urg = (flags & tcp_at::urg) != 0;
    tcp.ack = (flags & tcp_at::ack) != 0;
    tcp.psh = (flags & tcp_at::psh) != 0;
    tcp.rst = (flags & tcp_at::rst) != 0;
    tcp.syn = (flags & tcp_at::syn) != 0;
    tcp.fin = (flags & tcp_at::fin) != 0;
}

}  // namespace

void zx::frame::parse_tcp(ether_ctt& record, const std::uint8_t* at, bool with_options) {
    tcp_view& tcp = record.tcp;
    tcp.source = zx::load_be16(at + tcp_at::source);
    tcp.dest = zx::load_be16(at + tcp_at::dest);
    tcp.seq = zx::load_be32(at + tcp_at::seq);
    tcp.ack_seq = zx::load_be32(at + tcp_at::ack_seq);
    store_offset_and_flags(tcp, at[tcp_at::offset], at[tcp_at::flags]);
    tcp.window = zx::load_be16(at + tcp_at::window);
    tcp.check = zx::load_be16(at + tcp_at::check);
    tcp.urg_ptr = zx::load_be16(at + tcp_at::urg_ptr);
    if (record.print_flag != 0) [[unlikely]] {
        dump_header(tcp, kParse);
    }

    if (tcp.doff > kTcpWords && with_options) {
        parse_options(record, at);
    } else if (tcp.doff < kTcpWords) {
        report_short(kWord * tcp.doff, kParse);
    }

    const ipv4_view& ip = record.ipv4;
    record.data_len =
        static_cast<std::uint16_t>(ip.total_len - kWord * ip.header_len - kWord * tcp.doff);
    if (record.print_flag != 0) [[unlikely]] {
        dump_sizes(record, kParse);
    }
}

void zx::frame::build_tcp(ether_ctt& record, const zxbuildtcp_ctt& request, std::uint8_t* out) {
    tcp_view& tcp = record.tcp;
    tcp.source = request.source;
    tcp.dest = request.dest;
    tcp.seq = request.seq;
    tcp.ack_seq = request.ack_seq;
    tcp.window = kWindow;
    tcp.check = 0;
    tcp.urg_ptr = 0;
    tcp.doff = (request.option_len / kWord + kTcpWords) & kNibble;
    if (record.print_flag != 0) [[unlikely]] {
        dump_built_length(tcp.doff, "zxframe_innerapi_buildTcpPayload");
    }
    tcp.urg = (request.flags & ZXFRAME_TCP_URG) != 0;
    tcp.ack = (request.flags & ZXFRAME_TCP_ACK) != 0;
    tcp.psh = (request.flags & ZXFRAME_TCP_PSH) != 0;
    tcp.rst = (request.flags & ZXFRAME_TCP_RST) != 0;
    tcp.syn = (request.flags & ZXFRAME_TCP_SYN) != 0;
    tcp.fin = (request.flags & ZXFRAME_TCP_FIN) != 0;

    write_tcp(tcp, out);
    write_options(request, out + tcp_at::options);
    zx::store_be16(out + tcp_at::check, tcp_checksum(record, out));
    parse_tcp(record, out, false);
}

extern "C" void zxframe_innerapi_parseTcp(ether_ctt* pether_ctt, const uint8_t* tcph,
                                          const uint8_t* opt_source) {
    if (ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {tcph, "iph"})) {
        parse_tcp(*pether_ctt, tcph, opt_source != nullptr);
    }
}

extern "C" void zxframe_innerapi_doTcp(ether_ctt* pether_ctt, const uint8_t* data) {
    if (ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {data, "data"})) {
        parse_tcp(*pether_ctt, data, true);
    }
}

extern "C" void zxframe_innerapi_buildTcpPayload(ether_ctt* pether_ctt,
                                                 const zxbuildtcp_ctt* pzxbuildtcp_ctt,
                                                 uint8_t* tcph) {
    if (ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {pzxbuildtcp_ctt, "pzxbuildtcp_ctt"},
                     {tcph, "tcph"})) {
        build_tcp(*pether_ctt, *pzxbuildtcp_ctt, tcph);
    }
}

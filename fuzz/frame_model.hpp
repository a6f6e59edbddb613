// A model of the decoder, written from the header file: what it writes to each field of a record,
// and what it logs.
#pragma once

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>

#include "said.hpp"
#include "zxframe.h"

namespace zx::fuzz {

inline std::uint32_t be16(const std::uint8_t* at) {
    return static_cast<std::uint32_t>(at[0]) << 8U | at[1];
}

inline std::uint32_t be32(const std::uint8_t* at) {
    return be16(at) << 16U | be16(at + 2);
}

inline std::string mac_text(const std::uint8_t* mac) {
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
                  mac[3], mac[4], mac[5]);
    return text;
}

inline std::string ip_text(std::uint32_t netorder) {
    return inet_ntoa({netorder});
}

inline const std::map<std::uint32_t, const char*> kEtherNames{
    {0x0200, "Xerox PUP"},
    {0x0500, "Sprite"},
    {0x0600, "XEROX NS IDP"},
    {0x0661, "DLOG"},
    {0x0800, "IPv4"},
    {0x0801, "X.75 Internet"},
    {0x0802, "NBS Internet"},
    {0x0803, "ECMA Internet"},
    {0x0804, "Chaosnet"},
    {0x0805, "X.25 Level 3"},
    {0x0806, "ARP"},
    {0x0808, "Frame Relay ARP"},
    {0x6559, "Raw Frame Relay"},
    {0x8035, "DRARP"},
    {0x8037, "Novell Netware IPX"},
    {0x809B, "AppleTalk protocol "},
    {0x80D5, "IBM SNA Services over Ethernet"},
    {0x80F3, "AppleTalk ARP"},
    {0x8100, "IEEE 802.1Q VLAN tagging"},
    {0x8137, "IPX"},
    {0x814C, "SNMP"},
    {0x86DD, "IPv6"},
    {0x8809, "OAM"},
    {0x880B, "PPP"},
    {0x880C, "GSMP"},
    {0x8847, "MPLS <unicast>"},
    {0x8848, "MPLS<multicast>"},
    {0x8863, "PPPoE <Discovery Stage>"},
    {0x8864, "PPPoE <PPP Session Stage>"},
    {0x88BB, "LWAPP"},
    {0x88CC, "LLDP"},
    {0x8E88, "EAPOL"},
    {0x9000, "used to test interfaces"},
    {0x9100, "VLAN Tag Protocol Identifier1"},
    {0x9200, "VLAN Tag Protocol Identifier2"},
    {0xFFFF, "res"},
};

inline const std::map<std::uint32_t, const char*> kIpNames{
    {0, "Dummy protocol for TCP"},
    {1, "ICMP"},
    {2, "IGMP"},
    {4, "IPIP tunnels"},
    {6, "TCP"},
    {8, "EGP"},
    {12, "PUP"},
    {17, "UDP"},
    {22, "IDP"},
    {29, "TP"},
    {33, "DCCP"},
    {41, "IPV6"},
    {46, "RSVP"},
    {47, "GRE "},
    {50, "ESP "},
    {51, "AH "},
    {92, "MTP"},
    {94, "BEETPH "},
    {98, "ENCAP "},
    {103, "PIM "},
    {108, "COMP"},
    {132, "SCTP "},
    {136, "UDPLITE "},
    {137, "MPLS "},
};

inline const std::map<std::uint32_t, const char*> kOptionNames{
    {0, "EOL"},  {1, "NOP"},       {2, "MSS"},   {3, "WSO"},  {4, "SACKP"}, {5, "SACK"},
    {6, "ECHO"}, {7, "ECHOREPLY"}, {8, "TSOPT"}, {9, "POCP"}, {10, "POSP"}, {28, "UTO"},
};

inline const std::map<std::uint32_t, const char*> kHardwareNames{
    {1, " Ethernet 10/100Mbps."},
    {2, " Experimental Ethernet."},
    {3, " AX.25 Level 2."},
    {4, " PROnet token ring."},
    {6, "IEEE 802.2 Ethernet/TR/TB."},
    {8, "APPLEtalk."},
    {19, "ATM."},
    {24, "IEEE 1394 IPv4 ."},
};

class FrameModel {
public:
    FrameModel(ether_ctt& record, std::uint32_t level)
        : record_(record), lines_{"NETFRAME", level} {}

    void frame(const std::uint8_t* wire) {
        ethernet(wire);
        const std::uint32_t type = be16(wire + 12);
        if (type == 0x0800) {
            packet(wire + 14);
        } else if (type == 0x0806) {
            arp(wire + 14);
        } else if (type != 0x86DD && kEtherNames.count(type) != 0) {
            dump("%s%s, no support to parse this frame", type < 0x0600 ? " " : "",
                 kEtherNames.at(type));
        }
    }

    [[nodiscard]] const std::string& said() const { return lines_.said; }

    // The single layers.
    void packet(const std::uint8_t* at) {
        ipv4(at);
        const std::uint8_t* const transport = at + 4U * (at[0] & 15U);
        const unsigned protocol = at[9];
        if (protocol == 6) {
            tcp(transport);
        } else if (protocol == 17) {
            udp(transport);
        } else if (protocol != 0 && kIpNames.count(protocol) != 0) {
            dump("%s,no support parse", kIpNames.at(protocol));
        } else {
            dump("No supprt protocol(code:0x%02x(%d)),please fix me", protocol, protocol);
        }
    }

    void ethernet(const std::uint8_t* wire) {
        std::strcpy(record_.str_dest_mac, mac_text(wire).c_str());
        std::strcpy(record_.str_source_mac, mac_text(wire + 6).c_str());
        std::copy_n(wire, 6, record_.dest_mac);
        std::copy_n(wire + 6, 6, record_.source_mac);
        const std::uint32_t type = be16(wire + 12);
        record_.ether_type = static_cast<std::uint16_t>(type);
        if (record_.print_flag != 0) {
            lines_.say(3, "============  FRAME  ============");
        }
        dump("============  ether header info  ============");
        dump("Destination:%s", record_.str_dest_mac);
        dump("Source:%s", record_.str_source_mac);
        if (type <= 1500) {
            type > 256 && type < 512 ? dump("test") : dump("IEEE 802.3 len:%d", type);
        } else if (kEtherNames.count(type) != 0) {
            dump("Type:%s", kEtherNames.at(type));
            std::memset(record_.ether_type_name, 0, 8);
            std::strcpy(record_.ether_type_name, kEtherNames.at(type));
        } else {
            dump("Unknow ether type(%#x)", type);
        }
    }

    void ipv4(const std::uint8_t* at) {
        ipv4_view& ip = record_.ipv4;
        ip.version = at[0] / 16U & 15U;
        ip.header_len = at[0] & 15U;
        ip.tos = at[1];
        ip.total_len = static_cast<std::uint16_t>(be16(at + 2));
        ip.id = static_cast<std::uint16_t>(be16(at + 4));
        ip.frag_off = be16(at + 6) & 0x1FFFU;
        ip.ttl = at[8];
        ip.protocol = at[9];
        ip.check = static_cast<std::uint16_t>(be16(at + 10));
        std::memcpy(&ip.saddr, at + 12, 4);
        std::memcpy(&ip.daddr, at + 16, 4);
        dump("=============== IP header info===============");
        dump("Version :%d", at[0] >> 4);
        dump("Header Length:%d bytes(%d)", 4 * (at[0] & 15), at[0] & 15);
        dump("Differentiated Services Field: 0x%02x", at[1]);
        dump("Total Length: %d", be16(at + 2));
        dump("Identification: 0x%04x(%d)", be16(at + 4), be16(at + 4));
        dump("Fragment offset: %d", be16(at + 6));
        dump("Time to live: %d", at[8]);
        if (kIpNames.count(at[9]) != 0) {
            dump("Protocol:%s(%d)", kIpNames.at(at[9]), at[9]);
            std::memset(ip.ip_proto_name, 0, sizeof ip.ip_proto_name);
            std::strcpy(ip.ip_proto_name, kIpNames.at(at[9]));
        } else {
            dump("Unknow protocol(%d)", at[9]);
        }
        dump("Header checksum: %#x", be16(at + 10));
        dump("Source : %s", ip_text(ip.saddr).c_str());
        dump("Destination: %s", ip_text(ip.daddr).c_str());
    }

    void tcp(const std::uint8_t* at) { tcp(at, true); }
    void tcp_without_options(const std::uint8_t* at) { tcp(at, false); }
    void options(const std::uint8_t* at) { options(at + 20, 4 * (at[12] >> 4) - 20); }
    void nothing(const std::uint8_t*) {}

    void tcp(const std::uint8_t* at, bool with_options) {
        tcp_view& tcp = record_.tcp;
        const auto words = at[12] >> 4;
        const auto flag = [at](unsigned bit) { return at[13] >> bit & 1U; };
        tcp.source = static_cast<std::uint16_t>(be16(at));
        tcp.dest = static_cast<std::uint16_t>(be16(at + 2));
        tcp.seq = be32(at + 4);
        tcp.ack_seq = be32(at + 8);
        tcp.doff = at[12] / 16U & 15U;
        tcp.urg = flag(5) & 1U;
        tcp.ack = flag(4) & 1U;
        tcp.psh = flag(3) & 1U;
        tcp.rst = flag(2) & 1U;
        tcp.syn = flag(1) & 1U;
        tcp.fin = flag(0) & 1U;
        tcp.window = static_cast<std::uint16_t>(be16(at + 14));
        tcp.check = static_cast<std::uint16_t>(be16(at + 16));
        tcp.urg_ptr = static_cast<std::uint16_t>(be16(at + 18));
        dump("==================== TCP Header Info =====================");
        dump("Source Port: %d", be16(at));
        dump("Destination port:%d", be16(at + 2));
        dump("Sequence_number :%u", be32(at + 4));
        dump("Acknowledgment number:%u", be32(at + 8));
        dump("Header Length: %d bytes", 4 * words);
        dump("Flags: ");
        dump("    Urgent:%d", flag(5));
        dump("    Acknowledgment:%d", flag(4));
        dump("    Push :%d", flag(3));
        dump("    Reset :%d", flag(2));
        dump("    Syn :%d", flag(1));
        dump("    Fin : %d", flag(0));
        dump("Window size: %d", be16(at + 14));
        dump("Checksum: %d", be16(at + 16));
        dump("Urgent pointer: %d", be16(at + 18));
        if (words > 5 && with_options) {
            options(at + 20, 4 * (words - 5));
        } else if (words < 5) {
            lines_.say(1, "Header Length(%d) is less than 20,maybe error", 4 * words);
        }
        const ipv4_view& ip = record_.ipv4;
        dump("total_len len,ip_header_len,tcp_header_len: %d,%d,%d", ip.total_len,
             static_cast<int>(ip.header_len), words);
        record_.data_len = static_cast<std::uint16_t>(
            ip.total_len - 4 * static_cast<int>(ip.header_len) - 4 * words);
        dump("data len: %d", record_.data_len);
    }

    void options(const std::uint8_t* at, int size) {
        dump("====TCP Options:(%d bytes)", size);
        tcp_view& tcp = record_.tcp;
        for (int i = 0; i < size && tcp.option_count < ZXFRAME_TCP_OPTIONS; ++tcp.option_count) {
            const unsigned kind = at[i];
            tcp_option& option = tcp.options[tcp.option_count];
            option.kind = kind;
            if (kOptionNames.count(kind) == 0) {
                dump("unknow kind:%d", kind);
                return;
            }
            option.len = kind > 1 ? at[i + 1] : std::uint8_t{0};
            if (kind > 1 && option.len < 2) {
                return;
            }
            std::copy_n(at + i + 2, std::max(option.len - 2, 0), option.val);
            i += std::max<int>(option.len, 1);
            dump("%s", kOptionNames.at(kind));
            dump_value(option);
        }
    }

    void dump_value(const tcp_option& option) {
        const std::uint8_t* const val = option.val;
        switch (option.kind) {
            case 0:
            case 1:
                break;
            case 2:
                dump("    -val:%u", be16(val));
                break;
            case 3:
                dump("    -val:%u", val[0]);
                break;
            case 4:
                dump("    -val:support sack");
                break;
            case 5:
                dump("    -len:%u", option.len);
                for (int block = 0; block < (option.len - 2) / 8; ++block) {
                    dump("    -slre:%u~%u", be32(val + 8 * block), be32(val + 8 * block + 4));
                }
                break;
            case 8:
                dump("    -tsval:%u", be32(val));
                dump("    -tsecr:%u", be32(val + 4));
                break;
            case 28:
                dump("    -G bit:%d", val[0]);
                dump(val[0] == 1 ? "    -UserTimeout:%d(minute)" : "    -UserTimeout:%d(s)",
                     val[1]);
                break;
            default:
                dump("    -val:unsupport parse");
        }
    }

    void udp(const std::uint8_t* at) {
        udp_view& udp = record_.udp;
        udp.source = static_cast<std::uint16_t>(be16(at));
        udp.dest = static_cast<std::uint16_t>(be16(at + 2));
        udp.len = static_cast<std::uint16_t>(be16(at + 4));
        udp.check = static_cast<std::uint16_t>(be16(at + 6));
        record_.data_len = static_cast<std::uint16_t>(be16(at + 4) - 8);
        dump("==================== UDP Header Info =====================");
        dump("Source Port: %u", be16(at));
        dump("Destination port:%u", be16(at + 2));
        dump("len :%u", be16(at + 4));
        dump("Checksum:%#x", be16(at + 6));
        dump("data len: %d", record_.data_len);
        lines_.said.append("Data").append(
            reinterpret_cast<const char*>(record_.data),
            std::min<std::size_t>(record_.data_len, ZXFRAME_DATA_SIZE));
    }

    void arp(const std::uint8_t* at) {
        arp_view& arp = record_.arp;
        arp.hardware_type = static_cast<std::uint16_t>(be16(at));
        arp.protocol_type = static_cast<std::uint16_t>(be16(at + 2));
        arp.hardware_len = at[4];
        arp.protocol_len = at[5];
        arp.operation = static_cast<std::uint16_t>(be16(at + 6));
        std::memcpy(arp.sender_mac, at + 8, 6);
        std::memcpy(&arp.sender_ip, at + 14, 4);
        std::memcpy(arp.target_mac, at + 18, 6);
        std::memcpy(&arp.target_ip, at + 24, 4);
        const auto hardware = kHardwareNames.find(be16(at));
        dump("==================== ARP Header Info =====================");
        dump("hardware type:%s", hardware != kHardwareNames.end() ? hardware->second : "Unknow.");
        dump("protocol type:%s", be16(at + 2) == 0x0800 ? "IP" : "error.");
        dump("hardware size: %d", at[4]);
        dump("protocol size: %d", at[5]);
        dump("opcode:%s", arp.operation == 1 ? "requset" : arp.operation == 2 ? "reply" : "unknow");
        dump("sender mac: %s", mac_text(at + 8).c_str());
        dump("sender ipaddr:%s", ip_text(arp.sender_ip).c_str());
        dump("target mac:%s", mac_text(at + 18).c_str());
        dump("target ipaddr:%s", ip_text(arp.target_ip).c_str());
    }

    // A line of a field dump.
    [[gnu::format(printf, 2, 3)]] void dump(const char* fmt, ...) {
        if (record_.print_flag != 0) {
            std::va_list args;
            va_start(args, fmt);
            lines_.add(4, fmt, args);
            va_end(args);
        }
    }

private:
    ether_ctt& record_;
    Lines lines_;
};

}  // namespace zx::fuzz

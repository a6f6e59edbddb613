/**
 * @file zxframe.h
 * Raw Ethernet II frames: decoding, field dumps, filters, builders.
 *
 * Everything works on one record, ::ether_ctt, that the caller owns. The engine
 * never clears it as a whole: each protocol layer overwrites its own fields, and
 * what a frame does not contain keeps what an earlier frame left there.
 *
 * The decoder takes a pointer without a length and validates almost nothing: it
 * checks neither checksums nor total lengths, and header lengths decide where it
 * reads on. **The frame buffer must have #ZXFRAME_READABLE readable bytes from its
 * start** (put zeros behind a shorter frame); then no content of a frame can make
 * any function read further. VLAN tags are not decoded, IPv6 not at all.
 *
 * Field dumps are notices and information, written while the record's
 * `print_flag` is set. Errors are written whatever it says.
 *
 * Threads: a record, a request and a filter belong to one thread at a time;
 * different ones are independent. Nothing is allocated and no state is kept.
 * Signal handlers: yes, with records of their own, but for the functions that
 * take addresses as texts. Log tag: NETFRAME.
 */
#ifndef ZXFRAME_H
#define ZXFRAME_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* -------------------------------------------------------------- records -- */

/**
 * Bytes that must be readable from the start of a frame: 14 of Ethernet, up to 60 of IPv4, 20 of
 * TCP, and 294 for an option in the last of 40 option bytes that claims 255 bytes.
 */
#define ZXFRAME_READABLE 388

#define ZXFRAME_ETHERNET_SIZE 14    /**< bytes of an Ethernet header */
#define ZXFRAME_MAC_SIZE      6     /**< bytes of a MAC address */
#define ZXFRAME_MAC_TEXT_SIZE 18    /**< bytes of its text */
#define ZXFRAME_NAME_SIZE     128   /**< bytes of a protocol name, and of a text in a request */
#define ZXFRAME_DATA_SIZE     13626 /**< bytes of payload that a record holds */
#define ZXFRAME_TCP_OPTIONS   128   /**< options that a record or a request holds */
#define ZXFRAME_IGMP_SOURCES  128   /**< source addresses that an IGMP request holds */

/* Flag bits of ::zxbuildtcp_ctt, which are not those of the wire. */
#define ZXFRAME_TCP_URG 0x01U /**< the urgent pointer counts */
#define ZXFRAME_TCP_ACK 0x02U /**< the acknowledgment number counts */
#define ZXFRAME_TCP_PSH 0x04U /**< push */
#define ZXFRAME_TCP_RST 0x08U /**< reset */
#define ZXFRAME_TCP_SYN 0x10U /**< opens a connection */
#define ZXFRAME_TCP_FIN 0x20U /**< ends a connection */

/** One TCP option. */
typedef struct tcp_option {
    uint32_t kind;    /**< as on the wire, in one byte */
    uint8_t len;      /**< on the wire, kind and length bytes included; 0 for EOL and NOP */
    uint8_t val[259]; /**< `len` - 2 bytes of value, as on the wire */
} tcp_option;

/** IPv4 header (RFC 791). */
typedef struct ipv4_view {
    unsigned int version : 4;    /**< as received; 4 in built packets */
    unsigned int header_len : 4; /**< 32-bit words */
    uint8_t tos;                 /**< Differentiated Services field */
    uint16_t total_len;          /**< bytes, header included */
    uint16_t id;                 /**< of the packet, the same in its fragments */
    unsigned int flags : 3;      /**< 2: don't fragment; set by builders only, not by decoding */
    unsigned int frag_off : 13;  /**< 8-byte units */
    uint8_t ttl;                 /**< hops left */
    uint8_t protocol;            /**< 6 TCP, 17 UDP, 2 IGMP */
    uint16_t check;              /**< header checksum */
    uint32_t saddr;              /**< network order; host order behind zxframe_api_buildTcpAck() */
    uint32_t daddr;              /**< and zxframe_api_buildTcpData() */
    uint8_t router_alert_type;   /**< 0x94; this one and the next two: of built IGMP frames */
    uint8_t router_alert_len;    /**< 4 */
    uint16_t router_alert;       /**< 0 */
    char ip_proto_name[ZXFRAME_NAME_SIZE]; /**< kept when the protocol has no name */
} ipv4_view;

/** ARP packet for IPv4 on Ethernet (RFC 826). */
typedef struct arp_view {
    uint16_t hardware_type;               /**< 1: Ethernet */
    uint16_t protocol_type;               /**< 0x0800: IPv4 */
    uint8_t hardware_len;                 /**< bytes of a hardware address: 6 */
    uint8_t protocol_len;                 /**< bytes of a protocol address: 4 */
    uint16_t operation;                   /**< 1 request, 2 reply */
    uint8_t sender_mac[ZXFRAME_MAC_SIZE]; /**< as on the wire */
    uint32_t sender_ip;                   /**< network order */
    uint8_t target_mac[ZXFRAME_MAC_SIZE]; /**< as on the wire */
    uint32_t target_ip;                   /**< network order */
} arp_view;

/** TCP header with options (RFC 9293). */
typedef struct tcp_view {
    uint16_t source;                 /**< port */
    uint16_t dest;                   /**< port */
    uint32_t seq;                    /**< number of the first payload byte */
    uint32_t ack_seq;                /**< number of the byte that is expected next */
    unsigned int doff : 4;           /**< header length in 32-bit words */
    unsigned int reserved : 8;       /**< neither decoded nor sent */
    unsigned int reserved_flags : 2; /**< the two highest bits of the flag byte; not decoded */
    unsigned int urg : 1;            /**< #ZXFRAME_TCP_URG */
    unsigned int ack : 1;            /**< #ZXFRAME_TCP_ACK */
    unsigned int psh : 1;            /**< #ZXFRAME_TCP_PSH */
    unsigned int rst : 1;            /**< #ZXFRAME_TCP_RST */
    unsigned int syn : 1;            /**< #ZXFRAME_TCP_SYN */
    unsigned int fin : 1;            /**< #ZXFRAME_TCP_FIN */
    uint16_t window;                 /**< bytes that the sender takes, unscaled */
    uint16_t check;                  /**< checksum; it is not verified */
    uint16_t urg_ptr;                /**< bytes from `seq` on to the end of urgent data */
    tcp_option options[ZXFRAME_TCP_OPTIONS]; /**< in the order of the wire */
    uint32_t option_count; /**< options in use; decoding appends, the caller sets it back to 0 */
} tcp_view;

/** UDP header (RFC 768). */
typedef struct udp_view {
    uint16_t source; /**< port */
    uint16_t dest;   /**< port */
    uint16_t len;    /**< bytes, header included */
    uint16_t check;  /**< checksum; it is not verified */
} udp_view;

/** IGMP message (RFC 1112, 2236, 3376) as it is built; received ones are not decoded. */
typedef struct igmp_view {
    uint8_t type;                           /**< message type */
    uint8_t code;                           /**< maximum response time */
    uint16_t check;                         /**< checksum */
    uint16_t reserved;                      /**< 0 */
    uint16_t group_records;                 /**< group records in a report of version 3: 1 */
    uint8_t record_type;                    /**< kind of the group record */
    uint8_t aux_len;                        /**< 32-bit words of auxiliary data: 0 */
    uint16_t source_count;                  /**< source addresses in use */
    uint32_t group;                         /**< host order */
    uint32_t sources[ZXFRAME_IGMP_SOURCES]; /**< host order */
} igmp_view;

/** A decoded frame, or one that is being built. Numbers are in host order unless stated. */
typedef struct ether_ctt {
    uint8_t dest_mac[ZXFRAME_MAC_SIZE];         /**< as on the wire */
    uint8_t source_mac[ZXFRAME_MAC_SIZE];       /**< as on the wire */
    uint16_t ether_type;                        /**< EtherType, or the length of IEEE 802.3 */
    char str_dest_mac[ZXFRAME_MAC_TEXT_SIZE];   /**< "00:11:22:aa:bb:cc" */
    char str_source_mac[ZXFRAME_MAC_TEXT_SIZE]; /**< likewise */
    char ether_type_name[ZXFRAME_NAME_SIZE];    /**< kept when the EtherType has no name */
    union {
        ipv4_view ipv4;
        arp_view arp; /**< overwrites `ipv4` up to the first bytes of its protocol name */
    };
    union {
        tcp_view tcp;
        udp_view udp;
        igmp_view igmp;
    };
    uint8_t data[ZXFRAME_DATA_SIZE]; /**< payload of a frame that is being built */
    uint16_t data_len; /**< its bytes; decoding stores the payload length of the segment here */
    int8_t print_flag; /**< not 0: fields are dumped */
} ether_ctt;

/** What zxframe_api_buildTcp() builds. */
typedef struct zxbuildtcp_ctt {
    const char* str_dest_mac;                /**< "00:11:22:aa:bb:cc" */
    const char* str_source_mac;              /**< likewise */
    const char* source_ip;                   /**< dotted text */
    const char* dest_ip;                     /**< dotted text */
    uint16_t source;                         /**< port */
    uint16_t dest;                           /**< port */
    uint32_t seq;                            /**< host order */
    uint32_t ack_seq;                        /**< host order */
    uint32_t flags;                          /**< #ZXFRAME_TCP_URG and so on */
    tcp_option options[ZXFRAME_TCP_OPTIONS]; /**< in the order of the wire */
    uint32_t option_count;                   /**< options in use */
    uint32_t option_len; /**< bytes that the options take on the wire: a multiple of 4, up to 40 */
} zxbuildtcp_ctt;

/** What zxframe_api_buildUdp() builds. Texts end with a NUL. */
typedef struct ether_pkt {
    char unused[ZXFRAME_NAME_SIZE];         /**< the caller's */
    char str_source_mac[ZXFRAME_NAME_SIZE]; /**< "00:11:22:aa:bb:cc" */
    char str_dest_mac[ZXFRAME_NAME_SIZE];   /**< likewise */
    char source_ip[ZXFRAME_NAME_SIZE];      /**< dotted text */
    char dest_ip[ZXFRAME_NAME_SIZE];        /**< dotted text */
    uint16_t source;                        /**< port */
    uint16_t dest;                          /**< port */
} ether_pkt;

/* `action` of ::igmp_req. */
#define ZXFRAME_IGMP_QUERY 1 /**< asks for members */
#define ZXFRAME_IGMP_JOIN  2 /**< joins the group */
#define ZXFRAME_IGMP_LEAVE 3 /**< leaves it; version 1 has no message for that */

/** What zxframe_api_buildIgmp() builds. */
typedef struct igmp_req {
    const char*
        str_dest_mac; /**< "01:00:5e:01:01:01", of the group: zxnet_api_getMulticastDestMac() */
    const char* str_source_mac; /**< "00:11:22:aa:bb:cc" */
    const char* source_ip;      /**< dotted text */
    const char* group;          /**< dotted text; also the destination of the IPv4 header */
    uint32_t version;           /**< 1, 2 or 3 */
    uint32_t action;            /**< #ZXFRAME_IGMP_QUERY and so on */
    uint32_t mode;         /**< of version 3; 1: allow or block the sources, others: change mode */
    uint16_t source_count; /**< at most #ZXFRAME_IGMP_SOURCES */
    char sources[ZXFRAME_IGMP_SOURCES][ZXFRAME_NAME_SIZE]; /**< dotted texts that end with a NUL */
} igmp_req;

/**
 * What frames zxframe_api_filterFrame() lets pass. All that is set must match; texts that are NULL
 * or empty, ports of 0 or less and other protocols are not set. Zero bytes are a filter that
 * passes everything.
 *
 * A frame's address matches a text that contains it, as zxstr_api_isCasestr() finds it:
 * "10.0.0.1,10.0.0.2" is a list, but
 * "192.168.1.10" lets 192.168.1.1 pass as well, and "192.168.1." nothing. Letters of MAC texts are
 * lower case.
 */
typedef struct frame_filter_ctt {
    const char* mac;        /**< of the source or the destination; the next two then do not count */
    const char* source_mac; /**< of the source */
    const char* dest_mac;   /**< of the destination */
    const char* protocol;   /**< exactly "tcp" or "udp" */
    const char* ip;         /**< of the source or the destination; the next two then do not count */
    const char* source_ip;  /**< of the source */
    const char* dest_ip;    /**< of the destination */
    int32_t port;           /**< of the source or the destination; the next two then do not count */
    int32_t source_port;    /**< of the source */
    int32_t dest_port;      /**< of the destination */
    uint8_t
        initialized; /**< what follows is computed with the first frame, and again after 0 here */
    uint8_t active;  /**< 1 when anything is set */
    uint8_t has_mac; /**< 1: `mac` is set */
    uint8_t has_source_mac;  /**< 1: `source_mac` is set */
    uint8_t has_dest_mac;    /**< 1: `dest_mac` is set */
    uint8_t has_protocol;    /**< 1: `protocol` is set */
    uint8_t has_ip;          /**< 1: `ip` is set */
    uint8_t has_source_ip;   /**< 1: `source_ip` is set */
    uint8_t has_dest_ip;     /**< 1: `dest_ip` is set */
    uint8_t has_port;        /**< 1: `port` is set */
    uint8_t has_source_port; /**< 1: `source_port` is set */
    uint8_t has_dest_port;   /**< 1: `dest_port` is set */
    uint8_t protocol_number; /**< 6 or 17 */
    ether_ctt frame;         /**< the frame that was filtered last, unless `active` is 0 */
} frame_filter_ctt;

/* ------------------------------------------------- decoding and filters -- */

/**
 * Decodes a frame: Ethernet, then IPv4 with TCP or UDP, or ARP. Other EtherTypes are named in the
 * dump at most.
 *
 * TCP options are appended behind the `option_count` that the record has; set it to 0 before, or
 * after 128 options none are stored any more. A UDP frame writes a hex dump of the record's own
 * `data` unless the log level is 0, also when `print_flag` is 0.
 *
 * @param pether_ctt  the record; `print_flag` decides about the dump.
 * @param frame_buf   #ZXFRAME_READABLE readable bytes.
 * @return 0, whatever the frame contained; -1 when an argument is missing.
 *
 * Logs: error for a missing argument and for a TCP header length below 20.
 */
int32_t zxframe_api_doFrame(ether_ctt* pether_ctt, const uint8_t* frame_buf);

/**
 * Decides whether a frame passes a filter, and decodes it into the filter's `frame` without a dump
 * for that. A filter in which nothing is set passes everything and decodes nothing.
 *
 * Ports are looked at only beside a protocol or an address: a filter of ports alone passes
 * everything. Protocol, address and port filters let nothing but IPv4 pass. TCP options are
 * appended to `frame` as in zxframe_api_doFrame().
 *
 * @param context    handed on, not used.
 * @param frame_buf  #ZXFRAME_READABLE readable bytes.
 * @param filter     What is set in it is remembered by the first call: clear `initialized` after a
 *                   change. Its texts must live as long as it is used; one that is NULL later
 *                   matches nothing.
 * @return 1 when the frame passes, otherwise 0, also when an argument is missing that is needed.
 *
 * Logs: as zxframe_api_doFrame(); error for a NULL `filter`.
 */
int32_t zxframe_api_filterFrame(void* context, const uint8_t* frame_buf, frame_filter_ctt* filter);

/**
 * The MAC half of zxframe_api_filterFrame(), for the frame that the filter has decoded.
 * @param context  handed on, not used.
 * @param filter   with the `frame` that it has decoded.
 * @return 1 for a match, otherwise 0, also for a NULL `filter`.
 *
 * Logs: error for a NULL `filter`.
 */
int32_t zxframe_innerapi_filterFrameByMac(void* context, const frame_filter_ctt* filter);

/**
 * The protocol, address and port half of zxframe_api_filterFrame(), for the frame that the filter
 * has decoded. A port never matches where the protocol is neither TCP nor UDP.
 * @param context  handed on, not used.
 * @param filter   with the `frame` that it has decoded.
 * @return 1 for a match, otherwise 0, also for a NULL `filter`.
 *
 * Logs: error for a NULL `filter`.
 */
int32_t zxframe_innerapi_filterFrameByIp(void* context, const frame_filter_ctt* filter);

/* ----------------------------------- questions about a decoded record -- */

/*
 * The answer is 1 or 0, and 0 for a missing argument, for which an error is logged. A text that
 * inet_addr() refuses matches nothing. After zxframe_api_buildTcpAck() and
 * zxframe_api_buildTcpData() the record's addresses are in the other byte order and match nothing
 * that they should.
 */

/**
 * IPv4 or ARP?
 * @param pether_ctt  a decoded record.
 * @return 1 or 0.
 */
int32_t zxframe_api_is_ipArp(const ether_ctt* pether_ctt);

/**
 * Is it IPv4 or ARP, and from the one address or to the other?
 * @param pether_ctt  a decoded record.
 * @param source_ip   compared with the source or the sender; NULL matches nothing and is not
 *                    logged.
 * @param dest_ip     compared with the destination or the target; NULL as above.
 * @return 1 or 0.
 */
int32_t zxframe_api_is_IparpOrIpaddr(const ether_ctt* pether_ctt, const char* source_ip,
                                     const char* dest_ip);

/**
 * IPv4 with TCP?
 * @param pether_ctt  a decoded record.
 * @return 1 or 0.
 */
int32_t zxframe_api_isTcp(const ether_ctt* pether_ctt);

/**
 * A bare TCP acknowledgment to the address: ACK alone, and no payload?
 * @param pether_ctt     a decoded record.
 * @param filter_destip  dotted text.
 * @return 1 or 0.
 */
int32_t zxframe_api_isTcp_dTos_ack(const ether_ctt* pether_ctt, const char* filter_destip);

/**
 * A TCP segment to the address with ACK and FIN and no other flag, with payload or without?
 * @param pether_ctt     a decoded record.
 * @param filter_destip  dotted text.
 * @return 1 or 0.
 */
int32_t zxframe_api_isTcp_dTos_close(const ether_ctt* pether_ctt, const char* filter_destip);

/**
 * A TCP segment with payload from the address?
 * @param pether_ctt    a decoded record.
 * @param filter_srcip  dotted text.
 * @return 1 or 0.
 */
int32_t zxframe_api_isTcp_sTod_data(const ether_ctt* pether_ctt, const char* filter_srcip);

/* ------------------------------------------------------------- building -- */

/*
 * The builders write headers and return a length; payload bytes are never copied into the frame.
 * What they build is decoded into the record again, so its texts and the dump are those of the
 * built frame, unless stated. An address text that inet_addr() refuses becomes 255.255.255.255, as
 * a NULL one does in zxframe_api_buildArp(); elsewhere a NULL text is refused.
 */

/**
 * Builds the headers of a TCP frame.
 *
 * The record's `data` and `data_len` are the payload. As a frame for the wire the result is not
 * complete: the total length leaves out the 20 bytes of the TCP header, the checksum is computed
 * over reversed addresses, and `data_len` has lost 20 (modulo 65536) afterwards. So the returned
 * length is short of the payload by 20 bytes, and 65,570 for a bare SYN.
 * zxframe_api_finishTcp() makes a valid frame of it; otherwise send 14 + 4 * header_len +
 * 4 * doff + the payload's bytes, not the returned length.
 *
 * @param pether_ctt  the record; its IPv4 `id` goes on by 4961, its fragment offset is sent.
 * @param pether_pkt  the request; every text must be there.
 * @param outbuf      54 bytes, and those that the options of the request take, or `option_len` when
 *                    that is more.
 * @return 14 + 4 * header_len + 4 * doff + `data_len` as it is afterwards; -1, with nothing
 *         written, when an argument or an address text of the request is missing.
 *
 * Logs: error for a missing argument or text.
 */
int32_t zxframe_api_buildTcp(ether_ctt* pether_ctt, const zxbuildtcp_ctt* pether_pkt,
                             uint8_t* outbuf);

/**
 * Completes a frame of zxframe_api_buildTcp(): puts the payload behind its headers and sets the
 * IPv4 total length and both checksums, so that the frame is valid on the wire (RFC 791, RFC 9293).
 *
 * @param frame        a built TCP frame with room for the payload behind its headers.
 * @param payload      `payload_len` bytes, which may already lie in the frame; NULL only when
 *                     there are none.
 * @param payload_len  bytes.
 * @return the length of the frame; -1 and the frame as it was when an argument is missing, when
 *         the frame is not IPv4 with TCP, or when an IPv4 packet cannot hold it all.
 *
 * Logs: error in these cases.
 */
int32_t zxframe_api_finishTcp(uint8_t* frame, const uint8_t* payload, uint32_t payload_len);

/**
 * Builds the headers of a UDP frame for the record's `data` and `data_len`. The frame is valid on
 * the wire once the payload stands behind it, but for the checksum of an odd payload: that is
 * padded with the byte of `data` behind the payload, so set that byte to 0.
 *
 * @param pether_ctt  the record; its IPv4 `id` goes on by 4961.
 * @param pether_pkt  the request.
 * @param outbuf      42 bytes.
 * @return 14 + 4 * header_len + 4 * (doff + 2) + `data_len`, where doff is what the record's TCP
 *         view has in its place: right (0) in a record that was cleared, too much when the record
 *         has seen a TCP or IGMP frame before. -1 when an argument is missing or a text of the
 *         request does not end, with nothing written.
 *
 * Logs: error in these cases, and a hex dump of the payload unless the log level is 0.
 */
int32_t zxframe_api_buildUdp(ether_ctt* pether_ctt, const ether_pkt* pether_pkt, uint8_t* outbuf);

/**
 * Builds a broadcast ARP request, with the broadcast address as the target MAC, too.
 * @param pether_ctt      the record, which takes what was built.
 * @param str_source_mac  text of the sender's MAC address.
 * @param source_ip       dotted text of the sender.
 * @param target_ip       dotted text of the address that is asked for.
 * @param outbuf          42 bytes.
 * @return 42; 0, not -1, when the record, the MAC text or the buffer is missing.
 *
 * Logs: error for a missing argument.
 */
int32_t zxframe_api_buildArp(ether_ctt* pether_ctt, const char* str_source_mac,
                             const char* source_ip, const char* target_ip, uint8_t* outbuf);

/**
 * Turns a decoded TCP segment into the acknowledgment that answers it: a complete frame, valid on
 * the wire unless `frag_off` is set.
 *
 * The record is changed in place: the ends are exchanged, the payload is acknowledged, IPv4 `id`
 * goes on by 300, and `data_len` is 0 afterwards. It is not decoded again: its MAC texts and
 * checksums stay those of the segment, and its addresses are in host order afterwards. Decode the
 * next segment into it before the next call.
 *
 * @param pether_ctt  a decoded IPv4 TCP segment.
 * @param outbuf      54 bytes.
 * @return 54; -1 with everything untouched when an argument is missing.
 *
 * Logs: error for a missing argument.
 */
int32_t zxframe_api_buildTcpAck(ether_ctt* pether_ctt, uint8_t* outbuf);

/**
 * Builds the headers of a TCP segment from the record as it stands: MAC addresses, addresses in
 * network order, ports, numbers and flags are the caller's, and `data` with `data_len` is the
 * payload. The frame is valid on the wire once the payload stands behind it.
 *
 * The record's addresses are in host order afterwards: set them again before each call.
 *
 * @param pether_ctt  the record; its `id` goes on by 300.
 * @param outbuf      54 bytes.
 * @return 54 + `data_len`; -1 with everything untouched when an argument is missing.
 *
 * Logs: error for a missing argument.
 */
int32_t zxframe_api_buildTcpData(ether_ctt* pether_ctt, uint8_t* outbuf);

/**
 * Builds a complete IGMP frame, in IPv4 with the Router Alert option and TTL 1.
 *
 * The IPv4 total length does not count the sources of a version-3 report (4 bytes each), counts 8
 * bytes too many for a version-3 query, which has the 8-byte form of version 2, and counts the
 * record's `data_len`, which should be 0. So receivers refuse reports with sources, and take a
 * version-3 query only where the link pads short frames to 60 bytes, as Ethernet hardware does.
 *
 * @param pether_ctt  the record; its IPv4 `id` goes on by 4961, its fragment offset is sent.
 * @param req         the request.
 * @param outbuf      54 bytes, and 4 for each source address.
 * @return the length of the frame; 38, without a message, for an unknown action and for a join or
 *         leave of an unknown version; -1 when an argument or a text is missing, a source does not
 *         end, or there are more than a request holds, with nothing written.
 *
 * Logs: error in these cases.
 */
int32_t zxframe_api_buildIgmp(ether_ctt* pether_ctt, const igmp_req* req, uint8_t* outbuf);

/**
 * The TCP checksum over pseudo-header, header and the record's payload.
 *
 * The addresses are summed as if the record held them in host order, as it does in
 * zxframe_api_buildTcpAck() and zxframe_api_buildTcpData(); for a decoded record the result is not
 * the one of RFC 9293.
 *
 * @param pether_ctt  gives addresses, `doff`, `data` and `data_len` (of which 13,626 bytes count).
 * @param tcph        4 * doff bytes.
 * @return the checksum; 65535, silently, when an argument is missing.
 */
uint16_t zxframe_api_tcpChecksum(const ether_ctt* pether_ctt, const uint8_t* tcph);

/**
 * The UDP checksum (RFC 768) over pseudo-header, the record's UDP view and its payload.
 *
 * @param pether_ctt  gives addresses (network order), header fields, `data` and `data_len` (of
 *                    which 13,626 bytes count). The byte behind an odd payload is summed, too.
 * @param udph        only checked to be there.
 * @return the checksum; 65535, silently, when an argument is missing.
 */
uint16_t zxframe_api_udpChecksum(const ether_ctt* pether_ctt, const uint8_t* udph);

/* -------------------------------------------- layers, from the outside in -- */

/*
 * The parts of the functions above, for those who have a header without its frame. A missing
 * argument is logged as an error, and nothing is written or decoded.
 */

/**
 * Decodes and dumps an Ethernet header.
 * @param pether_ctt  the record, which is filled.
 * @param peth        14 readable bytes.
 */
void zxframe_innerapi_parseEthrt(ether_ctt* pether_ctt, const uint8_t* peth);

/**
 * Names an EtherType and dumps it. Values up to 1500 are lengths of IEEE 802.3 and have no name.
 * "EAPOL" is the name of 0x8E88; 0x888E is unknown.
 * @param print_flag       0: no dump.
 * @param ether_type       host order.
 * @param ether_type_name  #ZXFRAME_NAME_SIZE bytes; left alone when there is no name.
 */
void zxframe_innerapi_printEthrtType(int8_t print_flag, uint16_t ether_type, char* ether_type_name);

/**
 * Writes an Ethernet header and decodes it again.
 * @param pether_ctt      the record, which is filled.
 * @param str_dest_mac    not checked here: when it is missing, the record's address is written.
 * @param str_source_mac  "00:11:22:aa:bb:cc".
 * @param ether_type      host order.
 * @param outbuf          14 bytes.
 */
void zxframe_innerapi_buildEthrt(ether_ctt* pether_ctt, const char* str_dest_mac,
                                 const char* str_source_mac, uint16_t ether_type, uint8_t* outbuf);

/**
 * Decodes and dumps an IPv4 header. The record's `flags` stay as they are.
 * @param pether_ctt  the record, which is filled.
 * @param iph         20 readable bytes.
 */
void zxframe_innerapi_parseIpv4(ether_ctt* pether_ctt, const uint8_t* iph);

/**
 * Decodes an IPv4 packet with the TCP or UDP header behind it; other protocols are dumped only.
 * @param pether_ctt  the record, which is filled.
 * @param data        374 readable bytes.
 */
void zxframe_innerapi_doIpv4(ether_ctt* pether_ctt, const uint8_t* data);

/**
 * Checks its arguments and decodes nothing: a place for IPv6.
 * @param pether_ctt  not touched.
 * @param data        not read.
 */
void zxframe_innerapi_doIpv6(ether_ctt* pether_ctt, const uint8_t* data);

/**
 * Writes an IPv4 header with its checksum and decodes it again. Its `id` is the record's, gone on
 * by 4961. TCP and IGMP keep the record's fragment offset, UDP clears it. A protocol other than
 * these three gets a header length of 0 and a checksum of 65535: it is not supported.
 *
 * @param pether_ctt     the record, which is filled.
 * @param protocol       6 TCP, 17 UDP, 2 IGMP (with the Router Alert option, TTL 1).
 * @param source_ip      dotted text.
 * @param dest_ip        dotted text.
 * @param transport_len  bytes that the total length counts beside the header and `data_len`; always
 *                       8 for UDP.
 * @param outbuf         20 bytes, 24 for IGMP.
 */
void zxframe_innerapi_buildIpv4(ether_ctt* pether_ctt, uint8_t protocol, const char* source_ip,
                                const char* dest_ip, uint32_t transport_len, uint8_t* outbuf);

/**
 * Decodes and dumps a TCP header. `data_len` becomes the payload length by the record's IPv4 view,
 * modulo 65536. A missing header is logged as "iph".
 * @param pether_ctt  the record, which is filled.
 * @param tcph        314 readable bytes; 20 when `opt_source` is NULL.
 * @param opt_source  not NULL: the options behind the header are decoded, too.
 */
void zxframe_innerapi_parseTcp(ether_ctt* pether_ctt, const uint8_t* tcph,
                               const uint8_t* opt_source);

/**
 * Decodes and dumps the options behind a TCP header, appending them to the record. An unknown kind
 * and a length below 2 end them; EOL does not.
 * @param pether_ctt  the record, which is filled.
 * @param tcph        314 readable bytes.
 * @param opt_source  only checked to be there.
 */
void zxframe_innerapi_parseTcpOpt(ether_ctt* pether_ctt, const uint8_t* tcph,
                                  const uint8_t* opt_source);

/**
 * Decodes a TCP header with its options.
 * @param pether_ctt  the record, which is filled.
 * @param data        314 readable bytes.
 */
void zxframe_innerapi_doTcp(ether_ctt* pether_ctt, const uint8_t* data);

/**
 * Writes the options of a request: no padding is added, and entries of an unknown kind or of a
 * length below 2 are left out.
 * @param pzxbuildtcp_ctt  the request.
 * @param outbuf           room for them: 128 options of up to 255 bytes.
 * @return the bytes written; 0 when an argument is missing.
 */
uint32_t zxframe_innerapi_buildTcpOpt(const zxbuildtcp_ctt* pzxbuildtcp_ctt, uint8_t* outbuf);

/**
 * Writes a TCP header with options and checksum and decodes it again, without the options. The
 * window is 64240. zxframe_api_buildTcp() tells what is wrong with checksum and `data_len`.
 * @param pether_ctt       the record, with the addresses of the packet and the payload.
 * @param pzxbuildtcp_ctt  the request.
 * @param tcph             20 bytes, and those that the options of the request take, or
 *                         `option_len` when that is more: the checksum counts as many.
 */
void zxframe_innerapi_buildTcpPayload(ether_ctt* pether_ctt, const zxbuildtcp_ctt* pzxbuildtcp_ctt,
                                      uint8_t* tcph);

/**
 * Decodes and dumps a UDP header, with the record's `data` (not the received payload) as a hex
 * dump. `data_len` becomes `len` - 8, modulo 65536. A missing header is logged as "iph".
 * @param pether_ctt  the record, which is filled.
 * @param udph        8 readable bytes.
 * @param opt_source  not used.
 */
void zxframe_innerapi_parseUdp(ether_ctt* pether_ctt, const uint8_t* udph,
                               const uint8_t* opt_source);

/**
 * Decodes a UDP header.
 * @param pether_ctt  the record, which is filled.
 * @param data        8 readable bytes.
 */
void zxframe_innerapi_doUdp(ether_ctt* pether_ctt, const uint8_t* data);

/**
 * Writes a UDP header for the record's payload and decodes it again.
 * @param pether_ctt  the record, with the addresses of the packet and the payload.
 * @param pether_pkt  gives the ports.
 * @param udph        8 bytes.
 */
void zxframe_innerapi_buildUdpPayload(ether_ctt* pether_ctt, const ether_pkt* pether_pkt,
                                      uint8_t* udph);

/**
 * Decodes and dumps an ARP packet, always in the form for IPv4 on Ethernet.
 * @param pether_ctt  the record, which is filled.
 * @param parp        28 readable bytes.
 */
void zxframe_innerapi_parseArp(ether_ctt* pether_ctt, const uint8_t* parp);

/**
 * Decodes an ARP packet.
 * @param pether_ctt  the record, which is filled.
 * @param data        28 readable bytes.
 */
void zxframe_innerapi_doArp(ether_ctt* pether_ctt, const uint8_t* data);

/**
 * Chooses the type of an IGMP message.
 * @param req  the request.
 * @return 0x11 for a query of any version; join 0x12, 0x16, 0x22 and leave 0, 0x17, 0x22 in
 *         versions 1, 2, 3; 0 for everything else and for NULL.
 */
uint32_t zxframe_innerapi_getIgmpType(const igmp_req* req);

/**
 * Chooses the type of the group record in a report of version 3.
 * @param req  the request.
 * @return join 5 (mode 1) or 4, leave 6 (mode 1) or 3; 0 for everything else and for NULL.
 */
uint32_t zxframe_innerapi_getIgmpRecordType(const igmp_req* req);

/**
 * Fills the record's IGMP view from a request and writes the message.
 * @param pether_ctt  the record, which is filled.
 * @param req         the request.
 * @param outbuf      16 bytes, and 4 for each source address.
 * @return its bytes: 8, or 16 + 4 for each source in a report of version 3; 0 when nothing is
 *         built: an unknown action, a join or leave of an unknown version, a missing argument, a
 *         source that does not end, more sources than a request holds.
 */
uint32_t zxframe_innerapi_buildIgmp(ether_ctt* pether_ctt, const igmp_req* req, uint8_t* outbuf);

/**
 * Writes the 8-byte form of an IGMP message, with the checksum in the view and the message.
 * @param pether_ctt  its `print_flag` decides about the dump.
 * @param view        what is written; `check` is set.
 * @param outbuf      8 bytes.
 * @return 8; 0 when an argument is missing.
 */
uint32_t zxframe_innerapi_getIgmpData1(ether_ctt* pether_ctt, igmp_view* view, uint8_t* outbuf);

/**
 * Writes a report of version 3, with the checksum in the view and the message.
 * @param pether_ctt  its `print_flag` decides about the dump.
 * @param view        what is written; `check` is set.
 * @param outbuf      16 bytes, and 4 for each source address.
 * @return 16 + 4 for each source (#ZXFRAME_IGMP_SOURCES at most); 0 when an argument is missing.
 */
uint32_t zxframe_innerapi_getIgmpData2(ether_ctt* pether_ctt, igmp_view* view, uint8_t* outbuf);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

/**
 * @file zxframe.h
 * Raw Ethernet II frames: decoding, field dumps, filters, builders.
 *
 * All functions work on one record, ::ether_ctt, which the caller owns. They never clear the whole
 * record: each protocol layer overwrites its own fields, and fields that a frame does not contain
 * keep the values of an earlier frame.
 *
 * The decoder gets a pointer without a length and checks almost nothing. It verifies neither
 * checksums nor total lengths, and uses header lengths as the frame gives them. **The frame buffer
 * must have #ZXFRAME_READABLE readable bytes from its start** (put zeros after a shorter frame).
 * Then no content of a frame can make a function read beyond them. The decoder supports neither
 * VLAN tags nor IPv6.
 *
 * Field dumps are logged as notices and information while the record's `print_flag` is set. Errors
 * are always logged. Nothing is allocated, and no state is kept. Log tag: NETFRAME.
 *
 * Threads: safe; for different records, requests, filters and buffers.
 * Signal handlers: safe.
 * Cancellation: none.
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
 * TCP, and 294 of TCP options: an option that begins in byte 40 of the options may claim 255 bytes.
 */
#define ZXFRAME_READABLE 388

#define ZXFRAME_ETHERNET_SIZE 14    /**< bytes of an Ethernet header */
#define ZXFRAME_MAC_SIZE      6     /**< bytes of a MAC address */
#define ZXFRAME_MAC_TEXT_SIZE 18    /**< bytes of the text of a MAC address */
#define ZXFRAME_NAME_SIZE     128   /**< bytes of a protocol name, and of a text in a request */
#define ZXFRAME_DATA_SIZE     13626 /**< bytes of payload in a record */
#define ZXFRAME_TCP_OPTIONS   128   /**< options in a record or a request */
#define ZXFRAME_IGMP_SOURCES  128   /**< source addresses in an IGMP request */

/* Flag bits of ::zxbuildtcp_ctt, which are not those of the wire. */
#define ZXFRAME_TCP_URG 0x01U /**< the urgent pointer is valid */
#define ZXFRAME_TCP_ACK 0x02U /**< the acknowledgment number is valid */
#define ZXFRAME_TCP_PSH 0x04U /**< push */
#define ZXFRAME_TCP_RST 0x08U /**< reset */
#define ZXFRAME_TCP_SYN 0x10U /**< opens a connection */
#define ZXFRAME_TCP_FIN 0x20U /**< ends a connection */

/** One TCP option. */
typedef struct tcp_option {
    uint32_t kind;    /**< as on the wire, one byte */
    uint8_t len;      /**< as on the wire, includes kind and length bytes; 0 for EOL and NOP */
    uint8_t val[259]; /**< `len` - 2 bytes of value, as on the wire */
} tcp_option;

/**
 * IPv4 header (RFC 791). After zxframe_api_buildTcpAck() and zxframe_api_buildTcpData(), its
 * addresses are in host order.
 */
typedef struct ipv4_view {
    unsigned int version : 4;    /**< as received; 4 in built packets */
    unsigned int header_len : 4; /**< 32-bit words */
    uint8_t tos;                 /**< Differentiated Services field */
    uint16_t total_len;          /**< bytes, including the header */
    uint16_t id;                 /**< identifies the packet; the same in its fragments */
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    unsigned int flags : 3;     /**< 2: don't fragment; set by builders only, not by decoding */
    unsigned int frag_off : 13; /**< 8-byte units */
#else
    /* `flags` has the lowest bits of the word on every machine. The `operation` of an ARP frame,
     * which is kept in the same place, is thus not taken for an offset. */
    unsigned int frag_off : 13;
    unsigned int flags : 3;
#endif
    uint8_t ttl;               /**< hops left */
    uint8_t protocol;          /**< 6 TCP, 17 UDP, 2 IGMP */
    uint16_t check;            /**< header checksum */
    uint32_t saddr;            /**< source, network order */
    uint32_t daddr;            /**< destination, network order */
    uint8_t router_alert_type; /**< 0x94; this and the next two: only in built IGMP frames */
    uint8_t router_alert_len;  /**< 4 */
    uint16_t router_alert;     /**< 0 */
    char ip_proto_name[ZXFRAME_NAME_SIZE]; /**< unchanged when the protocol has no name */
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
    uint32_t ack_seq;                /**< number of the next expected byte */
    unsigned int doff : 4;           /**< header length in 32-bit words */
    unsigned int reserved : 8;       /**< neither decoded nor sent */
    unsigned int reserved_flags : 2; /**< the two highest bits of the flag byte; not decoded */
    unsigned int urg : 1;            /**< #ZXFRAME_TCP_URG */
    unsigned int ack : 1;            /**< #ZXFRAME_TCP_ACK */
    unsigned int psh : 1;            /**< #ZXFRAME_TCP_PSH */
    unsigned int rst : 1;            /**< #ZXFRAME_TCP_RST */
    unsigned int syn : 1;            /**< #ZXFRAME_TCP_SYN */
    unsigned int fin : 1;            /**< #ZXFRAME_TCP_FIN */
    uint16_t window;                 /**< bytes that the sender accepts, unscaled */
    uint16_t check;                  /**< checksum, not verified */
    uint16_t urg_ptr;                /**< bytes from `seq` to the end of urgent data */
    tcp_option options[ZXFRAME_TCP_OPTIONS]; /**< in the order of the wire */
    uint32_t option_count; /**< options in use; decoding appends, the caller resets it to 0 */
} tcp_view;

/** UDP header (RFC 768). */
typedef struct udp_view {
    uint16_t source; /**< port */
    uint16_t dest;   /**< port */
    uint16_t len;    /**< bytes, including the header */
    uint16_t check;  /**< checksum, not verified */
} udp_view;

/** An IGMP message (RFC 1112, 2236, 3376) that is built; received ones are not decoded. */
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

/** A frame that was decoded or is being built. Numbers are in host order, unless stated. */
typedef struct ether_ctt {
    uint8_t dest_mac[ZXFRAME_MAC_SIZE];         /**< as on the wire */
    uint8_t source_mac[ZXFRAME_MAC_SIZE];       /**< as on the wire */
    uint16_t ether_type;                        /**< EtherType, or an IEEE 802.3 length */
    char str_dest_mac[ZXFRAME_MAC_TEXT_SIZE];   /**< "00:11:22:aa:bb:cc" */
    char str_source_mac[ZXFRAME_MAC_TEXT_SIZE]; /**< as above */
    char ether_type_name[ZXFRAME_NAME_SIZE];    /**< unchanged when the EtherType has no name */
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
    uint16_t data_len; /**< bytes in `data`; decoding stores the received payload length */
    int8_t print_flag; /**< not 0: fields are dumped */
} ether_ctt;

/** The request for zxframe_api_buildTcp(). */
typedef struct zxbuildtcp_ctt {
    const char* str_dest_mac;                /**< "00:11:22:aa:bb:cc" */
    const char* str_source_mac;              /**< as above */
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

/** The request for zxframe_api_buildUdp(). Texts end with a NUL. */
typedef struct ether_pkt {
    char unused[ZXFRAME_NAME_SIZE];         /**< belongs to the caller */
    char str_source_mac[ZXFRAME_NAME_SIZE]; /**< "00:11:22:aa:bb:cc" */
    char str_dest_mac[ZXFRAME_NAME_SIZE];   /**< as above */
    char source_ip[ZXFRAME_NAME_SIZE];      /**< dotted text */
    char dest_ip[ZXFRAME_NAME_SIZE];        /**< dotted text */
    uint16_t source;                        /**< port */
    uint16_t dest;                          /**< port */
} ether_pkt;

/* `action` of ::igmp_req. */
#define ZXFRAME_IGMP_QUERY 1 /**< asks for members */
#define ZXFRAME_IGMP_JOIN  2 /**< joins the group */
#define ZXFRAME_IGMP_LEAVE 3 /**< leaves the group; version 1 has no message for that */

/** The request for zxframe_api_buildIgmp(). */
typedef struct igmp_req {
    const char* str_dest_mac;   /**< "01:00:5e:01:01:01"; see zxnet_api_getMulticastDestMac() */
    const char* str_source_mac; /**< "00:11:22:aa:bb:cc" */
    const char* source_ip;      /**< dotted text */
    const char* group;          /**< dotted text; also the destination of the IPv4 header */
    uint32_t version;           /**< 1, 2 or 3 */
    uint32_t action;            /**< #ZXFRAME_IGMP_QUERY and so on */
    uint32_t mode;         /**< version 3; 1: allow or block sources; others: set the filter mode */
    uint16_t source_count; /**< at most #ZXFRAME_IGMP_SOURCES */
    char sources[ZXFRAME_IGMP_SOURCES][ZXFRAME_NAME_SIZE]; /**< dotted texts that end with a NUL */
} igmp_req;

/**
 * Selects the frames that zxframe_api_filterFrame() lets pass. A frame must match every condition
 * that is set. These set no condition: a NULL or empty text, a port of 0 or less, and a protocol
 * other than "tcp" and "udp". A filter that is all zeros lets everything pass.
 *
 * A frame's address matches a text that contains it, as zxstr_api_isCasestr() finds it. So
 * "10.0.0.1,10.0.0.2" is a list, but "192.168.1.10" also lets 192.168.1.1 pass, and "192.168.1."
 * lets nothing pass. MAC texts must have lower-case letters.
 */
typedef struct frame_filter_ctt {
    const char* mac;         /**< of source or destination; the next two are then ignored */
    const char* source_mac;  /**< of the source */
    const char* dest_mac;    /**< of the destination */
    const char* protocol;    /**< exactly "tcp" or "udp" */
    const char* ip;          /**< of source or destination; the next two are then ignored */
    const char* source_ip;   /**< of the source */
    const char* dest_ip;     /**< of the destination */
    int32_t port;            /**< of source or destination; the next two are then ignored */
    int32_t source_port;     /**< of the source */
    int32_t dest_port;       /**< of the destination */
    uint8_t initialized;     /**< 0: the fields below are computed with the next frame */
    uint8_t active;          /**< 1 when anything is set */
    uint8_t has_mac;         /**< 1: `mac` is set */
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
    ether_ctt frame;         /**< the last frame, unless `active` is 0 */
} frame_filter_ctt;

/* ------------------------------------------------- decoding and filters -- */

/**
 * Decodes a frame: Ethernet, then IPv4 with TCP or UDP, or ARP. Other EtherTypes are only named in
 * the dump.
 *
 * TCP options are appended after the record's `option_count`. Set it to 0 before the call; after
 * 128 options no more are stored. For a UDP frame, a hex dump of the record's own `data` is logged
 * unless the log level is 0, even if `print_flag` is 0.
 *
 * @param pether_ctt  the record; its `print_flag` switches the dump.
 * @param frame_buf   #ZXFRAME_READABLE readable bytes.
 * @return 0 for any frame; -1 when an argument is NULL.
 *
 * Logs: error for a NULL argument and for a TCP header length below 20; the dump.
 */
int32_t zxframe_api_doFrame(ether_ctt* pether_ctt, const uint8_t* frame_buf);

/**
 * Decides whether a frame passes a filter. To do so, decodes the frame into the filter's `frame`,
 * without a dump. A filter in which nothing is set lets everything pass and decodes nothing.
 *
 * Ports are checked only together with a protocol or an address: a filter with only ports lets
 * everything pass. A filter with a protocol or an address lets only IPv4 pass. TCP options are
 * appended to `frame` as in zxframe_api_doFrame().
 *
 * @param context    not used.
 * @param frame_buf  #ZXFRAME_READABLE readable bytes.
 * @param filter     the first call remembers what is set: clear `initialized` after a change. Its
 *                   texts must stay valid as long as it is used; a text that becomes NULL
 *                   later matches nothing.
 * @return 1 when the frame passes; otherwise 0, also when a required argument is NULL.
 *
 * Logs: as zxframe_api_doFrame(); error for a NULL `filter`.
 */
int32_t zxframe_api_filterFrame(void* context, const uint8_t* frame_buf, frame_filter_ctt* filter);

/**
 * The MAC part of zxframe_api_filterFrame(), for the frame that the filter has decoded.
 * @param context  not used.
 * @param filter   the filter, with its decoded `frame`.
 * @return 1 for a match; otherwise 0, also for a NULL `filter`.
 * Logs: error for a NULL `filter`.
 */
int32_t zxframe_innerapi_filterFrameByMac(void* context, const frame_filter_ctt* filter);

/**
 * The protocol, address and port part of zxframe_api_filterFrame(), for the frame that the filter
 * has decoded. A port never matches if the protocol is neither TCP nor UDP.
 *
 * @param context  not used.
 * @param filter   the filter, with its decoded `frame`.
 * @return 1 for a match; otherwise 0, also for a NULL `filter`.
 *
 * Logs: error for a NULL `filter`.
 */
int32_t zxframe_innerapi_filterFrameByIp(void* context, const frame_filter_ctt* filter);

/* ----------------------------------- questions about a decoded record -- */

/*
 * The answer is 1 or 0, and 0 for a NULL argument, which is logged as an error. A text that
 * inet_addr() refuses matches nothing. After zxframe_api_buildTcpAck() and
 * zxframe_api_buildTcpData() the record's addresses are in host order, and on little-endian
 * machines they do not match correctly.
 */

/**
 * Tells whether a frame is IPv4 or ARP.
 * @param pether_ctt  a decoded record.
 * @return 1 or 0.
 * Logs: error for a NULL argument.
 */
int32_t zxframe_api_is_ipArp(const ether_ctt* pether_ctt);

/**
 * Tells whether a frame is IPv4 or ARP, and has a given source or a given destination.
 * @param pether_ctt  a decoded record.
 * @param source_ip   compared with the source or the sender; NULL matches nothing and is not
 *                    logged.
 * @param dest_ip     compared with the destination or the target; NULL matches nothing and is not
 *                    logged.
 * @return 1 or 0.
 * Signal handlers: unsafe.
 * Logs: error for a NULL `pether_ctt`.
 */
int32_t zxframe_api_is_IparpOrIpaddr(const ether_ctt* pether_ctt, const char* source_ip,
                                     const char* dest_ip);

/**
 * Tells whether a frame is IPv4 with TCP.
 * @param pether_ctt  a decoded record.
 * @return 1 or 0.
 * Logs: error for a NULL argument.
 */
int32_t zxframe_api_isTcp(const ether_ctt* pether_ctt);

/**
 * Tells whether a frame is a bare TCP acknowledgment to an address: only ACK is set, and there is
 * no payload.
 *
 * @param pether_ctt     a decoded record.
 * @param filter_destip  dotted text.
 * @return 1 or 0.
 *
 * Signal handlers: unsafe.
 * Logs: error for a NULL argument.
 */
int32_t zxframe_api_isTcp_dTos_ack(const ether_ctt* pether_ctt, const char* filter_destip);

/**
 * Tells whether a frame is a TCP segment to an address with ACK and FIN and no other flag, with or
 * without payload.
 *
 * @param pether_ctt     a decoded record.
 * @param filter_destip  dotted text.
 * @return 1 or 0.
 *
 * Signal handlers: unsafe.
 * Logs: error for a NULL argument.
 */
int32_t zxframe_api_isTcp_dTos_close(const ether_ctt* pether_ctt, const char* filter_destip);

/**
 * Tells whether a frame is a TCP segment with payload from an address.
 * @param pether_ctt    a decoded record.
 * @param filter_srcip  dotted text.
 * @return 1 or 0.
 * Signal handlers: unsafe.
 * Logs: error for a NULL argument.
 */
int32_t zxframe_api_isTcp_sTod_data(const ether_ctt* pether_ctt, const char* filter_srcip);

/* ------------------------------------------------------------- building -- */

/*
 * The builders write headers and return a length; they never copy payload into the frame. They
 * decode what they built into the record again, unless stated, so the record's texts and the dump
 * are those of the built frame. An address text that inet_addr() refuses becomes 255.255.255.255.
 * So does a NULL address text in zxframe_api_buildArp(); elsewhere a NULL text is refused.
 */

/**
 * Builds the headers of a TCP frame.
 *
 * The record's `data` and `data_len` are the payload. The result is not a complete frame for the
 * wire: the total length omits the 20 bytes of the TCP header, on little-endian machines the
 * checksum is computed over reversed addresses, and `data_len` is reduced by 20 (modulo 65536). So
 * the returned length is 20 bytes too small, and 65,570 for a bare SYN. zxframe_api_finishTcp()
 * makes a valid frame of it. Otherwise send 14 + 4 * header_len + 4 * doff bytes and the payload,
 * not the returned length.
 *
 * @param pether_ctt  the record; its IPv4 `id` increases by 4961; its fragment offset is sent.
 * @param pether_pkt  the request; no text may be NULL.
 * @param outbuf      54 bytes, and the bytes of the request's options, or `option_len` if that is
 *                    more.
 * @return 14 + 4 * header_len + 4 * doff + the new `data_len`; -1 with nothing written when an
 *         argument or an address text of the request is NULL.
 *
 * Signal handlers: unsafe.
 * Logs: error for a NULL argument or text.
 */
int32_t zxframe_api_buildTcp(ether_ctt* pether_ctt, const zxbuildtcp_ctt* pether_pkt,
                             uint8_t* outbuf);

/**
 * Completes a frame of zxframe_api_buildTcp(): puts the payload after its headers, and sets the
 * IPv4 total length and both checksums. Then the frame is valid on the wire (RFC 791, RFC 9293).
 *
 * @param frame        a built TCP frame with room for the payload after its headers.
 * @param payload      `payload_len` bytes, which may already be in the frame; NULL only when there
 *                     are none.
 * @param payload_len  bytes.
 * @return the length of the frame; -1 with the frame unchanged when an argument is NULL, the frame
 *         is not IPv4 with TCP, or an IPv4 packet cannot hold it all.
 *
 * Logs: error when it returns -1.
 */
int32_t zxframe_api_finishTcp(uint8_t* frame, const uint8_t* payload, uint32_t payload_len);

/**
 * Builds the headers of a UDP frame for the record's `data` and `data_len`. With the payload after
 * these headers, the frame is valid on the wire. If the payload has an odd length, first set the
 * byte after it in `data` to 0, because the checksum includes that byte.
 *
 * @param pether_ctt  the record; its IPv4 `id` increases by 4961.
 * @param pether_pkt  the request.
 * @param outbuf      42 bytes.
 * @return 14 + 4 * header_len + 4 * (doff + 2) + `data_len`, with doff as the record's TCP view
 *         holds it. In a cleared record it is 0, and the length is correct. After a TCP or IGMP
 *         frame the length is too large. -1 with nothing written when an argument
 *         is NULL or a text of the request has no NUL.
 *
 * Signal handlers: unsafe.
 * Logs: error when it returns -1; a hex dump of the payload unless the log level is 0.
 */
int32_t zxframe_api_buildUdp(ether_ctt* pether_ctt, const ether_pkt* pether_pkt, uint8_t* outbuf);

/**
 * Builds a broadcast ARP request. The target MAC is the broadcast address, too.
 * @param pether_ctt      the record, which receives the built frame.
 * @param str_source_mac  text of the sender's MAC address.
 * @param source_ip       dotted text of the sender.
 * @param target_ip       dotted text of the address to ask for.
 * @param outbuf          42 bytes.
 * @return 42; 0, not -1, when the record, the MAC text or the buffer is NULL.
 * Signal handlers: unsafe.
 * Logs: error for a NULL argument.
 */
int32_t zxframe_api_buildArp(ether_ctt* pether_ctt, const char* str_source_mac,
                             const char* source_ip, const char* target_ip, uint8_t* outbuf);

/**
 * Turns a decoded TCP segment into the acknowledgment that answers it: a complete frame, valid on
 * the wire unless `frag_off` is set.
 *
 * The record is changed in place: source and destination are exchanged, the payload is
 * acknowledged, the IPv4 `id` increases by 300, and `data_len` becomes 0. The result is not decoded
 * again: the record's MAC texts and checksums are still those of the segment, and its addresses are
 * in host order. Decode the next segment into it before the next call.
 *
 * @param pether_ctt  a decoded IPv4 TCP segment.
 * @param outbuf      54 bytes.
 * @return 54; -1 with nothing changed when an argument is NULL.
 *
 * Logs: error for a NULL argument.
 */
int32_t zxframe_api_buildTcpAck(ether_ctt* pether_ctt, uint8_t* outbuf);

/**
 * Builds the headers of a TCP segment from the record as it is. The caller sets MAC addresses,
 * addresses in network order, ports, numbers and flags; `data` with `data_len` is the payload. With
 * the payload after these headers, the frame is valid on the wire.
 *
 * Afterwards the record's addresses are in host order: set them again before each call.
 *
 * @param pether_ctt  the record; its `id` increases by 300.
 * @param outbuf      54 bytes.
 * @return 54 + `data_len`; -1 with nothing changed when an argument is NULL.
 *
 * Logs: error for a NULL argument.
 */
int32_t zxframe_api_buildTcpData(ether_ctt* pether_ctt, uint8_t* outbuf);

/**
 * Builds a complete IGMP frame, in IPv4 with the Router Alert option and TTL 1.
 *
 * The IPv4 total length has three errors. It does not count the sources of a version-3 report (4
 * bytes each). For a version-3 query, which has the 8-byte form of version 2, it is 8 bytes too
 * large. It counts the record's `data_len`, which should be 0. So receivers refuse reports with
 * sources, and accept a version-3 query only if the link pads short frames to 60 bytes, as Ethernet
 * hardware does.
 *
 * @param pether_ctt  the record; its IPv4 `id` increases by 4961; its fragment offset is sent.
 * @param req         the request.
 * @param outbuf      54 bytes, and 4 for each source address.
 * @return the length of the frame; 38, without a message, for an unknown action, and for a join or
 *         leave of an unknown version; -1 with nothing written when an argument or a text is NULL,
 *         a source has no NUL, or there are more sources than a request can hold.
 *
 * Signal handlers: unsafe.
 * Logs: error when it returns -1.
 */
int32_t zxframe_api_buildIgmp(ether_ctt* pether_ctt, const igmp_req* req, uint8_t* outbuf);

/**
 * Computes the TCP checksum over pseudo-header, header and the record's payload.
 *
 * The addresses are summed as if the record held them in host order, as it does in
 * zxframe_api_buildTcpAck() and zxframe_api_buildTcpData(). For a decoded record, whose addresses
 * are in network order, the result is that of RFC 9293 on big-endian machines only.
 *
 * @param pether_ctt  supplies addresses, `doff`, `data` and `data_len` (at most 13,626 bytes are
 *                    used).
 * @param tcph        4 * doff bytes.
 * @return the checksum; 65535, without a log line, when an argument is NULL.
 */
uint16_t zxframe_api_tcpChecksum(const ether_ctt* pether_ctt, const uint8_t* tcph);

/**
 * Computes the UDP checksum (RFC 768) over pseudo-header, the record's UDP view and its payload.
 * @param pether_ctt  supplies addresses (network order), header fields, `data` and `data_len` (at
 *                    most 13,626 bytes are used). The byte after an odd payload is included.
 * @param udph        only checked not to be NULL.
 * @return the checksum; 65535, without a log line, when an argument is NULL.
 */
uint16_t zxframe_api_udpChecksum(const ether_ctt* pether_ctt, const uint8_t* udph);

/* -------------------------------------------- layers, from the outside in -- */

/*
 * The parts of the functions above, for a header without its frame. A NULL argument is logged as an
 * error, and nothing is written or decoded.
 */

/**
 * Decodes and dumps an Ethernet header.
 * @param pether_ctt  the record to fill.
 * @param peth        14 readable bytes.
 * Logs: error for a NULL argument; the dump.
 */
void zxframe_innerapi_parseEthrt(ether_ctt* pether_ctt, const uint8_t* peth);

/**
 * Names an EtherType and dumps it. Values up to 1500 are lengths of IEEE 802.3 and have no name.
 * "EAPOL" is the name of 0x8E88; 0x888E is unknown.
 *
 * @param print_flag       0: no dump.
 * @param ether_type       host order.
 * @param ether_type_name  #ZXFRAME_NAME_SIZE bytes; not written when there is no name.
 *
 * Logs: error for a NULL `ether_type_name`; the dump.
 */
void zxframe_innerapi_printEthrtType(int8_t print_flag, uint16_t ether_type, char* ether_type_name);

/**
 * Writes an Ethernet header and decodes it again.
 * @param pether_ctt      the record to fill.
 * @param str_dest_mac    "00:11:22:aa:bb:cc"; if NULL, an error is logged and the record's address
 *                        is written.
 * @param str_source_mac  "00:11:22:aa:bb:cc".
 * @param ether_type      host order.
 * @param outbuf          14 bytes.
 * Signal handlers: unsafe.
 * Logs: error for a NULL argument; the dump.
 */
void zxframe_innerapi_buildEthrt(ether_ctt* pether_ctt, const char* str_dest_mac,
                                 const char* str_source_mac, uint16_t ether_type, uint8_t* outbuf);

/**
 * Decodes and dumps an IPv4 header. The record's `flags` are not changed.
 * @param pether_ctt  the record to fill.
 * @param iph         20 readable bytes.
 * Logs: error for a NULL argument; the dump.
 */
void zxframe_innerapi_parseIpv4(ether_ctt* pether_ctt, const uint8_t* iph);

/**
 * Decodes an IPv4 packet with the TCP or UDP header after it; other protocols are only dumped.
 * @param pether_ctt  the record to fill.
 * @param data        374 readable bytes.
 * Logs: error for a NULL argument; the dump.
 */
void zxframe_innerapi_doIpv4(ether_ctt* pether_ctt, const uint8_t* data);

/**
 * Checks its arguments and decodes nothing: a placeholder for IPv6.
 * @param pether_ctt  not changed.
 * @param data        not read.
 * Logs: error for a NULL argument.
 */
void zxframe_innerapi_doIpv6(ether_ctt* pether_ctt, const uint8_t* data);

/**
 * Writes an IPv4 header with its checksum and decodes it again. The record's `id` first increases
 * by 4961. TCP and IGMP keep the record's fragment offset, UDP clears it. Any other protocol is
 * unsupported and gets a header length of 0 and a checksum of 65535.
 *
 * @param pether_ctt     the record to fill.
 * @param protocol       6 TCP, 17 UDP, 2 IGMP (with the Router Alert option and TTL 1).
 * @param source_ip      dotted text.
 * @param dest_ip        dotted text.
 * @param transport_len  bytes that the total length counts besides the header and `data_len`;
 *                       always 8 for UDP.
 * @param outbuf         20 bytes, 24 for IGMP.
 *
 * Signal handlers: unsafe.
 * Logs: error for a NULL argument; the dump.
 */
void zxframe_innerapi_buildIpv4(ether_ctt* pether_ctt, uint8_t protocol, const char* source_ip,
                                const char* dest_ip, uint32_t transport_len, uint8_t* outbuf);

/**
 * Decodes and dumps a TCP header. Sets `data_len` to the payload length according to the record's
 * IPv4 view, modulo 65536.
 *
 * @param pether_ctt  the record to fill.
 * @param tcph        314 readable bytes; 20 when `opt_source` is NULL.
 * @param opt_source  not NULL: the options after the header are decoded, too.
 *
 * Logs: error for a NULL record, for a NULL `tcph` (as "iph") and for a header length below 20; the
 * dump.
 */
void zxframe_innerapi_parseTcp(ether_ctt* pether_ctt, const uint8_t* tcph,
                               const uint8_t* opt_source);

/**
 * Decodes and dumps the options after a TCP header, and appends them to the record. Decoding stops
 * at an unknown kind and at a length below 2, but not at EOL.
 *
 * @param pether_ctt  the record to fill.
 * @param tcph        314 readable bytes.
 * @param opt_source  only checked not to be NULL.
 *
 * Logs: error for a NULL argument; the dump.
 */
void zxframe_innerapi_parseTcpOpt(ether_ctt* pether_ctt, const uint8_t* tcph,
                                  const uint8_t* opt_source);

/**
 * Decodes a TCP header with its options.
 * @param pether_ctt  the record to fill.
 * @param data        314 readable bytes.
 * Logs: as zxframe_innerapi_parseTcp().
 */
void zxframe_innerapi_doTcp(ether_ctt* pether_ctt, const uint8_t* data);

/**
 * Writes the options of a request. It adds no padding, and omits entries of an unknown kind or with
 * a length below 2.
 *
 * @param pzxbuildtcp_ctt  the request.
 * @param outbuf           room for the options: up to 128 of up to 255 bytes.
 * @return the bytes written; 0 when an argument is NULL.
 *
 * Logs: error for a NULL argument.
 */
uint32_t zxframe_innerapi_buildTcpOpt(const zxbuildtcp_ctt* pzxbuildtcp_ctt, uint8_t* outbuf);

/**
 * Writes a TCP header with options and checksum and decodes it again, without the options. The
 * window is 64240. zxframe_api_buildTcp() describes what is wrong with the checksum and `data_len`.
 *
 * @param pether_ctt       the record, with the addresses of the packet and the payload.
 * @param pzxbuildtcp_ctt  the request.
 * @param tcph             20 bytes, and the bytes of the request's options, or `option_len` if that
 *                         is more: the checksum includes that many bytes.
 *
 * Logs: error for a NULL argument; the dump.
 */
void zxframe_innerapi_buildTcpPayload(ether_ctt* pether_ctt, const zxbuildtcp_ctt* pzxbuildtcp_ctt,
                                      uint8_t* tcph);

/**
 * Decodes and dumps a UDP header. Sets `data_len` to `len` - 8, modulo 65536.
 * @param pether_ctt  the record to fill.
 * @param udph        8 readable bytes.
 * @param opt_source  not used.
 * Logs: error for a NULL argument (a NULL `udph` as "iph"); the dump; a hex dump of the record's
 * `data`, not of the received payload, unless the log level is 0.
 */
void zxframe_innerapi_parseUdp(ether_ctt* pether_ctt, const uint8_t* udph,
                               const uint8_t* opt_source);

/**
 * Decodes a UDP header.
 * @param pether_ctt  the record to fill.
 * @param data        8 readable bytes.
 * Logs: as zxframe_innerapi_parseUdp().
 */
void zxframe_innerapi_doUdp(ether_ctt* pether_ctt, const uint8_t* data);

/**
 * Writes a UDP header for the record's payload and decodes it again.
 * @param pether_ctt  the record, with the addresses of the packet and the payload.
 * @param pether_pkt  supplies the ports.
 * @param udph        8 bytes.
 * Logs: as zxframe_innerapi_parseUdp().
 */
void zxframe_innerapi_buildUdpPayload(ether_ctt* pether_ctt, const ether_pkt* pether_pkt,
                                      uint8_t* udph);

/**
 * Decodes and dumps an ARP packet, always as one for IPv4 on Ethernet.
 * @param pether_ctt  the record to fill.
 * @param parp        28 readable bytes.
 * Logs: error for a NULL argument; the dump.
 */
void zxframe_innerapi_parseArp(ether_ctt* pether_ctt, const uint8_t* parp);

/**
 * Decodes an ARP packet.
 * @param pether_ctt  the record to fill.
 * @param data        28 readable bytes.
 * Logs: error for a NULL argument; the dump.
 */
void zxframe_innerapi_doArp(ether_ctt* pether_ctt, const uint8_t* data);

/**
 * Selects the type of an IGMP message.
 * @param req  the request.
 * @return 0x11 for a query of any version; 0x12, 0x16, 0x22 for a join and 0, 0x17, 0x22 for a
 *         leave in versions 1, 2, 3; 0 for any other request and for NULL.
 * Logs: error for NULL.
 */
uint32_t zxframe_innerapi_getIgmpType(const igmp_req* req);

/**
 * Selects the type of the group record in a report of version 3.
 * @param req  the request.
 * @return 5 (mode 1) or 4 for a join, 6 (mode 1) or 3 for a leave; 0 for any other request and for
 *         NULL.
 * Logs: error for NULL.
 */
uint32_t zxframe_innerapi_getIgmpRecordType(const igmp_req* req);

/**
 * Fills the record's IGMP view from a request and writes the message.
 * @param pether_ctt  the record to fill.
 * @param req         the request.
 * @param outbuf      16 bytes, and 4 for each source address.
 * @return the bytes written: 8, or 16 and 4 for each source in a report of version 3. 0 when
 *         nothing is built: for an unknown action, a join or leave of an unknown version, a NULL
 *         argument, a source without a NUL, or more sources than a request can hold.
 * Signal handlers: unsafe.
 * Logs: error for a NULL argument and for wrong sources; the dump.
 */
uint32_t zxframe_innerapi_buildIgmp(ether_ctt* pether_ctt, const igmp_req* req, uint8_t* outbuf);

/**
 * Writes the 8-byte form of an IGMP message, and puts the checksum into the view and the message.
 * @param pether_ctt  its `print_flag` switches the dump.
 * @param view        the message to write; its `check` is set.
 * @param outbuf      8 bytes.
 * @return 8; 0 when an argument is NULL.
 * Logs: error for a NULL argument; the dump.
 */
uint32_t zxframe_innerapi_getIgmpData1(ether_ctt* pether_ctt, igmp_view* view, uint8_t* outbuf);

/**
 * Writes a report of version 3, and puts the checksum into the view and the message.
 * @param pether_ctt  its `print_flag` switches the dump.
 * @param view        the message to write; its `check` is set.
 * @param outbuf      16 bytes, and 4 for each source address.
 * @return 16 + 4 for each source (#ZXFRAME_IGMP_SOURCES at most); 0 when an argument is NULL.
 * Logs: error for a NULL argument; the dump.
 */
uint32_t zxframe_innerapi_getIgmpData2(ether_ctt* pether_ctt, igmp_view* view, uint8_t* outbuf);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

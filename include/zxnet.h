/**
 * @file zxnet.h
 * Network helpers: addresses, names and masks as texts and numbers, sockets with timeouts,
 * connection checks, Internet checksums.
 *
 * No state is kept between calls. Sockets belong to their caller: no function closes one, not even
 * after a failure. A wait continues after a signal handler has run. All texts and records belong to
 * the caller, who must make outputs large enough. Log tag: NETWORK.
 *
 * Threads: safe; for different outputs.
 * Signal handlers: unsafe.
 * Cancellation: none.
 */
#ifndef ZXNET_H
#define ZXNET_H

#include <stdint.h>
#include <sys/socket.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* ----------------------------------------------------------- addresses -- */

/*
 * Numeric IPv4 addresses are in host order: the first number of the text is the most significant
 * byte. "Dotted text" below is read without checks: each field between dots is read as by atoi()
 * and reduced modulo 256, so "256" and "x" are 0, and several dots in a row count as one. The only
 * check is that there are 4 fields. Only the first 256 bytes are used (#ZXNET_IP_TEXT_SIZE in
 * zxnet_api_ipStr2Byte()); a longer text is cut with a warning.
 */

#define ZXNET_IP_TEXT_SIZE      16 /**< bytes of a dotted text */
#define ZXNET_NETWORK_TEXT_SIZE 19 /**< bytes of a dotted text with a prefix length */
#define ZXNET_ADDRESS_TEXT_SIZE 46 /**< bytes of an IPv4 or IPv6 text */
#define ZXNET_MAC_SIZE          6  /**< bytes of a MAC address */
#define ZXNET_MAC_TEXT_SIZE     18 /**< bytes of the text of a MAC address */

#define ZXNET_DOMAIN_SLOTS     128 /**< address texts in a domain address record */
#define ZXNET_DOMAIN_SLOT_SIZE 32  /**< bytes from one address text to the next */
#define ZXNET_DOMAIN_FLAGS     32  /**< family flags in a domain address record */

/** The addresses of a name. */
typedef struct domainaddr_ctt {
    uint8_t count; /**< addresses found, modulo 256; may exceed the number stored */
    /** A text of #ZXNET_DOMAIN_SLOT_SIZE bytes or more runs into the next slot, and the text that
     * is stored there cuts it off. */
    char address[ZXNET_DOMAIN_SLOTS][ZXNET_DOMAIN_SLOT_SIZE];
    uint8_t family[ZXNET_DOMAIN_FLAGS]; /**< 0 IPv4, 1 IPv6 */
} domainaddr_ctt;

/** The ways in which an interface gets its address. */
typedef enum ipmode_e {
    ZXNET_IPMODE_UNKNOWN,     /**< "unkonw" */
    ZXNET_IPMODE_STATIC,      /**< "static" */
    ZXNET_IPMODE_DHCP,        /**< "dhcp" */
    ZXNET_IPMODE_BOND_SLAVER, /**< "bond-slaver" */
    ZXNET_IPMODE_BOND_MASTER, /**< "bond-master" */
    ZXNET_IPMODE_MAX          /**< the number of modes; never found */
} ipmode_e;

/**
 * Tells whether a text counts as an IPv6 address: any text with a colon does.
 * @param text  any text.
 * @return 1 when it contains a colon; 0 otherwise and for NULL.
 * Signal handlers: safe.
 * Logs: error for NULL.
 */
int32_t zxnet_api_isIpv6(const char* text);

/**
 * Tells whether an IPv4 or IPv6 text is a multicast address.
 * @param text  an address without brackets or prefix length.
 * @return 1 for 224.0.0.0 to 239.255.255.255 and for ff00::/8; 0 for other addresses, for a text
 *         that is not an address, and for NULL.
 * Logs: error for NULL.
 */
int32_t zxnet_api_isMulticast(const char* text);

/**
 * Rewrites an IPv4 text as IPv4-mapped IPv6, "::ffff:192.0.2.1". An IPv6 text is not changed.
 * @param text  the text, in a buffer of at least strlen(text) + 8 bytes. The call does not check
 *              that it is an address.
 * Signal handlers: safe.
 * Logs: error for NULL.
 */
void zxnet_api_outIpv6(char* text);

/**
 * Reads a dotted text.
 * @param text  its first #ZXNET_IP_TEXT_SIZE bytes are used.
 * @return the address in host order; 0 on error, and for 0.0.0.0.
 * Logs: warning for a text of 16 characters or more; error when the number of fields is not 4, and
 * for NULL.
 */
uint32_t zxnet_api_ipStr2Byte(const char* text);

/**
 * Prints an address as dotted text.
 * @param ip   host order.
 * @param out  #ZXNET_IP_TEXT_SIZE bytes that hold a text, perhaps an empty one; the result replaces
 *             it.
 * @return the number of characters; 0 for a NULL `out`.
 * Signal handlers: safe.
 * Logs: error for a NULL `out`.
 */
int32_t zxnet_api_ipByte2Str(uint32_t ip, char* out);

/**
 * Prints all addresses from `start` to `end` as dotted texts.
 *
 * The list is not bounded, on purpose: with an `end` of 255.255.255.255 the call never returns, and
 * a `start` that cannot be read counts as 0.0.0.0. The caller must check both.
 *
 * @param start   dotted text.
 * @param end     dotted text, below 255.255.255.255.
 * @param out     one entry every `stride` bytes; the entries are zeroed or hold texts.
 * @param stride  bytes from one entry to the next, #ZXNET_IP_TEXT_SIZE or more.
 * @return the number of entries; 0 when `start` is above `end` or an argument is NULL.
 *
 * Logs: as zxnet_api_ipStr2Byte(); error for a NULL argument.
 */
uint32_t zxnet_api_getIpList(const char* start, const char* end, char* out, uint8_t stride);

/**
 * Reads the text of a MAC address.
 *
 * The call does this six times: it reads a hexadecimal number as strtoul() does, stores its lowest
 * byte, and skips the next character, whatever it is. When the text has no more numbers, the
 * remaining bytes are 0.
 *
 * @param text  "00:11:22:aa:bb:cc".
 * @param out6  #ZXNET_MAC_SIZE bytes.
 * @return 0; -1 with nothing written for a NULL argument.
 *
 * Logs: error for a NULL argument.
 */
int32_t zxnet_api_macStr2Byte(const char* text, uint8_t* out6);

/**
 * Appends bytes to a text, in hexadecimal without leading zeros and with colons between them: the
 * bytes 00 1a 0b give "0:1a:b".
 *
 * @param bytes  `len` bytes.
 * @param len    bytes.
 * @param out    a text, with room for 3 * `len` bytes after it.
 * @return `len`; 0 for a NULL argument.
 *
 * Signal handlers: safe.
 * Logs: error for a NULL argument.
 */
int32_t zxnet_api_macByte2str(const uint8_t* bytes, uint32_t len, char* out);

/**
 * Tells whether a MAC address, read as by zxnet_api_macStr2Byte(), is that of a single station.
 * @param text  "00:11:22:aa:bb:cc".
 * @return 1 when it is, also for an address of zeros; 0 for a group address; -1 for NULL.
 * Logs: error for NULL.
 */
int32_t zxnet_api_isVaildMac(const char* text);

/**
 * Prints the destination MAC address for an IPv4 group: 01:00:5e and the group's last three bytes.
 *
 * The second byte of the group is used whole, on purpose, unlike in RFC 1112, which drops its top
 * bit: 239.255.1.1 gives "01:00:5e:ff:01:01".
 *
 * @param out    #ZXNET_MAC_TEXT_SIZE bytes that hold a text, perhaps an empty one; the result
 *               replaces it.
 * @param group  read as by inet_addr(); a text that inet_addr() refuses counts as 255.255.255.255.
 * @return the number of characters; 0 for a NULL argument.
 *
 * Logs: error for a NULL argument.
 */
int32_t zxnet_api_getMulticastDestMac(char* out, const char* group);

/**
 * Counts the bits of a netmask, byte by byte.
 * @param netmask  dotted text. A byte whose 1 bits are not all on the left counts as 0. The 1 bits
 *                 of the whole mask need not be contiguous: 255.0.255.0 gives 16.
 * @return 0 to 32; 0 on error.
 * Logs: warning for a text of 256 characters or more; error when the number of fields is not 4, and
 * for NULL.
 */
int32_t zxnet_api_getNetmaskBitNum(const char* netmask);

/**
 * Prints the network of an address, and the first address in it as the gateway.
 * @param ip       dotted text.
 * @param netmask  dotted text.
 * @param network  #ZXNET_NETWORK_TEXT_SIZE bytes for "192.0.2.0/24"; NULL: not wanted.
 * @param gateway  #ZXNET_IP_TEXT_SIZE bytes for "192.0.2.1"; NULL: not wanted. There is no carry,
 *                 on purpose: for a network that ends in 255 the gateway ends in 256.
 * @return the number of characters of the gateway; 0 for a NULL `gateway`, and on error, when
 *         nothing is written.
 * Logs: warning for a text of 256 characters or more; error when the number of fields is not 4, and
 * for a NULL `ip` or `netmask`.
 */
int32_t zxnet_api_getGatewayByNetmask(const char* ip, const char* netmask, char* network,
                                      char* gateway);

/**
 * Prints the network of an address.
 * @param ip       dotted text.
 * @param netmask  dotted text.
 * @param out      #ZXNET_IP_TEXT_SIZE bytes that hold a text, perhaps an empty one; the result
 *                 replaces it. NULL: not wanted.
 * @return the number of characters; 0 for a NULL `out`, and on error, when nothing is written.
 * Logs: as zxnet_api_getGatewayByNetmask().
 */
int32_t zxnet_api_subnet(const char* ip, const char* netmask, char* out);

/**
 * Tells whether an address is in the shared address space 100.64.0.0/10 (RFC 6598).
 * @param text  dotted text, in which several dots in a row do not count as one: an empty field is
 *              0.
 * @return 1 when it is; 0 otherwise, on error, and for IPv6.
 * Logs: warning for a text of 256 characters or more; error when the number of fields is not 4, and
 * for NULL; information for IPv6.
 */
int32_t zxnet_api_isResIpaddr(const char* text);

/**
 * Prints the address of a socket. The prefix "::ffff:" of an IPv6 text, as in IPv4-mapped
 * addresses, is removed.
 *
 * @param sa   an IPv6 address when its family says so; every other family counts as IPv4.
 * @param out  #ZXNET_ADDRESS_TEXT_SIZE bytes; not written for a NULL argument.
 *
 * Logs: debug with the text; error for a NULL argument.
 */
void zxnet_api_getIpaddr(const struct sockaddr* sa, char* out);

/**
 * Resolves a name to addresses of both families, in the order of getaddrinfo().
 *
 * The record receives min(`count`, #ZXNET_DOMAIN_FLAGS) flags and min(`count`, #ZXNET_DOMAIN_SLOTS)
 * texts. If there are more addresses, the next text overwrites the flags, but nothing is written
 * beyond the record. The function is meant for names with few addresses. A call takes as long as
 * the lookup takes, and the thread cannot be cancelled meanwhile.
 *
 * @param host     name or address.
 * @param service  as for getaddrinfo(); NULL: none.
 * @param out      rewritten, unless `host` is NULL or empty.
 * @return 0; -1 for a NULL `host` or `out`, an empty `host`, or a name that does not resolve; -2
 *         when it resolves to no address.
 *
 * Logs: error on failure; debug for every address.
 */
int32_t zxnet_api_parseDomainName(const char* host, const char* service, domainaddr_ctt* out);

/**
 * Finds an IP mode by its text.
 * @param text  as in ::ipmode_e; letters must match in case.
 * @return the mode; #ZXNET_IPMODE_UNKNOWN for another text and for NULL.
 * Signal handlers: safe.
 * Logs: error for NULL.
 */
ipmode_e zxnet_api_getIpMode(const char* text);

/**
 * Tells whether a number can be a descriptor other than standard input, output and error.
 * @param fd  any number.
 * @return 1 above 2; otherwise 0. It does not check whether the descriptor is open.
 * Signal handlers: safe.
 */
int32_t zxnet_api_isVaildFd(int fd);

/**
 * Prints an address that is in network order.
 * @param netorder  the address; needs no alignment.
 * @return the static text of inet_ntoa(), overwritten by its next call; NULL for NULL.
 * Threads: safe; glibc has one text for each thread.
 * Logs: error for NULL.
 */
char* zxnet_api_net2str(const uint32_t* netorder);

/**
 * Copies bytes. Source and destination may overlap.
 * @param src  `len` bytes.
 * @param len  bytes.
 * @param dst  `len` bytes.
 * Signal handlers: safe.
 * Logs: error for a NULL argument.
 */
void zxnet_api_num2str(const void* src, uint32_t len, void* dst);

/**
 * Does the same as zxnet_api_num2str().
 * @copydetails zxnet_api_num2str
 */
void zxnet_api_str2num(const void* src, uint32_t len, void* dst);

/**
 * Appends bytes to a text, each as two hexadecimal digits.
 * @param bytes  `len` bytes.
 * @param len    bytes.
 * @param out    a text, with room for 2 * `len` bytes after it.
 * @return `len`; 0 for a NULL argument.
 * Signal handlers: safe.
 * Logs: error for a NULL argument.
 */
int32_t zxnet_api_num2str16(const uint8_t* bytes, uint32_t len, char* out);

/* ------------------------------------------------------------- sockets -- */
/*
 * Cancellation: safe; a cancelled call closes what it opened. The caller's socket stays open.
 */

#define ZXNET_WAIT_READ  0 /**< wait until readable; any mode except 1 means this */
#define ZXNET_WAIT_WRITE 1 /**< wait until writable */

#define ZXNET_NO_WAIT      0xFFFFFFFFU /**< timeout of the receive and send family: do not wait */
#define ZXNET_PORT_DEFAULT 0xFFFFFFFFU /**< port of zxnet_api_isReachable(): 80 */

/* Results of the receive and send family. */
#define ZXNET_TIMEOUT  (-1) /**< the wait timed out */
#define ZXNET_UNWAITED (-2) /**< the wait could not be set up or taken down */
#define ZXNET_HANGUP   (-3) /**< the peer hung up, or the socket is in error */
#define ZXNET_IO_ERROR (-4) /**< recv or send failed */
#define ZXNET_NO_BUF   (-5) /**< NULL buffer */

#define ZXNET_TCP_INFO_SIZE \
    224 /**< bytes of a TCP information buffer; tcp_info of libc is shorter */
#define ZXNET_TCP_STATE_TEXT_SIZE 97 /**< most bytes that the text of a TCP state needs */

/* Bits of a poll record. They are not those of poll(). */
#define ZXNET_POLL_READ   1 /**< readable */
#define ZXNET_POLL_WRITE  2 /**< writable */
#define ZXNET_POLL_EXCEPT 4 /**< exceptional condition, such as urgent data */

/** A descriptor for zxnet_api_poll(), with #ZXNET_POLL_READ and so on. */
typedef struct pollfd_ctt {
    int32_t fd;      /**< negative: the record is skipped */
    int16_t events;  /**< conditions to wait for */
    int16_t revents; /**< conditions that hold */
} pollfd_ctt;

/**
 * Does nothing. Kept for callers that pair it with zxnet_api_deinit().
 * Signal handlers: safe.
 * Cancellation: none.
 */
void zxnet_api_init(void);

/**
 * Does nothing.
 * Signal handlers: safe.
 * Cancellation: none.
 */
void zxnet_api_deinit(void);

/**
 * Makes a socket non-blocking or blocking.
 * @param fd  the socket.
 * @param on  1: non-blocking; any other value: blocking.
 * @return 0; -1 with `errno` set on failure.
 * Signal handlers: safe.
 * Cancellation: none.
 */
int32_t zxnet_api_socketNonblock(int fd, int8_t on);

/**
 * Connects a socket within a deadline. It tries again until the deadline, even if the peer refuses
 * the connection.
 *
 * With a timeout, the socket becomes non-blocking and stays so; its TCP state shows when the
 * connection is established. Without a timeout, the result is that of a single connect(), which
 * blocks if the socket does. The call needs one more descriptor besides the socket, and ends early
 * when the wall clock jumps.
 *
 * @param fd         the socket, which stays open; a TCP socket if there is a timeout.
 * @param addr       address, not NULL.
 * @param len        bytes in `addr`.
 * @param timeoutUs  microseconds; 0: one attempt.
 * @param logFlag    1: a failure is logged with its reason; any other value: it is not.
 * @return 0 connected, -1 not.
 *
 * Logs: error when the socket cannot be made non-blocking and for a NULL `addr`; warning for every
 * attempt after which the connection is not established, and for the failure with `logFlag`; debug
 * for the success.
 */
int32_t zxnet_api_socketConnect(int fd, const struct sockaddr* addr, socklen_t len,
                                uint64_t timeoutUs, uint8_t logFlag);

/**
 * Waits for descriptors as poll() does, by means of select().
 * @param fds        `count` records; every `revents` is rewritten, unless there was nothing to wait
 *                   for.
 * @param count      records; 0: there is nothing to wait for.
 * @param timeoutMs  milliseconds; a negative timeout is an error.
 * @return the number of conditions that hold (2 for a descriptor that is readable and writable); 0
 *         when none holds in time, and at once when every `fd` is negative. -1 on failure, and for
 *         an `fd` of 1024 or above, when nothing is written.
 * Signal handlers: safe.
 * Logs: error for such an `fd` and for NULL `fds` with a count.
 */
int32_t zxnet_api_poll(pollfd_ctt* fds, uint32_t count, int32_t timeoutMs);

/**
 * Waits about 700 ms for a descriptor (below 1024).
 * @param fd    the descriptor.
 * @param mode  1: until writable; any other value: until readable.
 * @return above 0 when ready; -1 when not ready, or on failure.
 * Signal handlers: safe.
 * Logs: error for a descriptor of 1024 or above.
 */
int32_t zxnet_api_waitFd(int fd, uint8_t mode);

/**
 * Waits for a descriptor (below 1024) in slices of 100 ms.
 *
 * There is one slice more than `tries`, and its result is ignored: a descriptor that becomes ready
 * only then still gives -1. So 0 tries always give -1.
 *
 * @param fd     the descriptor.
 * @param mode   1: until writable; any other value: until readable.
 * @param tries  slices.
 * @return above 0 when ready; -1 when not ready, or on failure.
 *
 * Signal handlers: safe.
 * Logs: error for a descriptor of 1024 or above.
 */
int32_t zxnet_api_waitFdTimeout(int fd, uint32_t mode, uint32_t tries);

/**
 * Waits until a socket is readable and receives once. After a short read, the caller calls again.
 *
 * An idle socket delays the caller by at least a second, as zxepoll_waitfd_timeout_noopt()
 * describes. A socket that became readable in time but gives 0 bytes counts as broken, unless its
 * TCP connection is established. So an empty datagram gives #ZXNET_HANGUP, because its socket has
 * no connection.
 *
 * @param fd         the socket.
 * @param buf        receives up to `len` bytes, but never more than 2147483646.
 * @param len        bytes.
 * @param timeoutMs  milliseconds; #ZXNET_NO_WAIT: no wait; the mode of the socket decides whether
 *                   the call blocks.
 * @return the number of bytes; 0 at the end of the stream, unless the socket counts as broken;
 *         #ZXNET_TIMEOUT, #ZXNET_UNWAITED, #ZXNET_HANGUP, #ZXNET_IO_ERROR (with `errno` set) or
 *         #ZXNET_NO_BUF.
 *
 * Threads: safe; each call waits on an epoll instance of its own.
 * Logs: error for a NULL buffer, a failed wait or recv; warning for a length that was reduced, a
 * broken connection, a clock that was set back.
 */
int32_t zxnet_api_epollRecv(int fd, void* buf, uint32_t len, uint32_t timeoutMs);

/**
 * Calls zxnet_api_epollRecv() with a timeout of one second.
 * @param fd   the socket.
 * @param buf  receives up to `len` bytes.
 * @param len  bytes.
 * @return as zxnet_api_epollRecv().
 * Logs: as zxnet_api_epollRecv().
 */
int32_t zxnet_api_epollRecv3(int fd, void* buf, uint32_t len);

/**
 * Waits until a socket is writable and sends once. It never raises SIGPIPE.
 * @param fd         the socket.
 * @param buf        `len` bytes, of which at most 2147483646 are sent.
 * @param len        bytes.
 * @param timeoutMs  milliseconds; #ZXNET_NO_WAIT: no wait; the mode of the socket decides whether
 *                   the call blocks.
 * @return the number of bytes sent, perhaps fewer than `len`; or #ZXNET_TIMEOUT, #ZXNET_UNWAITED,
 *         #ZXNET_HANGUP, #ZXNET_IO_ERROR (with `errno` set) or #ZXNET_NO_BUF.
 * Threads: safe; each call waits on an epoll instance of its own.
 * Logs: error for a NULL buffer, a failed wait or send; warning for a length that was reduced.
 */
int32_t zxnet_api_epollSend(int fd, const void* buf, uint32_t len, uint32_t timeoutMs);

/**
 * Sends a whole buffer in pieces of at most 1400 bytes, each with zxnet_api_epollSend().
 * @param fd         the socket.
 * @param buf        `len` bytes.
 * @param len        at most 2147483646; a larger length is reduced. 0 sends nothing.
 * @param timeoutMs  milliseconds for each piece.
 * @return `len`; or the negative result of the first piece that failed; the pieces before it were
 *         sent.
 * Logs: error for a piece that failed; warning for a length that was reduced.
 */
int32_t zxnet_api_epollSend2(int fd, const void* buf, uint32_t len, uint32_t timeoutMs);

/**
 * Calls zxnet_api_epollSend2() with a timeout of one second.
 * @param fd   the socket.
 * @param buf  `len` bytes.
 * @param len  as for zxnet_api_epollSend2().
 * @return as zxnet_api_epollSend2().
 * Logs: as zxnet_api_epollSend2().
 */
int32_t zxnet_api_epollSend3(int fd, const void* buf, uint32_t len);

/**
 * Binds a socket to a network device and lets it use the routing table.
 * @param fd      the socket.
 * @param ifname  its first 15 characters are used; empty: nothing is done. NULL is refused.
 * @return 0; -1 with `errno` set on failure.
 * Cancellation: none.
 * Logs: error on failure and for a NULL name; debug with the name.
 */
int32_t zxnet_api_bindIface(int fd, const char* ifname);

/**
 * Asks the kernel whether a TCP connection is established.
 * @param fd    the socket.
 * @param info  #ZXNET_TCP_INFO_SIZE bytes that receive what the kernel knows of the connection; the
 *              first byte is the state. NULL: not wanted.
 * @param text  #ZXNET_TCP_STATE_TEXT_SIZE bytes for the text of the state, written unless the
 *              result is 1; NULL: not wanted.
 * @return 1 when it is; 0 when it is in another state or `fd` is not a TCP socket.
 * Signal handlers: safe.
 * Cancellation: none.
 * Logs: error when the kernel does not answer; warning for any other state.
 */
int32_t zxnet_api_isTcpStateOK(int fd, void* info, char* text);

/**
 * Describes a TCP state.
 * @param state  1 (established) to 11 (closing), the kernel's numbers; others are "unkonw".
 * @param out    #ZXNET_TCP_STATE_TEXT_SIZE bytes; NULL is refused.
 * @return `out`.
 * Signal handlers: safe.
 * Cancellation: none.
 * Logs: error for a NULL `out`.
 */
char* zxnet_api_getTcpStateString(uint32_t state, char* out);

/**
 * Tells whether a TCP connection to the first IPv4 address of a host can be opened within a second.
 * @param host  name or address; its lookup is not part of this second and can take longer.
 * @param port  1 to 65535, or #ZXNET_PORT_DEFAULT.
 * @return 1 when it can; 0 when it cannot, the name is unknown or an argument is refused.
 * Cancellation: safe; but not during the lookup. The socket is closed.
 * Logs: error for a NULL host and for a port above 65535; otherwise as zxnet_api_socketConnect().
 */
int32_t zxnet_api_isReachable(const char* host, uint32_t port);

/**
 * Sends a host one echo request with the ping command. This takes about two seconds at most.
 * @param host  a name or address of letters, digits and ". : _ % -" that does not begin with "-"
 *              and fits a command of 127 characters. Any other text is refused, because a shell
 *              runs the command.
 * @return 1 when it answered; 0 when it did not, and for a NULL, empty or refused host.
 * Cancellation: safe; a cancelled call kills the shell that it runs.
 * Logs: error for a host that is refused.
 */
int32_t zxnet_api_ping(const char* host);

/* ---------------------------------------------------------- interfaces -- */

/*
 * Interfaces are known by their names of at most 15 characters; a longer name matches no interface,
 * except where a function says otherwise. Some functions read or write a file of the kernel. They
 * refuse a name that could lead to another file: an empty name, one of more than 15 characters,
 * ".", "..", and a name with a "/". Changing an interface needs administrator rights. Two calls
 * that change one interface at the same time may undo each other.
 */

#define ZXNET_IFNAME_SIZE 16 /**< bytes of an interface name, including the NUL */

/** The IPv4 configuration of an interface. Texts end with a NUL. */
typedef struct netcfg_info {
    char ifname[ZXNET_IFNAME_SIZE];   /**< name of the interface, such as "eth0" */
    char reserved[66];                /**< free for the caller's use */
    char ipaddr[ZXNET_IP_TEXT_SIZE];  /**< dotted text */
    char netmask[ZXNET_IP_TEXT_SIZE]; /**< dotted text */
} netcfg_info;

/**
 * Asks for the address and the netmask of the interface `ifname`. If it has none, or if there is no
 * such interface, the text becomes empty.
 *
 * @param pnetcfg_info  its `ifname` is read, its two texts are written.
 * @return 0; -1 when the argument is NULL or no socket can be opened.
 *
 * Logs: error when it returns -1.
 */
int32_t zxnet_api_getIfaceInfo(netcfg_info* pnetcfg_info);

/**
 * Gives an interface an address and a netmask, and starts it. Its flags are replaced by IFF_UP,
 * IFF_BROADCAST and IFF_RUNNING (0x43).
 *
 * @param pnetcfg_info  the configuration.
 * @return 0; -1 at the first step that fails. The steps before it stay done.
 *
 * Logs: error when it returns -1.
 */
int32_t zxnet_api_setIfaceInfo(const netcfg_info* pnetcfg_info);

/**
 * Asks for the address of an interface.
 * @param ifname  the interface.
 * @param out     #ZXNET_IP_TEXT_SIZE bytes; "0.0.0.0" when there is no address. Not written when an
 *                argument is NULL or no socket can be opened.
 * @return 0; -1 when there is no address, an argument is NULL, or no socket can be opened.
 * Logs: error for a NULL argument, and when no socket can be opened.
 */
int32_t zxnet_api_getIfaceIp(const char* ifname, char* out);

/**
 * Asks for the address of an interface. Use zxnet_api_getIfaceInfo() to get its netmask.
 * @param ifname   the interface.
 * @param ipaddr   #ZXNET_IP_TEXT_SIZE bytes.
 * @param netmask  #ZXNET_IP_TEXT_SIZE bytes; not written, except that it receives the address if
 *                 the kernel has no netmask.
 * @return 0; -2 with nothing written when there is no address; -1 when an argument is NULL or no
 *         socket can be opened.
 * Logs: error for -1.
 */
int32_t zxnet_api_getIfaceIpMask(const char* ifname, char* ipaddr, char* netmask);

/**
 * Reads the MAC address of an interface as the kernel writes it, "00:11:22:aa:bb:cc\n".
 * @param ifname  the interface.
 * @param out     `size` bytes; without a NUL when `size` is 18, and not written when there is no
 *                such interface.
 * @param size    18 or more (negative sizes count as more).
 * @return 0, also when nothing could be read; -2 for a smaller size; -1 when an argument is NULL or
 *         the name is refused.
 * Cancellation: safe; the file is closed.
 * Logs: error for -1 and -2, and when there is no such interface.
 */
int32_t zxnet_api_getIfaceMac_string(const char* ifname, char* out, int32_t size);

/**
 * Asks for the MAC address of an interface.
 * @param ifname  the interface.
 * @param out6    #ZXNET_MAC_SIZE bytes.
 * @return 0; -1 on failure.
 * Logs: error on failure; warning for a name of 16 characters or more, which is cut.
 */
int32_t zxnet_api_getIfaceMac_byte(const char* ifname, uint8_t* out6);

/**
 * Reads the MTU of an interface as the kernel writes it, "1500\n".
 * @param ifname  the interface.
 * @param out     `size` bytes.
 * @param size    16 or more (negative sizes count as more).
 * @return 0; -2 for a smaller size; -1 when it cannot be read, an argument is NULL or the name is
 *         refused.
 * Cancellation: safe; the file is closed.
 * Logs: error for -1 and -2.
 */
int32_t zxnet_api_getIfaceMtu(const char* ifname, char* out, int32_t size);

/**
 * Sets the MTU of an interface.
 * @param ifname  the interface.
 * @param mtu     bytes.
 * @return the number of digits written; 0 when the kernel refuses the value; -1 when there is no
 *         such interface, the argument is NULL or the name is refused.
 * Cancellation: safe; the file is closed.
 * Logs: error for -1.
 */
int32_t zxnet_api_setIfaceMtu(const char* ifname, uint32_t mtu);

/**
 * Adds flags to those of an interface; none is cleared.
 * @param fd      any socket; stays open.
 * @param ifname  the interface.
 * @param flags   IFF_UP and so on.
 * @return 0; -1 on failure.
 * Logs: error on failure.
 */
int32_t zxnet_api_setIfaceFlags(int fd, const char* ifname, uint16_t flags);

/* ----------------------------------------------------------- checksums -- */
/*
 * The one's-complement sums of RFC 1071. Buffers need no alignment. Stored as described, a checksum
 * has the same bytes on little-endian and big-endian machines.
 *
 * Signal handlers: safe.
 */

/**
 * Calculates the Internet checksum of a buffer.
 *
 * Words are added in 32 bits, and an overflow is lost: above 131074 bytes the result may differ
 * from RFC 1071.
 *
 * @param p    `len` bytes; NULL is refused.
 * @param len  bytes. If the number is odd, a zero byte is added in the calculation.
 * @return the checksum in host order: store it with htons(). 0 for a buffer that contains its
 *         correct checksum. 0xFFFF for a NULL `p`.
 *
 * Logs: error for a NULL `p`.
 */
uint16_t zxnet_api_checksum(const uint8_t* p, uint32_t len);

/**
 * Calculates the Internet checksum of any number of 16-bit words.
 * @param p    `len` bytes: a pseudo-header and the data after it; not NULL, unless `len` is 0.
 * @param len  bytes; must be even, so pad with a zero byte. The function counts down to 0, which an
 *             odd length never reaches: it would read beyond the buffer.
 * @return the checksum in the byte order of memory: store it as it is.
 */
uint16_t zxnet_api_checksumUdp(const uint16_t* p, uint32_t len);

/**
 * Calculates the Internet checksum of a header and its data with the pseudo-header of IPv4.
 *
 * The data follows the header without a gap, even after a header of odd length.
 *
 * @param header     `headerLen` bytes; NULL is refused.
 * @param src        source address in host order.
 * @param dst        destination address in host order.
 * @param protocol   number of the protocol, such as IPPROTO_TCP.
 * @param headerLen  bytes.
 * @param data       `dataLen` bytes; not NULL, unless `dataLen` is 0.
 * @param dataLen    bytes. The pseudo-header holds the low 16 bits of `headerLen + dataLen`.
 * @return the checksum in host order, as for zxnet_api_checksum(); 0xFFFF for a NULL `header`.
 *
 * Logs: error for a NULL `header`.
 */
uint16_t zxnet_api_checksum_ptc(const void* header, uint32_t src, uint32_t dst, uint8_t protocol,
                                uint8_t headerLen, const void* data, uint16_t dataLen);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

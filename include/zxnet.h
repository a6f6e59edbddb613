/**
 * @file zxnet.h
 * Network helpers: sockets with time-outs, connection checks, Internet checksums.
 *
 * No state is kept between calls: sockets belong to their caller and are never
 * closed here, also after a failure. Log tag: NETWORK.
 */
#ifndef ZXNET_H
#define ZXNET_H

#include <stdint.h>
#include <sys/socket.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* ------------------------------------------------------------- sockets -- */

#define ZXNET_WAIT_READ  0 /**< wait until readable; so does any mode but 1 */
#define ZXNET_WAIT_WRITE 1 /**< wait until writable */

#define ZXNET_NO_WAIT      0xFFFFFFFFU /**< time-out of the receive and send family: do not wait */
#define ZXNET_PORT_DEFAULT 0xFFFFFFFFU /**< port of zxnet_api_isReachable(): 80 */

/* Results of the receive and send family. */
#define ZXNET_TIMEOUT  (-1) /**< the wait timed out */
#define ZXNET_UNWAITED (-2) /**< the wait could not be set up or taken down */
#define ZXNET_HANGUP   (-3) /**< the peer hung up, or the socket is in error */
#define ZXNET_IO_ERROR (-4) /**< recv or send failed */
#define ZXNET_NO_BUF   (-5) /**< NULL buffer */

#define ZXNET_TCP_INFO_SIZE \
    224 /**< bytes of a TCP information buffer; libc's tcp_info is shorter */
#define ZXNET_TCP_STATE_TEXT_SIZE 97 /**< bytes that the text of a TCP state needs at most */

/* Bits of a poll record. They are not those of poll(). */
#define ZXNET_POLL_READ   1 /**< readable */
#define ZXNET_POLL_WRITE  2 /**< writable */
#define ZXNET_POLL_EXCEPT 4 /**< exceptional condition, such as urgent data */

typedef struct pollfd_ctt {
    int32_t fd;      /**< negative: the record is passed over */
    int16_t events;  /**< what to wait for */
    int16_t revents; /**< what is there */
} pollfd_ctt;

/** Does nothing; kept for callers that pair it with zxnet_api_deinit(). */
void zxnet_api_init(void);

/** Does nothing. */
void zxnet_api_deinit(void);

/**
 * Makes a socket non-blocking or blocking.
 * @param on  1: non-blocking; any other value: blocking.
 * @return 0; -1 on failure, with `errno` set.
 */
int32_t zxnet_api_socketNonblock(int fd, int8_t on);

/**
 * Connects a socket within a deadline, trying again all the while: a refusal lasts until the
 * deadline too.
 *
 * With a time-out the socket is made non-blocking and stays so; completion is seen through the
 * state of the TCP connection. Without one, a single connect() decides as the socket stands.
 * The call needs one descriptor besides the socket, and ends early when the wall clock jumps.
 *
 * @param addr       address, not NULL. @param len its bytes.
 * @param timeoutUs  microseconds; 0: one attempt.
 * @param logFlag    1: a failure is logged with its reason; any other value: it is not.
 * @return 0 connected, -1 not.
 * Logs: error when the socket cannot be made non-blocking and for a NULL `addr`; warning for
 * every attempt that leaves the connection in another state than established, and for the failure
 * with `logFlag`; debug for the success.
 */
int32_t zxnet_api_socketConnect(int fd, const struct sockaddr* addr, socklen_t len,
                                uint64_t timeoutUs, uint8_t logFlag);

/**
 * Waits for descriptors, as poll() does, through select().
 *
 * @param fds        `count` records; every `revents` is rewritten, unless nothing was waited for.
 * @param timeoutMs  milliseconds; a negative time-out is an error.
 * @return the number of conditions that hold (a descriptor that is readable and writable counts
 *         twice); 0 when none does in time, and at once when every `fd` is negative; -1 on failure
 *         and, with nothing touched, for an `fd` of 1024 or above.
 * Logs: error for such an `fd` and for NULL `fds` with a count.
 */
int32_t zxnet_api_poll(pollfd_ctt* fds, uint32_t count, int32_t timeoutMs);

/**
 * Waits about 700 ms for a descriptor (below 1024).
 * @param mode  1: until writable; any other value: until readable.
 * @return above 0 ready; -1 not ready, or failed.
 */
int32_t zxnet_api_waitFd(int fd, uint8_t mode);

/**
 * Waits for a descriptor (below 1024) in slices of 100 ms.
 *
 * The slice after the last try decides nothing: readiness that is seen only then is still
 * reported as -1, so 0 tries give -1 in any case.
 *
 * @param mode   1: until writable; any other value: until readable.
 * @param tries  slices.
 * @return above 0 ready; -1 not ready, or failed.
 */
int32_t zxnet_api_waitFdTimeout(int fd, uint32_t mode, uint32_t tries);

/**
 * Waits until a socket is readable and receives once: a short read is the caller's to repeat.
 *
 * An idle socket keeps the caller for at least a second, as zxepoll_waitfd_timeout_noopt() says.
 * A socket that became readable in time but gives 0 bytes counts as broken unless its TCP
 * connection is established; so an empty datagram gives #ZXNET_HANGUP, as it has no connection.
 *
 * @param buf        receives at most `len` bytes, of which 2147483646 are used at most.
 * @param timeoutMs  milliseconds; #ZXNET_NO_WAIT: as the socket stands.
 * @return the number of bytes; 0 at the end of the stream; #ZXNET_TIMEOUT, #ZXNET_UNWAITED,
 *         #ZXNET_HANGUP, #ZXNET_IO_ERROR (with `errno` set) or #ZXNET_NO_BUF.
 * Threads: safe; each call waits on an epoll instance of its own.
 * Logs: error for a NULL buffer, a failed wait or recv; warning for a length that was lowered, a
 * broken connection, a clock that went back.
 */
int32_t zxnet_api_epollRecv(int fd, void* buf, uint32_t len, uint32_t timeoutMs);

/** zxnet_api_epollRecv() with a time-out of one second. */
int32_t zxnet_api_epollRecv3(int fd, void* buf, uint32_t len);

/**
 * Waits until a socket is writable and sends once.
 *
 * Never raises SIGPIPE.
 *
 * @param buf        `len` bytes, of which 2147483646 are sent at most.
 * @param timeoutMs  milliseconds; #ZXNET_NO_WAIT: as the socket stands.
 * @return the number of bytes that were sent, perhaps fewer than `len`; or #ZXNET_TIMEOUT,
 *         #ZXNET_UNWAITED, #ZXNET_HANGUP, #ZXNET_IO_ERROR (with `errno` set) or #ZXNET_NO_BUF.
 * Threads: safe; each call waits on an epoll instance of its own.
 * Logs: error for a NULL buffer, a failed wait or send; warning for a length that was lowered.
 */
int32_t zxnet_api_epollSend(int fd, const void* buf, uint32_t len, uint32_t timeoutMs);

/**
 * Sends a whole buffer in pieces of at most 1400 bytes, each with zxnet_api_epollSend().
 *
 * @param len        at most 2147483646; a larger length is lowered. 0 sends nothing.
 * @param timeoutMs  milliseconds for each piece.
 * @return `len`; or the negative result of the first piece that failed, with the pieces before it
 *         sent.
 * Logs: error for a piece that failed; warning for a length that was lowered.
 */
int32_t zxnet_api_epollSend2(int fd, const void* buf, uint32_t len, uint32_t timeoutMs);

/** zxnet_api_epollSend2() with a time-out of one second. */
int32_t zxnet_api_epollSend3(int fd, const void* buf, uint32_t len);

/**
 * Binds a socket to a network device and lets it use the routing table.
 *
 * @param ifname  at most 15 characters count; empty: nothing is done. NULL is refused.
 * @return 0; -1 on failure, with `errno` set.
 * Logs: error on failure and for a NULL name; debug with the name.
 */
int32_t zxnet_api_bindIface(int fd, const char* ifname);

/**
 * Asks the kernel whether a TCP connection is established.
 *
 * @param info  #ZXNET_TCP_INFO_SIZE bytes for what the kernel knows of the connection, the state
 *              in the first; NULL: not wanted.
 * @param text  #ZXNET_TCP_STATE_TEXT_SIZE bytes for the text of the state, which is written
 *              unless the result is 1; NULL: not wanted.
 * @return 1 when it is; 0 when it is in another state or `fd` is no TCP socket.
 * Logs: error when the kernel does not answer; warning for any other state.
 */
int32_t zxnet_api_isTcpStateOK(int fd, void* info, char* text);

/**
 * Describes a TCP state.
 * @param state  1 (established) to 11 (closing), the kernel's numbers; others are "unkonw".
 * @param out    #ZXNET_TCP_STATE_TEXT_SIZE bytes; NULL is refused.
 * @return `out`.
 * Logs: error for a NULL `out`.
 */
char* zxnet_api_getTcpStateString(uint32_t state, char* out);

/**
 * Tells whether a TCP connection to the first IPv4 address of a host is possible within a second.
 *
 * @param host  name or address; looking it up takes as long as it takes.
 * @param port  1 to 65535, or #ZXNET_PORT_DEFAULT.
 * @return 1 reachable; 0 not, unknown or refused.
 * Logs: error for a NULL host and for a port above 65535; what zxnet_api_socketConnect() logs.
 */
int32_t zxnet_api_isReachable(const char* host, uint32_t port);

/**
 * Sends a host one echo request with the ping command, which takes about two seconds at most.
 *
 * @param host  a name or address of letters, digits and ". : _ % -" that does not begin with "-"
 *              and is short enough for a command of 127 characters; anything else would reach the
 *              shell and is refused.
 * @return 1 when it answered; 0 when it did not, and for a NULL, empty or refused host.
 * Logs: error for a host that is refused.
 */
int32_t zxnet_api_ping(const char* host);

/* ----------------------------------------------------------- checksums -- */
/* The one's-complement sums of RFC 1071. Buffers need no alignment. */

/**
 * Calculates the Internet checksum of a buffer.
 *
 * Words are added to 32 bits, whose overflow is lost: above 131074 bytes the result may not be that
 * of RFC 1071.
 *
 * @param p    `len` bytes; NULL is refused.
 * @param len  bytes. The last one of an odd number counts as if a zero followed.
 * @return the checksum in host order: store it with htons(). 0 for a buffer that holds its right
 *         checksum. 0xFFFF for a NULL `p`.
 *
 * Threads: safe. Signal handlers: yes.
 * Logs: error for a NULL `p`.
 */
uint16_t zxnet_api_checksum(const uint8_t* p, uint32_t len);

/**
 * Calculates the Internet checksum of words of 16 bits, of any number.
 *
 * @param p    `len` bytes, a pseudo-header and what follows it; not NULL, unless `len` is 0.
 * @param len  bytes. It must be even: the words are counted down to 0, which an odd length steps
 *             over, and the function reads beyond the buffer. Pad with a zero byte.
 * @return the checksum in the byte order of memory: store it as it is.
 *
 * Threads: safe. Signal handlers: yes.
 */
uint16_t zxnet_api_checksumUdp(const uint16_t* p, uint32_t len);

/**
 * Calculates the Internet checksum of a header and its data with the pseudo-header of IPv4.
 *
 * The data follows the header without a gap, also after a header of odd length.
 *
 * @param header     `headerLen` bytes; NULL is refused.
 * @param src        source address in host order.
 * @param dst        destination address in host order.
 * @param protocol   number of the protocol, as IPPROTO_TCP.
 * @param headerLen  bytes.
 * @param data       `dataLen` bytes; not NULL, unless `dataLen` is 0.
 * @param dataLen    bytes. The pseudo-header holds the low 16 bits of `headerLen + dataLen`.
 * @return the checksum in host order, as zxnet_api_checksum(); 0xFFFF for a NULL `header`.
 *
 * Threads: safe. Signal handlers: yes.
 * Logs: error for a NULL `header`.
 */
uint16_t zxnet_api_checksum_ptc(const void* header, uint32_t src, uint32_t dst, uint8_t protocol,
                                uint8_t headerLen, const void* data, uint16_t dataLen);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

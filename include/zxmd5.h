/**
 * @file zxmd5.h
 * The MD5 digest (RFC 1321).
 *
 * For interoperation with existing media gear; MD5 is broken: nothing new that is to be secure may
 * rest on it.
 *
 * All functions may be called from any thread; none from a signal handler. Log tag: ZXMD5.
 */
#ifndef ZXMD5_H
#define ZXMD5_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define ZXMD5_MAX_INPUT 4294967223U /**< bytes of the longest message that is digested */
#define ZXMD5_TEXT_SIZE 33          /**< bytes of a digest as text, the NUL included */

/**
 * Tells whether a message is shorter than the 2^64 bits that MD5 allows.
 *
 * @param len  bytes.
 * @return 1, or 0 from 0x2000000000000000 bytes on.
 *
 * Logs: error for a message that is too long.
 */
int32_t zxmd5_innerapi_envCheck(uint64_t len);

/**
 * Tells the length of a message with its padding: 0x80, zeros, and its length in 8 bytes.
 *
 * @param len  bytes; as zxmd5_innerapi_envCheck() accepts them. The result is modulo 2^64, which
 *             matters for the last 72 values of the type only.
 * @return bytes, a multiple of 64.
 */
uint64_t zxmd5_innerapi_getPadLen(uint64_t len);

/**
 * @param x  the word.
 * @param c  places; any number.
 * @return `x` rotated to the left by `c` modulo 32 bits.
 */
uint32_t zxmd5_innerapi_leftrotate(uint32_t x, uint8_t c);

/**
 * Digests a message.
 *
 * The padded message lives in a buffer of the tracked allocator, "message" of "src/denc/zxmd5",
 * while the call lasts. It is wiped before it is freed.
 *
 * @param data    `len` bytes; NULL is fine for the empty message.
 * @param len     at most #ZXMD5_MAX_INPUT bytes, whose padded length still has 32 bits.
 * @param digest  the four words A, B, C, D in host order; on little-endian machines these are the
 *                16 bytes of the digest. Left alone on failure.
 * @return 1; 0 for a missing argument, for a message that is too long, which is not read then, and
 *         when memory is short.
 *
 * Logs: error on failure; for short memory it is the allocator's.
 */
int32_t zxmd5_api_outNum(const uint8_t* data, uint64_t len, uint32_t digest[4]);

/**
 * Digests a message into a text.
 *
 * @param data  `len` bytes; NULL is fine for the empty message. @param len as above.
 * @param out   #ZXMD5_TEXT_SIZE bytes, none of them in the message: 32 lower-case hexadecimal
 *              digits and a NUL. When zxmd5_api_outNum() fails, these are 32 times "0".
 * @return 16, the bytes of the digest, whatever zxmd5_api_outNum() returned; 0 for a NULL `out`.
 *
 * Logs: error for a NULL `out`; otherwise as zxmd5_api_outNum().
 */
int32_t zxmd5_api_outStr(const uint8_t* data, uint64_t len, char* out);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

/**
 * @file zxmd5.h
 * The MD5 digest (RFC 1321).
 *
 * Use it to work with existing media gear. MD5 is broken: new designs must not rely on it for
 * security. Log tag: ZXMD5.
 *
 * Threads: safe.
 * Signal handlers: unsafe.
 * Cancellation: none.
 */
#ifndef ZXMD5_H
#define ZXMD5_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define ZXMD5_MAX_INPUT 4294967223U /**< bytes of the longest message that can be digested */
#define ZXMD5_TEXT_SIZE 33          /**< bytes of a digest as text, including the NUL */

/**
 * Tells whether a message is shorter than the 2^64 bits that MD5 allows.
 * @param len  bytes.
 * @return 1; 0 from 0x2000000000000000 bytes on.
 * Signal handlers: safe.
 * Logs: error for a message that is too long.
 */
int32_t zxmd5_innerapi_envCheck(uint64_t len);

/**
 * Computes the length of a message with its padding: 0x80, zeros, and its length in 8 bytes.
 * @param len  bytes; a length that zxmd5_innerapi_envCheck() accepts. The result is modulo 2^64,
 *             which changes it only for the last 72 values of the type.
 * @return bytes, a multiple of 64.
 * Signal handlers: safe.
 */
uint64_t zxmd5_innerapi_getPadLen(uint64_t len);

/**
 * Rotates a word to the left.
 * @param x  the word.
 * @param c  places; any number.
 * @return `x` rotated by `c` modulo 32 bits.
 * Signal handlers: safe.
 */
uint32_t zxmd5_innerapi_leftrotate(uint32_t x, uint8_t c);

/**
 * Digests a message.
 *
 * During the call the padded message is in a buffer of the tracked allocator, named "message" with
 * the file "src/denc/zxmd5". The buffer is wiped before it is freed.
 *
 * @param data    `len` bytes; may be NULL for an empty message.
 * @param len     at most #ZXMD5_MAX_INPUT bytes: the padded length must fit 32 bits.
 * @param digest  the four words A, B, C, D in host order; on little-endian machines these are the
 *                16 bytes of the digest. Not written on failure.
 * @return 1; 0 for a NULL argument, for a message that is too long (it is not read), or when memory
 *         is short.
 *
 * Logs: error on failure; when memory is short, the allocator logs it.
 */
int32_t zxmd5_api_outNum(const uint8_t* data, uint64_t len, uint32_t digest[4]);

/**
 * Digests a message into a text.
 * @param data  `len` bytes; may be NULL for an empty message.
 * @param len   as for zxmd5_api_outNum().
 * @param out   #ZXMD5_TEXT_SIZE bytes outside the message. Receives 32 lower-case hexadecimal
 *              digits and a NUL; if zxmd5_api_outNum() fails, all digits are "0".
 * @return 16, the bytes of the digest, also when zxmd5_api_outNum() fails; 0 for a NULL `out`.
 * Logs: error for a NULL `out`; otherwise as zxmd5_api_outNum().
 */
int32_t zxmd5_api_outStr(const uint8_t* data, uint64_t len, char* out);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

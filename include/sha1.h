/**
 * @file sha1.h
 * The SHA-1 digest (RFC 3174, FIPS 180-1), in pieces through a context or of a text at once.
 *
 * For interoperation with existing media gear; SHA-1 is broken: nothing new that is to be secure
 * may rest on it. The names have no prefix: a program cannot have another SHA-1 of the same names.
 *
 * Any thread may call these functions, one at a time for each context; no signal handler may. The
 * processor's SHA instructions are used where it has them. Log tag: SHA1.
 */
#ifndef SHA1_H
#define SHA1_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define SHA1_BLOCK_SIZE 64 /**< bytes that are processed at a time */
#define SHA1_HASH_WORDS 5  /**< 32-bit words of a digest */

/**
 * A message on its way. It belongs to the caller and needs no clean-up, but holds up to a block of
 * the message until SHA1Result().
 */
typedef struct SHA1Context {
    uint32_t Intermediate_Hash[SHA1_HASH_WORDS]; /**< after SHA1Result(): the digest, host order */
    uint32_t Length_Low;                         /**< bits so far, lower half */
    uint32_t Length_High;                        /**< bits so far, upper half */
    uint8_t Message_Block[SHA1_BLOCK_SIZE];      /**< bytes that wait for their block to be full */
    int32_t Message_Block_Index;                 /**< how many these are, 0 to 63 */
    int32_t Computed;                            /**< 1: the digest is ready */
    int32_t Corrupted;                           /**< 1: there will be no digest */
} SHA1Context;

/**
 * Begins a message: initial words; length, index and flags 0.
 * @param ctx  of any content.
 * Logs: error for a NULL `ctx`.
 */
void SHA1Reset(SHA1Context* ctx);

/**
 * Appends bytes to the message.
 *
 * Marks the context Corrupted when the digest was computed already, when the length reaches 2^64
 * bits, and when the index is none that these functions leave; a Corrupted context takes no bytes.
 *
 * @param ctx    after SHA1Reset().
 * @param bytes  `len` bytes, outside of the context.
 * @param len    0: nothing is done at all, as RFC 3174's own program has it.
 *
 * Logs: error for a missing argument.
 */
void SHA1Input(SHA1Context* ctx, const uint8_t* bytes, uint32_t len);

/**
 * Ends the message. The digest is in Intermediate_Hash then, and Message_Block is wiped. Further
 * calls change nothing.
 *
 * @param ctx  after SHA1Reset().
 * @return 1 for success, unlike in RFC 3174; 0 for a Corrupted context and a NULL `ctx`.
 * Logs: error for a NULL `ctx`.
 */
int32_t SHA1Result(SHA1Context* ctx);

/**
 * Appends the padding and the length in bits, and processes them: a step of SHA1Result(), which
 * sets Computed afterwards. A context whose index is not 0 to 63 is marked Corrupted instead.
 * Logs: error for a NULL `ctx`.
 *
 * @param ctx  after SHA1Reset().
 */
void SHA1PadMessage(SHA1Context* ctx);

/**
 * Processes all 64 bytes of Message_Block and sets the index to 0: a step of SHA1Input().
 * Logs: error for a NULL `ctx`.
 * @param ctx  its Message_Block is full.
 */
void SHA1ProcessMessageBlock(SHA1Context* ctx);

/**
 * Digests a text without its NUL.
 *
 * @param text  NUL-terminated.
 * @return 40 upper-case hexadecimal digits with a NUL in a buffer of 128 bytes, filled up with
 * zeros, that the caller gives to free(); it is not tracked. NULL for a missing text, for a
 * failure, and when memory is short.
 *
 * Logs: error when the result is NULL.
 */
char* sha1_api_hash(const char* text);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

/**
 * @file sha1.h
 * The SHA-1 digest (RFC 3174, FIPS 180-1), of a message in pieces or of a whole text.
 *
 * Use it to work with existing media gear. SHA-1 is broken: new designs must not rely on it for
 * security. The names have no prefix, so a program cannot contain another SHA-1 with the same
 * names.
 *
 * The functions use the processor's SHA instructions where it has them. Log tag: SHA1.
 *
 * Threads: safe; for different contexts.
 * Signal handlers: unsafe.
 * Cancellation: none.
 */
#ifndef SHA1_H
#define SHA1_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define SHA1_BLOCK_SIZE 64 /**< bytes in a block */
#define SHA1_HASH_WORDS 5  /**< 32-bit words in a digest */

/**
 * A message in progress. It belongs to the caller and needs no clean-up. Until SHA1Result() it
 * holds up to one block of the message.
 */
typedef struct SHA1Context {
    uint32_t Intermediate_Hash[SHA1_HASH_WORDS]; /**< after SHA1Result(): the digest, host order */
    uint32_t Length_Low;                         /**< bits so far, lower half */
    uint32_t Length_High;                        /**< bits so far, upper half */
    uint8_t Message_Block[SHA1_BLOCK_SIZE];      /**< the bytes of a block that is not full yet */
    int32_t Message_Block_Index;                 /**< number of these bytes, 0 to 63 */
    int32_t Computed;                            /**< 1: the digest is ready */
    int32_t Corrupted;                           /**< 1: there will be no digest */
} SHA1Context;

/**
 * Begins a message: sets the hash to its initial words, and the length, index and flags to 0.
 * @param ctx  any content.
 * Logs: error for a NULL `ctx`.
 */
void SHA1Reset(SHA1Context* ctx);

/**
 * Appends bytes to the message.
 *
 * The context becomes Corrupted when the digest was already computed, when the length reaches 2^64
 * bits, and when the index has a value that these functions never set. A Corrupted context takes no
 * more bytes.
 *
 * @param ctx    after SHA1Reset().
 * @param bytes  `len` bytes outside the context.
 * @param len    0: nothing is done, as in the program of RFC 3174.
 *
 * Logs: error for a NULL argument, unless `len` is 0.
 */
void SHA1Input(SHA1Context* ctx, const uint8_t* bytes, uint32_t len);

/**
 * Ends the message. Intermediate_Hash then holds the digest, and Message_Block is wiped. Further
 * calls change nothing.
 *
 * @param ctx  after SHA1Reset().
 * @return 1 for success (RFC 3174 returns another value); 0 for a Corrupted context or a NULL
 *         `ctx`.
 *
 * Logs: error for a NULL `ctx`.
 */
int32_t SHA1Result(SHA1Context* ctx);

/**
 * Appends the padding and the length in bits, and processes them. This is a step of SHA1Result(),
 * which sets Computed afterwards. A context whose index is not 0 to 63 becomes Corrupted instead.
 *
 * @param ctx  after SHA1Reset().
 *
 * Logs: error for a NULL `ctx`.
 */
void SHA1PadMessage(SHA1Context* ctx);

/**
 * Processes all 64 bytes of Message_Block and sets the index to 0. This is a step of SHA1Input().
 * @param ctx  its Message_Block is full.
 * Logs: error for a NULL `ctx`.
 */
void SHA1ProcessMessageBlock(SHA1Context* ctx);

/**
 * Digests a text without its NUL.
 * @param text  NUL-terminated.
 * @return 40 upper-case hexadecimal digits and a NUL, in a buffer of 128 bytes filled up with
 *         zeros. The caller passes it to free(); zxmem.h does not list it among the buffers in use.
 *         NULL when `text` is NULL, the digest fails or memory is short.
 * Logs: error when the result is NULL.
 */
char* sha1_api_hash(const char* text);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

/**
 * @file zxaes.h
 * AES (FIPS 197) with keys of 128, 192 and 256 bits: ECB, CBC and a feedback mode over whole
 * blocks.
 *
 * Use it to work with existing media gear, not in new security designs: ECB shows which blocks are
 * equal, zxaes_api_done() starts every message with the same IV, the feedback mode is not a
 * standard one, and nothing here detects that a message was changed.
 *
 * On x86-64 and arm64 processors with AES instructions, the time that a call takes does not depend
 * on keys and data. Elsewhere, and with ZX_CPU=portable in the environment, the code uses tables,
 * and its timing can reveal a key to other programs on the same processor.
 *
 * Nothing is allocated. No state is kept between calls except in the caller's arguments. No key,
 * schedule or data is left on the stack. Log tag: zxaes.
 *
 * Threads: safe; for different contexts, IVs and outputs. Several threads may share a context whose
 * key is set.
 * Signal handlers: unsafe.
 * Cancellation: none.
 */
#ifndef ZXAES_H
#define ZXAES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define ZXAES_BLOCK_SIZE     16   /**< bytes in a block and in an IV */
#define ZXAES_CALL_LIMIT     3232 /**< most bytes (202 blocks) in one call of an inner operation */
#define ZXAES_SCHEDULE_WORDS 68   /**< words in a context; the longest schedule takes 60 */

#define ZXAES_ENCRYPT 0 /**< direction */
#define ZXAES_DECRYPT 1 /**< direction */

#define ZXAES_ECB 1 /**< mode of zxaes_api_done(): every block on its own */
#define ZXAES_CBC 2 /**< mode of zxaes_api_done(): chained; any other number: feedback */

/**
 * A key that is ready for use in one direction. It contains the key: wipe it after use.
 *
 * zxaes_innerapi_setEncKey() and zxaes_innerapi_setDecKey() set it. A copy still uses the schedule
 * of its original. The operations do nothing with a context that is all zeros.
 */
typedef struct zxaes_ctt {
    int32_t rounds;      /**< 10, 12 or 14; any other value: no key is set */
    uint32_t* roundKeys; /**< 4 * (rounds + 1) words, bytes in the order of FIPS 197 */
    uint32_t buffer[ZXAES_SCHEDULE_WORDS]; /**< holds the round keys */
} zxaes_ctt;

/**
 * Encrypts or decrypts a message of whole blocks, without padding.
 *
 * In every call, CBC and the feedback mode start with an IV of 16 zero bytes. The feedback mode
 * makes its keystream as zxaes_innerapi_cryptCFB128() does, starting at offset 0. No other AES-CFB
 * can decrypt the result.
 *
 * @param direction  #ZXAES_ENCRYPT or #ZXAES_DECRYPT; with any other value nothing is done.
 * @param mode       #ZXAES_ECB, #ZXAES_CBC, or any other value for the feedback mode.
 * @param in         `len` bytes.
 * @param out        `len` bytes; may be `in`. If it overlaps `in` in another way, output may
 *                   replace input that was not read yet: the function reads and writes one block
 *                   (in the feedback mode one byte) after the other. Not written when the call is
 *                   refused.
 * @param len        bytes, a multiple of 16; may be 0.
 * @param key        `keylen` bytes.
 * @param keylen     16, 24 or 32: AES-128, AES-192 or AES-256.
 * @return 1; 0 when an argument is refused.
 *
 * Logs: error for a NULL `in`, `out` or `key`, a wrong `keylen` or a wrong `len`, checked in this
 * order.
 */
int32_t zxaes_api_done(uint32_t direction, uint32_t mode, const uint8_t* in, uint8_t* out,
                       uint32_t len, const uint8_t* key, uint8_t keylen);

/* ---------------------------------------------------- inner operations -- */

/** Does nothing, because the tables are constants. Kept for callers that call it first. */
void zxaes_innerapi_gentable(void);

/**
 * Sets the key for encryption, and for both directions of zxaes_innerapi_cryptCFB128().
 * @param ctx   any content.
 * @param key   `bits` / 8 bytes; not used after the call.
 * @param bits  128, 192 or 256; with any other value `ctx` is not touched.
 * Cancellation: safe; only the message for a NULL `ctx` is a cancellation point.
 * Logs: error for a NULL `key`. For a NULL `ctx`, prints "<function> <line> zx_null" to standard
 * output instead.
 */
void zxaes_innerapi_setEncKey(zxaes_ctt* ctx, const uint8_t* key, uint32_t bits);

/**
 * Sets the key for decryption in ECB and CBC. Otherwise works as zxaes_innerapi_setEncKey().
 * @copydetails zxaes_innerapi_setEncKey
 */
void zxaes_innerapi_setDecKey(zxaes_ctt* ctx, const uint8_t* key, uint32_t bits);

/**
 * Encrypts or decrypts one block.
 *
 * The round keys are used in the order in which the context holds them. A context that was set for
 * the other direction gives a result that is not AES, and no error.
 *
 * @param ctx    set for the direction; without a key nothing is done.
 * @param mode   1: decrypts; any other value: encrypts.
 * @param in16   16 bytes.
 * @param out16  16 bytes; may overlap `in16`.
 *
 * Cancellation: safe; only the message for a NULL `ctx` is a cancellation point.
 * Logs: error for a NULL `in16` or `out16`. For a NULL `ctx`, prints "<function> <line> zx_null" to
 * standard output instead.
 */
void zxaes_innerapi_cryptECB(zxaes_ctt* ctx, uint32_t mode, const uint8_t in16[16],
                             uint8_t out16[16]);

/**
 * Encrypts or decrypts whole blocks in CBC (NIST SP 800-38A).
 * @param ctx   set for the direction; without a key nothing is done.
 * @param mode  1: decrypts; any other value: encrypts.
 * @param len   bytes. At most #ZXAES_CALL_LIMIT of them are processed, and only whole blocks; the
 *              rest is neither read nor written.
 * @param iv16  16 bytes that overlap neither `in` nor `out`. Afterwards it holds the last block of
 *              ciphertext, so that the next call continues the message.
 * @param in    `len` bytes.
 * @param out   `len` bytes; as for zxaes_api_done().
 * Logs: error for a NULL argument.
 */
void zxaes_innerapi_cryptCBC(zxaes_ctt* ctx, uint32_t mode, uint32_t len, uint8_t iv16[16],
                             const uint8_t* in, uint8_t* out);

/**
 * Encrypts or decrypts bytes in a feedback mode that differs from CFB-128. CFB-128 makes its
 * keystream by encrypting the IV. This mode decrypts the IV, with the round keys for encryption, in
 * both directions. Do not use it where the standard CFB-128 is required.
 *
 * @param ctx       set by zxaes_innerapi_setEncKey(); without a key nothing is done.
 * @param mode      1: decrypts; any other value: encrypts.
 * @param len       bytes; at most #ZXAES_CALL_LIMIT of them are processed.
 * @param ivOffset  bytes of keystream in `iv16` that are used up, 0 to 15. Start with 0 and keep it
 *                  from call to call.
 * @param iv16      16 bytes that overlap neither `in` nor `out`, as the previous call left them.
 * @param in        `len` bytes.
 * @param out       `len` bytes; as for zxaes_api_done().
 *
 * Cancellation: safe; only the message for a wrong `ivOffset` is a cancellation point.
 * Logs: error for a NULL argument. For an offset above 15, nothing is done, and "<function> <line>
 * n:<offset> too big" is printed to standard output instead.
 */
void zxaes_innerapi_cryptCFB128(zxaes_ctt* ctx, uint32_t mode, uint32_t len, uint32_t* ivOffset,
                                uint8_t iv16[16], const uint8_t* in, uint8_t* out);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

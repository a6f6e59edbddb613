/**
 * @file zxaes.h
 * AES (FIPS 197) with keys of 128, 192 and 256 bits: ECB, CBC and a feedback mode over whole
 * blocks.
 *
 * For interoperation with media gear that exists, not for new security designs: ECB shows equal
 * blocks, zxaes_api_done() starts every message with the same IV, the feedback mode is no standard
 * one, and nothing here notices that a message was tampered with.
 *
 * On x86-64 processors with AES instructions the time does not depend on keys and data. Elsewhere,
 * and with ZX_CPU=portable in the environment, it goes through tables, whose timing can give a key
 * away to who shares the processor.
 *
 * Nothing is allocated, and no state is kept between calls but in what the caller passes. No key,
 * schedule or data is left on the stack. Log tag: zxaes.
 *
 * Threads: all operations are safe on different contexts, IVs and outputs; one context may serve
 * any number of threads once its key is set. Signal handlers: no.
 */
#ifndef ZXAES_H
#define ZXAES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define ZXAES_BLOCK_SIZE     16   /**< bytes in a block and in an IV */
#define ZXAES_CALL_LIMIT     3232 /**< bytes, 202 blocks, that an inner operation takes in a call */
#define ZXAES_SCHEDULE_WORDS 68   /**< words in a context; the longest schedule takes 60 */

#define ZXAES_ENCRYPT 0 /**< direction */
#define ZXAES_DECRYPT 1 /**< direction */

#define ZXAES_ECB 1 /**< mode of zxaes_api_done(): each block for itself */
#define ZXAES_CBC 2 /**< mode of zxaes_api_done(): chained; any mode but 1 and 2 is feedback */

/**
 * A key that is ready for use, in one direction. It holds the key: wipe it after use.
 *
 * Set by zxaes_innerapi_setEncKey() or zxaes_innerapi_setDecKey(). A copy still uses the schedule
 * of its original. The operations do nothing with a context of zero bytes.
 */
typedef struct zxaes_ctt {
    int32_t rounds;      /**< 10, 12 or 14; otherwise no key is set */
    uint32_t* roundKeys; /**< 4 * (rounds + 1) words, their bytes in the order of FIPS 197 */
    uint32_t buffer[ZXAES_SCHEDULE_WORDS]; /**< where the round keys are */
} zxaes_ctt;

/**
 * Encrypts or decrypts a message of whole blocks, without padding.
 *
 * CBC starts with an IV of 16 zero bytes in every call. So does the feedback mode, whose keystream
 * is that of zxaes_innerapi_cryptCFB128() at offset 0: it is undone here and by no other AES-CFB.
 *
 * @param direction  #ZXAES_ENCRYPT or #ZXAES_DECRYPT; with any other, nothing is done.
 * @param mode       #ZXAES_ECB, #ZXAES_CBC, or any other value for the feedback mode.
 * @param in         `len` bytes.
 * @param out        `len` bytes; `in` itself will do. Where the two overlap otherwise, each block,
 *                   or in the feedback mode each byte, is read after those before it were written.
 *                   Not touched when the call is rejected.
 * @param len        bytes, a multiple of 16; 0 is fine.
 * @param key        `keylen` bytes.
 * @param keylen     16, 24 or 32: AES-128, AES-192 or AES-256.
 * @return 1; 0 when an argument is rejected.
 * Logs: error for a NULL `in`, `out` or `key`, another `keylen` or another `len`, in this order.
 */
int32_t zxaes_api_done(uint32_t direction, uint32_t mode, const uint8_t* in, uint8_t* out,
                       uint32_t len, const uint8_t* key, uint8_t keylen);

/* ---------------------------------------------------- inner operations -- */

/** Does nothing: the tables are constants. For callers that make them first. */
void zxaes_innerapi_gentable(void);

/**
 * Sets the key to encrypt with, and for zxaes_innerapi_cryptCFB128() in both directions.
 *
 * @param ctx   needs no preparation.
 * @param key   `bits` / 8 bytes; not used after the call.
 * @param bits  128, 192 or 256; with any other, `ctx` is not touched.
 * Logs: error for a NULL `key`. Prints "<function> <line> zx_null" to standard output for a NULL
 * `ctx`.
 */
void zxaes_innerapi_setEncKey(zxaes_ctt* ctx, const uint8_t* key, uint32_t bits);

/**
 * Sets the key to decrypt with in ECB and CBC. Otherwise as zxaes_innerapi_setEncKey().
 * @copydetails zxaes_innerapi_setEncKey
 */
void zxaes_innerapi_setDecKey(zxaes_ctt* ctx, const uint8_t* key, uint32_t bits);

/**
 * Encrypts or decrypts one block.
 *
 * The round keys are used in the order in which they stand: a context that was set for the other
 * direction gives another result than AES, and no error.
 *
 * @param ctx    set for the direction; without a key nothing is done.
 * @param mode   1: decrypts; otherwise encrypts.
 * @param in16   16 bytes.
 * @param out16  16 bytes, which may overlap `in16`.
 * Logs: error for a NULL `in16` or `out16`. Prints "<function> <line> zx_null" to standard output
 * for a NULL `ctx`.
 */
void zxaes_innerapi_cryptECB(zxaes_ctt* ctx, uint32_t mode, const uint8_t in16[16],
                             uint8_t out16[16]);

/**
 * Encrypts or decrypts whole blocks in CBC (NIST SP 800-38A).
 *
 * @param ctx   set for the direction; without a key nothing is done.
 * @param mode  1: decrypts; otherwise encrypts.
 * @param len   bytes. At most #ZXAES_CALL_LIMIT of them are processed, and whole blocks only; what
 *              follows is neither read nor written.
 * @param iv16  16 bytes, chained on: the last block of ciphertext after the call, so that the next
 *              call goes on with the same message. No byte of `in` or `out`.
 * @param in    `len` bytes.
 * @param out   `len` bytes; as for zxaes_api_done().
 * Logs: error for a NULL argument.
 */
void zxaes_innerapi_cryptCBC(zxaes_ctt* ctx, uint32_t mode, uint32_t len, uint8_t iv16[16],
                             const uint8_t* in, uint8_t* out);

/**
 * Encrypts or decrypts bytes in a feedback mode, which is CFB-128 but for its keystream: that is
 * made by decrypting the IV with the round keys of encryption, in both directions. Where the
 * standard's CFB-128 is wanted, this is not it.
 *
 * @param ctx       set by zxaes_innerapi_setEncKey(); without a key nothing is done.
 * @param mode      1: decrypts; otherwise encrypts.
 * @param len       bytes, of which at most #ZXAES_CALL_LIMIT are processed.
 * @param ivOffset  bytes of keystream that were used of `iv16`, 0 to 15, kept from call to call; 0
 *                  at first.
 * @param iv16      16 bytes, as they were left by the call before. No byte of `in` or `out`.
 * @param in        `len` bytes.
 * @param out       `len` bytes; as for zxaes_api_done().
 * Logs: error for a NULL argument. For an offset above 15, nothing is done but to print "<function>
 * <line> n:<offset> too big" to standard output.
 */
void zxaes_innerapi_cryptCFB128(zxaes_ctt* ctx, uint32_t mode, uint32_t len, uint32_t* ivOffset,
                                uint8_t iv16[16], const uint8_t* in, uint8_t* out);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

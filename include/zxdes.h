/**
 * @file zxdes.h
 * DES and Triple DES over whole blocks (ECB), and the steps of DES with one byte for every bit.
 *
 * Use it only to work with existing media gear, not in new security designs: a DES key can be found
 * by trying all keys, a block has only 8 bytes, and ECB shows which blocks are equal. The time of a
 * call depends on the data, through the processor's caches.
 *
 * The ciphers are those of FIPS 46-3, the mode is that of FIPS 81. Parity bits of keys are ignored.
 * Nothing is allocated or kept between calls, and no secret is left on the stack. Nothing is
 * logged: a function ignores a call with a NULL argument.
 *
 * Threads: safe; for different outputs.
 * Signal handlers: safe.
 * Cancellation: none.
 */
#ifndef ZXDES_H
#define ZXDES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define ZXDES_BLOCK_SIZE  8  /**< bytes in a block and in a key */
#define ZXDES_ROUNDS      16 /**< rounds for each block; every round has its own key */
#define ZXDES_SUBKEY_BITS 48 /**< bits in the key of a round */

/**
 * Encrypts or decrypts whole blocks, one after the other, without padding.
 *
 * A key of 8 to 15 bytes selects DES. A key of 16 to 23 bytes selects Triple DES with K3 = K1; from
 * 24 bytes on, Triple DES with three keys. Encryption is E(K1), D(K2), E(K3); decryption is D(K3),
 * E(K2), D(K1). Bytes after the last whole key, or after byte 24, are ignored.
 *
 * @param direction  0 encrypts, any other value decrypts.
 * @param in         `len` bytes of any alignment.
 * @param out        `len` bytes of any alignment; may be `in`. If it overlaps `in` in another way,
 *                   each block is read after the ones before it were written.
 * @param len        bytes: a multiple of 8, not 0.
 * @param key        `keylen` bytes, most significant first.
 * @param keylen     bytes: at least 8.
 * @return 1; 0 for a refused argument, with `out` untouched.
 */
int32_t zxdes_api_done(uint8_t direction, const uint8_t* in, uint8_t* out, uint32_t len,
                       const uint8_t* key, uint8_t keylen);

/* ------------------------------------------------ DES, a byte for a bit -- */
/*
 * For checks and for teaching; zxdes_api_done() does not use these. Every bit is a byte that is 0
 * or 1. Bits are ordered with the most significant first, and tables count them from 1, as in the
 * standard.
 */

extern const uint8_t IP_Table[64];  /**< initial permutation of a block */
extern const uint8_t IPR_Table[64]; /**< final permutation, the inverse of #IP_Table */
extern const uint8_t E_Table[48];   /**< expands half a block to the size of a round's key */
extern const uint8_t P_Table[32];   /**< permutation of the S-boxes' output */
extern const uint8_t PC1_Table[56]; /**< selects the key's bits, without parity */
extern const uint8_t PC2_Table[48]; /**< selects the bits for a round */
extern const uint8_t
    LOOP_Table[16]; /**< places by which the key's halves shift before each round */
extern const uint8_t S_Box[8][4]
                          [16]; /**< S-boxes 1 to 8: row by outer bits, column by inner bits */

/**
 * Splits bytes into bits.
 * @param bytes  (`nbits` + 7) / 8 bytes.
 * @param bits   receives `nbits` bits; must not overlap `bytes`.
 * @param nbits  any number.
 */
void zxdes_api_byte2bit(const uint8_t* bytes, uint8_t* bits, uint32_t nbits);

/**
 * Joins bits into bytes.
 * @param bits   `nbits` bits; of each byte only the lowest bit is used.
 * @param bytes  receives (`nbits` + 7) / 8 bytes; the last one is filled up with zeros. Must not
 *               overlap `bits`.
 * @param nbits  any number.
 */
void zxdes_api_bit2byte(const uint8_t* bits, uint8_t* bytes, uint32_t nbits);

/**
 * Rotates bits to the left, towards the most significant one.
 * @param bits   `nbits` bits.
 * @param nbits  0: nothing is done.
 * @param count  places; any number.
 */
void zxdes_api_rotatel(uint8_t* bits, uint32_t nbits, uint32_t count);

/**
 * Combines bits with others by exclusive or, in place.
 * @param bits   `nbits` bits; receives the result.
 * @param with   `nbits` bits.
 * @param nbits  any number.
 */
void zxdes_api_xor(uint8_t* bits, const uint8_t* with, uint32_t nbits);

/**
 * Selects bits by a table.
 * @param in     as many bits as the largest entry of the table says.
 * @param out    receives `nbits` bits; may be `in`.
 * @param table  `nbits` entries that count from 1.
 * @param nbits  at most 64; with more, nothing is done.
 */
void zxdes_api_transform(const uint8_t* in, uint8_t* out, const uint8_t* table, uint32_t nbits);

/**
 * Applies the eight S-boxes.
 * @param in48   48 bits; of each byte only the lowest bit is used.
 * @param out32  receives 32 bits; may be `in48`.
 */
void zxdes_api_sfunc(const uint8_t in48[48], uint8_t out32[32]);

/**
 * Applies the cipher function f of a round, in place.
 * @param half32  32 bits, the right half of a block; receives the result.
 * @param key48   48 bits made by zxdes_api_setsubkey().
 */
void zxdes_api_ffunc(uint8_t half32[32], const uint8_t key48[48]);

/**
 * Makes the 16 round keys, of 48 bits each, from the 8 bytes of a key. The caller wipes them after
 * use.
 *
 * @param key8      8 bytes; parity bits are ignored.
 * @param schedule  receives the 16 keys, in the order of encryption.
 */
void zxdes_api_setsubkey(const uint8_t key8[8], uint8_t schedule[16][48]);

/**
 * Encrypts or decrypts one block of 8 bytes.
 * @param in8        8 bytes.
 * @param out8       receives 8 bytes; may overlap `in8`.
 * @param schedule   made by zxdes_api_setsubkey().
 * @param direction  0 encrypts and uses the round keys from first to last; any other value decrypts
 *                   and uses them from last to first.
 */
void zxdes_api_des(const uint8_t in8[8], uint8_t out8[8], const uint8_t schedule[16][48],
                   uint8_t direction);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif /* ZXDES_H */

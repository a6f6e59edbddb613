/**
 * @file zxcrc.h
 * Cyclic redundancy checks: CRC-16/MODBUS, CRC-32/MPEG-2 and CRC-16/XMODEM.
 *
 * Each function takes the whole message at once and keeps nothing between
 * calls. The "check" of a variant is its value over the nine bytes "123456789".
 * Where the processor can multiply without carries, messages of 16 bytes or
 * more are folded 16 to 64 bytes at a time; the results are the same.
 *
 * Threads: safe. Signal handlers: yes. Nothing is logged. None of them may
 * stand in for a signature: a message with a wanted CRC is easily made.
 */
#ifndef ZXCRC_H
#define ZXCRC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** CRC-32/MPEG-2 of every byte, most significant bit first. */
extern const uint32_t aucCRCTable[256];

/** CRC-16/MODBUS of every byte: the half that is sent first, the numerically lower one. */
extern const uint8_t aucCrcTableH[256];

/** CRC-16/MODBUS of every byte: the half that is sent last, the numerically higher one. */
extern const uint8_t aucCrcTableL[256];

/**
 * CRC-16/MODBUS: polynomial 0x8005 reflected, initial value 0xFFFF, no final XOR, check 0x4B37
 * (Modbus over Serial Line, section 6.2.2).
 *
 * @param buf  `len` bytes of any alignment. NULL counts as an empty message.
 * @param len  bytes.
 * @return the CRC as a number. In a Modbus frame its low byte goes first. 0xFFFF for no bytes.
 */
uint16_t zxcrc_api_CRC16(const uint8_t* buf, uint32_t len);

/**
 * CRC-32/MPEG-2, the checksum of transport stream section tables: polynomial 0x04C11DB7, not
 * reflected, initial value 0xFFFFFFFF, no final XOR, check 0x0376E6E7 (ISO/IEC 13818-1, annex A).
 *
 * @param buf  `len` bytes of any alignment. NULL counts as an empty message.
 * @param len  bytes.
 * @return the CRC, which goes into a section most significant byte first: over a section with its
 *         CRC the result is 0. 0xFFFFFFFF for no bytes.
 */
uint32_t zxcrc_api_CRC32(const uint8_t* buf, uint32_t len);

/**
 * CRC-16/XMODEM: polynomial 0x1021, not reflected, initial value 0, no final XOR, check 0x31C3
 * (ITU-T V.41).
 *
 * @param buf  `len` bytes of any alignment. NULL counts as an empty message.
 * @param len  bytes.
 * @return the CRC, which is sent most significant byte first. 0 for no bytes.
 */
uint16_t zxcrc_api_CRC(const uint8_t* buf, uint32_t len);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

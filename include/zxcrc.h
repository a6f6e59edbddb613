/**
 * @file zxcrc.h
 * Cyclic redundancy checks: CRC-16/MODBUS, CRC-32/MPEG-2 and CRC-16/XMODEM.
 *
 * Each function takes the whole message at once and keeps nothing between calls. The "check" of a
 * variant is its value for the nine bytes "123456789". Where the processor can multiply without
 * carries, a message of 16 bytes or more is processed 16 to 64 bytes at a time, with the same
 * result.
 *
 * Do not use a CRC as a signature: it is easy to make a message with a given CRC. Nothing is
 * logged.
 *
 * Threads: safe.
 * Signal handlers: safe.
 * Cancellation: none.
 */
#ifndef ZXCRC_H
#define ZXCRC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** The CRC-32/MPEG-2 of each byte value, most significant bit first. */
extern const uint32_t aucCRCTable[256];

/** The low byte of the CRC-16/MODBUS of each byte value. It is sent first. */
extern const uint8_t aucCrcTableH[256];

/** The high byte of the CRC-16/MODBUS of each byte value. It is sent last. */
extern const uint8_t aucCrcTableL[256];

/**
 * Computes CRC-16/MODBUS: polynomial 0x8005 reflected, initial value 0xFFFF, no final XOR, check
 * 0x4B37 (Modbus over Serial Line, section 6.2.2).
 *
 * @param buf  `len` bytes of any alignment. NULL counts as an empty message.
 * @param len  bytes.
 * @return the CRC as a number; 0xFFFF for an empty message. A Modbus frame carries its low byte
 *         first.
 */
uint16_t zxcrc_api_CRC16(const uint8_t* buf, uint32_t len);

/**
 * Computes CRC-32/MPEG-2, the checksum of transport stream section tables: polynomial 0x04C11DB7,
 * not reflected, initial value 0xFFFFFFFF, no final XOR, check 0x0376E6E7 (ISO/IEC 13818-1, annex
 * A).
 *
 * @param buf  `len` bytes of any alignment. NULL counts as an empty message.
 * @param len  bytes.
 * @return the CRC; 0xFFFFFFFF for an empty message. A section carries its most significant byte
 *         first, and the CRC of a section that includes its own CRC is 0.
 */
uint32_t zxcrc_api_CRC32(const uint8_t* buf, uint32_t len);

/**
 * Computes CRC-16/XMODEM: polynomial 0x1021, not reflected, initial value 0, no final XOR, check
 * 0x31C3 (ITU-T V.41).
 *
 * @param buf  `len` bytes of any alignment. NULL counts as an empty message.
 * @param len  bytes.
 * @return the CRC, sent most significant byte first; 0 for an empty message.
 */
uint16_t zxcrc_api_CRC(const uint8_t* buf, uint32_t len);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

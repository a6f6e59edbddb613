/* Checks a received Modbus frame and a section of a transport stream. */
#include <stdio.h>
#include <zxcrc.h>

int main(void) {
    /* A request to read holding registers. Its CRC follows, low byte first. */
    static const uint8_t kRequest[] = {0x01, 0x03, 0x00, 0x00, 0x00, 0x0a, 0xc5, 0xcd};
    const uint32_t length = sizeof kRequest - 2;
    const uint16_t crc = zxcrc_api_CRC16(kRequest, length);
    const int is_good = kRequest[length] == (crc & 0xff) && kRequest[length + 1] == crc >> 8;
    printf("request: CRC 0x%04x, %s\n", crc, is_good ? "good" : "damaged");

    /* A program association section. Over all bytes, including the CRC, the result is 0. */
    static const uint8_t kSection[] = {0x00, 0xb0, 0x0d, 0x00, 0x01, 0xc1, 0x00, 0x00,
                                       0x00, 0x01, 0xf0, 0x00, 0x2a, 0xb1, 0x04, 0xb2};
    printf("section: %s\n", zxcrc_api_CRC32(kSection, sizeof kSection) == 0 ? "good" : "damaged");
    return 0;
}

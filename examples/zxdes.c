/* Encrypts and decrypts a block with DES and Triple DES, for equipment that needs them. */
#include <stdio.h>
#include <string.h>
#include <zxdes.h>

enum { kEncrypt = 0, kDecrypt = 1 };

static int show(const char* name, const uint8_t* key, uint8_t key_length) {
    static const uint8_t kBlock[ZXDES_BLOCK_SIZE] = {0x01, 0x23, 0x45, 0x67,
                                                     0x89, 0xab, 0xcd, 0xef};
    uint8_t secret[sizeof kBlock];
    uint8_t plain[sizeof kBlock];
    if (zxdes_api_done(kEncrypt, kBlock, secret, sizeof kBlock, key, key_length) != 1 ||
        zxdes_api_done(kDecrypt, secret, plain, sizeof secret, key, key_length) != 1) {
        return 0; /* the length must be whole blocks, the key at least 8 bytes */
    }
    printf("%s: ", name);
    for (size_t i = 0; i < sizeof secret; ++i) {
        printf("%02x", secret[i]);
    }
    printf(", back: %s\n", memcmp(plain, kBlock, sizeof plain) == 0 ? "yes" : "no");
    return 1;
}

int main(void) {
    static const uint8_t kKeys[24] = {0x13, 0x34, 0x57, 0x79, 0x9b, 0xbc, 0xdf, 0xf1,
                                      0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef,
                                      0xfe, 0xdc, 0xba, 0x98, 0x76, 0x54, 0x32, 0x10};
    return show("DES", kKeys, 8) && show("Triple DES", kKeys, sizeof kKeys) ? 0 : 1;
}

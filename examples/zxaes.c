/* Encrypts a message with AES-128 in CBC: in one call with a zero IV, and with an IV of our own. */
#include <stdio.h>
#include <string.h>
#include <zxaes.h>

static void show(const char* name, const uint8_t* bytes, size_t size) {
    printf("%s: ", name);
    for (size_t i = 0; i < size; ++i) {
        printf("%02x", bytes[i]);
    }
    putchar('\n');
}

int main(void) {
    static const uint8_t kKey[16] = {0x2b, 0x7e, 0x15, 0x16, 0x28, 0xae, 0xd2, 0xa6,
                                     0xab, 0xf7, 0x15, 0x88, 0x09, 0xcf, 0x4f, 0x3c};
    uint8_t message[2 * ZXAES_BLOCK_SIZE] = "pad messages to whole blocks";
    uint8_t secret[sizeof message];
    uint8_t plain[sizeof message];

    /* These calls start every message with an IV of zeros. */
    if (zxaes_api_done(ZXAES_ENCRYPT, ZXAES_CBC, message, secret, sizeof message, kKey,
                       sizeof kKey) != 1 ||
        zxaes_api_done(ZXAES_DECRYPT, ZXAES_CBC, secret, plain, sizeof secret, kKey, sizeof kKey) !=
            1) {
        return 1; /* the log says which argument was refused */
    }
    show("zero IV", secret, sizeof secret);
    printf("back: %s\n", (const char*)plain);

    /* With an IV of our own, which each call updates for the next one. */
    uint8_t iv[ZXAES_BLOCK_SIZE] = {1};
    zxaes_ctt context;
    zxaes_innerapi_setEncKey(&context, kKey, 8 * sizeof kKey);
    zxaes_innerapi_cryptCBC(&context, ZXAES_ENCRYPT, ZXAES_BLOCK_SIZE, iv, message, secret);
    zxaes_innerapi_cryptCBC(&context, ZXAES_ENCRYPT, ZXAES_BLOCK_SIZE, iv,
                            message + ZXAES_BLOCK_SIZE, secret + ZXAES_BLOCK_SIZE);
    show("own IV ", secret, sizeof secret);
    explicit_bzero(&context, sizeof context); /* it contains the key */
    return 0;
}

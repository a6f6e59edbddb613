/* Makes the MD5 digest of a message, as text and as bytes. */
#include <stdio.h>
#include <string.h>
#include <zxmd5.h>

int main(void) {
    const char* const message = "message digest";
    const uint8_t* const bytes = (const uint8_t*)message;

    uint32_t digest[4];
    if (zxmd5_api_outNum(bytes, strlen(message), digest) != 1) {
        return 1; /* too long, or out of memory: see the log */
    }
    char text[ZXMD5_TEXT_SIZE];
    zxmd5_api_outStr(bytes, strlen(message), text);
    printf("%s\n", text);

    for (size_t i = 0; i < 16; ++i) { /* works for any byte order */
        printf("%02x", (unsigned)(digest[i / 4] >> (i % 4 * 8)) & 0xff);
    }
    putchar('\n');
    return 0;
}

/* Writes and reads a file, and turns bytes into Base64 and back. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <zxmd.h>

static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

static int write_and_read(const char* path) {
    char settings[] = "channel=7\n"; /* not const: the call may write to it */
    const int32_t length = (int32_t)strlen(settings);
    if (zxmd_api_write(path, settings, (uint32_t)length, "w") != length) {
        return 0; /* the log gives the reason */
    }
    char text[64];
    const int32_t size = zxmd_api_read3(path, text, sizeof text); /* adds no NUL */
    if (size != length) {
        return 0;
    }
    printf("%s file of %d bytes: %.*s", zxmd_api_getFileType(path), size, size, text);
    return 1;
}

int main(void) {
    char path[] = "/tmp/zxmd-example-XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) {
        perror(path);
        return EXIT_FAILURE;
    }
    close(fd);
    const int is_done = write_and_read(path);
    unlink(path);
    if (!is_done) {
        fputs("the file could not be written or read\n", stderr);
        return EXIT_FAILURE;
    }

    static const uint8_t kKey[] = {0xde, 0xad, 0xbe, 0xef};
    char text[ZXMD_BASE64_SIZE(sizeof kKey)];
    const uint32_t length = zxmd_api_ascii2Base64(kAlphabet, kKey, sizeof kKey, text);
    uint8_t decoded[sizeof text / 4 * 3];
    const uint32_t size = zxmd_api_base642Ascii(kAlphabet, text, decoded);
    printf("%u characters of Base64: %s, %u bytes again: %s\n", length, text, size,
           size == sizeof kKey && memcmp(decoded, kKey, size) == 0 ? "the same" : "others");
    return EXIT_SUCCESS;
}

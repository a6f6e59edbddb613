/* Makes the SHA-1 digest of a text, and of a message that comes in pieces. */
#include <sha1.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void) {
    char* const text = sha1_api_hash("abc");
    if (text == NULL) {
        return EXIT_FAILURE;
    }
    puts(text);
    free(text); /* allocated with malloc() */

    static const char* const kPieces[] = {"a", "b", "c"};
    SHA1Context context;
    SHA1Reset(&context);
    for (size_t i = 0; i < sizeof kPieces / sizeof kPieces[0]; ++i) {
        SHA1Input(&context, (const uint8_t*)kPieces[i], (uint32_t)strlen(kPieces[i]));
    }
    if (SHA1Result(&context) != 1) { /* 1 is success */
        return EXIT_FAILURE;
    }
    for (size_t i = 0; i < SHA1_HASH_WORDS; ++i) {
        printf("%08X", context.Intermediate_Hash[i]);
    }
    putchar('\n');
    return EXIT_SUCCESS;
}

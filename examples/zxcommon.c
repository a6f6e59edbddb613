/* Which version was this compiled for, which one runs, and what is in it? */
#include <stdio.h>
#include <zxcommon.h>

int main(void) {
    char modules[1 + ZXCOMMON_INFO_SIZE] = ""; /* appended to: an empty text first */
    zxcommon_api_info(modules);
    printf("compiled for %d.%d.%d, runs with %s\n", ZXCOMMON_VERSION_MAJOR, ZXCOMMON_VERSION_MINOR,
           ZXCOMMON_VERSION_PATCH, zxcommon_api_version());
    printf("modules: %s\n", modules);

#if ZXCOMMON_VERSION < 10300
#error "version 1.3 or later is needed"
#endif
    return 0;
}

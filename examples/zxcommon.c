/* Prints the version that this was compiled for, the version that runs, and its modules. */
#include <stdio.h>
#include <zxcommon.h>

int main(void) {
    char modules[1 + ZXCOMMON_INFO_SIZE] = ""; /* the call appends to it */
    zxcommon_api_info(modules);
    printf("compiled for %d.%d.%d, runs with %s\n", ZXCOMMON_VERSION_MAJOR, ZXCOMMON_VERSION_MINOR,
           ZXCOMMON_VERSION_PATCH, zxcommon_api_version());
    printf("modules: %s\n", modules);

#if ZXCOMMON_VERSION < 10300
#error "version 1.3 or later is needed"
#endif
    return 0;
}

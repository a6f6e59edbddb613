/* Logs to a file, with lines of its own in the format of the library. */
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
#include <zxlog.h>

enum { kError = 1, kWarning, kNotice, kInfo, kDebug };

/* First checks whether the line is wanted, because that is faster than formatting it. */
ZXLOG_PRINTF(3, 4)
static void say(uint32_t level, const char* tag, const char* fmt, ...) {
    if (zxlog_api_getLoglevel() < level || zxlog_api_strCasestrNum(strfilterTags, tag, 1, 1) != 0) {
        return;
    }
    char body[512];
    va_list args;
    va_start(args, fmt);
    vsnprintf(body, sizeof body, fmt, args);
    va_end(args);
    zxlog_innerapi_file("%s[%s][%s]%s\r\n", zxlog_innerapi_logTime(), strLoglevel_simple[level],
                        tag, body);
}

int main(void) {
    char path[] = "/tmp/zxlog-example-XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0 || zxlog_api_setFile(path) != 0) {
        perror(path);
        return EXIT_FAILURE;
    }

    zxlog_api_setLoglevel(kInfo);
    zxlog_api_setFilterTags("NOISE,CHATTER");
    say(kWarning, "CAMERA", "stream %d has no picture since %d s", 7, 3);
    say(kInfo, "CAMERA", "stream %d is back", 7);
    say(kDebug, "CAMERA", "not shown: the level is information");
    say(kError, "NOISE", "not shown: its tag is filtered");
    zxlog_innerapi_bufHex("packet", "\x47\x40\x11\x10", 4, __func__, __LINE__);

    char text[4096];
    const ssize_t size = read(fd, text, sizeof text);
    fwrite(text, 1, size > 0 ? (size_t)size : 0, stdout);
    close(fd);
    unlink(path);
    return EXIT_SUCCESS;
}

/* Prints amounts with units, and runs commands. */
#include <stdio.h>
#include <zxt.h>

int main(void) {
    char amount[ZXT_UNIT_SIZE];
    printf("stored: %s\n", zxt_innerapi_bit2str_64(amount, 1536, 0));
    printf("rate:   %s/s\n", zxt_innerapi_bit2str_64(amount, 8 * 1024 * 1024, 1));

    /* A shell runs the command: never build it from text that comes from outside. */
    char output[64] = "";
    const int32_t size =
        zxt_innerapi_cmdReadByPipe("echo one; echo two", output, sizeof output - 1);
    if (size < 0) {
        fputs("the command could not be started\n", stderr);
        return 1;
    }
    printf("%d bytes of output:\n%s", size, output);

    char command[32 + ZXT_CMD_ROOM] = "test -d /"; /* the call appends to it */
    printf("there is a root directory: %s\n", zxt_innerapi_cmdRet(command) == 1 ? "yes" : "no");
    return 0;
}

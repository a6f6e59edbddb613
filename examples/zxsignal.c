/* Logs the signals that it gets, and ends on SIGTERM. */
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
#include <zxlog.h>
#include <zxsignal.h>

static volatile sig_atomic_t is_to_end;

static void end(int number) {
    zxsignal_innerapi_handler(number); /* logs the signal; allowed in a handler */
    is_to_end = 1;
}

int main(void) {
    zxlog_api_setLoglevel(3);              /* notices, warnings and errors, to standard error */
    if (zxsignal_api_catch() == SIG_ERR) { /* before other threads start */
        fputs("signals cannot be caught\n", stderr);
        return EXIT_FAILURE;
    }
    zxsignal_innerapi_set(SIGTERM, end); /* after catch, whose handler only logs */
    zxsignal_innerapi_set(SIGINT, end);

    raise(SIGUSR1);
    raise(SIGPIPE); /* ignored: a closed connection must not end the program */
    puts(is_to_end ? "to end" : "goes on");
    raise(SIGTERM); /* as kill(1) would send it */
    while (!is_to_end) {
        sleep(1); /* the server would work here */
    }
    puts("ends in order");
    return EXIT_SUCCESS;
}

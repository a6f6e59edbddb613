/* Logs the signals that come, and ends on SIGTERM. */
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
#include <zxlog.h>
#include <zxsignal.h>

static volatile sig_atomic_t is_to_end;

static void end(int number) {
    zxsignal_innerapi_handler(number); /* logs it, which is allowed in a handler */
    is_to_end = 1;
}

int main(void) {
    zxlog_api_setLoglevel(3);              /* notices and what is more urgent, on standard error */
    if (zxsignal_api_catch() == SIG_ERR) { /* before other threads start */
        fputs("signals cannot be caught\n", stderr);
        return EXIT_FAILURE;
    }
    zxsignal_innerapi_set(SIGTERM, end); /* afterwards: catch alone would log it and go on */
    zxsignal_innerapi_set(SIGINT, end);

    raise(SIGUSR1);
    raise(SIGPIPE); /* ignored: a peer that went away is no reason to die */
    puts(is_to_end ? "to end" : "goes on");
    raise(SIGTERM); /* somebody's kill(1) */
    while (!is_to_end) {
        sleep(1); /* the server's work */
    }
    puts("ends in order");
    return EXIT_SUCCESS;
}

/* A program crashes. Its log has the level of errors, but at the end of the log stand the last
   lines of all levels. A child process crashes here, and its parent shows the log. */
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zxdiag.h>
#include <zxlog.h>
#include <zxmem.h>

static const char* const path = "zxdiag_crash.log";

static void crash(void) {
    zxlog_api_setFile(path);
    zxlog_api_setLoglevel(1); /* errors only */
    zxdiag_api_start();
    zxmem_api_init(1);
    zxmem_api_malloc(1316, "last packet", __FILE__, __LINE__);
    zxmem_api_showBlock(); /* lines of the level of information */
    raise(SIGSEGV);
}

int main(void) {
    unlink(path);
    const pid_t child = fork();
    if (child == 0) {
        crash();
        _exit(EXIT_FAILURE);
    }
    int status = 0;
    char line[512];
    waitpid(child, &status, 0);
    FILE* const log = fopen(path, "r");
    while (log != NULL && fgets(line, sizeof line, log) != NULL) {
        const char* const text = strstr(line, "]["); /* after the time */
        printf("%.64s%s", text != NULL ? text + 1 : line, strlen(line) > 90 ? "...\n" : "");
    }
    if (log != NULL) {
        fclose(log);
    }
    unlink(path);
    printf("ended by signal %d\n", WIFSIGNALED(status) ? WTERMSIG(status) : 0);
    return EXIT_SUCCESS;
}

/* Starts a worker, lets it work, and stops it, with the complete handshake. */
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <zxthread.h>

typedef struct Counter {
    zxthread_ctt thread;
    unsigned long rounds; /* belongs to the worker until it has stopped */
} Counter;

static void sleep_ms(long ms) {
    nanosleep(&(struct timespec){.tv_nsec = ms * 1000000}, NULL);
}

/* Tests for "starting" instead of "run", because a stop may come before the worker sees "run". */
static int is_starting(zxthread_ctt* thread) {
    zxthread_api_lock(thread);
    const int answer = thread->state == ZXTHREAD_STATE_STARTING;
    zxthread_api_unlock(thread);
    return answer;
}

static void* count(void* argument) {
    Counter* const self = argument;
    zxthread_api_setName("counter"); /* the name that ps and top show */
    if (zxthread_api_waitCmdStarting(&self->thread, 5000, 5) != 1) {
        return NULL;
    }
    while (is_starting(&self->thread)) {
        sleep_ms(1);
    }
    while (zxthread_api_isStop(&self->thread) == 0) {
        ++self->rounds;
        sleep_ms(1);
    }
    return NULL;
}

int main(void) {
    static Counter counter; /* static: all zeros, and it outlives the thread */
    if (zxthread_api_create(&counter.thread, "counter", count, &counter) != 0) {
        return EXIT_FAILURE; /* the reason is in the log */
    }
    if (zxthread_api_waitStateTimeout(&counter.thread, ZXTHREAD_STATE_START,
                                      ZXTHREAD_STATE_STARTING, 5000, 5) != 1) {
        fputs("the worker does not start\n", stderr);
        return EXIT_FAILURE;
    }
    zxthread_api_lock(&counter.thread);
    counter.thread.state = ZXTHREAD_STATE_RUN;
    zxthread_api_unlock(&counter.thread);

    sleep_ms(100);
    if (zxthread_api_waitStateTimeout(&counter.thread, ZXTHREAD_STATE_NONE, ZXTHREAD_STATE_STOPPED,
                                      5000, 5) != 1) {
        fputs("the worker does not stop\n", stderr);
        return EXIT_FAILURE;
    }
    const unsigned long rounds = counter.rounds;
    zxthread_api_destroy(&counter.thread);
    printf("the worker %s and has ended\n", rounds > 0 ? "has counted" : "was too slow to count");
    return EXIT_SUCCESS;
}

/* Two threads take two locks in different orders and hang. The program says who waits for whom. */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
#include <zxdiag.h>
#include <zxjson.h>
#include <zxlock.h>
#include <zxlog.h>
#include <zxthread.h>

static zxlock_ctt audio;
static zxlock_ctt video;
static pthread_barrier_t both_have_one;

static void* mix(void* argument) {
    zxthread_api_setName("mix");
    zxlock_api_obtain(&audio, __func__, __LINE__);
    pthread_barrier_wait(&both_have_one);
    zxlock_api_obtain(&video, __func__, __LINE__);
    return argument;
}

static void* show(void* argument) {
    zxthread_api_setName("show");
    zxlock_api_obtain(&video, __func__, __LINE__);
    pthread_barrier_wait(&both_have_one);
    zxlock_api_obtain(&audio, __func__, __LINE__);
    return argument;
}

/* Prints the first cycle, if there is one. */
static int print_cycle(void) {
    char* answer = zxdiag_api_ask("waits");
    cJSON* const waits = cJSON_Parse(answer);
    const cJSON* const cycle = cJSON_GetArrayItem(cJSON_GetObjectItem(waits, "cycles"), 0);
    const char* const text = cJSON_GetStringValue(cJSON_GetObjectItem(cycle, "text"));
    if (text != NULL) {
        puts(text);
    }
    cJSON_Delete(waits);
    zxdiag_api_free(&answer);
    return text != NULL;
}

int main(void) {
    pthread_t threads[2];
    zxlog_api_setLoglevel(0); /* the log would tell it, too */
    zxdiag_api_start();
    if (zxlock_api_init(&audio, "audio") != 0 || zxlock_api_init(&video, "video") != 0 ||
        pthread_barrier_init(&both_have_one, NULL, 2) != 0 ||
        pthread_create(&threads[0], NULL, mix, NULL) != 0 ||
        pthread_create(&threads[1], NULL, show, NULL) != 0) {
        fputs("no locks or no threads\n", stderr);
        return EXIT_FAILURE;
    }
    while (!print_cycle()) {
        usleep(10000);
    }
    fflush(stdout);
    _exit(EXIT_SUCCESS); /* the threads never end */
}

/* Passes messages from one thread to another through a block FIFO. */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <zxfifo.h>

static const char* const kMessages[] = {"first", "", "a third one", "end"};

static void pause_ms(long ms) {
    nanosleep(&(struct timespec){.tv_nsec = ms * 1000000}, NULL);
}

static void* produce(void* argument) {
    zxfifoblock_ctt* const fifo = argument;
    for (size_t i = 0; i < sizeof kMessages / sizeof kMessages[0]; ++i) {
        const int32_t length = (int32_t)strlen(kMessages[i]);
        while (zxfifo_api_blockSizeLeft(fifo) < length + ZXFIFO_PREFIX_SIZE) {
            pause_ms(1); /* a full FIFO would overwrite messages that were not read yet */
        }
        zxfifo_api_blockLenIn(fifo, kMessages[i], length);
    }
    return NULL;
}

int main(void) {
    pthread_t thread;
    zxfifoblock_ctt* fifo = zxfifo_api_blockInit(16, "messages");
    if (fifo == NULL || pthread_create(&thread, NULL, produce, fifo) != 0) {
        zxfifo_api_blockDeinit(&fifo);
        return EXIT_FAILURE;
    }
    char message[16] = "";
    while (strcmp(message, "end") != 0) {
        if (zxfifo_api_blockSizeUsed(fifo) == 0) {
            pause_ms(1); /* an empty FIFO would return stale bytes */
            continue;
        }
        const int32_t length =
            zxfifo_api_blockLenOut1(fifo, message, sizeof message - 1, __func__, __LINE__);
        if (length < 0) { /* too long: the boundaries of the following messages are lost */
            zxfifo_api_blockReset(fifo);
            continue;
        }
        message[length] = '\0';
        printf("%d bytes: \"%s\"\n", length, message);
    }
    pthread_join(thread, NULL);
    zxfifo_api_blockDeinit(&fifo);
    fifo = NULL; /* the call does not clear the pointer */
    return EXIT_SUCCESS;
}

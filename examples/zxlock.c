/* Who holds this lock? Lists the locks of the process while a thread holds one of them. */
#include <pthread.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>
#include <zxlock.h>

static zxlock_ctt streams; /* zero bytes before it is made: static, or part of a record */
static zxlock_ctt users;
static sem_t taken;
static sem_t seen;

static void* update_streams(void* argument) {
    if (zxlock_api_obtain(&streams, __func__, __LINE__) != 0) {
        return argument;
    }
    sem_post(&taken);
    sem_wait(&seen); /* a lock that is held for long */
    zxlock_api_release(&streams, __func__, __LINE__);
    return argument;
}

/* Nothing guards a reader: no lock is made, torn down or taken meanwhile. */
static void list_locks(void) {
    for (int i = 0; i < ZXLOCK_LIST_SIZE; ++i) {
        const zxlocklist_entry_ctt* const entry = &zxlocklist_ctt[i];
        if (entry->used == 1) { /* names and holders may fill their fields: bound the print */
            printf("%.*s: %.*s\n", ZXLOCK_NAME_SIZE, entry->lock->name, ZXLOCK_HOLDER_SIZE,
                   entry->lock->holder);
        }
    }
}

int main(void) {
    pthread_t thread;
    sem_init(&taken, 0, 0);
    sem_init(&seen, 0, 0);
    if (zxlock_api_init(&streams, "streams") != 0 || zxlock_api_init(&users, "users") != 0 ||
        pthread_create(&thread, NULL, update_streams, NULL) != 0) {
        fputs("no locks or no thread\n", stderr);
        return EXIT_FAILURE;
    }
    sem_wait(&taken);
    list_locks();
    sem_post(&seen);
    pthread_join(thread, NULL);
    zxlock_api_deinit(&users);
    zxlock_api_deinit(&streams);
    return EXIT_SUCCESS;
}

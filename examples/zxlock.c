/* Lists the locks of the process and their holders, while a thread holds one of the locks. */
#include <pthread.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>
#include <zxlock.h>

static zxlock_ctt streams; /* all zeros before zxlock_api_init() */
static zxlock_ctt users;
static sem_t taken;
static sem_t seen;

static void* update_streams(void* argument) {
    if (zxlock_api_obtain(&streams, __func__, __LINE__) != 0) {
        return argument;
    }
    sem_post(&taken);
    sem_wait(&seen); /* keeps the lock for a long time */
    zxlock_api_release(&streams, __func__, __LINE__);
    return argument;
}

/* Nothing guards the table: no other thread may make, tear down or take a lock meanwhile. */
static void list_locks(void) {
    for (int i = 0; i < ZXLOCK_LIST_SIZE; ++i) {
        const zxlocklist_entry_ctt* const entry = &zxlocklist_ctt[i];
        if (entry->used == 1) { /* the texts may have no NUL: bound them */
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

/* Watches a set of pipes, and calls a function for each one that can be read. */
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
#include <zxepoll.h>

enum { kPipes = 2 };

typedef struct Pipes {
    int read_end[kPipes];
    int write_end[kPipes];
} Pipes;

static int32_t read_end(void* context, uint32_t index) {
    return ((const Pipes*)context)->read_end[index];
}

static int32_t close_read_end(void* context, uint32_t index) {
    return close(((const Pipes*)context)->read_end[index]);
}

static int32_t on_readable(void* context, int32_t fd) {
    const Pipes* const pipes = context;
    char text[32];
    const ssize_t size = read(fd, text, sizeof text);
    if (size > 0) {
        printf("pipe %d: %.*s\n", fd == pipes->read_end[0] ? 0 : 1, (int)size, text);
    }
    return 0;
}

int main(void) {
    Pipes pipes;
    for (int i = 0; i < kPipes; ++i) {
        int ends[2];
        if (pipe(ends) != 0) {
            perror("pipe");
            return EXIT_FAILURE;
        }
        pipes.read_end[i] = ends[0];
        pipes.write_end[i] = ends[1];
    }
    const int epfd = zxepoll_appapi_init(kPipes, &pipes, EPOLLIN, read_end);
    if (epfd < 0) {
        perror("epoll");
        return EXIT_FAILURE;
    }

    if (write(pipes.write_end[1], "hello", 5) != 5) {
        perror("write");
    }
    zxepoll_appapi_dataread(epfd, kPipes, &pipes, on_readable, NULL); /* for one second */

    zxepoll_appapi_deinit(epfd, kPipes, &pipes, close_read_end);
    for (int i = 0; i < kPipes; ++i) {
        close(pipes.write_end[i]);
    }
    return EXIT_SUCCESS;
}

/* Receives datagrams on loopback with a timeout, and handles every result. */
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zxnet.h>

static void receive(int fd) {
    char text[128];
    const int32_t size = zxnet_api_epollRecv(fd, text, sizeof text, 500);
    switch (size) {
        case ZXNET_TIMEOUT:
            puts("nothing came in time");
            break;
        case ZXNET_HANGUP:
            puts("the peer is gone");
            break;
        case ZXNET_UNWAITED:
        case ZXNET_IO_ERROR:
            perror("receive");
            break;
        default:
            printf("received %d bytes: %.*s\n", size, size, text);
    }
}

int main(void) {
    const int in = socket(AF_INET, SOCK_DGRAM, 0);
    const int out = socket(AF_INET, SOCK_DGRAM, 0);
    struct sockaddr_in address = {.sin_family = AF_INET}; /* port 0: any free port */
    socklen_t size = sizeof address;
    address.sin_addr.s_addr = htonl(zxnet_api_ipStr2Byte("127.0.0.1"));
    if (in < 0 || out < 0 || bind(in, (const struct sockaddr*)&address, size) != 0 ||
        getsockname(in, (struct sockaddr*)&address, &size) != 0 ||
        zxnet_api_socketConnect(out, (const struct sockaddr*)&address, size, 0, 1) != 0) {
        perror("sockets");
        return EXIT_FAILURE;
    }

    receive(in);
    if (zxnet_api_epollSend(out, "hello", 5, 500) != 5) {
        fputs("not sent\n", stderr);
    }
    receive(in);

    close(out);
    close(in);
    return EXIT_SUCCESS;
}

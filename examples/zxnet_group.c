/* Receives a multicast group with a UDP socket that is bound to the group and joins it. */
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zxnet.h>

static const char kGroup[] = "239.255.1.1";
static const char kInterface[] = "127.0.0.1"; /* an address of the interface, here loopback */

static struct in_addr address_of(const char* text) {
    return (struct in_addr){.s_addr = htonl(zxnet_api_ipStr2Byte(text))};
}

/* Opens a socket that receives the group on a port. Returns -1 with `errno` set on failure. */
static int join(struct sockaddr_in* address) {
    const int yes = 1;
    const struct ip_mreq membership = {address_of(kGroup), address_of(kInterface)};
    socklen_t size = sizeof *address;
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd >= 0 &&
        /* lets other programs on this machine receive the group, too */
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) == 0 &&
        /* bound to the group instead of INADDR_ANY, to get nothing else that uses the port */
        bind(fd, (const struct sockaddr*)address, size) == 0 &&
        setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) == 0 &&
        getsockname(fd, (struct sockaddr*)address, &size) == 0) {
        return fd;
    }
    if (fd >= 0) {
        close(fd);
    }
    return -1;
}

int main(void) {
    struct sockaddr_in address = {.sin_family = AF_INET}; /* port 0: any free port */
    address.sin_addr = address_of(kGroup);
    const struct in_addr interface = address_of(kInterface);
    const int in = join(&address);
    const int out = socket(AF_INET, SOCK_DGRAM, 0);
    if (in < 0 || out < 0 ||
        setsockopt(out, IPPROTO_IP, IP_MULTICAST_IF, &interface, sizeof interface) != 0 ||
        zxnet_api_socketConnect(out, (const struct sockaddr*)&address, sizeof address, 0, 1) != 0) {
        perror("multicast");
        return EXIT_FAILURE;
    }

    char text[1500]; /* a longer datagram is cut */
    zxnet_api_epollSend(out, "hello", 5, 500);
    const int32_t size = zxnet_api_epollRecv(in, text, sizeof text, 1000);
    if (size > 0) {
        printf("%s: %d bytes: %.*s\n", kGroup, size, size, text);
    } else {
        printf("nothing came: %d\n", size);
    }
    close(out);
    close(in); /* leaves the group */
    return EXIT_SUCCESS;
}

/* Receives frames from a packet socket and decodes them. Opening the socket needs privileges. */
#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zxframe.h>
#include <zxlog.h>
#include <zxnet.h>

static uint8_t frame[65536 + ZXFRAME_READABLE]; /* the longest frame, and zeros for the decoder */
static frame_filter_ctt filter;                 /* 47 KiB: too large for some stacks */

/* Opens a socket that gets every frame of an interface. Returns -1 with `errno` set on failure. */
static int open_on(const char* interface) {
    struct sockaddr_ll address = {.sll_family = AF_PACKET, .sll_protocol = htons(ETH_P_ALL)};
    address.sll_ifindex = (int)if_nametoindex(interface);
    const int fd = socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL));
    if (fd >= 0 && bind(fd, (const struct sockaddr*)&address, sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

/* Sends a datagram to this machine, so that there is a frame to receive. */
static void send_hello(uint16_t port) {
    struct sockaddr_in address = {.sin_family = AF_INET, .sin_port = htons(port)};
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sendto(fd, "hello", 5, 0, (const struct sockaddr*)&address, sizeof address);
    close(fd);
}

int main(void) {
    zxlog_api_setLoglevel(0); /* at every other level, each UDP frame is dumped */
    const int fd = open_on("lo");
    if (fd < 0) {
        puts("no packet socket: that takes CAP_NET_RAW");
        return EXIT_SUCCESS;
    }
    filter.protocol = "udp";
    filter.dest_port = 5004;
    send_hello(5004);
    for (;;) {
        const int32_t size = zxnet_api_epollRecv(fd, frame, 65536, 1000);
        if (size <= 0) {
            printf("no frame: %d\n", size);
            break;
        }
        memset(frame + size, 0, ZXFRAME_READABLE); /* clear what is left of the previous frame */
        filter.frame.tcp.option_count = 0;         /* or the options are appended */
        if (zxframe_api_filterFrame(NULL, frame, &filter) == 1) {
            const ether_ctt* const found = &filter.frame;
            printf("UDP to port %d: %d bytes\n", found->udp.dest, found->data_len);
            break;
        }
    }
    close(fd);
    return EXIT_SUCCESS;
}

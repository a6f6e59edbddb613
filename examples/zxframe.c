/* Builds a UDP frame that a packet socket could send, decodes it and prints its fields. */
#include <arpa/inet.h>
#include <stdio.h>
#include <string.h>
#include <zxframe.h>
#include <zxlog.h>
#include <zxstr.h>

/* The decoder takes no length: it needs a buffer of this size, with zeros after the frame. */
static uint8_t frame[ZXFRAME_READABLE];
static ether_ctt record; /* 47 KiB: too large for some stacks */

/* Returns the length of the frame, or -1 if it could not be built. */
static int32_t build(const char* payload) {
    ether_pkt request = {.source = 5000, .dest = 5004};
    zxstr_api_lcpy(request.str_source_mac, "02:00:00:00:00:01", ZXFRAME_NAME_SIZE);
    zxstr_api_lcpy(request.str_dest_mac, "02:00:00:00:00:02", ZXFRAME_NAME_SIZE);
    zxstr_api_lcpy(request.source_ip, "192.0.2.1", ZXFRAME_NAME_SIZE);
    zxstr_api_lcpy(request.dest_ip, "192.0.2.2", ZXFRAME_NAME_SIZE);

    memset(&record, 0, sizeof record);
    record.data_len = (uint16_t)zxstr_api_lcpy((char*)record.data, payload, 256);
    const int32_t length = zxframe_api_buildUdp(&record, &request, frame);
    if (length > 0) { /* the builder writes only the headers */
        memcpy(frame + length - record.data_len, record.data, record.data_len);
    }
    return length;
}

int main(void) {
    zxlog_api_setLoglevel(0); /* 0: no field dumps in the log */
    const int32_t length = build("hello");
    if (length < 0) {
        return 1;
    }
    printf("a frame of %d bytes\n", length);

    memset(&record, 0, sizeof record); /* a field that the frame lacks keeps its old value */
    zxframe_api_doFrame(&record, frame);
    char source[INET_ADDRSTRLEN];
    char dest[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &record.ipv4.saddr, source, sizeof source);
    inet_ntop(AF_INET, &record.ipv4.daddr, dest, sizeof dest);
    printf("%s to %s, type 0x%04x\n", record.str_source_mac, record.str_dest_mac,
           record.ether_type);
    printf("%s:%d to %s:%d, protocol %d, %d bytes: %.*s\n", source, record.udp.source, dest,
           record.udp.dest, record.ipv4.protocol, record.data_len, record.data_len,
           (const char*)frame + length - record.data_len);
    return 0;
}

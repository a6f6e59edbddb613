/* A queue overflows because its reader is slow. The program says which one, and by how much. */
#include <stdio.h>
#include <stdlib.h>
#include <zxdiag.h>
#include <zxfifo.h>
#include <zxjson.h>

static void print_queues(void) {
    char* answer = zxdiag_api_ask("fifos");
    cJSON* const all = cJSON_Parse(answer);
    const cJSON* fifo = NULL;
    cJSON_ArrayForEach(fifo, cJSON_GetObjectItem(all, "fifos")) {
        printf("%s: %.0f bytes in, %.0f out, %.0f overwritten\n",
               cJSON_GetStringValue(cJSON_GetObjectItem(fifo, "name")),
               cJSON_GetNumberValue(cJSON_GetObjectItem(fifo, "in_bytes")),
               cJSON_GetNumberValue(cJSON_GetObjectItem(fifo, "out_bytes")),
               cJSON_GetNumberValue(cJSON_GetObjectItem(fifo, "overwritten_bytes")));
    }
    cJSON_Delete(all);
    zxdiag_api_free(&answer);
}

int main(void) {
    char packet[188] = {0x47};
    zxdiag_api_start();
    zxfifoblock_ctt* fifo = zxfifo_api_blockInit(4 * sizeof packet, "packets");
    if (fifo == NULL) {
        return EXIT_FAILURE; /* the log says what failed */
    }
    for (int i = 0; i < 10; ++i) {
        zxfifo_api_blockIn(fifo, packet, sizeof packet,
                           NULL); /* never asks whether there is room */
        if (i % 3 == 0) {
            zxfifo_api_blockOut(fifo, packet, sizeof packet, NULL); /* too slow */
        }
    }
    print_queues();
    zxfifo_api_blockDeinit(&fifo);
    return EXIT_SUCCESS;
}

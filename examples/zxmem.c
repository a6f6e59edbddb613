/* Lists the buffers that are still allocated, and where they were allocated. */
#include <stdio.h>
#include <stdlib.h>
#include <zxlog.h>
#include <zxmem.h>

int main(void) {
    zxlog_api_setLoglevel(4); /* 4: information, which includes the list */
    zxmem_api_init(1);        /* start tracking, before other threads start */

    void* packet = zxmem_api_malloc(1536, "packet", __FILE__, __LINE__);
    void* index = zxmem_api_malloc(100, "index", __FILE__, __LINE__);
    if (packet == NULL || index == NULL) {
        zxmem_api_free(&packet);
        zxmem_api_free(&index);
        return EXIT_FAILURE; /* the log says what could not be allocated */
    }
    zxmem_api_free(&index);
    printf("freed, and cleared: %s\n", index == NULL ? "yes" : "no");

    zxmem_api_showBlock(); /* lists the packet */

    zxmem_api_free(&packet);
    zxmem_api_deinit();
    return EXIT_SUCCESS;
}

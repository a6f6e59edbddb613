/* What is still allocated, and who asked for it? */
#include <stdio.h>
#include <stdlib.h>
#include <zxlog.h>
#include <zxmem.h>

int main(void) {
    zxlog_api_setLoglevel(4); /* the list is information */
    zxmem_api_init(1);        /* from here on, and before other threads start */

    void* packet = zxmem_api_malloc(1536, "packet", __FILE__, __LINE__);
    void* index = zxmem_api_malloc(100, "index", __FILE__, __LINE__);
    if (packet == NULL || index == NULL) {
        zxmem_api_free(&packet);
        zxmem_api_free(&index);
        return EXIT_FAILURE; /* the log says what was wanted */
    }
    zxmem_api_free(&index);
    printf("freed, and cleared: %s\n", index == NULL ? "yes" : "no");

    zxmem_api_showBlock(); /* the packet is left */

    zxmem_api_free(&packet);
    zxmem_api_deinit();
    return EXIT_SUCCESS;
}

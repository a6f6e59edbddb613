/* A program whose memory grows says what has grown since a moment that it marked. */
#include <stdio.h>
#include <stdlib.h>
#include <zxdiag.h>
#include <zxjson.h>
#include <zxmem.h>

static void* allocate(const char* name) {
    return zxmem_api_malloc(1000, name, __FILE__, __LINE__);
}

static void print_growth(void) {
    char* answer = zxdiag_api_ask("memory since=start");
    cJSON* const memory = cJSON_Parse(answer);
    const cJSON* place = NULL;
    cJSON_ArrayForEach(place, cJSON_GetObjectItem(memory, "places")) {
        const double more = cJSON_GetNumberValue(cJSON_GetObjectItem(place, "more_buffers"));
        if (more > 0) {
            printf("%s: %.0f more\n", cJSON_GetStringValue(cJSON_GetObjectItem(place, "name")),
                   more);
        }
    }
    cJSON_Delete(memory);
    zxdiag_api_free(&answer);
}

int main(void) {
    void* kept[16] = {NULL};
    zxdiag_api_start();
    zxmem_api_init(1);
    void* settings = allocate("settings");

    char* marked = zxdiag_api_ask("memory mark=start");
    zxdiag_api_free(&marked);
    for (int i = 0; i < 16; ++i) {
        void* request = allocate("request"); /* freed again: it does not grow */
        zxmem_api_free(&request);
        kept[i] = allocate("session");
    }
    print_growth();

    for (int i = 0; i < 16; ++i) {
        zxmem_api_free(&kept[i]);
    }
    zxmem_api_free(&settings);
    zxmem_api_deinit();
    return EXIT_SUCCESS;
}

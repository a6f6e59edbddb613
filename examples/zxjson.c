/* Reads settings from a JSON text, with checks, and prints another JSON text. */
#include <stdio.h>
#include <stdlib.h>
#include <zxjson.h>

int main(void) {
    cJSON* const request = cJSON_Parse("{\"channel\":7,\"tags\":[\"news\",\"live\"]}");
    const cJSON* const channel = cJSON_GetObjectItemCaseSensitive(request, "channel");
    if (!cJSON_IsNumber(channel)) { /* also true if the text is not valid JSON */
        fputs("no channel is given\n", stderr);
        cJSON_Delete(request);
        return EXIT_FAILURE;
    }
    printf("channel %d\n", channel->valueint);
    const cJSON* tag = NULL;
    cJSON_ArrayForEach(tag, cJSON_GetObjectItemCaseSensitive(request, "tags")) {
        printf("tag %s\n", cJSON_IsString(tag) ? tag->valuestring : "?");
    }
    cJSON_Delete(request);

    cJSON* const answer = cJSON_CreateObject();
    char* text = NULL;
    if (cJSON_AddStringToObject(answer, "state", "playing") != NULL) {
        text = cJSON_PrintUnformatted(answer);
    }
    cJSON_Delete(answer);
    if (text == NULL) {
        return EXIT_FAILURE; /* out of memory */
    }
    puts(text);
    cJSON_free(text);
    return EXIT_SUCCESS;
}

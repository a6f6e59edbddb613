/* A program of somebody else, compiled as C and as C++. It makes one call into each library. */
#include <stdio.h>
#include <string.h>
#include <zxcommon.h>
#include <zxjson.h>
#include <zxlog.h>
#ifdef __cplusplus
#include <zxcommon.hpp>
#endif

int main(void) {
    char info[1 + ZXCOMMON_INFO_SIZE] = "";
    char number[ZXLOG_SCRATCH_SIZE];
    cJSON* const json = cJSON_Parse("{\"answer\":42}");
    const cJSON* const answer = cJSON_GetObjectItem(json, "answer");
    const int value = answer != NULL ? answer->valueint : 0;
    cJSON_Delete(json);

    zxlog_api_setLoglevel(0);
    zxcommon_api_info(info);
    zxcommon_api_info(NULL);
    printf("%s %s %s\n", zxcommon_api_version(), zxlog_innerapi_num2str(number, 7), info);
    return value == 42 && strncmp(info, "linux64|", 8) == 0 ? 0 : 1;
}

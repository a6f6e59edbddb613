/* A program that is not linked with the library. It loads the library and looks up the names that
 * other programs use.
 */
#include <dlfcn.h>
#include <stdio.h>

int main(void) {
    const char* const names[] = {"zxcommon_api_version", "zxlog_api_setFile", "cJSON_Parse"};
    void* const library = dlopen("libzxcommon.so.1", RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    for (size_t i = 0; i < sizeof names / sizeof *names; ++i) {
        if (dlsym(library, names[i]) == NULL) {
            fprintf(stderr, "%s\n", dlerror());
            return 1;
        }
    }
    return 0;
}

/* Reads settings from the environment, with defaults. */
#include <stdio.h>
#include <zxenv.h>

int main(void) {
    if (zxenv_api_set("EXAMPLE_PORT", "8080", 0) != 1) { /* 0: keep the value of the user */
        return 1;
    }
    printf("port: %s\n", zxenv_api_get("EXAMPLE_PORT", "80"));
    if (zxenv_api_unset("EXAMPLE_PORT") != 0) {
        perror("EXAMPLE_PORT");
        return 1;
    }
    printf("port: %s\n", zxenv_api_get("EXAMPLE_PORT", "80"));
    return 0;
}

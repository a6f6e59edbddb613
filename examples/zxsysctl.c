/* Reads the IGMP version that the kernel forces on its interfaces. */
#include <stdio.h>
#include <zxsysctl.h>

int main(void) {
    const int32_t version = zxsysctl_api_getIgmpVersion();
    if (version == 0) {
        puts("IGMP: each interface decides for itself");
    } else {
        printf("IGMP: version %d\n", version);
    }
    return 0;
}

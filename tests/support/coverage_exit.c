// Linked into everything that the preset "coverage" builds. A process that leaves through _exit(),
// as the children of tests and daemons do, keeps its counts, too.
#include <gcov.h>
#include <stdlib.h>
#include <unistd.h>

__attribute__((constructor)) static void keep_counts(void) {
    at_quick_exit(__gcov_dump);  // every library has counts of its own
}

__attribute__((weak, noreturn)) void _exit(int status) {
    quick_exit(status);
}

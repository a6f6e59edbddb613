/* A plugin of qemu, which prints how many instructions a program has executed. Debian has no
 * package with the header for plugins, so this declares what it uses. */
#include <inttypes.h>
#include <stddef.h>
#include <stdio.h>

typedef struct qemu_plugin_tb Block; /* instructions that are executed one after the other */
typedef uint64_t Id;

#define EXPORTED __attribute__((visibility("default")))

extern size_t qemu_plugin_tb_n_insns(const Block* block);
extern void qemu_plugin_register_vcpu_tb_trans_cb(Id id, void (*call)(Id id, Block* block));
extern void qemu_plugin_register_vcpu_tb_exec_inline(Block* block, int operation, void* at,
                                                     uint64_t value);
extern void qemu_plugin_register_atexit_cb(Id id, void (*call)(Id id, void* data), void* data);

EXPORTED extern int qemu_plugin_version;
EXPORTED int qemu_plugin_install(Id id, const void* info, int argc, char** argv);

int qemu_plugin_version = 1;
static uint64_t executed;

static void translated(Id id, Block* block) {
    enum { kAdd = 0 };
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_inline(block, kAdd, &executed, qemu_plugin_tb_n_insns(block));
}

static void ended(Id id, void* data) {
    (void)id;
    (void)data;
    fprintf(stderr, "%" PRIu64 "\n", executed);
}

int qemu_plugin_install(Id id, const void* info, int argc, char** argv) {
    (void)info;
    (void)argc;
    (void)argv;
    qemu_plugin_register_vcpu_tb_trans_cb(id, translated);
    qemu_plugin_register_atexit_cb(id, ended, NULL);
    return 0;
}

// A program that still holds tracked buffers when it ends, or not: zxdiag_leaks LOG WORD...
#include <cstdlib>
#include <string_view>

#include "zxdiag.h"
#include "zxlock.h"
#include "zxlog.h"
#include "zxmem.h"

namespace {

// Gives its buffers back when the objects of the program are destroyed.
struct Holder {
    ~Holder() {
        for (void*& buffer : buffers) {
            if (is_freed && buffer != nullptr) {
                zxmem_api_free(&buffer);
            }
        }
    }
    void* buffers[3]{};
    bool is_freed = false;
};
Holder g_holder;

}  // namespace

int main(int argc, char** argv) {
    const auto is_asked = [&](std::string_view word) {
        for (int i = 2; i < argc; ++i) {
            if (word == argv[i]) {
                return true;
            }
        }
        return false;
    };
    zxlog_api_setFile(argv[1]);
    flag_printLineFunc = 0;
    zxlog_api_setLoglevel(2);
    if (!is_asked("untracked")) {
        zxmem_api_init(1);
    }
    if (is_asked("counting")) {
        zxdiag_api_start();
    }
    g_holder.is_freed = is_asked("freed");
    g_holder.buffers[0] = zxmem_api_malloc(10, "small", "leaks", 8);
    g_holder.buffers[1] = zxmem_api_malloc(1000, "big", "leaks", 7);
    g_holder.buffers[2] = zxmem_api_malloc(1000, "big", "leaks", 7);
    if (is_asked("torn-down")) {
        zxmem_api_deinit();
    }
    for (const zxlocklist_entry_ctt& entry : zxlocklist_ctt) {
        if (is_asked("locked") && entry.used == 1) {
            zxlock_api_obtain(entry.lock, __func__, __LINE__);
        }
    }
    std::exit(EXIT_SUCCESS);
}

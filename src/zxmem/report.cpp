#include <cstddef>
#include <cstdint>

#include "internal/lock_guard.hpp"
#include "internal/log.hpp"
#include "zxmem/allocator.hpp"
#include "zxt.h"

using zx::mem::kTag;

extern "C" void zxmem_api_showBlock(void) {
    if (zx::mem::zxmem_enable_dbg != 1) {
        ZX_LOG(warning, "No support %s", "zxmem_api_showBlock");
        return;
    }
    if (zx::mem::flag_init != 1) {
        ZX_LOG(error, "Must init  zxmem_zxlock_ctt  first");
        return;
    }

    std::uint64_t total = 0;
    {
        const zx::LockGuard guard(zx::mem::zxmem_zxlock_ctt, __func__, __LINE__);
        int index = 0;
        for (const memnode_ctt* node = zx::mem::first_memnode_ctt; node != nullptr;
             node = node->next) {
            char size[ZXT_UNIT_SIZE];
            zxt_innerapi_bit2str_64(size, node->size, 0);
            // Deliberate: the index counts lines, so it goes up twice for a buffer when the echo is
            // on.
            ZX_LOG(info, "Memry leak[%08d]:addr ,size :%p   %s ---file,line %s %d", ++index,
                   node->buffer, size, node->file, static_cast<int>(node->line));
            total += node->size;
        }
    }
    ZX_LOG(info, "Toal memry leak:%d byte", static_cast<int>(total));
}

#include "zxfifo.h"

#include <pthread.h>
#include <sys/sdt.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "internal/args.hpp"
#include "internal/bytes.hpp"
#include "internal/fixed_text.hpp"
#include "internal/lock_guard.hpp"
#include "internal/log.hpp"
#include "zxdiag/hooks.hpp"
#include "zxfifo/node.hpp"
#include "zxmem.h"

static_assert(offsetof(zxfifoblockstat_ctt, used) == 8 &&
              offsetof(zxfifoblockstat_ctt, reset_count) == 12);
static_assert(offsetof(zxfifoblockstat_ctt, fifo) == 16 && sizeof(zxfifoblockstat_ctt) == 24);

namespace {

using zx::fifo::allocate;
using zx::fifo::join;
using zx::fifo::kTag;
using zx::fifo::kTextSize;

// The arguments, with the names that they have in messages.
constexpr zx::Argument named(const zxfifoblock_ctt* fifo) {
    return {fifo, "pzxfifoblock_ctt", zx::kErrorParam};
}
constexpr zx::Argument named(const zxfifoblockstat_ctt* stat) {
    return {stat, "stat", zx::kErrorParam};
}
constexpr zx::Argument named(const void* bytes) {
    return {bytes, "pbuf", zx::kErrorParam};
}

std::uint32_t space_total(const zxfifoblock_ctt& fifo) {
    return static_cast<std::uint32_t>(fifo.end - fifo.start);
}

std::uint32_t space_used(const zxfifoblock_ctt& fifo) {
    return fifo.total_in - fifo.total_out;
}

void refresh(zxfifoblock_ctt& fifo) {
    fifo.used = space_used(fifo);
    fifo.free = space_total(fifo) - fifo.used;
}

// perf cannot use a probe whose argument is a register in one place and a constant in another.
#define ZX_FIFO_PROBE(probe, fifo, n)                   \
    do {                                                \
        __asm__("" : "+r"(n));                          \
        DTRACE_PROBE2(zxcommon, probe, (fifo).name, n); \
    } while (0)

// Inlined by hand: the compiler takes the probes for long code, but they are nops.
[[gnu::always_inline]] inline void drain_in(zxfifoblock_ctt& fifo, std::uint32_t n) {
    const bool wraps = n >= fifo.end - fifo.write_pos;
    fifo.write_pos = wraps ? fifo.start : fifo.write_pos + n;
    fifo.total_in += n;
    ZX_FIFO_PROBE(fifo_in, fifo, n);
}

[[gnu::always_inline]] inline void drain_out(zxfifoblock_ctt& fifo, std::uint32_t n) {
    if (n < fifo.end - fifo.read_pos) {
        fifo.read_pos += n;
    } else if (fifo.end != fifo.start) {
        // `n` may be more than the size of the ring: then the position goes round more than once.
        fifo.read_pos = fifo.start + (fifo.read_pos - fifo.start + n) % (fifo.end - fifo.start);
    }
    fifo.total_out += n;
    ZX_FIFO_PROBE(fifo_out, fifo, n);
}

void clear(zxfifoblock_ctt& fifo) {
    fifo.write_pos = fifo.start;
    fifo.read_pos = fifo.start;
    fifo.total_in = 0;
    fifo.total_out = 0;
}

void reset(zxfifoblock_ctt& fifo) {
    clear(fifo);
    if (zx::diag::is_on()) [[unlikely]] {
        zx::diag::fifo_reset(fifo);
    }
}

// At the end of each operation, also of one that only asks whether there is room.
void see(const zxfifoblock_ctt& fifo) {
    if (zx::diag::is_on()) [[unlikely]] {
        zx::diag::fifo_seen(fifo);
    }
}

// Holds the lock of a FIFO.
class Held {
public:
    Held(zxfifoblock_ctt& fifo, const char* func, int line)
        : fifo_(fifo), guard_(fifo.lock, func, line) {}
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    ~Held() { see(fifo_); }

private:
    zxfifoblock_ctt& fifo_;
    const zx::LockGuard guard_;
};

enum class Way { in, out };

// Moves bytes in pieces, none of which crosses the end of the ring.
std::int32_t move_pieces(zxfifoblock_ctt& fifo, Way way, void* memory, std::int32_t length,
                         zxfifo_transfer_cb transfer, zx::Caller caller = {}) {
    const bool in = way == Way::in;
    std::uint8_t* const& position = in ? fifo.write_pos : fifo.read_pos;
    auto* bytes = static_cast<std::uint8_t*>(memory);
    std::int32_t remaining = length;
    while (remaining > 0) {
        const auto piece =
            static_cast<std::int32_t>(std::min<std::ptrdiff_t>(remaining, fifo.end - position));
        std::int32_t moved = piece;
        if (piece == 0) {
            break;  // a ring without storage
        }
        if (transfer != nullptr) {
            moved = std::min(transfer(memory, position, piece), piece);
        } else {
            // The caller's bytes may lie in the ring.
            std::memmove(in ? position : bytes, in ? bytes : position,
                         static_cast<std::size_t>(piece));
            bytes += piece;
        }
        if (moved <= 0) {
            ZX_LOG_AT(caller, warning, "%.128s:%s-func error", fifo.name, in ? "recv" : "send");
            break;
        }
        (in ? drain_in : drain_out)(fifo, static_cast<std::uint32_t>(moved));
        remaining -= moved;
    }
    refresh(fifo);
    see(fifo);
    if (remaining > 0) {
        ZX_LOG_AT(caller, warning, "%.128s:maybe has an error,need %s %d,but %d", fifo.name,
                  in ? "in" : "out", length, length - remaining);
    }
    return length - remaining;
}

// Most copies do not reach the end of the ring. For them these two cost half as much as the loop.
inline std::int32_t store(zxfifoblock_ctt& fifo, const void* source, std::int32_t length) {
    if (length <= 0 || length >= fifo.end - fifo.write_pos) [[unlikely]] {
        return zxfifo_innerapi_blockIOin(&fifo, source, length, nullptr);
    }
    std::memmove(fifo.write_pos, source, static_cast<std::size_t>(length));
    drain_in(fifo, static_cast<std::uint32_t>(length));
    refresh(fifo);
    return length;
}

inline std::int32_t take(zxfifoblock_ctt& fifo, void* dest, std::int32_t length) {
    if (length <= 0 || length >= fifo.end - fifo.read_pos) [[unlikely]] {
        return zxfifo_innerapi_blockIOout(&fifo, dest, length, nullptr);
    }
    std::memmove(dest, fifo.read_pos, static_cast<std::size_t>(length));
    drain_out(fifo, static_cast<std::uint32_t>(length));
    refresh(fifo);
    return length;
}

// Gives the lock back when a thread is cancelled inside a transfer function.
struct Holder {
    zxfifoblock_ctt* fifo;
    zx::Caller caller;
};

void let_go(void* argument) {
    const Holder& holder = *static_cast<const Holder*>(argument);
    refresh(*holder.fifo);
    see(*holder.fifo);
    zxlock_api_release(&holder.fifo->lock, holder.caller.func, holder.caller.line);
}

template <typename Memory>
std::int32_t move_locked(zxfifoblock_ctt& fifo,
                         std::int32_t (*move)(zxfifoblock_ctt*, Memory*, std::int32_t,
                                              zxfifo_transfer_cb),
                         Memory* memory, std::int32_t length, zxfifo_transfer_cb transfer,
                         zx::Caller caller = {}) {
    Holder holder{&fifo, caller};
    std::int32_t moved = 0;
    zxlock_api_obtain(&fifo.lock, caller.func, caller.line);
    pthread_cleanup_push(let_go, &holder);
    moved = move(&fifo, memory, length, transfer);
    pthread_cleanup_pop(1);
    return moved;
}

void free_all(zxfifoblock_ctt* fifo) {
    void* storage = fifo->start;
    void* record = fifo;
    zxmem_api_free(&storage);
    fifo->start = nullptr;
    zxmem_api_free(&record);
}

}  // namespace

extern "C" zxfifoblock_ctt* zxfifo_api_blockInit(uint32_t capacity, const char* name) {
    if (!ZX_ARE_GIVEN({name, "name"})) {
        return nullptr;
    }
    char text[kTextSize];
    join(text, name, "_zxfifoblock");
    void* memory = allocate(sizeof(zxfifoblock_ctt), text);
    if (memory == nullptr) {
        return nullptr;
    }
    auto* const fifo = static_cast<zxfifoblock_ctt*>(memory);
    join(text, name, "_buf");
    fifo->start = static_cast<std::uint8_t*>(allocate(capacity, text));
    if (fifo->start == nullptr) {
        zxmem_api_free(&memory);
        return nullptr;
    }
    ZX_FILL_FIELD(fifo->name, name);
    fifo->size = capacity;
    fifo->end = fifo->start + capacity;
    join(text, "zxfifo_lock_", name);
    if (zxlock_api_init(&fifo->lock, text) != 0) {
        free_all(fifo);
        return nullptr;
    }
    clear(*fifo);
    refresh(*fifo);
    see(*fifo);
    return fifo;
}

extern "C" void zxfifo_api_blockDeinit(zxfifoblock_ctt** pfifo) {
    if (pfifo == nullptr || *pfifo == nullptr) {
        return;
    }
    if (zx::diag::was_on()) {
        zx::diag::fifo_gone(**pfifo);
    }
    zxlock_api_deinit(&(*pfifo)->lock);
    free_all(*pfifo);  // the caller clears the pointer
}

extern "C" int32_t zxfifo_api_blockIn(zxfifoblock_ctt* fifo, const void* source, int32_t length,
                                      zxfifo_transfer_cb transfer) {
    if (!ZX_ARE_GIVEN(named(fifo), named(source))) {
        return -1;
    }
    if (transfer == nullptr) {
        const Held held(*fifo, __func__, __LINE__);
        return store(*fifo, source, length);
    }
    return move_locked(*fifo, zxfifo_innerapi_blockIOin, source, length, transfer);
}

extern "C" int32_t zxfifo_api_blockOut(zxfifoblock_ctt* fifo, void* dest, int32_t length,
                                       zxfifo_transfer_cb transfer) {
    if (!ZX_ARE_GIVEN(named(fifo), named(dest))) {
        return -1;
    }
    if (transfer == nullptr) {
        const Held held(*fifo, __func__, __LINE__);
        return take(*fifo, dest, length);
    }
    return move_locked(*fifo, zxfifo_innerapi_blockIOout, dest, length, transfer);
}

extern "C" int32_t zxfifo_api_blockLenIn(zxfifoblock_ctt* fifo, const void* payload,
                                         int32_t length) {
    if (!ZX_ARE_GIVEN(named(fifo), named(payload))) {
        return -1;
    }
    if (length < 0) {
        ZX_LOG(error, "Error data size:%d", length);
        return -1;
    }
    std::uint8_t prefix[ZXFIFO_PREFIX_SIZE];
    zx::store_be32(prefix, static_cast<std::uint32_t>(length));
    const Held held(*fifo, __func__, __LINE__);
    store(*fifo, prefix, sizeof prefix);
    return store(*fifo, payload, length);
}

extern "C" int32_t zxfifo_api_blockLenOut1(zxfifoblock_ctt* fifo, void* dest, uint32_t size,
                                           const char* func, int line) {
    if (!ZX_ARE_GIVEN(named(fifo), named(dest))) {
        return -1;
    }
    std::uint8_t prefix[ZXFIFO_PREFIX_SIZE] = {};
    std::uint32_t length;
    std::uint32_t used;
    {
        const Held held(*fifo, __func__, __LINE__);
        take(*fifo, prefix, sizeof prefix);
        length = zx::load_be32(prefix);
        if (length <= size) {
            return take(*fifo, dest, static_cast<std::int32_t>(length));
        }
        zxlog_innerapi_bufHex("len_buf", prefix, sizeof prefix, __func__, __LINE__);
        used = space_used(*fifo);
    }
    ZX_LOG(error,
           "%.128s:buf_size(%d) too small,must be large than(%d),spaceused:%d(func, line:%s,%d)",
           fifo->name, static_cast<int>(size), static_cast<int>(length), static_cast<int>(used),
           func != nullptr ? func : "(null)", line);
    return -1;
}

extern "C" int32_t zxfifo_api_blockSizeUsed(zxfifoblock_ctt* fifo) {
    if (!ZX_ARE_GIVEN(named(fifo))) {
        return -1;
    }
    const Held held(*fifo, __func__, __LINE__);
    return static_cast<std::int32_t>(fifo->used);
}

extern "C" int32_t zxfifo_api_blockSizeLeft(zxfifoblock_ctt* fifo) {
    if (!ZX_ARE_GIVEN(named(fifo))) {
        return -1;
    }
    const Held held(*fifo, __func__, __LINE__);
    return static_cast<std::int32_t>(fifo->free);
}

extern "C" int32_t zxfifo_api_blockResetNum(zxfifoblock_ctt* fifo) {
    if (!ZX_ARE_GIVEN(named(fifo))) {
        return -1;
    }
    const Held held(*fifo, __func__, __LINE__);
    return static_cast<std::int32_t>(fifo->reset_count);
}

extern "C" int32_t zxfifo_api_blockReset(zxfifoblock_ctt* fifo) {
    if (!ZX_ARE_GIVEN(named(fifo))) {
        return -1;
    }
    const Held held(*fifo, __func__, __LINE__);
    reset(*fifo);
    refresh(*fifo);
    return static_cast<std::int32_t>(++fifo->reset_count);
}

extern "C" int32_t zxfifo_api_blockReset2(zxfifoblockstat_ctt* stat) {
    if (!ZX_ARE_GIVEN(named(stat)) || !ZX_ARE_GIVEN(named(stat->fifo))) {
        return -1;
    }
    zxfifoblock_ctt& fifo = *stat->fifo;
    zxlock_api_obtain(&fifo.lock, __func__, __LINE__);
    reset(fifo);
    refresh(fifo);
    fifo.reset_count = 0;
    stat->free = fifo.free;
    stat->used = fifo.used;
    stat->reset_count = fifo.reset_count;
    return zxlock_api_release(&fifo.lock, __func__, __LINE__);
}

extern "C" int32_t zxfifo_innerapi_blockDrainIn(zxfifoblock_ctt* fifo, uint32_t n) {
    if (!ZX_ARE_GIVEN(named(fifo))) {
        return -1;
    }
    drain_in(*fifo, n);
    see(*fifo);
    return 0;
}

extern "C" int32_t zxfifo_innerapi_blockDrainOut(zxfifoblock_ctt* fifo, uint32_t n) {
    if (!ZX_ARE_GIVEN(named(fifo))) {
        return -1;
    }
    drain_out(*fifo, n);
    see(*fifo);
    return 0;
}

extern "C" int32_t zxfifo_innerapi_blockSpaceTotal(const zxfifoblock_ctt* fifo) {
    return ZX_ARE_GIVEN(named(fifo)) ? static_cast<std::int32_t>(space_total(*fifo)) : -1;
}

extern "C" int32_t zxfifo_innerapi_blockSpaceUsed(const zxfifoblock_ctt* fifo) {
    return ZX_ARE_GIVEN(named(fifo)) ? static_cast<std::int32_t>(space_used(*fifo)) : -1;
}

extern "C" int32_t zxfifo_innerapi_blockSpaceFree(const zxfifoblock_ctt* fifo) {
    return ZX_ARE_GIVEN(named(fifo))
               ? static_cast<std::int32_t>(space_total(*fifo) - space_used(*fifo))
               : -1;
}

extern "C" int32_t zxfifo_innerapi_blockIOin(zxfifoblock_ctt* fifo, const void* source,
                                             int32_t length, zxfifo_transfer_cb transfer) {
    return ZX_ARE_GIVEN(named(fifo))
               ? move_pieces(*fifo, Way::in, const_cast<void*>(source), length, transfer)
               : -1;
}

extern "C" int32_t zxfifo_innerapi_blockIOout(zxfifoblock_ctt* fifo, void* dest, int32_t length,
                                              zxfifo_transfer_cb transfer) {
    return ZX_ARE_GIVEN(named(fifo)) ? move_pieces(*fifo, Way::out, dest, length, transfer) : -1;
}

extern "C" int32_t zxfifo_innerapi_blockReset(zxfifoblock_ctt* fifo) {
    if (!ZX_ARE_GIVEN(named(fifo))) {
        return 0;
    }
    reset(*fifo);
    return 1;
}

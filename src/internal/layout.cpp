// The layout of the records that contain a mutex, which programs are compiled with. The C library
// decides how large a mutex is, and so where the members after it are: on each architecture
// elsewhere. The other records have one layout, which is checked beside their functions.
#include <cstddef>

#include "zxfifo.h"
#include "zxlock.h"
#include "zxthread.h"

namespace {

struct Layout {
    std::size_t mutex;             // size of a pthread_mutex_t
    std::size_t lock_initialised;  // in zxlock_ctt; its flags and its holder follow
    std::size_t lock;
    std::size_t fifo_write_pos;  // in zxfifoblock_ctt; its counters follow
    std::size_t fifo;
    std::size_t shared_list;
    std::size_t thread_created;  // in zxthread_ctt; its flags, name and state follow
    std::size_t thread;
};

#if defined __x86_64__ || defined __s390x__
constexpr Layout kLayout{40, 168, 304, 456, 496, 344, 48, 184};
#elif defined __AARCH64EL__
constexpr Layout kLayout{48, 176, 312, 464, 504, 352, 56, 192};
#else
#error "libzxcommon runs on x86-64, arm64 and s390x: this architecture's layout is not known"
#define ZX_NO_LAYOUT
#endif

#ifndef ZX_NO_LAYOUT
static_assert(sizeof(pthread_mutex_t) == kLayout.mutex);

static_assert(sizeof(zxlock_ctt::name) == 128 && offsetof(zxlock_ctt, mutex) == 128);
static_assert(offsetof(zxlock_ctt, initialised) == kLayout.lock_initialised);
static_assert(offsetof(zxlock_ctt, report_misuse) == kLayout.lock_initialised + 1);
static_assert(offsetof(zxlock_ctt, locked) == kLayout.lock_initialised + 2);
static_assert(offsetof(zxlock_ctt, holder) == kLayout.lock_initialised + 3);
static_assert(sizeof(zxlock_ctt::holder) == 133 && sizeof(zxlock_ctt) == kLayout.lock);

static_assert(offsetof(zxfifoblock_ctt, size) == 128 && offsetof(zxfifoblock_ctt, start) == 136);
static_assert(offsetof(zxfifoblock_ctt, end) == 144 && offsetof(zxfifoblock_ctt, lock) == 152);
static_assert(offsetof(zxfifoblock_ctt, write_pos) == kLayout.fifo_write_pos);
static_assert(offsetof(zxfifoblock_ctt, read_pos) == kLayout.fifo_write_pos + 8);
static_assert(offsetof(zxfifoblock_ctt, total_in) == kLayout.fifo_write_pos + 16);
static_assert(offsetof(zxfifoblock_ctt, total_out) == kLayout.fifo_write_pos + 20);
static_assert(offsetof(zxfifoblock_ctt, used) == kLayout.fifo_write_pos + 24);
static_assert(offsetof(zxfifoblock_ctt, free) == kLayout.fifo_write_pos + 28);
static_assert(offsetof(zxfifoblock_ctt, reset_count) == kLayout.fifo_write_pos + 32);
static_assert(sizeof(zxfifoblock_ctt) == kLayout.fifo);

static_assert(offsetof(zxsharelist_ctt, keep_seconds) == 4 && offsetof(zxsharelist_ctt, head) == 8);
static_assert(offsetof(zxsharelist_ctt, tail) == 16 && offsetof(zxsharelist_ctt, drop_timer) == 24);
static_assert(offsetof(zxsharelist_ctt, newest) == 32 && offsetof(zxsharelist_ctt, lock) == 40);
static_assert(sizeof(zxsharelist_ctt) == kLayout.shared_list);

static_assert(offsetof(zxthread_ctt, mutex) == 8);
static_assert(offsetof(zxthread_ctt, created) == kLayout.thread_created);
static_assert(offsetof(zxthread_ctt, misuse_logged) == kLayout.thread_created + 1);
static_assert(offsetof(zxthread_ctt, name) == kLayout.thread_created + 2);
static_assert(offsetof(zxthread_ctt, state) == kLayout.thread_created + 132);
static_assert(sizeof(zxthread_ctt) == kLayout.thread);
#endif

}  // namespace

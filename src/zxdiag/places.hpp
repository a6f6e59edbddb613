// The places that make tracked buffers: a name, a file and a line.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "zxdiag/hooks.hpp"
#include "zxdiag/shared_text.hpp"
#include "zxmem.h"

namespace zx::diag {

inline constexpr std::size_t kFileSize = 128;  // of a longer name the end is kept

// Threads write a place under the lock of the allocator; any thread may read its atomic members. A
// place without buffers serves another when the table is full.
struct alignas(64) Place {
    // What each buffer changes is in one line of the cache.
    std::atomic<std::uint64_t> id{0};  // of what it serves now; 0: nothing
    std::atomic<std::uint64_t> buffers{0};
    std::atomic<std::uint64_t> bytes{0};
    std::atomic<std::uint64_t> made{0};  // since it was first seen
    BufferTrace* oldest = nullptr;       // the links are only used under the lock
    BufferTrace* youngest = nullptr;
    std::uint64_t hash = 0;
    std::atomic<std::uint32_t> oldest_s{0};  // when the oldest buffer was made, if there is one
    std::uint16_t next = 0;                  // in the chain of the index
    std::uint16_t round = 0;                 // in which the links were made

    std::atomic<std::uint32_t> line{0};
    char name_key[ZXMEM_NAME_SIZE + 1]{};  // these two are for comparisons under the lock
    char file_key[kFileSize]{};
    const char* file_given = nullptr;  // at the last comparison
    SharedText<ZXMEM_NAME_SIZE + 8> name{};
    SharedText<kFileSize> file{};
};

// The first ones are no places: nothing, and what had no room in the table.
inline constexpr std::size_t kNoPlace = 0;
inline constexpr std::size_t kOtherPlaces = 1;
inline constexpr std::size_t kFirstPlace = 2;
inline constexpr std::size_t kMostPlaces = 4096;
extern Place g_places[kMostPlaces];
extern std::atomic<std::size_t> g_place_end;  // those from here on were never used
extern std::atomic<bool> g_is_round_complete;

}  // namespace zx::diag

// Nodes with a buffer of their own. List pools and shared lists consist of them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "internal/args.hpp"
#include "internal/log.hpp"
#include "zxmem.h"

namespace zx::fifo {

inline constexpr char kTag[] = "FIFO_STRU";
inline constexpr char kSource[] = "src/zxfifo";
inline constexpr std::size_t kTextSize = 1024;  // of the name of an allocation

// Joins two texts and cuts them to the room. A formatted print would cost as much as the
// allocation.
inline void join(char (&out)[kTextSize], std::string_view name, std::string_view rest) {
    name = name.substr(0, sizeof out - 1);
    rest = rest.substr(0, sizeof out - 1 - name.size());
    *std::copy(rest.begin(), rest.end(), std::copy(name.begin(), name.end(), out)) = '\0';
}

// Allocates memory on behalf of `caller`, under the name in `text`.
[[nodiscard]] inline void* allocate(std::uint32_t size, const char* text, Caller caller = {}) {
    void* const memory =
        zxmem_api_malloc(size, text, kSource, static_cast<std::uint32_t>(caller.line));
    if (memory == nullptr) {
        ZX_LOG_MALLOC_AT(caller, text);
    }
    return memory;
}

template <typename Node>
void free_node(Node* node) {
    void* data = node->data;
    void* memory = node;
    zxmem_api_free(&data);
    zxmem_api_free(&memory);
}

template <typename Node>
Node* make_node(std::uint32_t size, const char* name, Caller caller = {}) {
    if (!are_given({{name, "name"}}, kTag, caller)) {
        return nullptr;
    }
    char text[kTextSize];
    join(text, name, "_zxfifoblock");
    void* memory = allocate(sizeof(Node), text, caller);
    if (memory == nullptr) {
        return nullptr;
    }
    auto* const node = static_cast<Node*>(memory);
    join(text, name, "_buf");
    node->data = static_cast<std::uint8_t*>(allocate(size, text, caller));
    if (node->data == nullptr) {
        zxmem_api_free(&memory);
        return nullptr;
    }
    node->size = size;
    return node;
}

// `name` is the name of the argument in messages.
template <typename Node>
void free_given(Node** node, const char* name, Caller caller = {}) {
    if (!are_given({{node, name, kErrorParam}}, kTag, caller)) {
        return;
    }
    if (*node == nullptr) {
        ZX_LOG_AT(caller, error, "%s(*%s)", kErrorParam, name);
        return;
    }
    free_node(*node);  // the caller clears the pointer
}

}  // namespace zx::fifo

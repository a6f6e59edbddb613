// Nodes with a buffer of their own, which list pools and shared lists are made of.
#pragma once

#include <cstdint>
#include <cstdio>

#include "internal/log.hpp"
#include "zxmem.h"

namespace zx::fifo {

inline constexpr char kTag[] = "FIFO_STRU";
inline constexpr char kSource[] = "src/zxfifo";
inline constexpr std::size_t kTextSize = 1024;  // of the name of an allocation

// Memory under the name that `text` holds; speaks for the function `func`.
inline void* allocate(std::uint32_t size, const char* text, const char* func, std::uint32_t line) {
    void* const memory = zxmem_api_malloc(size, text, kSource, line);
    if (memory == nullptr) {
        ZX_LOG_FROM(func, error, "Malloc %s failed,please check the memory", text);
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
Node* make_node(std::uint32_t size, const char* name, const char* func) {
    if (name == nullptr) {
        ZX_LOG_FROM(func, error, "Param error####%s", "name");
        return nullptr;
    }
    char text[kTextSize];
    std::snprintf(text, sizeof text, "%s_zxfifoblock", name);
    void* memory = allocate(sizeof(Node), text, func, __LINE__);
    if (memory == nullptr) {
        return nullptr;
    }
    auto* const node = static_cast<Node*>(memory);
    std::snprintf(text, sizeof text, "%s_buf", name);
    node->data = static_cast<std::uint8_t*>(allocate(size, text, func, __LINE__));
    if (node->data == nullptr) {
        zxmem_api_free(&memory);
        return nullptr;
    }
    node->size = size;
    return node;
}

// `name` is the argument's, in messages.
template <typename Node>
void free_given(Node** node, const char* name, const char* func) {
    if (node == nullptr) {
        ZX_LOG_FROM(func, error, "Error param ###%s", name);
    } else if (*node == nullptr) {
        ZX_LOG_FROM(func, error, "Error param ###(*%s)", name);
    } else {
        free_node(*node);  // the pointer is left unchanged: the caller drops it
    }
}

}  // namespace zx::fifo

// Queues of nodes. They have no lock of their own.
#include <cstddef>

#include "zxfifo.h"
#include "zxfifo/node.hpp"

static_assert(offsetof(zxfifolist_ctt, size) == 4 && offsetof(zxfifolist_ctt, data) == 8);
static_assert(offsetof(zxfifolist_ctt, reserved) == 16 && offsetof(zxfifolist_ctt, next) == 24);
static_assert(sizeof(zxfifolist_ctt) == 32);

extern "C" zxfifolist_ctt* zxfifo_api_listMalloc(uint32_t size, const char* name) {
    return zx::fifo::make_node<zxfifolist_ctt>(size, name);
}

extern "C" void zxfifo_api_listDemalloc(zxfifolist_ctt** ppzxfifolist_ctt) {
    zx::fifo::free_given(ppzxfifolist_ctt, "ppzxfifolist_ctt");
}

extern "C" void zxfifo_api_listIn(zxfifolist_ctt** head, zxfifolist_ctt* node) {
    if (node == nullptr) {
        return;
    }
    node->next = nullptr;
    if (head == nullptr) {
        return;
    }
    node->count = *head != nullptr ? (*head)->count : 0;
    zxfifolist_ctt** link = head;
    for (; *link != nullptr; link = &(*link)->next) {
        ++(*link)->count;
    }
    *link = node;
    ++node->count;
}

extern "C" zxfifolist_ctt* zxfifo_api_listOut(zxfifolist_ctt** head) {
    if (head == nullptr || *head == nullptr) {
        return nullptr;
    }
    zxfifolist_ctt* const taken = *head;
    *head = taken->next;
    for (zxfifolist_ctt* node = *head; node != nullptr; node = node->next) {
        if (node->count > 0) {
            --node->count;
        }
    }
    return taken;
}

extern "C" uint32_t zxfifo_api_listTotalNum(zxfifolist_ctt* const* head) {
    return head != nullptr && *head != nullptr ? (*head)->count : 0;
}

extern "C" void zxfifo_api_listReset(zxfifolist_ctt** head) {
    while (zxfifo_api_listTotalNum(head) != 0) {
        zxfifolist_ctt* node = zxfifo_api_listOut(head);
        zxfifo_api_listDemalloc(&node);
    }
}

#include "stream/store.hpp"

#include <algorithm>
#include <cstring>

#include "common/failure.hpp"
#include "stream/channel.hpp"
#include "zxtime.h"

namespace relay {
namespace {

constexpr char kName[] = "store";
constexpr std::uint64_t kMicro = 1000000;

// A node holds a quarter of a second. It is closed earlier when it has kNodeSize bytes, but not
// before kShortestUs. So even a very fast stream makes at most 50 nodes a second.
constexpr std::uint64_t kLongestUs = 250000;
constexpr std::uint64_t kShortestUs = 20000;
constexpr std::size_t kNodeSize = 256U << 10U;

// The buffer of a node begins with the number of its first packet.
constexpr std::size_t kHeadSize = sizeof(std::uint64_t);

std::uint64_t first_of(const IdList_ctt& node) {
    std::uint64_t first;
    std::memcpy(&first, node.data, sizeof first);
    return first;
}

std::uint64_t end_of(const IdList_ctt& node) {
    return first_of(node) + (node.size - kHeadSize) / kPacketSize;
}

}  // namespace

Store::Store(unsigned keep_seconds) {
    list_.keep_seconds = keep_seconds;
    if (zxfifo_api_shareListInit(&list_, kName) != 0) {
        throw tools::Failure("no memory for the store");
    }
    open_node_.reserve(kNodeSize + kLargestMessage);
}

Store::~Store() {
    zxfifo_api_shareListDeinit(&list_);
}

void Store::add(std::span<const std::uint8_t> message) {
    if (open_node_.empty()) {
        open_node_start_us_ = zxtime_api_upTimeUs();
    }
    open_node_.insert(open_node_.end(), message.begin(), message.end());
}

int Store::due_ms() const {
    if (open_node_.empty()) {
        return -1;
    }
    const std::uint64_t limit = open_node_.size() < kNodeSize ? kLongestUs : kShortestUs;
    const std::uint64_t age = zxtime_api_upTimeUs() - open_node_start_us_;
    return age >= limit ? 0 : static_cast<int>((limit - age + 999) / 1000);
}

bool Store::close_node_when_due() {
    const bool is_due = due_ms() == 0;
    if (is_due) {
        close_node();
    }
    return is_due;
}

void Store::close_node() {
    const auto size = static_cast<std::uint32_t>(kHeadSize + open_node_.size());
    // If there is no memory, the node is missing. Readers notice the gap in the packet numbers.
    if (IdList_ctt* const node = zxfifo_api_shareListMalloc(size, kName); node != nullptr) {
        std::memcpy(node->data, &end_, kHeadSize);
        std::memcpy(node->data + kHeadSize, open_node_.data(), open_node_.size());
        zxfifo_api_shareListIn(&list_, node);
    }
    end_ += open_node_.size() / kPacketSize;
    open_node_.clear();
}

Store::Place Store::seek_back(std::uint64_t seconds) {
    const std::uint64_t since =
        zxtime_api_us() - std::min<std::uint64_t>(seconds, list_.keep_seconds) * kMicro;
    const IdList_ctt* const node = zxfifo_api_shareListRead(&list_, since);
    if (node == nullptr || node->time < since) {
        return {end_};  // all nodes are older; only the open node is recent enough
    }
    return {first_of(*node), node, first_of(*node)};
}

// Returns the node that holds the place or, if it was dropped, the next one. Returns nullptr if
// there is no such node yet.
const IdList_ctt* Store::locate(Place& place) const {
    const IdList_ctt* node = list_.head;
    if (node == nullptr) {
        return nullptr;
    }
    if (place.node != nullptr && first_of(*node) <= place.node_first) {
        node = place.node;
    }
    while (place.packet >= end_of(*node) && node->next != nullptr) {
        node = node->next;
    }
    place.node = node;
    place.node_first = first_of(*node);
    return place.packet < end_of(*node) ? node : nullptr;
}

std::span<const std::uint8_t> Store::read(Place& place, std::span<std::uint8_t> out,
                                          std::uint64_t& lost) const {
    const IdList_ctt* const node = locate(place);
    if (node == nullptr) {
        return {};
    }
    if (place.packet < place.node_first) {
        lost += place.node_first - place.packet;
        place.packet = place.node_first;
    }
    const std::uint64_t packets =
        std::min<std::uint64_t>(end_of(*node) - place.packet, out.size() / kPacketSize);
    const std::size_t size = packets * kPacketSize;
    std::memcpy(out.data(),
                node->data + kHeadSize + (place.packet - place.node_first) * kPacketSize, size);
    place.packet += packets;
    return out.first(size);
}

std::uint64_t Store::bytes_after(const Place& place) const {
    const std::uint64_t end = list_.head != nullptr ? end_of(*list_.tail) : 0;
    return end > place.packet ? (end - place.packet) * kPacketSize : 0;
}

std::uint64_t Store::bytes() const {
    return list_.head != nullptr ? (end_of(*list_.tail) - first_of(*list_.head)) * kPacketSize : 0;
}

}  // namespace relay

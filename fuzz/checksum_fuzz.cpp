// Internet checksums of any bytes at any alignment and length, a word at a time.
#include <arpa/inet.h>

#include "support.hpp"
#include "zxnet.h"

namespace {

using zx::fuzz::Bytes;
using zx::fuzz::GuardedMemory;
using zx::fuzz::Input;
using zx::fuzz::require;

constexpr std::size_t kMaxSize = 2048;

// RFC 1071.
std::uint16_t checksum(Bytes bytes, std::uint32_t sum = 0) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        sum += i % 2 == 0 ? static_cast<std::uint32_t>(bytes[i]) << 8U : bytes[i];
    }
    while (sum > 0xFFFF) {
        sum = (sum >> 16U) + (sum & 0xFFFFU);
    }
    return static_cast<std::uint16_t>(~sum);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static GuardedMemory memory(kMaxSize + 1);
    static GuardedMemory headers(256);

    Input input({data, std::min(size, kMaxSize)});
    const auto source = input.take<std::uint32_t>();
    const auto dest = input.take<std::uint32_t>();
    const auto protocol = input.take<std::uint8_t>();
    const auto header_size = input.take<std::uint8_t>();
    const Bytes bytes = input.rest();
    const auto length = static_cast<std::uint32_t>(bytes.size());

    const std::uint16_t expected = checksum(bytes);
    require(zxnet_api_checksum(memory.copy(bytes), length) == expected, "a buffer");

    const Bytes words = bytes.first(bytes.size() / 2 * 2);
    const void* const placed = memory.copy(words);
    require(
        zxnet_api_checksumUdp(static_cast<const std::uint16_t*>(placed),
                              static_cast<std::uint32_t>(words.size())) == htons(checksum(words)),
        "words");

    const Bytes header = input.take_bytes(header_size);
    const std::uint32_t pseudo =
        (source >> 16U) + (source & 0xFFFFU) + (dest >> 16U) + (dest & 0xFFFFU) + protocol + length;
    require(zxnet_api_checksum_ptc(
                headers.copy(header), source, dest, protocol,
                static_cast<std::uint8_t>(header.size()), memory.copy(input.rest()),
                static_cast<std::uint16_t>(input.rest().size())) == checksum(bytes, pseudo),
            "a header and its data");
    return 0;
}

// Compares Internet checksums with sums of one word at a time, for any bytes, alignment and length.
#include <arpa/inet.h>

#include "arena.hpp"
#include "zxnet.h"

namespace {

using zx::fuzz::Arena;
using zx::fuzz::Bytes;
using zx::fuzz::Edge;
using zx::fuzz::Input;
using zx::fuzz::kBack;
using zx::fuzz::kFront;
using zx::fuzz::require;

constexpr std::size_t kMaxSize = 2048;

// A word of a buffer in the byte order of the memory. A zero byte follows an odd last one.
std::uint16_t word_at(Bytes bytes, std::size_t at) {
    const unsigned second = at + 1 < bytes.size() ? bytes[at + 1] : 0;
    return htons(static_cast<std::uint16_t>(std::uint32_t{bytes[at]} << 8U | second));
}

// Sums in 32 bits, folds at the end, and returns host order.
std::uint16_t plain_checksum(Bytes bytes) {
    std::uint32_t sum = 0;
    for (std::size_t at = 0; at < bytes.size(); at += 2) {
        sum += word_at(bytes, at);
    }
    sum = (sum >> 16U) + (sum & 0xFFFFU);
    sum += sum >> 16U;
    return ntohs(static_cast<std::uint16_t>(~sum));
}

// Folds after every word, and returns the byte order of the memory.
std::uint16_t plain_checksum_udp(Bytes bytes) {
    std::uint32_t sum = 0;
    for (std::size_t at = 0; at < bytes.size(); at += 2) {
        sum += word_at(bytes, at);
        sum = (sum & 0xFFFFU) + (sum >> 16U);
    }
    return static_cast<std::uint16_t>(~sum);
}

struct Packet {
    std::uint32_t source;
    std::uint32_t dest;
    std::uint8_t protocol;
    Bytes header;
    Bytes data;
};

// Sums a copy of the pseudo-header, the header and the data, one after the other.
std::uint16_t plain_checksum_ptc(const Packet& packet) {
    std::vector<std::uint8_t> all;
    for (const std::uint32_t address : {packet.source, packet.dest}) {
        for (const unsigned shift : {24U, 16U, 8U, 0U}) {
            all.push_back(static_cast<std::uint8_t>(address >> shift));
        }
    }
    const std::size_t length = packet.header.size() + packet.data.size();
    all.insert(all.end(), {0, packet.protocol, static_cast<std::uint8_t>(length >> 8U),
                           static_cast<std::uint8_t>(length)});
    all.insert(all.end(), packet.header.begin(), packet.header.end());
    all.insert(all.end(), packet.data.begin(), packet.data.end());
    return plain_checksum(all);
}

void check_buffer(Arena& arena, Bytes bytes, Edge edge) {
    const std::uint8_t* const at = arena.put(bytes, edge);
    const auto size = static_cast<std::uint32_t>(bytes.size());
    require(zxnet_api_checksum(at, size) == plain_checksum(bytes), "a buffer");
    if (size % 2 == 0) {
        const void* const words = at;
        require(zxnet_api_checksumUdp(static_cast<const std::uint16_t*>(words), size) ==
                    plain_checksum_udp(bytes),
                "words");
    }
}

void check_packet(Arena& arena, const Packet& packet, Edge edge) {
    static Arena headers(256);
    require(zxnet_api_checksum_ptc(
                headers.put(packet.header, edge), packet.source, packet.dest, packet.protocol,
                static_cast<std::uint8_t>(packet.header.size()), arena.put(packet.data, edge),
                static_cast<std::uint16_t>(packet.data.size())) == plain_checksum_ptc(packet),
            "a header and its data");
}

}  // namespace

// Runs what seeds would miss.
void zx_fuzz_sweep() {
    constexpr std::uint8_t kPublished[] = {0x00, 0x01, 0xF2, 0x03, 0xF4, 0xF5, 0xF6, 0xF7};
    require(plain_checksum(kPublished) == 0x220D, "RFC 1071, section 3");
    Arena arena(4096);
    const std::vector<std::uint8_t> noise(arena.content(), arena.content() + 4096);
    const std::vector<std::uint8_t> zeros(4096), ones(4096, 0xFF);
    for (std::size_t size = 0; size <= 2100; ++size) {
        for (const auto& source : {noise, zeros, ones}) {
            check_buffer(arena, {source.data(), size}, kFront);
            check_buffer(arena, {source.data(), size}, kBack);
        }
        for (std::size_t shift = 1; shift < 64; shift += size < 300 ? 1 : 9) {
            check_buffer(arena, {noise.data(), size}, {false, shift});
        }
    }
    for (std::size_t header = 0; header <= 255; ++header) {
        for (std::size_t data = 0; data <= 80; data += 1 + header % 3) {
            const Packet packet{
                0xC0A80001, 0xFF0203FE, 17, {noise.data() + 1, header}, {noise.data() + 300, data}};
            check_packet(arena, packet, data % 4 < 2 ? kBack : Edge{false, data % 64});
        }
    }
    // Sizes around the one from which on 32 bits overflow, and the largest sizes, whose 16-bit
    // length overflows.
    Arena large(200000);
    const std::vector<std::uint8_t> many(200000, 0xFF);
    for (const std::size_t size : {65534U, 65536U, 65600U, 131070U, 131074U, 131076U, 199999U}) {
        check_buffer(large, {many.data(), size}, kBack);
    }
    check_packet(large, {~0U, ~0U, 6, {many.data(), 255}, {many.data(), 65535}}, kBack);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Arena arena(kMaxSize + 256);

    Input input({data, std::min(size, kMaxSize)});
    const auto source = input.take<std::uint32_t>();
    const auto dest = input.take<std::uint32_t>();
    const auto protocol = input.take<std::uint8_t>();
    const auto header_size = input.take<std::uint8_t>();
    const Edge edge = source % 2 == 0 ? kBack : Edge{false, source / 2 % 256};
    const Bytes bytes = input.rest();

    check_buffer(arena, bytes, edge);
    check_buffer(arena, bytes.first(bytes.size() / 2 * 2), edge);
    const Bytes header = input.take_bytes(header_size);
    check_packet(arena, {source, dest, protocol, header, input.rest()},
                 source % 2 == 0 ? kBack : kFront);
    return 0;
}

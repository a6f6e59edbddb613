// Writes pcapng files (draft-ietf-opsawg-pcapng), which libpcap reads but does not write: a section
// with one interface, its packets, and at the end its statistics. Numbers are in the byte order of
// this machine.
#include <pcap/dlt.h>

#include "write/writer.hpp"
#include "zxcommon.h"

namespace capture {
namespace {

constexpr std::uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr std::uint32_t kInterfaceDescription = 1;
constexpr std::uint32_t kInterfaceStatistics = 5;
constexpr std::uint32_t kEnhancedPacket = 6;
constexpr std::uint32_t kByteOrder = 0x1A2B3C4D;
constexpr std::uint16_t kOptionEnd = 0;
constexpr std::uint16_t kUserApplication = 4;   // shb_userappl
constexpr std::uint16_t kTimeResolution = 9;    // if_tsresol
constexpr std::uint8_t kNanoseconds = 9;        // 10^-9 s
constexpr std::uint16_t kInterfaceDropped = 5;  // isb_ifdrop
constexpr std::uint16_t kSystemDropped = 7;     // isb_osdrop
constexpr std::uint16_t kLinkRaw = 101;         // LINKTYPE_RAW, the only one that is not its DLT
constexpr std::size_t kBlockOverhead = 12;      // type, and the length at both ends
constexpr std::size_t kPacketFields = 20;
constexpr std::size_t kStatisticsSize = kBlockOverhead + 12 + 12 + 12 + 4;

constexpr std::size_t padded(std::size_t size) {
    return (size + 3) / 4 * 4;
}

// A block up to its end, but a packet's bytes are added apart.
class Block {
public:
    template <typename Number>
    void add(Number number) {
        bytes_.append(reinterpret_cast<const char*>(&number), sizeof number);
    }

    // Of the time in nanoseconds, the upper half is first in any byte order.
    void add_time(const timespec& time) {
        const std::uint64_t nanos =
            std::uint64_t{1000000000} * static_cast<std::uint64_t>(time.tv_sec) +
            static_cast<std::uint64_t>(time.tv_nsec);
        add(static_cast<std::uint32_t>(nanos >> 32U));
        add(static_cast<std::uint32_t>(nanos));
    }

    void add_option(std::uint16_t code, std::string_view value) {
        add(code);
        add(static_cast<std::uint16_t>(value.size()));
        bytes_ += value;
        bytes_.resize(padded(bytes_.size()));
    }

    template <typename Number>
    void add_number(std::uint16_t code, Number number) {
        add_option(code, {reinterpret_cast<const char*>(&number), sizeof number});
    }

    void end_options() { add_option(kOptionEnd, {}); }

    // Writes the block. `content` follows the fields, and then zeros up to a multiple of 4.
    void write(Sink& sink, std::uint32_t type, std::span<const std::uint8_t> content = {}) {
        const std::size_t rest = padded(content.size()) - content.size();
        const auto length =
            static_cast<std::uint32_t>(kBlockOverhead + bytes_.size() + content.size() + rest);
        constexpr std::uint8_t kZeros[4] = {};
        const std::uint32_t head[] = {type, length};
        add_to(sink, head, sizeof head);
        add_to(sink, bytes_.data(), bytes_.size());
        sink.add(content);
        add_to(sink, kZeros, rest);
        add_to(sink, &length, sizeof length);
        bytes_.clear();
    }

private:
    static void add_to(Sink& sink, const void* bytes, std::size_t size) {
        sink.add({static_cast<const std::uint8_t*>(bytes), size});
    }

    std::string bytes_;
};

class PcapngWriter : public Writer {
public:
    PcapngWriter(Sink& sink, int link, std::uint32_t snapshot_length) : sink_(sink) {
        add_section();
        add_interface(link, snapshot_length);
    }

    void add(const Frame& frame) override {
        last_ = frame.time;
        block_.add(std::uint32_t{0});  // the interface
        block_.add_time(frame.time);
        block_.add(static_cast<std::uint32_t>(frame.bytes.size()));
        block_.add(frame.length);
        block_.write(sink_, kEnhancedPacket, frame.bytes);
        sink_.end_record();
    }

    [[nodiscard]] std::size_t size_of(const Frame& frame) const override {
        return kBlockOverhead + kPacketFields + padded(frame.bytes.size()) + kStatisticsSize;
    }

    void finish(const std::optional<Drops>& drops) override {
        if (drops) {
            block_.add(std::uint32_t{0});  // the interface
            block_.add_time(last_);
            block_.add_number(kInterfaceDropped, drops->interface);
            block_.add_number(kSystemDropped, drops->kernel);
            block_.end_options();
            block_.write(sink_, kInterfaceStatistics);
        }
    }

private:
    void add_section() {
        block_.add(kByteOrder);
        block_.add(std::uint16_t{1});  // version 1.0
        block_.add(std::uint16_t{0});
        block_.add(std::int64_t{-1});  // its length is not known
        block_.add_option(kUserApplication, std::string("zxcapture ") + zxcommon_api_version());
        block_.end_options();
        block_.write(sink_, kSectionHeader);
    }

    void add_interface(int link, std::uint32_t snapshot_length) {
        block_.add(link == DLT_RAW ? kLinkRaw : static_cast<std::uint16_t>(link));
        block_.add(std::uint16_t{0});
        block_.add(snapshot_length);
        block_.add_number(kTimeResolution, kNanoseconds);
        block_.end_options();
        block_.write(sink_, kInterfaceDescription);
    }

    Sink& sink_;
    Block block_;
    timespec last_{};  // of the last frame
};

}  // namespace

std::unique_ptr<Writer> write_pcapng(Sink& sink, int link, std::uint32_t snapshot_length) {
    return std::make_unique<PcapngWriter>(sink, link, snapshot_length);
}

}  // namespace capture

#include "show/line.hpp"

#include <ctime>

#include "packet/names.hpp"
#include "show/details.hpp"
#include "show/hex.hpp"
#include "zxframe.h"

namespace capture {
namespace {

constexpr std::size_t kEndpointWidth = 21;
constexpr std::size_t kNameWidth = 7;
constexpr std::size_t kLengthWidth = 5;
constexpr long kMicro = 1000;              // nanoseconds
constexpr std::int64_t kSecond = 1000000;  // microseconds

// An address, with its port if it has one.
void add_endpoint(Text& text, const Packet& packet, const Address& address, std::uint16_t port) {
    if (!packet.has_ports()) {
        text << address;
    } else if (address.is_ipv6) {
        text << '[' << address << "]:" << port;
    } else {
        text << address << ':' << port;
    }
}

void add_source(Text& text, const Frame& frame, const Packet& packet) {
    if (packet.has_ip()) {
        add_endpoint(text, packet, packet.source, packet.source_port);
    } else if (packet.has_macs) {
        text << Mac{frame.bytes.data() + ZXFRAME_MAC_SIZE};
    } else {
        text << '?';
    }
}

void add_dest(Text& text, const Frame& frame, const Packet& packet) {
    if (packet.has_ip()) {
        add_endpoint(text, packet, packet.dest, packet.dest_port);
    } else if (packet.has_macs) {
        text << Mac{frame.bytes.data()};
    } else {
        text << '?';
    }
}

// A damaged file may contain any numbers as a time.
bool is_good(const timespec& time) {
    constexpr time_t kLargest = time_t{1} << 40U;
    return time.tv_sec >= -kLargest && time.tv_sec <= kLargest && time.tv_nsec >= 0 &&
           time.tv_nsec < kMicro * kSecond;
}

std::int64_t micros(const timespec& time) {
    return time.tv_sec * kSecond + time.tv_nsec / kMicro;
}

void add_micros(Text& text, const timespec& time) {
    if (time.tv_nsec >= 0 && time.tv_nsec < kMicro * kSecond) {
        text << '.' << Digits{static_cast<std::uint64_t>(time.tv_nsec / kMicro), 6} << ' ';
    } else {
        text << ".------ ";
    }
}

}  // namespace

void Line::add(const Frame& frame, const Packet& packet, std::uint64_t, Output& output) {
    output.add(print(frame, packet));
    output.add(print_bytes(frame, packet));
}

std::string_view Line::print(const Frame& frame, const Packet& packet) {
    text_.clear();
    add_time(frame.time);
    if (form_.link) {
        add_link(text_, frame, packet, form_.is_live ? &interfaces_ : nullptr);
    }
    std::size_t start = text_.size();
    add_source(text_, frame, packet);
    text_.align_right(start, kEndpointWidth);
    text_ << " > ";
    start = text_.size();
    add_dest(text_, frame, packet);
    text_.align_left(start, kEndpointWidth);
    text_ << ' ';
    start = text_.size();
    text_ << protocol_name(packet);
    text_.align_left(start, kNameWidth);
    text_ << ' ';
    start = text_.size();
    text_ << frame.length;
    text_.align_right(start, kLengthWidth);
    add_details(text_, frame, packet, form_.verbose);
    text_ << '\n';
    return text_.view();
}

std::string_view Line::print_bytes(const Frame& frame, const Packet& packet) {
    text_.clear();
    if (form_.hex != HexForm::none) {
        const std::size_t at = form_.hex == HexForm::frame ? 0 : packet.network_at;
        add_hex(text_, bytes_at(frame, at, SIZE_MAX));
    }
    return text_.view();
}

void Line::add_time(const timespec& time) {
    switch (time_.clock) {
        case Clock::day:
            add_time_of_day(time);
            break;
        case Clock::none:
            break;
        case Clock::epoch:
            add_time_since_1970(time);
            break;
        case Clock::since_line:
        case Clock::since_first:
            add_time_since(time);
            break;
    }
}

void Line::add_time_since_1970(const timespec& time) {
    const auto seconds = static_cast<std::uint64_t>(time.tv_sec);
    if (time.tv_sec < 0) {
        text_ << '-' << 0 - seconds;
    } else {
        text_ << seconds;
    }
    add_micros(text_, time);
}

void Line::add_time_of_day(const timespec& time) {
    if (time.tv_sec != second_) {
        tm parts{};
        time_.utc ? gmtime_r(&time.tv_sec, &parts) : localtime_r(&time.tv_sec, &parts);
        char printed[64];
        const std::size_t size =
            std::strftime(printed, sizeof printed, time_.date ? "%F %T" : "%T", &parts);
        second_text_.assign(printed, size);
        second_ = time.tv_sec;
    }
    text_ << second_text_;
    add_micros(text_, time);
}

// Time may go backwards. A blank takes the place of the sign.
void Line::add_time_since(const timespec& time) {
    if (!is_good(time)) {
        text_ << " --:--:--.------ ";
        return;
    }
    const std::int64_t since = micros(time) - micros(start_.value_or(time));
    const auto amount = static_cast<std::uint64_t>(since < 0 ? -since : since);
    const std::uint64_t seconds = amount / kSecond;
    text_ << (since < 0 ? '-' : ' ') << Digits{seconds / 3600, 2} << ':'
          << Digits{seconds / 60 % 60, 2} << ':' << Digits{seconds % 60, 2} << '.'
          << Digits{amount % kSecond, 6} << ' ';
    if (time_.clock == Clock::since_line || !start_) {
        start_ = time;
    }
}

}  // namespace capture

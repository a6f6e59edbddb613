#include "write/capture_files.hpp"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace capture {
namespace {

// The pattern with the local time in it, as strftime() has it.
std::string with_time(const std::string& pattern, time_t second) {
    tm local{};
    localtime_r(&second, &local);
    std::ostringstream text;
    text << std::put_time(&local, pattern.c_str());
    return text.str();
}

}  // namespace

// With periods, the first file starts with the first frame.
CaptureFiles::CaptureFiles(const Writing& writing, std::uint32_t snapshot_length, Source& source)
    : writing_(writing), snapshot_length_(snapshot_length), source_(source) {
    if (writing_.seconds == 0) {
        open(writing_.path, 0);
    }
}

bool CaptureFiles::has_room_for(const Frame& frame) const {
    return writing_.seconds == 0 || writing_.file_count == 0 || opened_ < writing_.file_count ||
           !is_in_next_period(frame) || with_time(writing_.path, period_of(frame)) == base_;
}

void CaptureFiles::add(const Frame& frame) {
    if (is_in_next_period(frame)) {
        start_period(period_of(frame));
    }
    if (is_too_large_with(frame)) {
        start_next_number();
    }
    is_empty_ = false;
    writer_->add(frame);
}

void CaptureFiles::flush() {
    if (sink_) {
        sink_->flush();
    }
}

void CaptureFiles::finish() {
    if (!sink_) {
        start_period(time(nullptr));  // no frame came
    }
    close();
}

bool CaptureFiles::is_in_next_period(const Frame& frame) const {
    return writing_.seconds != 0 &&
           (!sink_ || frame.time.tv_sec - period_ >= time_t{writing_.seconds});
}

// Periods follow each other from the first frame on.
time_t CaptureFiles::period_of(const Frame& frame) const {
    const time_t second = frame.time.tv_sec;
    return sink_ ? second - (second - period_) % time_t{writing_.seconds} : second;
}

bool CaptureFiles::is_too_large_with(const Frame& frame) const {
    return writing_.file_size != 0 && !is_empty_ &&
           sink_->size() + writer_->size_of(frame) > writing_.file_size;
}

// If the name stays the same, so does the file, because a new one would replace it.
void CaptureFiles::start_period(time_t start) {
    period_ = start;
    if (const std::string base = with_time(writing_.path, start); base != base_) {
        open(base, 0);
    }
}

void CaptureFiles::start_next_number() {
    const std::uint32_t next = number_ + 1;
    open(base_, next == writing_.file_count ? 0 : next);
}

void CaptureFiles::open(const std::string& base, std::uint32_t number) {
    close();
    std::string name = base;
    const bool is_ring = writing_.file_size != 0 && writing_.file_count > 1;
    if (is_ring || number > 0) {
        // As many digits as the last number of a ring has.
        const std::size_t digits = is_ring ? std::to_string(writing_.file_count - 1).size() : 0;
        const std::string text = std::to_string(number);
        name += std::string(digits - std::min(digits, text.size()), '0') + text;
    }
    sink_.emplace(name, source_.file_id());
    writer_ =
        (writing_.pcapng ? write_pcapng : write_pcap)(*sink_, source_.link(), snapshot_length_);
    sink_->flush();
    base_ = base;
    number_ = number;
    is_empty_ = true;
    ++opened_;
}

void CaptureFiles::close() {
    if (writer_) {
        writer_->finish(source_.drops());
        sink_->flush();
        writer_.reset();
    }
}

}  // namespace capture

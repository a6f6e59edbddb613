#include "stream/ring.hpp"

#include <algorithm>
#include <new>
#include <utility>

#include "common/seconds.hpp"

namespace relay {
namespace {

using tools::kMicro;

constexpr std::uint64_t kMarkEveryUs = 250000;

}  // namespace

Ring::~Ring() {
    budget_.give(blocks_.size() * kBlockSize);
}

std::span<std::uint8_t> Ring::room(std::uint64_t now_us) {
    if (bytes() == blocks_.size() * kBlockSize && !add_block(now_us)) {
        return {};
    }
    const std::uint64_t used = bytes() % kBlockSize;
    return {blocks_.back().get() + used, kBlockSize - used};
}

bool Ring::add_block(std::uint64_t now_us) {
    if (!budget_.take(kBlockSize, now_us)) {
        return false;
    }
    if (auto block = zxcommon::make_tracked<std::uint8_t>(kBlockSize, "ring"); block != nullptr) {
        try {
            blocks_.push_back(std::move(block));
            return true;
        } catch (const std::bad_alloc&) {  // as if there were no memory for the block
        }
    }
    budget_.give_unused(kBlockSize, now_us);
    return false;
}

void Ring::commit(std::size_t size, std::uint64_t now_us) {
    const std::uint64_t position = end_;
    end_ += size;
    if (keep_us_ != 0 && (marks_.empty() || now_us - marks_.back().time_us >= kMarkEveryUs)) {
        marks_.push_back({now_us, position});
    }
}

std::size_t Ring::gather(std::uint64_t position, std::span<iovec> parts, std::size_t limit) const {
    std::size_t count = 0;
    limit = std::min<std::uint64_t>(limit, end_ - position);
    while (limit != 0 && count < parts.size()) {
        const std::uint64_t at = (position - begin_) % kBlockSize;
        const std::size_t size = std::min<std::size_t>(limit, kBlockSize - at);
        parts[count++] = {blocks_[(position - begin_) / kBlockSize].get() + at, size};
        position += size;
        limit -= size;
    }
    return count;
}

std::uint64_t Ring::seek_back(std::uint64_t seconds, std::uint64_t now_us) const {
    const std::uint64_t back = std::min(seconds, keep_us_ / kMicro) * kMicro;
    const std::uint64_t since = now_us - std::min(back, now_us);
    const auto found = std::ranges::lower_bound(marks_, since, {}, &Mark::time_us);
    return found != marks_.end() ? std::max(found->position, begin_) : end_;
}

std::uint64_t Ring::kept_from(std::uint64_t now_us) {
    while (marks_.size() > 1 && marks_[1].time_us + keep_us_ <= now_us) {
        marks_.pop_front();
    }
    return marks_.empty() ? end_ : std::max(marks_.front().position, begin_);
}

void Ring::trim(std::uint64_t position) {
    while (front_end() != begin_ && front_end() <= position) {
        drop_front();
    }
}

std::uint64_t Ring::front_end() const {
    return bytes() >= kBlockSize ? begin_ + kBlockSize : begin_;
}

void Ring::drop_front() {
    blocks_.pop_front();
    begin_ += kBlockSize;
    budget_.give(kBlockSize);
}

}  // namespace relay

// Sequences of operations on a block FIFO, against a std::deque of the bytes that it holds.
#include <deque>
#include <vector>

#include "support.hpp"
#include "zxfifo.h"

namespace {

using zx::fuzz::Bytes;
using zx::fuzz::Input;
using zx::fuzz::require;

constexpr std::size_t kMaxCapacity = 96;

// The caller's side of a transfer: moves at most `step` bytes a call and fails when `left` are
// moved. A step of 0 claims more than it was asked for.
struct Transfer {
    std::uint8_t* at;
    std::size_t step;
    std::size_t left;

    template <bool kIn>
    static std::int32_t move(void* context, std::uint8_t* position, std::int32_t length) {
        auto& self = *static_cast<Transfer*>(context);
        require(length > 0, "there is something to move");
        const auto asked = static_cast<std::size_t>(length);
        const std::size_t size =
            std::min(self.step > 0 ? std::min(self.step, asked) : asked, self.left);
        std::memcpy(kIn ? position : self.at, kIn ? self.at : position, size);
        self.at += size;
        self.left -= size;
        return static_cast<std::int32_t>(self.step == 0 && size == asked ? asked + 1 : size);
    }
};

class Model {
public:
    explicit Model(std::size_t capacity)
        : capacity_(capacity),
          fifo_(zxfifo_api_blockInit(static_cast<std::uint32_t>(capacity), "fuzz")) {
        require(fifo_ != nullptr, "there is a FIFO");
    }
    Model(const Model&) = delete;
    Model& operator=(const Model&) = delete;
    ~Model() { zxfifo_api_blockDeinit(&fifo_); }

    void run(Input& input) {
        const std::size_t operation = input.take_below(12);
        const std::size_t size = input.take_below(kMaxCapacity + 8);
        const std::size_t step = input.take_below(16);
        switch (operation) {
            case 0:
            case 1:
                return in(input.take_bytes(std::min(size, free())));
            case 2:
            case 3:
                return out(std::min(size, held_.size()));
            case 4: {
                const Bytes bytes = input.take_bytes(std::min(size, free()));
                return in_through(bytes, step, input.take_below(128));
            }
            case 5:
                return out_through(std::min(size, held_.size()), step, input.take_below(128));
            case 6:
                return message_in(input, size);
            case 7:
                return message_out(size);
            case 8:
                return drain_in(input, size);
            case 9:
                return drain_out(std::min(size, held_.size()));
            case 10:
                return out_of_step(input, size);
            default:
                return reset(step);
        }
    }

    void check() const {
        const auto is = [](std::int32_t number, std::size_t size) {
            return number == static_cast<std::int32_t>(size);
        };
        require(is(zxfifo_api_blockSizeUsed(fifo_), seen_) &&
                    is(zxfifo_api_blockSizeLeft(fifo_), capacity_ - seen_),
                "what is held and free as of the last transfer");
        require(is(zxfifo_innerapi_blockSpaceUsed(fifo_), held_.size()) &&
                    is(zxfifo_innerapi_blockSpaceFree(fifo_), free()) &&
                    is(zxfifo_innerapi_blockSpaceTotal(fifo_), capacity_),
                "what is held and free");
        require(zxfifo_api_blockResetNum(fifo_) == resets_, "the resets");
    }

private:
    [[nodiscard]] std::size_t free() const { return capacity_ - held_.size(); }
    void hold(Bytes bytes) {
        held_.insert(held_.end(), bytes.begin(), bytes.end());
        seen_ = held_.size();
    }
    void require_front(const std::vector<std::uint8_t>& bytes, std::size_t size) {
        const auto count = static_cast<std::ptrdiff_t>(size);
        require(std::equal(bytes.begin(), bytes.begin() + count, held_.begin()), "the bytes");
        drop(size);
        seen_ = held_.size();
    }
    void drop(std::size_t size) {
        held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(size));
    }

    void in(Bytes bytes) {
        const auto size = static_cast<std::int32_t>(bytes.size());
        const std::vector<std::uint8_t> own(bytes.begin(), bytes.end());
        const std::uint8_t none = 0;
        require(zxfifo_api_blockIn(fifo_, size > 0 ? own.data() : &none, size, nullptr) == size,
                "stored");
        hold(bytes);
    }
    void out(std::size_t size) {
        std::vector<std::uint8_t> bytes(size + 1);
        bytes.pop_back();
        require(zxfifo_api_blockOut(fifo_, bytes.data(), static_cast<std::int32_t>(size),
                                    nullptr) == static_cast<std::int32_t>(size),
                "taken");
        require_front(bytes, size);
    }
    void in_through(Bytes bytes, std::size_t step, std::size_t limit) {
        std::vector<std::uint8_t> own(bytes.begin(), bytes.end());
        const std::size_t moved = std::min(limit, bytes.size());
        Transfer transfer{own.data(), step, moved};
        require(zxfifo_api_blockIn(fifo_, &transfer, static_cast<std::int32_t>(bytes.size()),
                                   Transfer::move<true>) == static_cast<std::int32_t>(moved),
                "stored by a function");
        hold(bytes.first(moved));
    }
    void out_through(std::size_t size, std::size_t step, std::size_t limit) {
        std::vector<std::uint8_t> bytes(size);
        const std::size_t moved = std::min(limit, size);
        Transfer transfer{bytes.data(), step, moved};
        require(zxfifo_api_blockOut(fifo_, &transfer, static_cast<std::int32_t>(size),
                                    Transfer::move<false>) == static_cast<std::int32_t>(moved),
                "taken by a function");
        require_front(bytes, moved);
    }

    void message_in(Input& input, std::size_t size) {
        if (free() < ZXFIFO_PREFIX_SIZE) {
            return;
        }
        const Bytes payload = input.take_bytes(std::min(size, free() - ZXFIFO_PREFIX_SIZE));
        const std::uint8_t prefix[ZXFIFO_PREFIX_SIZE] = {0, 0, 0,
                                                         static_cast<std::uint8_t>(payload.size())};
        const std::uint8_t none = 0;
        const auto length = static_cast<std::int32_t>(payload.size());
        require(zxfifo_api_blockLenIn(fifo_, payload.empty() ? &none : payload.data(), length) ==
                    length,
                "a message is stored");
        hold(prefix);
        hold(payload);
    }
    // Whatever is at the front counts as a length.
    void message_out(std::size_t room) {
        if (held_.size() < ZXFIFO_PREFIX_SIZE) {
            return;
        }
        const std::size_t length = std::size_t{held_[0]} << 24U | std::size_t{held_[1]} << 16U |
                                   std::size_t{held_[2]} << 8U | held_[3];
        if (length <= room && length + ZXFIFO_PREFIX_SIZE > held_.size()) {
            return;  // no message
        }
        drop(ZXFIFO_PREFIX_SIZE);
        std::vector<std::uint8_t> bytes(room + 1);
        bytes.pop_back();
        const auto taken = zxfifo_api_blockLenOut1(fifo_, bytes.data(),
                                                   static_cast<std::uint32_t>(room), "fuzz", 1);
        require(taken == (length <= room ? static_cast<std::int32_t>(length) : -1),
                "a message is taken");
        require_front(bytes, length <= room ? length : 0);
    }

    void drain_in(Input& input, std::size_t size) {
        const auto unbroken = static_cast<std::size_t>(fifo_->end - fifo_->write_pos);
        const Bytes bytes = input.take_bytes(std::min({size, free(), unbroken}));
        std::copy(bytes.begin(), bytes.end(), fifo_->write_pos);
        const auto count = static_cast<std::uint32_t>(bytes.size());
        require(zxfifo_innerapi_blockDrainIn(fifo_, count) == 0, "counted as stored");
        held_.insert(held_.end(), bytes.begin(), bytes.end());
    }
    void drain_out(std::size_t size) {
        const auto count = static_cast<std::uint32_t>(size);
        require(zxfifo_innerapi_blockDrainOut(fifo_, count) == 0, "counted as taken");
        drop(size);
    }

    // More than is free, or than there is: stale bytes, but none of somebody else's.
    void out_of_step(Input& input, std::size_t size) {
        const std::vector<std::uint8_t> bytes(size + 1, input.take<std::uint8_t>());
        std::vector<std::uint8_t> to(size + 1);
        const auto moved = capacity_ > 0 ? static_cast<std::int32_t>(size) : 0;
        require(zxfifo_api_blockIn(fifo_, bytes.data(), static_cast<std::int32_t>(size), nullptr) ==
                    moved,
                "stored");
        require(zxfifo_api_blockOut(fifo_, to.data(), static_cast<std::int32_t>(size), nullptr) ==
                    moved,
                "taken");
        reset(1);
    }
    void reset(std::size_t which) {
        if (which % 2 == 0) {
            zxfifoblockstat_ctt stat{1, 2, 3, 4, fifo_};
            require(zxfifo_api_blockReset2(&stat) == 0, "a reset");
            require(stat.free == capacity_ && stat.used == 0 && stat.reset_count == 0 &&
                        stat.reserved == 2,
                    "the status");
            resets_ = 0;
        } else {
            require(zxfifo_api_blockReset(fifo_) == ++resets_, "a reset");
        }
        held_.clear();
        seen_ = 0;
    }

    std::size_t capacity_;
    zxfifoblock_ctt* fifo_;
    std::deque<std::uint8_t> held_;
    std::size_t seen_ = 0;  // of them, when bytes were transferred last
    std::int32_t resets_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input({data, size});
    zx::fuzz::log_to_nowhere(input.take<std::uint8_t>());
    Model model(input.take_below(kMaxCapacity));
    while (!input.empty()) {
        model.run(input);
        model.check();
    }
    return 0;
}

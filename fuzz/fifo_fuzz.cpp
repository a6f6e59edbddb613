// Runs sequences of operations on a block FIFO, against a plain loop over a ring. Compares results,
// log lines, the whole record, every byte of the ring and of the caller's buffers, and in the end
// what the diagnosis has counted.
#include <vector>

#include "asked.hpp"
#include "said.hpp"
#include "support.hpp"
#include "zxfifo.h"

namespace {

using zx::fuzz::Bytes;
using zx::fuzz::GuardedMemory;
using zx::fuzz::Input;
using zx::fuzz::require;

constexpr std::size_t kMaxCapacity = 96;
constexpr std::size_t kMaxLength = kMaxCapacity + 40;

// The caller's side of a transfer. It moves at most `step` bytes in a call, and fails when `left`
// bytes are moved. With a step of 0 it claims to have moved more than it was asked for.
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

// What the diagnosis counts, byte by byte.
struct Counts {
    std::int64_t size;
    std::int64_t used = 0;
    std::int64_t highest = 0;
    std::int64_t in = 0;
    std::int64_t out = 0;
    std::int64_t overwritten = 0;
    std::int64_t stale = 0;
    std::int64_t resets = 0;
    bool is_on = true;

    void store(std::size_t n) {
        for (; n > 0; --n) {
            ++used;
            if (is_on) {
                ++in;
                overwritten += used > size ? 1 : 0;
                highest = std::max(highest, used);
            }
        }
    }
    void take(std::size_t n) {
        for (; n > 0; --n) {
            --used;
            if (is_on) {
                ++out;
                stale += used < 0 ? 1 : 0;
            }
        }
    }
    void reset() {
        used = 0;
        ++resets;
    }
    void turn(bool on) {
        is_on = on;
        highest = std::max(highest, used);
    }
};

// The plain algorithm. It moves piece by piece and byte by byte.
struct Ring {
    std::vector<std::uint8_t> bytes;
    std::size_t write = 0;
    std::size_t read = 0;
    std::uint32_t total_in = 0;
    std::uint32_t total_out = 0;
    std::uint32_t used = 0;
    std::uint32_t free = 0;
    std::uint32_t resets = 0;
    zx::fuzz::Lines lines{"FIFO_STRU", zxlog_api_getLoglevel()};

    Counts counts;

    explicit Ring(std::size_t capacity)
        : bytes(capacity), counts{static_cast<std::int64_t>(capacity)} {
        refresh();
    }

    void refresh() {
        used = total_in - total_out;
        free = static_cast<std::uint32_t>(bytes.size()) - used;
    }
    void reset() {
        write = read = 0;
        total_in = total_out = 0;
        counts.reset();
    }
    void drain_in(std::size_t n) {
        write = write + n >= bytes.size() ? 0 : write + n;
        total_in += static_cast<std::uint32_t>(n);
        counts.store(n);
    }
    void drain_out(std::size_t n) {
        read = bytes.empty() ? 0 : (read + n) % bytes.size();
        total_out += static_cast<std::uint32_t>(n);
        counts.take(n);
    }
    // `memory` holds the caller's bytes. It may also be the ring itself, from `at` on.
    std::int32_t move(bool in, std::vector<std::uint8_t>& memory, std::size_t at,
                      std::int32_t length, Transfer* transfer) {
        std::int32_t remaining = length;
        bool is_stopped = false;
        while (remaining >= 1 && !is_stopped && !bytes.empty()) {
            const std::size_t position = in ? write : read;
            const std::size_t chunk =
                std::min(static_cast<std::size_t>(remaining), bytes.size() - position);
            std::size_t moved = chunk;
            if (transfer != nullptr) {
                const auto count = static_cast<std::int32_t>(chunk);
                const std::int32_t result =
                    (in ? Transfer::move<true> : Transfer::move<false>)(transfer, &bytes[position],
                                                                        count);
                moved = static_cast<std::size_t>(std::min(result, count));
                is_stopped = moved == 0;
            } else {
                const auto& from = in ? memory : bytes;
                const std::vector<std::uint8_t> piece(
                    from.begin() + offset(in ? at : position),
                    from.begin() + offset((in ? at : position) + chunk));
                std::copy(piece.begin(), piece.end(),
                          (in ? bytes : memory).begin() + offset(in ? position : at));
                at += chunk;
            }
            in ? drain_in(moved) : drain_out(moved);
            remaining -= static_cast<std::int32_t>(moved);
        }
        refresh();
        if (is_stopped) {
            lines.say(2, "fuzz:%s-func error", in ? "recv" : "send");
        }
        if (remaining >= 1) {
            lines.say(2, "fuzz:maybe has an error,need %s %d,but %d", in ? "in" : "out", length,
                      length - remaining);
        }
        return length < 0 ? 0 : length - remaining;
    }
    static std::ptrdiff_t offset(std::size_t at) { return static_cast<std::ptrdiff_t>(at); }
};

class Model {
public:
    explicit Model(std::size_t capacity)
        : ring_(capacity),
          fifo_(zxfifo_api_blockInit(static_cast<std::uint32_t>(capacity), "fuzz")) {
        require(fifo_ != nullptr && std::strcmp(fifo_->lock.name, "zxfifo_lock_fuzz") == 0,
                "there is a FIFO");
        std::uint8_t byte = 0;
        require(zxfifo_api_blockLenIn(fifo_, &byte, -1) == -1, "no message");
        ring_.lines.say(1, "Error data size:-1");
    }
    Model(const Model&) = delete;
    Model& operator=(const Model&) = delete;
    ~Model() {
        const zxfifoblock_ctt* const before = fifo_;
        zxfifo_api_blockDeinit(&fifo_);
        require(fifo_ == before, "the caller clears it");
    }

    void run(Input& input) {
        const std::size_t operation = input.take_below(16);
        const std::size_t size = input.take_below(kMaxLength + 1);
        const std::size_t step = input.take_below(16);
        switch (operation) {
            case 0:
            case 1:
            case 2:
            case 3:
                return in(input, size, operation % 2 == 0);
            case 4:
            case 5:
            case 6:
            case 7:
                return out(size, operation % 2 == 0);
            case 8:
                return through(true, input, size, step, input.take_below(128));
            case 9:
                return through(false, input, size, step, input.take_below(128));
            case 10:
                return message_in(input, size);
            case 11:
                return message_out(size);
            case 12:
                return within(step % 2 == 0, size, input.take_below(kMaxCapacity));
            case 13:
                return count(size, step % 2 == 0);
            case 14:
                return uncounted(input, size, input.take<std::uint32_t>());
            default:
                return reset(step);
        }
    }

    void check() {
        const auto at = [this](const std::uint8_t* position) {
            return static_cast<std::size_t>(position - fifo_->start);
        };
        require(at(fifo_->write_pos) == ring_.write && at(fifo_->read_pos) == ring_.read &&
                    fifo_->total_in == ring_.total_in && fifo_->total_out == ring_.total_out &&
                    fifo_->reset_count == ring_.resets && fifo_->lock.locked == 0,
                "the record");
        require(std::equal(ring_.bytes.begin(), ring_.bytes.end(), fifo_->start), "the ring");
        const auto is = [](std::int32_t number, std::uint32_t expected) {
            return number == static_cast<std::int32_t>(expected);
        };
        const auto capacity = static_cast<std::uint32_t>(ring_.bytes.size());
        const std::uint32_t held = ring_.total_in - ring_.total_out;
        require(is(zxfifo_api_blockSizeUsed(fifo_), ring_.used) &&
                    is(zxfifo_api_blockSizeLeft(fifo_), ring_.free) &&
                    is(zxfifo_api_blockResetNum(fifo_), ring_.resets),
                "what is held and free as of the last transfer");
        require(is(zxfifo_innerapi_blockSpaceUsed(fifo_), held) &&
                    is(zxfifo_innerapi_blockSpaceFree(fifo_), capacity - held) &&
                    is(zxfifo_innerapi_blockSpaceTotal(fifo_), capacity),
                "what is held and free");
        require(zx::fuzz::take_said() == ring_.lines.said, "the log lines");
        ring_.lines.said.clear();
    }

    void check_counts() const {
        const zx::test::Asked answer("fifos");
        const auto is = [&](const char* key, std::int64_t expected) {
            require(answer.number("fifos", fifo_, key) == static_cast<double>(expected), key);
        };
        require(answer.text("fifos", fifo_, "name") == "fuzz", "the name in the answer");
        is("size_bytes", ring_.counts.size);
        is("used_bytes", ring_.counts.used);
        is("highest_bytes", ring_.counts.highest);
        is("in_bytes", ring_.counts.in);
        is("out_bytes", ring_.counts.out);
        is("overwritten_bytes", ring_.counts.overwritten);
        is("stale_bytes", ring_.counts.stale);
        is("resets", ring_.counts.resets);
    }

private:
    // The caller's bytes end at an inaccessible page.
    static std::uint8_t* placed(const std::vector<std::uint8_t>& bytes) {
        static GuardedMemory memory(kMaxLength);
        return memory.copy(bytes);
    }
    static std::vector<std::uint8_t> filled(Input& input, std::size_t size) {
        std::vector<std::uint8_t> bytes(size);
        const Bytes taken = input.take_bytes(size);
        std::copy(taken.begin(), taken.end(), bytes.begin());
        return bytes;
    }

    void in(Input& input, std::size_t size, bool holds_lock) {
        std::vector<std::uint8_t> bytes = filled(input, size);
        const auto length = static_cast<std::int32_t>(size);
        auto* const store = holds_lock ? zxfifo_innerapi_blockIOin : zxfifo_api_blockIn;
        require(store(fifo_, placed(bytes), length, nullptr) ==
                    ring_.move(true, bytes, 0, length, nullptr),
                "stored");
    }
    void out(std::size_t size, bool holds_lock) {
        std::vector<std::uint8_t> bytes(size);
        std::uint8_t* const dest = placed(bytes);
        const auto length = static_cast<std::int32_t>(size);
        auto* const take = holds_lock ? zxfifo_innerapi_blockIOout : zxfifo_api_blockOut;
        require(
            take(fifo_, dest, length, nullptr) == ring_.move(false, bytes, 0, length, nullptr) &&
                std::equal(bytes.begin(), bytes.end(), dest),
            "taken");
    }
    void through(bool in, Input& input, std::size_t size, std::size_t step, std::size_t limit) {
        std::vector<std::uint8_t> bytes = filled(input, in ? size : 0);
        bytes.resize(size);
        std::vector<std::uint8_t> expected = bytes;
        std::uint8_t* const own = placed(bytes);
        Transfer plain{expected.data(), step, std::min(limit, size)};
        Transfer transfer{own, step, std::min(limit, size)};
        const auto length = static_cast<std::int32_t>(size);
        const auto moved =
            in ? zxfifo_api_blockIn(fifo_, &transfer, length, Transfer::move<true>)
               : zxfifo_api_blockOut(fifo_, &transfer, length, Transfer::move<false>);
        require(moved == ring_.move(in, expected, 0, length, &plain) &&
                    std::equal(expected.begin(), expected.end(), own),
                "moved by a function");
    }

    void message_in(Input& input, std::size_t size) {
        std::vector<std::uint8_t> payload = filled(input, size);
        std::vector<std::uint8_t> prefix{0, 0, 0, static_cast<std::uint8_t>(size)};
        const auto length = static_cast<std::int32_t>(size);
        ring_.move(true, prefix, 0, ZXFIFO_PREFIX_SIZE, nullptr);
        require(zxfifo_api_blockLenIn(fifo_, placed(payload), length) ==
                    ring_.move(true, payload, 0, length, nullptr),
                "a message is stored");
    }
    // The next four bytes count as the length, although they may be anything.
    void message_out(std::size_t room) {
        std::vector<std::uint8_t> prefix(ZXFIFO_PREFIX_SIZE);
        std::vector<std::uint8_t> payload(room);
        std::uint8_t* const dest = placed(payload);
        ring_.move(false, prefix, 0, ZXFIFO_PREFIX_SIZE, nullptr);
        const std::uint32_t length = std::uint32_t{prefix[0]} << 24U |
                                     std::uint32_t{prefix[1]} << 16U |
                                     std::uint32_t{prefix[2]} << 8U | prefix[3];
        const auto taken =
            zxfifo_api_blockLenOut1(fifo_, dest, static_cast<std::uint32_t>(room), "fuzz", 1);
        if (length > room) {
            require(taken == -1, "a message without room");
            ring_.lines.said.append("len_buf").append(prefix.begin(), prefix.end());
            ring_.lines.say(1,
                            "fuzz:buf_size(%d) too small,must be large than(%d),spaceused:%d"
                            "(func, line:fuzz,1)",
                            static_cast<int>(room), static_cast<int>(length),
                            static_cast<int>(ring_.total_in - ring_.total_out));
        } else {
            require(
                taken == ring_.move(false, payload, 0, static_cast<std::int32_t>(length), nullptr),
                "a message is taken");
        }
        require(std::equal(payload.begin(), payload.end(), dest), "the message");
    }

    // Moves from one place of the ring to another; these may overlap.
    void within(bool in, std::size_t size, std::size_t at) {
        at = std::min(at, ring_.bytes.size());
        const auto length = static_cast<std::int32_t>(std::min(size, ring_.bytes.size() - at));
        const auto moved = in ? zxfifo_api_blockIn(fifo_, fifo_->start + at, length, nullptr)
                              : zxfifo_api_blockOut(fifo_, fifo_->start + at, length, nullptr);
        require(moved == ring_.move(in, ring_.bytes, at, length, nullptr), "moved in the ring");
    }
    void count(std::size_t size, bool in) {
        const auto n = static_cast<std::uint32_t>(size);
        require((in ? zxfifo_innerapi_blockDrainIn : zxfifo_innerapi_blockDrainOut)(fifo_, n) == 0,
                "counted");
        in ? ring_.drain_in(size) : ring_.drain_out(size);
    }
    // While nothing is counted, stores some bytes, and makes the totals look as if many more had
    // been moved.
    void uncounted(Input& input, std::size_t size, std::uint32_t by) {
        zxdiag_api_stop();
        ring_.counts.turn(false);
        in(input, size, false);
        fifo_->total_in = ring_.total_in += by;
        fifo_->total_out = ring_.total_out += by;
        zxdiag_api_start();
        ring_.counts.turn(true);
    }
    void reset(std::size_t which) {
        ring_.reset();
        if (which % 3 == 0) {
            require(zxfifo_innerapi_blockReset(fifo_) == 1, "a reset without the lock");
            return;
        }
        ring_.refresh();
        if (which % 3 == 1) {
            ring_.resets = 0;
            zxfifoblockstat_ctt stat{1, 2, 3, 4, fifo_};
            require(zxfifo_api_blockReset2(&stat) == 0 && stat.free == ring_.free &&
                        stat.reserved == 2 && stat.used == 0 && stat.reset_count == 0,
                    "the status");
        } else {
            require(zxfifo_api_blockReset(fifo_) == static_cast<std::int32_t>(++ring_.resets),
                    "a reset");
        }
    }

    Ring ring_;
    zxfifoblock_ctt* fifo_;
};

}  // namespace

// Gives back a FIFO and a node that do not exist.
void zx_fuzz_sweep() {
    zxlog_api_setLoglevel(4);
    zx::fuzz::Lines lines{"FIFO_STRU", 4};
    lines.say(1, "Error param ###(*ppzxfifolist_ctt)");
    zxfifoblock_ctt* no_fifo = nullptr;
    zxfifolist_ctt* no_node = nullptr;
    zx::fuzz::take_said();
    zxfifo_api_blockDeinit(&no_fifo);
    zxfifo_api_listDemalloc(&no_node);
    require(zx::fuzz::take_said() == lines.said, "nothing to give back");
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input({data, size});
    zxlog_api_setLoglevel(4);
    zx::fuzz::take_said();
    zxdiag_api_start();
    Model model(input.take_below(kMaxCapacity + 1));
    while (!input.empty()) {
        model.run(input);
        model.check();
    }
    model.check_counts();
    return 0;
}

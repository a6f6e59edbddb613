// Feeds segments of any kind, at any times, to the table of TCP connections. The frames must add
// up, and what is shown must be good JSON. A set of places is the plain twin of the bytes that were
// seen.
#include <algorithm>
#include <set>
#include <vector>

#include "streams/conversations.hpp"
#include "support.hpp"

namespace {

using capture::Conversations;
using capture::SeenBytes;
using zx::fuzz::Bytes;
using zx::fuzz::Input;
using zx::fuzz::require;

using Content = std::vector<std::uint8_t>;

// Places in the sequence that never wrap.
struct SeenModel {
    std::set<std::int64_t> seen;
    std::int64_t next = 0;

    SeenBytes::Kind add(std::int64_t begin, std::uint32_t size) {
        const std::int64_t before = seen.empty() ? begin : next;
        bool has_filled = false;
        for (std::int64_t place = begin; place < begin + size; ++place) {
            has_filled = seen.insert(place).second && place < before ? true : has_filled;
        }
        next = std::max(before, begin + size);
        return begin >= before ? SeenBytes::Kind::fresh
               : has_filled    ? SeenBytes::Kind::late
                               : SeenBytes::Kind::again;
    }
};

void check_seen(Input input) {
    constexpr int kMost = 30;  // so that there are never more holes than are kept
    SeenBytes bytes;
    SeenModel model;
    const std::int64_t start = (std::int64_t{1} << 32U) + input.take<std::uint32_t>();
    std::int64_t place = start;
    for (int i = 0; i < kMost && !input.empty(); ++i) {
        const std::uint32_t size = 1U + input.take<std::uint8_t>();
        const SeenBytes::Kind kind = bytes.add(static_cast<std::uint32_t>(place), size);
        require(kind == model.add(place, size), "the kind of a segment");
        require(bytes.next() == model.next, "the end of what was seen");
        place = std::max(start - 5000, model.next + input.take<std::int16_t>() % 600);
    }
}

void append16(Content& bytes, std::size_t number) {
    bytes.push_back(static_cast<std::uint8_t>(number >> 8U));
    bytes.push_back(static_cast<std::uint8_t>(number));
}

// One of a few ends sends to another one.
Content segment(Input& input) {
    const auto ends = input.take<std::uint8_t>();
    const std::size_t payload = input.take<std::uint8_t>() % 40U;
    Content frame(12, 2);
    append16(frame, 0x0800);
    frame.insert(frame.end(), {0x45, 0});
    append16(frame, 40 + payload);
    frame.insert(frame.end(), {0, 0, 0, 0, 64, capture::kProtocolTcp, 0, 0});
    const auto one = static_cast<std::uint8_t>(ends & 1U);
    frame.insert(frame.end(), {10, 0, 0, one, 10, 0, 0, static_cast<std::uint8_t>(1 - one)});
    append16(frame, (ends & 2U) != 0 ? 80 : 5000);
    append16(frame, (ends & 2U) != 0 ? 5000 : 80);
    append16(frame, (ends & 4U) != 0 ? 0xFFFF : 0);  // sequence numbers that wrap, and near ones
    append16(frame, input.take<std::uint16_t>());
    append16(frame, (ends & 8U) != 0 ? 0xFFFF : 0);
    append16(frame, input.take<std::uint16_t>());
    frame.push_back((ends & 0x70U) == 0x70U ? input.take<std::uint8_t>() : 0x50);
    frame.push_back(input.take<std::uint8_t>());
    append16(frame, ends >> 4U);  // the window
    frame.resize(frame.size() + 4 + payload);
    return frame;
}

void check_json(const Conversations& table) {
    const tools::Json made = table.json(true);
    char* const text = cJSON_PrintUnformatted(made.get());
    require(text != nullptr, "JSON");
    const tools::Json read(cJSON_Parse(text));
    require(cJSON_Compare(made.get(), read.get(), 1) != 0, "the JSON means the same");
    cJSON_free(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static zx::fuzz::GuardedMemory memory(256);
    Input input({data, size});
    check_seen(input);
    Conversations table;
    std::int64_t now = 0;
    std::uint64_t fed = 0;
    while (!input.empty()) {
        const auto what = input.take<std::uint8_t>();
        now = (what & 0x80U) != 0 ? input.take<std::int64_t>() >> 3U : now + what;
        const Content content = segment(input);
        const std::size_t captured = (what & 0x40U) != 0
                                         ? input.take<std::uint8_t>() % (content.size() + 1)
                                         : content.size();
        capture::Frame frame;
        frame.bytes = {memory.copy(Bytes(content).first(captured)), captured};
        frame.length = static_cast<std::uint32_t>(content.size());
        const capture::Packet packet = capture::dissect(frame);
        table.add(frame, packet, now);
        fed += packet.has_ports() ? 1U : 0U;
        if ((what & 0x20U) != 0) {
            table.end_second(now, 1 + what % 4);
            for (const capture::Sheet& sheet : table.sheets(false)) {
                require(sheet.rows.size() <= fed, "a row for each connection");
            }
        }
    }
    std::uint64_t frames = 0;
    for (const Conversations::Map::Entry& entry : table.connections().entries()) {
        frames += entry.value.to_server().frames + entry.value.to_client().frames;
    }
    require(frames <= fed, "no frame is counted twice");
    check_json(table);
    return 0;
}

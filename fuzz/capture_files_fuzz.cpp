// Any bytes as a capture file, and any text as a filter expression. The frames that are read are
// written in both formats, and must be read back as they were.
//
// The last byte of the input is the length of the expression before it; the rest is the file.
#include <netdb.h>

#include <optional>
#include <vector>

#include "common/failure.hpp"
#include "packet/packet.hpp"
#include "source/source.hpp"
#include "support.hpp"
#include "write/capture_files.hpp"
#include "zxcommon.hpp"

// libpcap looks up the names in an expression. There are none.
extern "C" [[gnu::visibility("default")]] int getaddrinfo(const char*, const char*, const addrinfo*,
                                                          addrinfo**) {
    return EAI_NONAME;
}

namespace {

using capture::Frame;
using capture::Got;
using zx::fuzz::Bytes;
using zx::fuzz::require;

// A file in memory, which has a path.
class MemoryFile {
public:
    MemoryFile() : fd_(memfd_create("capture", MFD_CLOEXEC)) {
        require(fd_.get() >= 0, "there is memory for a file");
    }
    void fill(Bytes bytes) const {
        require(ftruncate(fd_.get(), 0) == 0 && pwrite(fd_.get(), bytes.data(), bytes.size(), 0) ==
                                                    static_cast<ssize_t>(bytes.size()),
                "the file can be written");
    }
    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(fd_.get()); }

private:
    zxcommon::Descriptor fd_;
};

struct Kept {
    std::vector<std::uint8_t> bytes;
    std::uint32_t length;
    timespec time;
    bool operator==(const Kept& other) const {
        return bytes == other.bytes && length == other.length && time.tv_sec == other.time.tv_sec &&
               time.tv_nsec == other.time.tv_nsec;
    }
};

// What has been read from a file, up to its end or to its damage.
struct Read {
    std::unique_ptr<capture::Source> source;
    std::vector<Kept> frames;
    std::size_t filtered = 0;
    bool is_damaged = false;
};

void check(const Frame& frame) {
    static zx::fuzz::GuardedMemory memory(capture::kLargestFrame);
    require(frame.length >= frame.bytes.size(), "no more is captured than there was");
    require(frame.bytes.size() <= capture::kLargestFrame, "a frame has a limit");
    require(frame.time.tv_sec >= 0 && frame.time.tv_sec <= INT64_MAX / 1000000000 - 1 &&
                frame.time.tv_nsec >= 0 && frame.time.tv_nsec < 1000000000,
            "the time is one");
    Frame copy = frame;
    copy.bytes = {memory.copy(frame.bytes), frame.bytes.size()};
    const capture::Packet packet = capture::dissect(copy);
    require(capture::captured_payload(copy, packet).size() <= copy.bytes.size(),
            "a payload is within its frame");
}

// Nothing: the file cannot be opened, or libpcap does not take the expression.
std::optional<Read> read(const std::string& path, const std::string& expression) {
    Read read;
    try {
        read.source = capture::open_file(path, {.expression = expression});
    } catch (const tools::Failure& failure) {
        require(*failure.what() != '\0', "there is a reason");
        return std::nullopt;
    }
    try {
        Frame frame;
        for (Got got; (got = read.source->next(frame)) != Got::end;) {
            if (got == Got::frame) {
                check(frame);
                read.frames.push_back(
                    {{frame.bytes.begin(), frame.bytes.end()}, frame.length, frame.time});
            }
            read.filtered += got == Got::filtered ? 1 : 0;
        }
    } catch (const tools::Failure&) {
        read.is_damaged = true;
    }
    return read;
}

// A pcap file has only 32 bits of the second.
std::vector<Kept> as_written(std::vector<Kept> frames, bool pcapng) {
    for (Kept& frame : frames) {
        frame.time.tv_sec &= pcapng ? INT64_MAX : UINT32_MAX;
    }
    return frames;
}

void write_and_read_back(Read& whole, bool pcapng) {
    static const MemoryFile file;
    capture::CaptureFiles files({.path = file.path(), .pcapng = pcapng}, capture::kLargestFrame,
                                *whole.source);
    for (const Kept& kept : whole.frames) {
        const Frame frame{kept.bytes, kept.length, kept.time, whole.source->link()};
        require(files.has_room_for(frame), "one file has no end");
        files.add(frame);
    }
    files.finish();
    const auto back = read(file.path(), "");
    require(back && !back->is_damaged, "what was written can be read");
    require(back->source->link() == whole.source->link(), "the link type stays");
    require(back->frames == as_written(whole.frames, pcapng), "the frames stay");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile file;
    const std::size_t wanted = size == 0 ? 0 : data[size - 1];
    const std::size_t length = std::min(wanted, size == 0 ? 0 : size - 1);
    const std::size_t file_size = size - length - (size == 0 ? 0 : 1);
    const std::string expression(data + file_size, data + file_size + length);
    file.fill({data, file_size});

    auto whole = read(file.path(), "");
    const auto part = read(file.path(), expression.c_str());
    if (!whole) {
        require(!part, "an expression does not repair a file");
        return 0;
    }
    if (part) {
        require(part->frames.size() + part->filtered == whole->frames.size(),
                "each frame passes or is counted");
    }
    write_and_read_back(*whole, false);
    write_and_read_back(*whole, true);
    return 0;
}

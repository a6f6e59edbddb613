// Reads capture files with libpcap.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <exception>

#include "common/failure.hpp"
#include "filter/expression.hpp"
#include "source/pcap.hpp"
#include "source/source.hpp"
#include "stop.hpp"
#include "zxcommon.hpp"

namespace capture {
namespace {

using tools::Failure;

class FileSource : public Source {
public:
    FileSource(const std::string& path, const Selection& selection);
    Got next(Frame& frame) override;
    [[nodiscard]] int link() const override { return link_; }
    [[nodiscard]] std::optional<double> position() const override;
    [[nodiscard]] std::optional<FileId> file_id() const override { return id_; }

private:
    void open_regular(const std::string& path);
    void open_pipe(const std::string& path);
    [[noreturn]] void fail_to_open(const std::string& reason) const;
    ssize_t read_pipe(char* to, std::size_t size);
    Got take(const pcap_pkthdr& header, const u_char* bytes, Frame& frame) const;

    const std::string name_;  // for error messages
    const std::uint32_t snapshot_length_;
    zxcommon::Descriptor own_;
    int pipe_ = STDIN_FILENO;     // or own_; not used for a regular file
    std::exception_ptr failure_;  // that idle() has thrown
    Pcap pcap_;
    int link_;
    std::optional<Expression> expression_;
    std::uint64_t size_ = 0;    // bytes of a regular file
    std::optional<FileId> id_;  // of a regular file
};

FileSource::FileSource(const std::string& path, const Selection& selection)
    : name_(path == "-" ? "standard input" : path), snapshot_length_(selection.snapshot_length) {
    is_regular_file(path) ? open_regular(path) : open_pipe(path);
    link_ = known_link(pcap_.get(), name_);
    if (!selection.expression.empty()) {
        expression_.emplace(pcap_.get(), selection.expression, 0);
    }
}

void FileSource::open_regular(const std::string& path) {
    char reason[PCAP_ERRBUF_SIZE] = "";
    pcap_.reset(
        pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, reason));
    if (pcap_ == nullptr) {
        fail_to_open(reason);
    }
    struct stat st {};
    fstat(fileno(pcap_file(pcap_.get())), &st);
    size_ = static_cast<std::uint64_t>(st.st_size);
    id_ = {st.st_dev, st.st_ino};
}

// libpcap reads a stream that calls idle() when it has to wait, also within a frame.
void FileSource::open_pipe(const std::string& path) {
    if (path != "-") {
        own_.reset(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        pipe_ = own_.get();
        if (pipe_ < 0) {
            fail_to_open(std::strerror(errno));
        }
    }
    const auto read = [](void* self, char* to, std::size_t size) {
        return static_cast<FileSource*>(self)->read_pipe(to, size);
    };
    std::FILE* const stream = fopencookie(this, "r", {read, nullptr, nullptr, nullptr});
    if (stream == nullptr) {
        fail_to_open(std::strerror(errno));
    }
    char reason[PCAP_ERRBUF_SIZE] = "";
    pcap_.reset(
        pcap_fopen_offline_with_tstamp_precision(stream, PCAP_TSTAMP_PRECISION_NANO, reason));
    if (pcap_ == nullptr) {
        std::fclose(stream);
        fail_to_open(reason);
    }
}

void FileSource::fail_to_open(const std::string& reason) const {
    // libpcap includes the path if it cannot open the file.
    throw Failure("cannot read " +
                  (reason.starts_with(name_ + ":") ? reason : name_ + ": " + reason));
}

// An exception must not pass through libpcap.
ssize_t FileSource::read_pipe(char* to, std::size_t size) {
    pollfd wanted{pipe_, POLLIN, 0};
    try {
        for (int wait_ms = 0; poll(&wanted, 1, wait_ms) <= 0; wait_ms = kWaitMs) {
            if (stop_requested()) {
                return 0;
            }
            idle();
        }
    } catch (...) {
        failure_ = std::current_exception();
        return -1;
    }
    return read(pipe_, to, size);
}

Got FileSource::next(Frame& frame) {
    if (stop_requested()) {
        return Got::end;
    }
    pcap_pkthdr* header = nullptr;
    const u_char* bytes = nullptr;
    const int result = pcap_next_ex(pcap_.get(), &header, &bytes);
    if (failure_) {
        std::rethrow_exception(failure_);
    }
    if (result == 1) {
        return take(*header, bytes, frame);
    }
    if (result != PCAP_ERROR_BREAK && !stop_requested()) {
        throw Failure(name_ + " ends early: " + pcap_geterr(pcap_.get()));
    }
    return Got::end;
}

Got FileSource::take(const pcap_pkthdr& header, const u_char* bytes, Frame& frame) const {
    frame = frame_of(header, bytes, link_);
    if (expression_ && !expression_->passes(frame)) {
        return Got::filtered;
    }
    frame.bytes = frame.bytes.first(std::min<std::size_t>(frame.bytes.size(), snapshot_length_));
    return Got::frame;
}

std::optional<double> FileSource::position() const {
    if (size_ == 0) {
        return std::nullopt;
    }
    return static_cast<double>(ftello(pcap_file(pcap_.get()))) / static_cast<double>(size_);
}

}  // namespace

std::unique_ptr<Source> open_file(const std::string& path, const Selection& selection) {
    return std::make_unique<FileSource>(path, selection);
}

bool is_regular_file(const std::string& path) {
    struct stat st {};
    const int result = path == "-" ? fstat(STDIN_FILENO, &st) : stat(path.c_str(), &st);
    return result == 0 && S_ISREG(st.st_mode);
}

}  // namespace capture

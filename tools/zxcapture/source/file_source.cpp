// Reads capture files with libpcap.
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/failure.hpp"
#include "filter/expression.hpp"
#include "source/pcap.hpp"
#include "source/source.hpp"
#include "stop.hpp"

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
    [[nodiscard]] bool would_wait();
    Got take(const pcap_pkthdr& header, const u_char* bytes, Frame& frame) const;

    const std::string name_;  // for error messages
    const std::uint32_t snapshot_length_;
    Pcap pcap_;
    int link_;
    std::optional<Expression> expression_;
    std::FILE* file_;                    // that pcap_ reads
    std::uint64_t size_ = 0;             // bytes of a regular file; 0: a pipe
    std::optional<FileId> id_;           // of a regular file
    bool has_reported_nothing_ = false;  // since the last frame
};

Pcap open_offline(const std::string& path, const std::string& name) {
    char reason[PCAP_ERRBUF_SIZE] = "";
    Pcap pcap(
        pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, reason));
    if (pcap == nullptr) {
        const std::string named(reason);  // libpcap includes the path if it cannot open the file
        throw Failure("cannot read " +
                      (named.starts_with(path + ":") ? named : name + ": " + named));
    }
    return pcap;
}

FileSource::FileSource(const std::string& path, const Selection& selection)
    : name_(path == "-" ? "standard input" : path),
      snapshot_length_(selection.snapshot_length),
      pcap_(open_offline(path, name_)),
      link_(known_link(pcap_.get(), name_)),
      file_(pcap_file(pcap_.get())) {
    if (!selection.expression.empty()) {
        expression_.emplace(pcap_.get(), selection.expression, 0);
    }
    struct stat st {};
    fstat(fileno(file_), &st);
    if (S_ISREG(st.st_mode)) {
        size_ = static_cast<std::uint64_t>(st.st_size);
        id_ = {st.st_dev, st.st_ino};
    }
}

Got FileSource::next(Frame& frame) {
    if (stop_requested()) {
        return Got::end;
    }
    if (would_wait()) {
        return Got::nothing;
    }
    pcap_pkthdr* header = nullptr;
    const u_char* bytes = nullptr;
    const int result = pcap_next_ex(pcap_.get(), &header, &bytes);
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

// Returns true once before next() may wait for a pipe, so that the caller can flush its output.
// libpcap may still have frames in its buffer; then the caller flushes more often than necessary.
bool FileSource::would_wait() {
    if (size_ != 0 || has_reported_nothing_) {
        has_reported_nothing_ = false;
        return false;
    }
    pollfd pipe{fileno(file_), POLLIN, 0};
    has_reported_nothing_ = poll(&pipe, 1, 0) == 0;
    return has_reported_nothing_;
}

std::optional<double> FileSource::position() const {
    if (size_ == 0) {
        return std::nullopt;
    }
    return static_cast<double>(ftello(file_)) / static_cast<double>(size_);
}

}  // namespace

std::unique_ptr<Source> open_file(const std::string& path, const Selection& selection) {
    return std::make_unique<FileSource>(path, selection);
}

}  // namespace capture

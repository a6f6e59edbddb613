// Reads capture files with libpcap.
#include <pcap/pcap.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "common/failure.hpp"
#include "source/source.hpp"
#include "stop.hpp"

namespace capture {
namespace {

using tools::Failure;

struct PcapCloser {
    void operator()(pcap_t* pcap) const { pcap_close(pcap); }
};

class FileSource : public Source {
public:
    FileSource(const std::string& path, const std::string& output);
    Got next(Frame& frame) override;
    [[nodiscard]] std::optional<double> position() const override;

private:
    [[nodiscard]] bool would_wait();

    const std::string name_;  // for error messages
    std::unique_ptr<pcap_t, PcapCloser> pcap_;
    int link_ = DLT_EN10MB;
    std::FILE* file_;                    // that pcap_ reads
    std::uint64_t size_ = 0;             // bytes of a regular file; 0: a pipe
    bool has_reported_nothing_ = false;  // since the last frame
};

// The link types that dissect() knows.
constexpr int kLinks[] = {DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_RAW,
                          DLT_IPV4,   DLT_IPV6,      DLT_NULL,       DLT_LOOP};

bool is_same_file(const struct stat& st, const std::string& path) {
    struct stat other {};
    return !path.empty() && stat(path.c_str(), &other) == 0 && other.st_dev == st.st_dev &&
           other.st_ino == st.st_ino;
}

FileSource::FileSource(const std::string& path, const std::string& output)
    : name_(path == "-" ? "standard input" : path) {
    char reason[PCAP_ERRBUF_SIZE] = "";
    pcap_.reset(
        pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, reason));
    if (pcap_ == nullptr) {
        const std::string named(reason);  // libpcap includes the path if it cannot open the file
        throw Failure("cannot read " +
                      (named.starts_with(path + ":") ? named : name_ + ": " + named));
    }
    link_ = pcap_datalink(pcap_.get());
    if (std::ranges::find(kLinks, link_) == std::end(kLinks)) {
        const char* const type_name = pcap_datalink_val_to_description_or_dlt(link_);
        throw Failure(name_ +
                      " contains neither Ethernet frames nor IP packets: its link type is " +
                      type_name);
    }
    file_ = pcap_file(pcap_.get());
    struct stat st {};
    fstat(fileno(file_), &st);
    if (S_ISREG(st.st_mode)) {
        size_ = static_cast<std::uint64_t>(st.st_size);
        if (is_same_file(st, output)) {
            throw Failure("cannot write " + output + " while reading from it");
        }
    }
}

Got FileSource::next(Frame& frame) {
    if (would_wait()) {
        return Got::nothing;
    }
    pcap_pkthdr* header = nullptr;
    const u_char* bytes = nullptr;
    const int result = pcap_next_ex(pcap_.get(), &header, &bytes);
    if (result == 1) {
        frame.bytes = {bytes, header->caplen};
        frame.length = header->len;
        frame.link = link_;
        frame.time = {header->ts.tv_sec,
                      header->ts.tv_usec};  // nanoseconds, as requested in the constructor
        return Got::frame;
    }
    if (result != PCAP_ERROR_BREAK && !stop_requested()) {
        throw Failure(name_ + " ends early: " + pcap_geterr(pcap_.get()));
    }
    return Got::end;
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

std::unique_ptr<Source> open_file(const std::string& path, const std::string& output) {
    return std::make_unique<FileSource>(path, output);
}

}  // namespace capture

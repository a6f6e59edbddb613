#include "write/capture_file.hpp"

#include "common/failure.hpp"
#include "show/output.hpp"

namespace capture {
namespace {

constexpr int kLargestFrame = 256 << 10;  // the limit that libpcap itself uses

}  // namespace

CaptureFile::CaptureFile(const std::string& path)
    : name_(path == "-" ? "standard output" : path),
      pcap_(pcap_open_dead_with_tstamp_precision(DLT_EN10MB, kLargestFrame,
                                                 PCAP_TSTAMP_PRECISION_NANO)) {
    dumper_.reset(pcap_dump_open(pcap_.get(), path.c_str()));
    check(dumper_ != nullptr);
}

void CaptureFile::add(const Frame& frame) {
    pcap_pkthdr header{};
    header.ts = {frame.time.tv_sec,
                 frame.time.tv_nsec};  // the field takes nanoseconds in this file
    header.caplen = static_cast<bpf_u_int32>(frame.bytes.size());
    header.len = frame.length;
    pcap_dump(reinterpret_cast<u_char*>(dumper_.get()), &header, frame.bytes.data());
    check(std::ferror(pcap_dump_file(dumper_.get())) == 0);
}

void CaptureFile::flush() {
    check(pcap_dump_flush(dumper_.get()) == 0);
}

void CaptureFile::check(bool good) const {
    if (good) {
        return;
    }
    if (errno == EPIPE) {
        throw OutputClosed();
    }
    throw tools::system_failure("cannot write " + name_);
}

}  // namespace capture

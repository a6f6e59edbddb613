// Writes pcap files with libpcap.
#include <pcap/pcap.h>

#include <cstdio>

#include "common/failure.hpp"
#include "write/writer.hpp"

namespace capture {
namespace {

constexpr std::size_t kRecordHeader = 16;

// libpcap writes to a FILE. This one has no buffer of its own and passes everything to the sink.
ssize_t pass_on(void* sink, const char* bytes, size_t size) {
    static_cast<Sink*>(sink)->add({reinterpret_cast<const std::uint8_t*>(bytes), size});
    return static_cast<ssize_t>(size);
}

class PcapWriter : public Writer {
public:
    PcapWriter(Sink& sink, int link, std::uint32_t snapshot_length)
        : sink_(sink),
          pcap_(pcap_open_dead_with_tstamp_precision(link, static_cast<int>(snapshot_length),
                                                     PCAP_TSTAMP_PRECISION_NANO)) {
        std::FILE* const file = fopencookie(&sink, "w", {nullptr, pass_on, nullptr, nullptr});
        if (file == nullptr || std::setvbuf(file, nullptr, _IONBF, 0) != 0) {
            throw tools::system_failure("cannot write a capture file");
        }
        dumper_.reset(pcap_dump_fopen(pcap_.get(), file));
        if (dumper_ == nullptr) {
            throw tools::Failure(std::string("cannot write a capture file: ") +
                                 pcap_geterr(pcap_.get()));
        }
    }

    void add(const Frame& frame) override {
        pcap_pkthdr header{};
        header.ts = {frame.time.tv_sec, frame.time.tv_nsec};  // takes nanoseconds in this file
        header.caplen = static_cast<bpf_u_int32>(frame.bytes.size());
        header.len = frame.length;
        pcap_dump(reinterpret_cast<u_char*>(dumper_.get()), &header, frame.bytes.data());
        sink_.end_record();
    }

    [[nodiscard]] std::size_t size_of(const Frame& frame) const override {
        return kRecordHeader + frame.bytes.size();
    }

private:
    struct Closer {
        void operator()(pcap_t* pcap) const { pcap_close(pcap); }
        void operator()(pcap_dumper_t* dumper) const { pcap_dump_close(dumper); }
    };

    Sink& sink_;
    std::unique_ptr<pcap_t, Closer> pcap_;
    std::unique_ptr<pcap_dumper_t, Closer> dumper_;
};

}  // namespace

std::unique_ptr<Writer> write_pcap(Sink& sink, int link, std::uint32_t snapshot_length) {
    return std::make_unique<PcapWriter>(sink, link, snapshot_length);
}

}  // namespace capture

#include "filter/expression.hpp"

#include "common/failure.hpp"

namespace capture {
namespace {

tools::Failure failure(const std::string& text, std::string reason) {
    const std::string known = "can't parse filter expression: ";
    if (reason.starts_with(known)) {
        reason.erase(0, known.size());
    }
    return tools::Failure("cannot filter by '" + text + "': " + reason);
}

}  // namespace

Expression::Expression(pcap_t* pcap, const std::string& text, bpf_u_int32 netmask) {
    constexpr int kOptimized = 1;
    if (pcap_compile(pcap, &program_, text.c_str(), kOptimized, netmask) != 0) {
        throw failure(text, pcap_geterr(pcap));
    }
}

Expression::~Expression() {
    pcap_freecode(&program_);
}

bool Expression::passes(const Frame& frame) const {
    pcap_pkthdr header{};
    header.caplen = static_cast<bpf_u_int32>(frame.bytes.size());
    header.len = frame.length;
    return pcap_offline_filter(&program_, &header, frame.bytes.data()) != 0;
}

void Expression::install(pcap_t* pcap) {
    if (pcap_setfilter(pcap, &program_) != 0) {
        throw tools::Failure(std::string("cannot install the filter: ") + pcap_geterr(pcap));
    }
}

}  // namespace capture

// A filter expression, as tcpdump has it: compiled by libpcap, for the link type of a source.
#pragma once

#include <pcap/pcap.h>

#include <string>

#include "source/frame.hpp"

namespace capture {

class Expression {
public:
    // `netmask` is that of the interface, or 0; "ip broadcast" needs it. Throws a Failure that says
    // what is wrong with the expression. libpcap looks up the names of hosts and ports in it.
    Expression(pcap_t* pcap, const std::string& text, bpf_u_int32 netmask);
    Expression(const Expression&) = delete;
    Expression& operator=(const Expression&) = delete;
    ~Expression();

    [[nodiscard]] bool passes(const Frame& frame) const;

    // Lets the kernel do it, if `pcap` is live and if it can; otherwise libpcap does.
    void install(pcap_t* pcap);

private:
    bpf_program program_{};
};

}  // namespace capture

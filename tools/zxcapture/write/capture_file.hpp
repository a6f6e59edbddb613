// Writes a capture file.
#pragma once

#include <pcap/pcap.h>

#include <memory>
#include <string>

#include "source/frame.hpp"

namespace capture {

class CaptureFile {
public:
    // The path "-" is standard output. All functions throw a Failure if the file cannot be written,
    // and OutputClosed if it is a pipe whose reader has closed it.
    explicit CaptureFile(const std::string& path);
    void add(const Frame& frame);
    void flush();

private:
    void check(bool good) const;

    struct Closer {
        void operator()(pcap_t* pcap) const { pcap_close(pcap); }
        void operator()(pcap_dumper_t* dumper) const { pcap_dump_close(dumper); }
    };

    const std::string name_;  // for error messages
    std::unique_ptr<pcap_t, Closer> pcap_;
    std::unique_ptr<pcap_dumper_t, Closer> dumper_;
};

}  // namespace capture

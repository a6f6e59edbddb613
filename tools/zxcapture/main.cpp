// zxcapture: shows the Ethernet frames of a capture file or of a live interface that pass a filter.
#include "capture.hpp"
#include "common/failure.hpp"
#include "options.hpp"
#include "zxlog.h"

int main(int argc, char** argv) {
    const capture::Options options = capture::parse_options(argc, argv);
    // The frame engine logs errors in frames and payloads of UDP packets. Only a field dump needs
    // them.
    zxlog_api_setLoglevel(0);
    return tools::run("zxcapture", [&] { capture::run(options); });
}

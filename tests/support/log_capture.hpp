// Catches what the library logs, in place of the log file.
#pragma once

#include <string>
#include <vector>

namespace zx::test {

// While one lives, lines are kept as "[ERROR][TAG]body". Any thread may log.
class LogCapture {
public:
    explicit LogCapture(unsigned level = 5);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // The lines so far, which are forgotten then.
    std::vector<std::string> take();

    // What zxlog_innerapi_bufHex was asked to dump, as "label:0a0b".
    std::vector<std::string> take_dumps();

    void set_level(unsigned level);
};

}  // namespace zx::test

// Catches what the library logs, in place of the log file.
#pragma once

#include <string>
#include <vector>

namespace zx::test {

// Keeps lines as "[ERROR][TAG]body" as long as it exists. Any thread may log.
class LogCapture {
public:
    explicit LogCapture(unsigned level = 5);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Returns the lines so far, and forgets them.
    std::vector<std::string> take();

    // What zxlog_innerapi_bufHex was asked to dump, as "label:0a0b".
    std::vector<std::string> take_dumps();

    void set_level(unsigned level);
};

}  // namespace zx::test

// Shows on a terminal how much of a file has been read.
#pragma once

#include <cstdint>

#include "source/source.hpp"

namespace capture {

class Progress {
public:
    // `shown`: standard error is a terminal, and nothing else is printed on it.
    explicit Progress(bool shown);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show_when_due(const Source& source);

private:
    const bool shown_;
    std::int64_t due_ms_;
    bool is_on_screen_ = false;
};

}  // namespace capture

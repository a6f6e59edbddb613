// The stream from standard input.
#pragma once

#include "input/entrance.hpp"
#include "input/source.hpp"
#include "input/stream_reader.hpp"

namespace relay {

// Finishes at the end of standard input.
class StandardInput final : public Source {
public:
    StandardInput(zxcommon::Descriptor fd, Entrance& entrance)
        : fd_(std::move(fd)), entrance_(entrance) {}

    void run() override {
        read_stream(fd_.get(), entrance_, interrupt_, kEndless);
        finished_ = true;
    }

private:
    zxcommon::Descriptor fd_;
    Entrance& entrance_;
};

}  // namespace relay

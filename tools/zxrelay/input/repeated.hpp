// An input that begins again when its stream has ended.
#pragma once

#include <string>

#include "input/entrance.hpp"
#include "input/source.hpp"

namespace relay {

class Repeated : public Source {
public:
    // `once`: it finishes at the end of the first stream that has brought packets.
    Repeated(Entrance& entrance, bool once) : entrance_(entrance), once_(once) {}

    // Plays again and again. The pauses between attempts that bring nothing grow from 1 to 30 s.
    void run() final;

protected:
    struct Played {
        bool has_delivered;
        std::string end;  // why the stream has ended
    };
    // Receives the stream from its beginning to its end.
    virtual Played play() = 0;

    Entrance& entrance_;
    const bool once_;
};

}  // namespace relay

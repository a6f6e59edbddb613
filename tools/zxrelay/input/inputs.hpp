// The inputs of a stream: the main one and its backups, each with its thread.
#pragma once

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "input/entrance.hpp"
#include "input/selector.hpp"
#include "input/sockets.hpp"
#include "input/source.hpp"
#include "stream/worker.hpp"
#include "zxcommon.hpp"

namespace relay {

struct InputOptions {
    unsigned timeout_seconds;  // after which a silent source may be replaced
    bool once;                 // end after the first stream
    bool at_once = false;      // datagrams do not wait for others
};

// Opens the inputs, the main one first. Throws a Failure.
std::vector<OpenInput> open_inputs(const std::vector<std::string>& urls,
                                   const std::string& interface);

class Inputs {
public:
    Inputs(std::vector<OpenInput> open, const InputOptions& options, Channel& channel);
    ~Inputs() { stop(); }
    Inputs(const Inputs&) = delete;
    Inputs& operator=(const Inputs&) = delete;

    void start();  // throws a Failure if a thread does not start
    void stop();

    // True when the main input has finished.
    [[nodiscard]] bool finished() const { return lanes_.front().source->finished(); }

private:
    struct Lane {
        Entrance entrance;
        std::unique_ptr<Source> source;
        Worker worker;
        Lane(OpenInput input, const InputOptions& options, Channel& channel, Selector& selector,
             std::size_t rank);
        void run();
    };
    Selector selector_;
    std::list<Lane> lanes_;
};

}  // namespace relay

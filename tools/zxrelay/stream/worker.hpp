// A thread of the relay with the start and stop handshake of its record.
#pragma once

#include <functional>
#include <string>

#include "zxcommon.hpp"

namespace relay {

class Worker {
public:
    // `body` runs on the thread. It returns soon after the request is seen, or earlier when there
    // is nothing left to do.
    Worker(std::string name, std::function<void(zxcommon::StopRequest&)> body);
    ~Worker() { stop(); }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // start() throws a Failure when the thread does not come up.
    void start();
    void stop();

private:
    static void* run(void* self);

    std::string name_;
    std::function<void(zxcommon::StopRequest&)> body_;
    zxthread_ctt record_{};
    bool is_started_ = false;
};

}  // namespace relay

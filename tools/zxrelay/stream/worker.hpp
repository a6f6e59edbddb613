// A thread of the relay, with the handshake of zxthread for its start and its stop.
#pragma once

#include <functional>
#include <string>

#include "zxcommon.hpp"

namespace relay {

class Worker {
public:
    // `body` runs in the thread. It must return soon after it sees the stop request; it may return
    // earlier. If it throws an exception, for lack of memory perhaps, it is called again: a thread
    // goes on as long as the relay does.
    Worker(std::string name, std::function<void(zxcommon::StopRequest&)> body);
    ~Worker() { stop(); }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Throws a Failure if the thread does not start.
    void start();
    void stop();

private:
    static void* run(void* self);
    void work(zxcommon::StopRequest& stop) const;

    std::string name_;
    std::function<void(zxcommon::StopRequest&)> body_;
    zxthread_ctt record_{};
    bool is_started_ = false;
};

}  // namespace relay

// A thread of the relay with the start and stop handshake of its record.
#pragma once

#include <functional>
#include <string>

#include "zxthread.h"

namespace relay {

class Worker {
public:
    // `body` runs on the thread; it returns soon after stopping() says so, or earlier when there is
    // nothing left to do.
    Worker(std::string name, std::function<void(Worker&)> body);
    ~Worker() { stop(); }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // For the controller. start() throws a Failure when the thread does not come up.
    void start();
    void stop();

    // For the body: true once the controller has asked it to stop.
    bool stopping();

private:
    static void* run(void* self);
    void work();
    bool await_running();

    std::string name_;
    std::function<void(Worker&)> body_;
    zxthread_ctt record_{};
    bool started_ = false;
    bool stop_seen_ = false;  // the body's side only: the record logs every answer
};

}  // namespace relay

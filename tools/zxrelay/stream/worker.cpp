#include "stream/worker.hpp"

#include <pthread.h>
#include <unistd.h>

#include "common/failure.hpp"

namespace relay {
namespace {

using tools::Failure;

constexpr std::uint32_t kHandshakeMs = 5000;
constexpr std::uint32_t kStepMs = 2;

}  // namespace

Worker::Worker(std::string name, std::function<void(Worker&)> body)
    : name_(std::move(name)), body_(std::move(body)) {}

void Worker::start() {
    if (zxthread_api_create(&record_, name_.c_str(), run, this) != 0) {
        throw Failure("cannot start the thread " + name_);
    }
    started_ = true;
    if (zxthread_api_waitStateTimeout(&record_, ZXTHREAD_STATE_START, ZXTHREAD_STATE_STARTING,
                                      kHandshakeMs, kStepMs) != 1) {
        throw Failure("the thread " + name_ + " does not answer");
    }
    zxthread_api_waitStateTimeout(&record_, ZXTHREAD_STATE_RUN, ZXTHREAD_STATE_RUN, 0, 0);
}

void Worker::stop() {
    if (!started_) {
        return;
    }
    started_ = false;
    zxthread_api_waitStateTimeout(&record_, ZXTHREAD_STATE_NONE, ZXTHREAD_STATE_STOPPED,
                                  kHandshakeMs, kStepMs);
    zxthread_api_destroy(&record_);
}

bool Worker::stopping() {
    stop_seen_ = stop_seen_ || zxthread_api_isStop(&record_) == 1;
    return stop_seen_;
}

void* Worker::run(void* self) {
    // The end is agreed on through the record; being cancelled in the middle of a socket call would
    // only lose what the thread holds.
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    static_cast<Worker*>(self)->work();
    return nullptr;
}

void Worker::work() {
    zxthread_api_setName(name_.c_str());
    if (zxthread_api_waitCmdStarting(&record_, kHandshakeMs, kStepMs) == 1 && await_running()) {
        body_(*this);
    }
    // Whoever stops it waits for an answer, also when that came before the start was seen.
    while (!stopping()) {
        usleep(kStepMs * 1000);
    }
}

// The controller moves the state on from 3; anything but 4 means that it gave up.
bool Worker::await_running() {
    for (;;) {
        zxthread_api_lock(&record_);
        const std::uint32_t state = record_.state;
        zxthread_api_unlock(&record_);
        if (state != ZXTHREAD_STATE_STARTING) {
            return state == ZXTHREAD_STATE_RUN;
        }
        usleep(kStepMs * 1000);
    }
}

}  // namespace relay

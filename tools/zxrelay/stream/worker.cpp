#include "stream/worker.hpp"

#include <pthread.h>
#include <time.h>

#include <exception>

#include "common/failure.hpp"
#include "zxtime.h"

namespace relay {
namespace {

using tools::Failure;

constexpr zxcommon::Wait kHandshake{5000, 2};
constexpr std::uint64_t kLogIntervalUs = 1000000;
constexpr timespec kPause{0, 10000000};

}  // namespace

Worker::Worker(std::string name, std::function<void(zxcommon::StopRequest&)> body)
    : name_(std::move(name)), body_(std::move(body)) {}

void Worker::start() {
    if (zxthread_api_create(&record_, name_.c_str(), run, this) != 0) {
        throw Failure("cannot start the thread " + name_);
    }
    is_started_ = true;
    if (zxthread_api_waitStateTimeout(&record_, ZXTHREAD_STATE_START, ZXTHREAD_STATE_STARTING,
                                      kHandshake.timeout_ms, kHandshake.step_ms) != 1) {
        throw Failure("the thread " + name_ + " does not start in time");
    }
    zxthread_api_waitStateTimeout(&record_, ZXTHREAD_STATE_RUN, ZXTHREAD_STATE_RUN, 0, 0);
}

void Worker::stop() {
    if (!is_started_) {
        return;
    }
    is_started_ = false;
    zxthread_api_waitStateTimeout(&record_, ZXTHREAD_STATE_NONE, ZXTHREAD_STATE_STOPPED,
                                  kHandshake.timeout_ms, kHandshake.step_ms);
    zxthread_api_destroy(&record_);
}

void* Worker::run(void* self) {
    // The handshake ends the thread. Cancellation in a socket call would leak what the thread owns.
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    auto& worker = *static_cast<Worker*>(self);
    zxthread_api_setName(worker.name_.c_str());
    zxcommon::run_worker(&worker.record_, kHandshake,
                         [&worker](zxcommon::StopRequest& stop) { worker.work(stop); });
    return nullptr;
}

void Worker::work(zxcommon::StopRequest& stop) const {
    std::uint64_t last_log = 0;
    while (!stop.seen()) {
        try {
            return body_(stop);
        } catch (const std::exception& failure) {
            if (zxtime_api_counterAsyncUs(&last_log, kLogIntervalUs) == 1) {
                zxcommon::log({zxcommon::Level::error, "RELAY"}, "%s: %s", name_.c_str(),
                              failure.what());
            }
            nanosleep(&kPause, nullptr);
        }
    }
}

}  // namespace relay

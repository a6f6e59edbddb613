#include "stream/lookup.hpp"

#include <condition_variable>
#include <map>
#include <string>
#include <thread>
#include <utility>

#include "common/failure.hpp"
#include "common/mutex.hpp"

namespace relay {
namespace {

using tools::Failure;
using Clock = std::chrono::steady_clock;

constexpr auto kPatience = std::chrono::milliseconds(500);

struct Result {
    int code = 0;
    Addresses addresses;
};

// Shared with the thread that looks up.
struct Lookup {
    tools::Mutex mutex;
    std::condition_variable changed;
    bool is_done ZX_GUARDED_BY(mutex) = false;
    Result result ZX_GUARDED_BY(mutex);
};

thread_local const Clock::time_point* t_deadline = nullptr;

Result look_up(const Endpoint& endpoint, int type, int flags) {
    addrinfo hints{};
    hints.ai_socktype = type;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV | flags;
    addrinfo* list = nullptr;
    const int code = getaddrinfo(endpoint.host.c_str(), endpoint.port.c_str(), &hints, &list);
    return {code, Addresses(code == 0 ? list : nullptr)};
}

[[noreturn]] void fail(const Endpoint& endpoint, const std::string& why) {
    throw Failure("cannot use the address " + endpoint.text() + ": " + why);
}

std::shared_ptr<Lookup> start_lookup(const Endpoint& endpoint, int type) {
    auto lookup = std::make_shared<Lookup>();
    std::thread([lookup, endpoint, type] {
        Result result = look_up(endpoint, type, 0);
        const tools::MutexGuard lock(lookup->mutex);
        lookup->result = std::move(result);
        lookup->is_done = true;
        lookup->changed.notify_all();
    }).detach();
    return lookup;
}

Result look_up_until(const Endpoint& endpoint, int type, Clock::time_point deadline) {
    // Only the threads that must not wait use it, which is the main thread.
    thread_local std::map<std::pair<std::string, int>, std::shared_ptr<Lookup>> lookups;
    auto& lookup = lookups[{endpoint.text(), type}];
    if (lookup == nullptr) {
        lookup = start_lookup(endpoint, type);
    }
    tools::MutexGuard lock(lookup->mutex);
    while (!lookup->is_done) {
        if (lock.wait_until(lookup->changed, deadline) == std::cv_status::timeout &&
            !lookup->is_done) {
            fail(endpoint, "the name is still being looked up");
        }
    }
    Result result = std::move(lookup->result);
    lock.unlock();
    lookups.erase({endpoint.text(), type});
    return result;
}

}  // namespace

Addresses resolve(const Endpoint& endpoint, int type) {
    Result result = look_up(endpoint, type, AI_NUMERICHOST);
    if (result.code == EAI_NONAME) {
        result = t_deadline != nullptr ? look_up_until(endpoint, type, *t_deadline)
                                       : look_up(endpoint, type, 0);
    }
    if (result.code != 0) {
        fail(endpoint, gai_strerror(result.code));
    }
    return std::move(result.addresses);
}

HurriedLookups::HurriedLookups() : deadline_(Clock::now() + kPatience) {
    t_deadline = &deadline_;
}

HurriedLookups::~HurriedLookups() {
    t_deadline = nullptr;
}

}  // namespace relay

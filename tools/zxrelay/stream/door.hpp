// Lets clients in.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "common/event.hpp"
#include "server/log_limit.hpp"
#include "stream/admission.hpp"
#include "stream/farewells.hpp"
#include "stream/http_answer.hpp"
#include "stream/stats.hpp"
#include "zxcommon.hpp"

namespace relay {

class Door {
public:
    using Take = std::function<void(Guest)>;

    // Throws a Failure.
    Door(zxcommon::Descriptor listener, Admission& admission, Site site, GuestStats& stats,
         Take take);
    Door(const Door&) = delete;
    Door& operator=(const Door&) = delete;

    // The body of the thread that accepts connections.
    void run(zxcommon::StopRequest& stop);

    // Ends the wait of that thread. Called by another thread.
    void close();

private:
    void turn();
    [[nodiscard]] int wait_ms() const;
    void accept_all();
    void receive(zxcommon::Descriptor fd, std::string peer);
    void refuse(zxcommon::Descriptor fd, Admission::Verdict verdict);
    void report_refused_when_due();
    void report_refused();
    void update_listening();

    zxcommon::Descriptor socket_;
    const tools::Event closed_;  // stays readable after close()
    Admission& admission_;
    const Site site_;
    GuestStats& stats_;
    const Take take_;
    std::uint64_t last_number_ = 0;
    zxcommon::Epoll epoll_;
    Farewells farewells_;
    std::uint64_t now_us_ = 0;
    bool is_listening_ = true;
    std::uint64_t resume_us_ = 0;  // nobody is accepted before
    LogLimit failed_{"attempts to accept a client have failed"};
    std::map<Admission::Verdict, std::uint64_t> refused_;  // not reported yet
    std::uint64_t reported_us_ = 0;
};

}  // namespace relay

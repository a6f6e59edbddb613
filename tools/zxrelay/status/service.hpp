// The status page: shows the state of the relay in a browser and, as JSON, to programs.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "common/event.hpp"
#include "status/history.hpp"
#include "status/http.hpp"
#include "status/report.hpp"
#include "stream/net.hpp"
#include "stream/roster.hpp"
#include "stream/snapshot.hpp"
#include "stream/worker.hpp"
#include "zxcommon.hpp"

namespace relay {

struct StatusSettings {
    std::string output;  // where the clients connect
    std::string token;   // for disconnecting clients; empty: the page cannot do that
    std::function<void(std::uint64_t)> disconnect;  // ends the client of this number
};

// One thread of low priority serves all clients and takes the samples of the chart. An answer is
// made at most once a second, for any number of requests.
class StatusServer {
public:
    // Serves connections to `listener`, which is open at `endpoint`, until the destructor runs.
    // Throws a Failure.
    StatusServer(zxcommon::Descriptor listener, const Endpoint& endpoint, StatusSettings settings,
                 const Roster& roster, const Board& board);
    ~StatusServer();
    StatusServer(const StatusServer&) = delete;
    StatusServer& operator=(const StatusServer&) = delete;

    [[nodiscard]] int port() const { return http_.port(); }

private:
    void add_routes();
    void run(zxcommon::StopRequest& stop);
    void follow_channels();
    void take_sample();
    [[nodiscard]] int wait_ms() const;
    const std::string& memory();
    Answer memory_page();
    Answer json(bool with_memory);
    Answer metrics();
    Answer inside();
    Answer health() const;
    Answer disconnect(std::string_view id) const;
    template <typename Make>
    Answer make_from_report(const Make& make);

    const StatusSettings settings_;
    const Roster& roster_;
    const Board& board_;
    const std::uint64_t start_us_;

    std::uint64_t sampled_us_;
    History history_;  // of the total
    std::vector<Track> tracks_;

    std::string memory_;
    std::uint64_t memory_due_us_ = 0;  // the table is not made again before this time

    Answer memory_page_;  // made from memory_

    // Made for the first request after a sample, and dropped with the next sample.
    Answer live_json_;
    Answer status_json_;
    Answer metrics_;
    Answer inside_;

    const tools::Event wake_;
    HttpServer http_;
    Worker worker_;
};

}  // namespace relay

// The status page: shows the state of the relay in a browser and, as JSON, to programs.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "status/http.hpp"
#include "status/report.hpp"
#include "stream/net.hpp"
#include "stream/roster.hpp"
#include "stream/snapshot.hpp"
#include "stream/worker.hpp"
#include "zxcommon.hpp"

namespace relay {

// One thread of low priority serves all clients and takes the samples of the chart. An answer is
// made at most once a second, for any number of requests.
class StatusServer {
public:
    // Serves until the destructor runs. Throws a Failure.
    StatusServer(const Endpoint& endpoint, Facts facts, const Roster& roster, const Board& board);
    ~StatusServer();
    StatusServer(const StatusServer&) = delete;
    StatusServer& operator=(const StatusServer&) = delete;

    [[nodiscard]] int port() const { return http_.port(); }

private:
    void add_routes();
    void run(zxcommon::StopRequest& stop);
    void take_sample();
    [[nodiscard]] int wait_ms() const;
    const std::string& memory();
    Answer memory_page();
    Answer json(bool with_memory);
    Answer metrics();
    Answer health();
    template <typename Make>
    Answer make_from_report(const Make& make);

    const Facts facts_;
    const Roster& roster_;
    const Board& board_;
    const std::uint64_t start_us_;

    std::deque<Rates> history_;  // newest last
    std::uint64_t sampled_us_;
    std::uint64_t sampled_in_ = 0;
    std::uint64_t sampled_out_ = 0;

    std::string memory_;
    std::uint64_t memory_due_us_ = 0;  // the table is not made again before this time

    Answer memory_page_;  // made from memory_

    // Made for the first request after a sample, and dropped with the next sample.
    Answer live_json_;
    Answer status_json_;
    Answer metrics_;

    zxcommon::Descriptor wake_;
    HttpServer http_;
    Worker worker_;
};

}  // namespace relay

#include "status/service.hpp"

#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "common/failure.hpp"
#include "common/number.hpp"
#include "common/seconds.hpp"
#include "status/metrics.hpp"
#include "status/page.hpp"
#include "zxdiag.h"
#include "zxtime.h"

namespace relay {
namespace {

using tools::kMicro;

constexpr unsigned kMemoryShare =
    20;                        // making the memory table takes at most a twentieth of the time
constexpr int kPriority = 10;  // the stream comes first
constexpr unsigned kPauseUs =
    1000;  // between two rounds: limits the CPU time that clients can cause

constexpr char kHtml[] = "text/html; charset=utf-8";
constexpr char kCss[] = "text/css; charset=utf-8";
constexpr char kScript[] = "text/javascript; charset=utf-8";
constexpr char kJson[] = "application/json";
constexpr char kText[] = "text/plain; charset=utf-8";
constexpr unsigned kAccepted = 202;
constexpr unsigned kBadRequest = 400;

}  // namespace

StatusServer::StatusServer(zxcommon::Descriptor listener, const Endpoint& endpoint,
                           StatusSettings settings, const Roster& roster, const Board& board)
    : settings_(std::move(settings)),
      roster_(roster),
      board_(board),
      start_us_(zxtime_api_upTimeUs()),
      sampled_us_(start_us_),
      http_(std::move(listener), endpoint),
      worker_("relay-status", [this](zxcommon::StopRequest& stop) { run(stop); }) {
    add_routes();
    follow_channels();
    worker_.start();
}

StatusServer::~StatusServer() {
    wake_.set();
    worker_.stop();
}

void StatusServer::add_routes() {
    const auto add_file = [this](const char* path, std::string_view text, const char* type) {
        http_.add(path, [file = Answer(text, type)] { return file; });
    };
    add_file("/", kStatusPage, kHtml);
    add_file("/status.css", kStatusStyle, kCss);
    add_file("/status.js", kStatusScript, kScript);
    add_file("/common.js", kCommonScript, kScript);
    add_file("/inside", kInsidePage, kHtml);
    add_file("/inside.js", kInsideScript, kScript);
    http_.add("/inside.json", [this] { return inside(); });
    http_.add("/memory", [this] { return memory_page(); });
    http_.add("/healthz", [this] { return health(); });
    http_.add("/metrics", [this] { return metrics(); });
    http_.add("/live.json", [this] { return json(false); });
    http_.add("/status.json", [this] { return json(true); });
    http_.add_action("/disconnect", settings_.token,
                     [this](std::string_view id) { return disconnect(id); });
}

void StatusServer::run(zxcommon::StopRequest& stop) {
    setpriority(PRIO_PROCESS, 0, kPriority);  // of this thread only
    while (!stop.seen()) {
        pollfd fds[] = {{http_.fd(), POLLIN, 0}, {wake_.fd(), POLLIN, 0}};
        const int ready = poll(fds, std::size(fds), wait_ms());
        if (zxtime_api_upTimeUs() - sampled_us_ >= kMicro) {
            take_sample();
        }
        http_.serve();
        if (ready > 0) {
            usleep(kPauseUs);
        }
    }
}

int StatusServer::wait_ms() const {
    const std::uint64_t passed_ms = (zxtime_api_upTimeUs() - sampled_us_) / 1000;
    return http_.wait_ms(passed_ms < 1000 ? static_cast<int>(1000 - passed_ms) : 0);
}

// Takes the channels of now. Those that were there before keep their history.
void StatusServer::follow_channels() {
    std::vector<Track> tracks;
    for (ChannelPtr& channel : roster_.channels()) {
        const auto known = std::ranges::find(tracks_, channel, &Track::channel);
        tracks.push_back(
            {std::move(channel), known != tracks_.end() ? std::move(known->history) : History()});
    }
    tracks_ = std::move(tracks);
}

void StatusServer::take_sample() {
    const std::uint64_t now = zxtime_api_upTimeUs();
    const std::uint64_t passed_us = now - std::exchange(sampled_us_, now);
    history_.add(roster_.total(), passed_us);
    follow_channels();
    for (Track& track : tracks_) {
        track.history.add(track.channel->stats.read(), passed_us);
    }
    live_json_ = {};
    status_json_ = {};
    metrics_ = {};
    inside_ = {};
}

const std::string& StatusServer::memory() {
    const std::uint64_t now = zxtime_api_upTimeUs();
    if (now >= memory_due_us_) {
        memory_page_ = {};
        memory_ = memory_table(board_.read()->tracked_buffers);
        const std::uint64_t took = zxtime_api_upTimeUs() - now;
        memory_due_us_ = now + std::max(kMicro, kMemoryShare * took);
    }
    return memory_;
}

// All clients share one copy, because the table takes megabytes if there are many buffers.
Answer StatusServer::memory_page() {
    const std::string& table = memory();
    if (!memory_page_) {
        memory_page_ = Answer(table, kHtml);
    }
    return memory_page_;
}

Answer StatusServer::json(bool with_memory) {
    Answer& kept = with_memory ? status_json_ : live_json_;
    if (!kept) {
        kept = make_from_report([&](const Report& report) {
            return Answer(to_json(report, with_memory ? &memory() : nullptr), kJson);
        });
    }
    return kept;
}

Answer StatusServer::metrics() {
    if (!metrics_) {
        metrics_ = make_from_report(
            [](const Report& report) { return Answer(to_metrics(report), kMetricsType); });
    }
    return metrics_;
}

// What the library tells about this process.
Answer StatusServer::inside() {
    if (!inside_) {
        std::string text;
        for (const char* const topic : {"program", "waits", "locks", "fifos", "memory"}) {
            char* answer = zxdiag_api_ask(topic);
            text.append(text.empty() ? "{\"" : ",\"").append(topic).append("\":");
            text.append(answer != nullptr ? answer : "{}");
            zxdiag_api_free(&answer);
        }
        inside_ = Answer(text + "}", kJson);
    }
    return inside_;
}

// A relay that waits for its source is healthy, too. The second line of the answer tells the state.
Answer StatusServer::health() const {
    return {is_receiving(history_) ? "ok\nreceiving\n" : "ok\nwaiting for the source\n", kText};
}

Answer StatusServer::disconnect(std::string_view id) const {
    const auto number = tools::parse_number(id);
    if (!number) {
        return {"The id of a client is a number.\n", kText, kBadRequest};
    }
    settings_.disconnect(*number);
    return {"The client, if it is still there, is disconnected now.\n", kText, kAccepted};
}

template <typename Make>
Answer StatusServer::make_from_report(const Make& make) {
    const auto snapshot = board_.read();
    return make(Report{settings_.output, !settings_.token.empty(), *snapshot, roster_.guests,
                       roster_.total(), history_, tracks_,
                       (zxtime_api_upTimeUs() - start_us_) / kMicro});
}

}  // namespace relay

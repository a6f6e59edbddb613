// A client that has not said yet what it wants.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "stream/admission.hpp"
#include "stream/feed.hpp"
#include "stream/http_request.hpp"
#include "zxcommon.hpp"

namespace relay {

// A client that is silent for 200 ms, or does not begin with a capital letter as the methods of
// HTTP do, wants the raw stream. A request by HTTP has five seconds. So has a channel to appear.
class Newcomer {
public:
    // `raw`: what the client receives unless it asks for something; null: nothing.
    Newcomer(Guest its_guest, Feed* raw, std::uint64_t now_us)
        : guest(std::move(its_guest)),
          raw_feed(raw),
          position(raw != nullptr ? raw->ring.end() : 0),
          since_us_(now_us) {}

    // With `http` the request is final, with `late` it did not come in time; with `no_channel`, its
    // channel did not.
    enum class Wish { unknown, raw, http, late, no_channel, gone };
    // Reads what the client has sent.
    Wish listen();

    // After a request.
    void wait_for_channel(std::uint64_t now_us);
    [[nodiscard]] bool is_waiting() const { return is_waiting_; }

    [[nodiscard]] bool is_silent() const { return http_ == nullptr; }
    [[nodiscard]] std::uint64_t due_us() const;
    [[nodiscard]] Wish overdue_wish() const;
    [[nodiscard]] const HttpRequest& request() const { return http_->request(); }

    Guest guest;
    Feed* raw_feed;
    std::uint64_t position;  // where the raw stream will begin

private:
    std::uint64_t since_us_;
    std::unique_ptr<HttpReader> http_;
    bool is_waiting_ = false;
};

}  // namespace relay

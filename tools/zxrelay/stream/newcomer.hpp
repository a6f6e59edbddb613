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
// HTTP do, wants the raw stream. A request by HTTP has five seconds.
class Newcomer {
public:
    // `raw`: what the client receives unless it asks for something; null: nothing.
    Newcomer(Guest its_guest, Feed* raw, std::uint64_t now_us)
        : guest(std::move(its_guest)),
          raw_feed(raw),
          position(raw != nullptr ? raw->ring.end() : 0),
          since_us_(now_us) {}

    // With `http` the request is final, with `late` it did not come in time.
    enum class Wish { unknown, raw, http, late, gone };
    // Reads what the client has sent.
    Wish listen();

    [[nodiscard]] bool is_silent() const { return http_ == nullptr; }
    [[nodiscard]] std::uint64_t due_us() const;
    [[nodiscard]] const HttpRequest& request() const { return http_->request(); }

    Guest guest;
    Feed* raw_feed;
    std::uint64_t position;  // where the raw stream will begin

private:
    std::uint64_t since_us_;
    std::unique_ptr<HttpReader> http_;
};

}  // namespace relay

// HTTP for the status page: GET and HEAD of a few texts. Whoever asks is a stranger.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "stream/net.hpp"
#include "zxcommon.hpp"

struct MHD_Connection;
struct MHD_Daemon;
struct MHD_Response;

namespace relay {

// A text that may be sent to any number of connections.
class Answer {
public:
    Answer() = default;
    Answer(std::string_view body, const char* content_type, unsigned status = 200);
    explicit operator bool() const { return response_ != nullptr; }

private:
    friend class HttpServer;
    std::shared_ptr<MHD_Response> response_;
    unsigned status_ = 0;
};

// Has no thread of its own: whoever owns it waits for fd() or wait_ms() and calls serve().
//
// A connection has a few kilobytes for what it asks and a few seconds to do so; anything longer,
// malformed, with a body or of another method is refused.
class HttpServer {
public:
    using Handler = std::function<Answer()>;

    explicit HttpServer(const Endpoint& endpoint);  // a Failure says why it cannot listen
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // What a handler throws is answered with 503. Before the first serve().
    void add(std::string path, Handler handler) { routes_[std::move(path)] = std::move(handler); }

    [[nodiscard]] int fd() const;
    [[nodiscard]] int wait_ms(int limit) const;
    void serve();

    [[nodiscard]] int port() const { return port_; }

private:
    friend struct Callback;
    int answer(MHD_Connection* connection, std::string_view path, std::string_view method,
               bool is_first_call);

    std::map<std::string, Handler, std::less<>> routes_;
    const Answer not_found_;
    const Answer not_allowed_;
    const Answer too_large_;
    const Answer unavailable_;
    const zxcommon::Descriptor listener_;
    const int port_;
    MHD_Daemon* daemon_;
};

}  // namespace relay

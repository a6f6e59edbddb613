// The HTTP server of the status page. It serves a few texts with GET and HEAD, and trusts no
// client.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "status/visitors.hpp"
#include "stream/net.hpp"
#include "zxcommon.hpp"

struct MHD_Connection;
struct MHD_Daemon;
struct MHD_Response;

namespace relay {

// A response that can be sent to any number of clients.
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

// The server has no thread. Its owner waits until fd() is readable or wait_ms() have passed, and
// then calls serve().
//
// A request may take a few kilobytes and a few seconds. The server refuses requests that are longer
// or malformed, that have a body, or that use another method. On a loopback address it also refuses
// requests for other hosts: a page from elsewhere, whose name leads to this machine now, would make
// the browser of a local user send them.
class HttpServer {
public:
    using Handler = std::function<Answer()>;

    // `listener`: for connections to `endpoint`. Throws a Failure.
    HttpServer(zxcommon::Descriptor listener, const Endpoint& endpoint);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // Adds a page. Call this before the first serve(). If the handler throws, the client receives
    // 503.
    void add(std::string path, Handler handler) { routes_[std::move(path)] = std::move(handler); }

    [[nodiscard]] int fd() const;
    [[nodiscard]] int wait_ms(int limit) const;
    void serve();

    [[nodiscard]] int port() const { return port_; }

private:
    friend struct Callback;
    int answer(MHD_Connection* connection, std::string_view path, std::string_view method,
               bool is_first_call);
    // Returns why the request is refused; null: it is not.
    const Answer* refuse(MHD_Connection* connection, std::string_view method) const;
    bool is_foreign(MHD_Connection* connection) const;

    std::map<std::string, Handler, std::less<>> routes_;
    const std::string host_;
    Visitors visitors_;
    const Answer not_found_;
    const Answer foreign_;
    const Answer not_allowed_;
    const Answer too_large_;
    const Answer unavailable_;
    const zxcommon::Descriptor listener_;
    const int port_;
    const bool is_loopback_;
    MHD_Daemon* daemon_;
};

}  // namespace relay

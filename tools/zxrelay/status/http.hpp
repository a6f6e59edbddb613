// The HTTP server of the status page. It serves a few texts with GET and HEAD, acts on a POST with
// the right token, and trusts no client.
#pragma once

#include <functional>
#include <initializer_list>
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
    struct Header {
        const char* name;
        const char* value;
    };
    Answer() = default;
    Answer(std::string_view body, const char* content_type, unsigned status = 200,
           std::initializer_list<Header> headers = {});
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
// requests for other hosts: the browser of a local user sends them when the name of a foreign web
// site has been made to lead to this machine (DNS rebinding).
class HttpServer {
public:
    using Handler = std::function<Answer()>;
    using Action = std::function<Answer(std::string_view id)>;

    // `listener`: for connections to `endpoint`. Throws a Failure.
    HttpServer(zxcommon::Descriptor listener, const Endpoint& endpoint);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // Adds a page. Call this before the first serve(). If the handler throws, the client receives
    // 503.
    void add(std::string path, Handler handler) { routes_[std::move(path)] = std::move(handler); }

    // Adds what a POST to `path`?id=ID does. The request needs the header `Authorization:
    // Bearer TOKEN`, and must not come from the page of another site. Without a token, every
    // request is refused.
    void add_action(std::string path, std::string token, Action action) {
        actions_[std::move(path)] = {std::move(token), std::move(action)};
    }

    [[nodiscard]] int fd() const;
    [[nodiscard]] int wait_ms(int limit) const;
    void serve();

    [[nodiscard]] int port() const { return port_; }

private:
    friend struct Callback;
    int answer(MHD_Connection* connection, std::string_view path, std::string_view method,
               bool is_first_call);
    struct GuardedAction {
        std::string token;
        Action action;
    };
    // These return the answer to a request that is refused; null if it is not.
    const Answer* refuse(MHD_Connection* connection, std::string_view path,
                         std::string_view method) const;
    const Answer* refuse_action(MHD_Connection* connection, const std::string& token) const;
    bool is_foreign(MHD_Connection* connection) const;
    Answer make_answer(MHD_Connection* connection, std::string_view path) const;

    std::map<std::string, Handler, std::less<>> routes_;
    std::map<std::string, GuardedAction, std::less<>> actions_;
    const std::string host_;
    Visitors visitors_;
    const Answer not_found_;
    const Answer foreign_;
    const Answer forbidden_;
    const Answer unauthorized_;
    const Answer only_get_;
    const Answer only_post_;
    const Answer too_large_;
    const Answer unavailable_;
    const zxcommon::Descriptor listener_;
    const int port_;
    const bool is_loopback_;
    MHD_Daemon* daemon_;
};

}  // namespace relay

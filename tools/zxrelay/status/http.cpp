#include "status/http.hpp"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "common/failure.hpp"
#include "stream/token.hpp"

namespace relay {
namespace {

constexpr unsigned kConnections = 64;  // more than Visitors keep
constexpr unsigned kIdleSec = 5;
constexpr std::size_t kRequestSize = 8192;  // for the request and the headers of the answer

constexpr char kText[] = "text/plain; charset=utf-8";

// Style attributes are allowed because the memory table has some.
constexpr char kPolicy[] =
    "default-src 'none'; script-src 'self'; style-src 'self'; style-src-attr 'unsafe-inline'; "
    "connect-src 'self'; img-src data:; base-uri 'none'; form-action 'none'; "
    "frame-ancestors 'none'";

sockaddr_in6 local_address(int fd) {
    sockaddr_in6 address{};
    socklen_t size = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    return address;
}

int local_port(int fd) {
    return ntohs(local_address(fd).sin6_port);  // an IPv4 address has it at the same offset
}

bool is_loopback(in_addr_t address) {
    return ntohl(address) >> 24U == IN_LOOPBACKNET;
}

bool is_on_loopback(int fd) {
    const sockaddr_in6 address = local_address(fd);
    if (address.sin6_family == AF_INET) {
        return is_loopback(reinterpret_cast<const sockaddr_in*>(&address)->sin_addr.s_addr);
    }
    const in6_addr& in6 = address.sin6_addr;
    return IN6_IS_ADDR_V4MAPPED(&in6) != 0 ? is_loopback(in6.s6_addr32[3])
                                           : IN6_IS_ADDR_LOOPBACK(&in6) != 0;
}

// What a Host header names, without the port.
std::string host_of(std::string_view header) {
    const std::size_t bracket = header.find(']');
    const std::size_t end = bracket != std::string_view::npos ? bracket + 1 : header.find(':');
    std::string host(header.substr(0, end));
    std::ranges::transform(host, host.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return host;
}

bool is_local_host(const std::string& host) {
    in_addr address{};
    return host == "localhost" || host.ends_with(".localhost") || host == "[::1]" ||
           (inet_pton(AF_INET, host.c_str(), &address) == 1 && is_loopback(address.s_addr));
}

const char* header_of(MHD_Connection* connection, const char* name) {
    return MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
}

bool has_body(MHD_Connection* connection) {
    for (const char* name : {MHD_HTTP_HEADER_CONTENT_LENGTH, MHD_HTTP_HEADER_TRANSFER_ENCODING}) {
        const char* const value = header_of(connection, name);
        if (value != nullptr && std::strcmp(value, "0") != 0) {
            return true;
        }
    }
    return false;
}

// True if a page of another site makes the browser send this. Sec-Fetch-Site comes first, because a
// proxy may change Host, but leaves this header as the browser sent it.
bool is_from_other_site(MHD_Connection* connection) {
    if (const char* const site = header_of(connection, "Sec-Fetch-Site")) {
        return std::strcmp(site, "same-origin") != 0;
    }
    const char* const origin = header_of(connection, MHD_HTTP_HEADER_ORIGIN);
    const char* const host = header_of(connection, MHD_HTTP_HEADER_HOST);
    return origin != nullptr &&
           (host == nullptr || !std::string_view(origin).ends_with("://" + std::string(host)));
}

}  // namespace

Answer::Answer(std::string_view body, const char* content_type, unsigned status,
               std::initializer_list<Header> headers)
    : status_(status) {
    // The library copies the body and does not write to it, although the parameter is not const.
    MHD_Response* const response = MHD_create_response_from_buffer(
        body.size(), const_cast<char*>(body.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) {
        throw std::bad_alloc();
    }
    response_ = {response, MHD_destroy_response};
    const auto add = [=](const Header& header) {
        if (MHD_add_response_header(response, header.name, header.value) != MHD_YES) {
            throw std::bad_alloc();
        }
    };
    add({MHD_HTTP_HEADER_CONTENT_TYPE, content_type});
    add({MHD_HTTP_HEADER_CACHE_CONTROL, "no-store"});
    add({MHD_HTTP_HEADER_CONNECTION, "close"});
    add({MHD_HTTP_HEADER_CONTENT_SECURITY_POLICY, kPolicy});
    add({MHD_HTTP_HEADER_X_CONTENT_TYPE_OPTIONS, "nosniff"});
    add({"Referrer-Policy", "no-referrer"});
    std::ranges::for_each(headers, add);
}

// Passes calls of the library to the server. No exception may reach the library, which is in C.
struct Callback {
    static void note_connection(void* self, MHD_Connection* connection, void** /*context*/,
                                MHD_ConnectionNotificationCode code) {
        Visitors& visitors = static_cast<HttpServer*>(self)->visitors_;
        if (code == MHD_CONNECTION_NOTIFY_CLOSED) {
            visitors.remove(connection);
            return;
        }
        const auto info = [=](MHD_ConnectionInfoType type) {
            return MHD_get_connection_info(connection, type);
        };
        const int fd = info(MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
        try {
            visitors.add(connection, fd, info(MHD_CONNECTION_INFO_CLIENT_ADDRESS)->client_addr);
        } catch (const std::exception&) {
            shutdown(fd, SHUT_RDWR);  // it would have no deadline
        }
    }
    static MHD_Result handle(void* self, MHD_Connection* connection, const char* path,
                             const char* method, const char* /*version*/, const char* /*upload*/,
                             std::size_t* /*upload_size*/, void** request) {
        // The first call comes after the headers. An answer that is queued in it ends the
        // connection.
        const bool is_first_call = *request == nullptr;
        *request = self;
        return static_cast<MHD_Result>(
            static_cast<HttpServer*>(self)->answer(connection, path, method, is_first_call));
    }
};

HttpServer::HttpServer(zxcommon::Descriptor listener, const Endpoint& endpoint)
    : host_(host_of(endpoint.text())),
      not_found_("Page not found.\n", kText, MHD_HTTP_NOT_FOUND),
      foreign_("This page is served to its own host only.\n", kText, MHD_HTTP_FORBIDDEN),
      forbidden_("This needs a relay with --status-token, and its own page.\n", kText,
                 MHD_HTTP_FORBIDDEN),
      unauthorized_("The token is missing or wrong.\n", kText, MHD_HTTP_UNAUTHORIZED,
                    {{MHD_HTTP_HEADER_WWW_AUTHENTICATE, "Bearer"}}),
      only_get_("Only GET and HEAD are served.\n", kText, MHD_HTTP_METHOD_NOT_ALLOWED,
                {{MHD_HTTP_HEADER_ALLOW, "GET, HEAD"}}),
      only_post_("Only POST is served.\n", kText, MHD_HTTP_METHOD_NOT_ALLOWED,
                 {{MHD_HTTP_HEADER_ALLOW, "POST"}}),
      too_large_("Requests must not have a body.\n", kText, MHD_HTTP_CONTENT_TOO_LARGE),
      unavailable_("No memory for an answer.\n", kText, MHD_HTTP_SERVICE_UNAVAILABLE),
      listener_(std::move(listener)),
      port_(local_port(listener_.get())),
      is_loopback_(is_on_loopback(listener_.get())),
      daemon_(MHD_start_daemon(
          MHD_USE_EPOLL, 0, nullptr, nullptr, Callback::handle, this, MHD_OPTION_LISTEN_SOCKET,
          listener_.get(), MHD_OPTION_CONNECTION_MEMORY_LIMIT, kRequestSize,
          MHD_OPTION_CONNECTION_LIMIT, kConnections, MHD_OPTION_CONNECTION_TIMEOUT, kIdleSec,
          MHD_OPTION_NOTIFY_CONNECTION, Callback::note_connection, this,
          MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_END)) {
    if (daemon_ == nullptr) {
        throw tools::Failure("cannot serve the status page on " + endpoint.text());
    }
}

HttpServer::~HttpServer() {
    MHD_quiesce_daemon(daemon_);  // so that listener_ stays open until its own destructor
    MHD_stop_daemon(daemon_);
}

int HttpServer::fd() const {
    return MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
}

int HttpServer::wait_ms(int limit) const {
    MHD_UNSIGNED_LONG_LONG wait = 0;
    if (MHD_get_timeout(daemon_, &wait) != MHD_YES) {
        return limit;
    }
    return static_cast<int>(std::min<std::uint64_t>(wait, static_cast<std::uint64_t>(limit)));
}

void HttpServer::serve() {
    visitors_.end_overdue();
    MHD_run(daemon_);
}

int HttpServer::answer(MHD_Connection* connection, std::string_view path, std::string_view method,
                       bool is_first_call) {
    const auto queue = [&](const Answer& answer) {
        visitors_.begin_answer(connection);
        return MHD_queue_response(connection, answer.status_, answer.response_.get());
    };
    try {
        if (const Answer* const refusal = refuse(connection, path, method)) {
            return queue(*refusal);
        }
        return is_first_call ? MHD_YES : queue(make_answer(connection, path));
    } catch (const std::exception&) {
        return queue(unavailable_);
    }
}

const Answer* HttpServer::refuse(MHD_Connection* connection, std::string_view path,
                                 std::string_view method) const {
    if (is_foreign(connection)) {
        return &foreign_;
    }
    const auto action = actions_.find(path);
    const bool is_action = action != actions_.end();
    if (is_action && method != MHD_HTTP_METHOD_POST) {
        return &only_post_;
    }
    if (!is_action && method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD) {
        return &only_get_;
    }
    if (has_body(connection)) {
        return &too_large_;
    }
    return is_action ? refuse_action(connection, action->second.token) : nullptr;
}

const Answer* HttpServer::refuse_action(MHD_Connection* connection,
                                        const std::string& token) const {
    if (token.empty() || is_from_other_site(connection)) {
        return &forbidden_;
    }
    const char* const given = header_of(connection, MHD_HTTP_HEADER_AUTHORIZATION);
    return given != nullptr && is_bearer(given, token) ? nullptr : &unauthorized_;
}

Answer HttpServer::make_answer(MHD_Connection* connection, std::string_view path) const {
    if (const auto found = actions_.find(path); found != actions_.end()) {
        const char* const id = MHD_lookup_connection_value(connection, MHD_GET_ARGUMENT_KIND, "id");
        return found->second.action(id != nullptr ? id : "");
    }
    const auto found = routes_.find(path);
    return found != routes_.end() ? found->second() : not_found_;
}

bool HttpServer::is_foreign(MHD_Connection* connection) const {
    const char* const header = header_of(connection, MHD_HTTP_HEADER_HOST);
    if (!is_loopback_ || header == nullptr) {
        return false;
    }
    const std::string host = host_of(header);
    return host != host_ && !is_local_host(host);
}

}  // namespace relay

// Reads the addresses and URLs that users write.
#pragma once

#include <string>

namespace relay {

// "host:port" or "[host]:port"; the host is a name or an address.
struct Endpoint {
    std::string host;
    std::string port;
    [[nodiscard]] std::string text() const;
    bool operator==(const Endpoint&) const = default;
};

enum class Scheme { udp, rtp, tcp_listen, tcp_connect, http, file, standard_input };

// Where a stream comes from.
struct Url {
    Scheme scheme;
    std::string text;      // as it was written
    Endpoint endpoint{};   // of udp, rtp, tcp_listen and tcp_connect
    std::string sender{};  // of udp and rtp: only this host may send to the group; empty: any
    std::string path{};    // of file

    // The text for logs and pages: without the user and the password of an http URL.
    [[nodiscard]] std::string shown() const;
};

// These functions throw a Failure that says what is wrong with the text.
Url parse_url(const std::string& text);
Endpoint parse_output(const std::string& text);

}  // namespace relay

// A client of the socket on which a program answers questions about itself.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <string>

#include "zxcommon.hpp"

namespace zx::test {

class DiagClient {
public:
    explicit DiagClient(const std::string& path)
        : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        if (connect(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            fd_.reset();
        }
    }

    // The first answer to a question.
    std::string ask(const std::string& question) { return send_question(question) ? line() : ""; }

    bool send_question(const std::string& question) {
        const std::string text = question + "\n";
        return send(fd_.get(), text.data(), text.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(text.size());
    }

    // The next answer; empty: the connection has ended.
    std::string line() {
        for (;;) {
            if (const std::size_t end = received_.find('\n'); end != std::string::npos) {
                std::string first = received_.substr(0, end);
                received_.erase(0, end + 1);
                return first;
            }
            char part[4096];
            const ssize_t size = recv(fd_.get(), part, sizeof part, 0);
            if (size <= 0) {
                return "";
            }
            received_.append(part, static_cast<std::size_t>(size));
        }
    }

private:
    zxcommon::Descriptor fd_;
    std::string received_;
};

}  // namespace zx::test

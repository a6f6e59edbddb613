#include "input/transfer.hpp"

#include "common/failure.hpp"

namespace relay {
namespace {

constexpr int kWaitMs = 1000;
constexpr long kConnectTimeoutSeconds = 10;
constexpr long kKeepAliveIdleSec = 5;
constexpr long kKeepAliveIntervalSec = 2;

CURL* open_easy() {
    [[maybe_unused]] static const CURLcode once = curl_global_init(CURL_GLOBAL_DEFAULT);
    return curl_easy_init();
}

}  // namespace

Transfer::Transfer(const std::string& url) : easy_(open_easy()), multi_(curl_multi_init()) {
    if (!easy_ || !multi_) {
        throw tools::Failure("no memory for a transfer");
    }
    set(CURLOPT_URL, url.c_str());
    set(CURLOPT_ERRORBUFFER, error_);
    set(CURLOPT_NOSIGNAL, 1L);    // there are other threads
    set(CURLOPT_QUICK_EXIT, 1L);  // an end does not wait for a name server
    set(CURLOPT_CONNECTTIMEOUT, kConnectTimeoutSeconds);
    set(CURLOPT_TCP_KEEPALIVE, 1L);
    set(CURLOPT_TCP_KEEPIDLE, kKeepAliveIdleSec);
    set(CURLOPT_TCP_KEEPINTVL, kKeepAliveIntervalSec);
}

Transfer::~Transfer() {
    curl_multi_remove_handle(multi_.get(), easy_.get());
}

std::string Transfer::perform(const Interrupt& interrupt) {
    curl_multi_add_handle(multi_.get(), easy_.get());
    int running = 1;
    while (!interrupt.is_raised()) {
        curl_multi_perform(multi_.get(), &running);
        if (running == 0) {
            return result();
        }
        curl_waitfd ended{interrupt.fd(), CURL_WAIT_POLLIN, 0};
        curl_multi_poll(multi_.get(), &ended, 1, kWaitMs, nullptr);
    }
    return "stopped";
}

int Transfer::connection() const {
    curl_socket_t fd = -1;
    curl_easy_getinfo(easy_.get(), CURLINFO_ACTIVESOCKET, &fd);
    return fd;
}

std::string Transfer::result() const {
    int left = 0;
    const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left);
    if (message == nullptr || message->data.result == CURLE_OK) {
        return "";
    }
    return error_[0] != '\0' ? error_ : curl_easy_strerror(message->data.result);
}

}  // namespace relay

// One transfer by libcurl, which another thread can end.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

#include "input/interrupt.hpp"
#include "zxcommon.hpp"

namespace relay {

class Transfer {
public:
    // Throws a Failure if memory is short.
    explicit Transfer(const std::string& url);
    ~Transfer();
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    template <class Value>
    void set(CURLoption option, Value value) {
        curl_easy_setopt(easy_.get(), option, value);
    }

    // Returns when the transfer has ended; an empty text after a success, otherwise what was wrong.
    std::string perform(const Interrupt& interrupt);

    // The connection of CURLOPT_CONNECT_ONLY; -1: none.
    [[nodiscard]] int connection() const;

private:
    struct EasyFree {
        void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
    };
    struct MultiFree {
        void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
    };
    [[nodiscard]] std::string result() const;

    std::unique_ptr<CURL, EasyFree> easy_;
    std::unique_ptr<CURLM, MultiFree> multi_;
    char error_[CURL_ERROR_SIZE] = "";
};

}  // namespace relay

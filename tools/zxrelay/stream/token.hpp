// The word that clients must know.
#pragma once

#include <strings.h>

#include <cstddef>
#include <string_view>

namespace relay {

inline constexpr std::size_t kLongestToken = 128;

// Takes equally long for every text of one length, so that nobody can find the token bit by bit.
inline bool is_token(std::string_view text, std::string_view token) {
    if (text.size() != token.size()) {
        return false;
    }
    volatile unsigned difference = 0;
    for (std::size_t i = 0; i < token.size(); ++i) {
        difference = difference | static_cast<unsigned char>(text[i] ^ token[i]);
    }
    return difference == 0;
}

// The same for the field Authorization of RFC 6750.
inline bool is_bearer(std::string_view field, std::string_view token) {
    constexpr std::string_view kScheme = "Bearer ";
    return field.size() > kScheme.size() &&
           strncasecmp(field.data(), kScheme.data(), kScheme.size()) == 0 &&
           is_token(field.substr(kScheme.size()), token);
}

}  // namespace relay

// The parts of a URL.
#include "zxstr.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "internal/fixed_text.hpp"
#include "internal/log.hpp"

namespace {

constexpr char kTag[] = "STRING";
constexpr std::size_t kUrlLimit = ZXSTR_URL_SIZE - 1;

// An output for a part of the URL. It starts empty; without a buffer it takes nothing.
class Part {
public:
    Part(char* text, int size)
        : text_(size > 0 ? text : nullptr), size_(static_cast<std::size_t>(size)) {
        if (text_ != nullptr) {
            text_[0] = '\0';
        }
    }

    void assign(const char* begin, const char* end) const {
        if (text_ != nullptr) {
            const std::size_t kept = std::min(static_cast<std::size_t>(end - begin), size_ - 1);
            std::memcpy(text_, begin, kept);
            text_[kept] = '\0';
        }
    }

private:
    char* text_;
    std::size_t size_;
};

const char* find(char c, const char* begin, const char* end) {
    return static_cast<const char*>(std::memchr(begin, c, static_cast<std::size_t>(end - begin)));
}

const char* authority_end(const char* begin, const char* end) {
    if (const char* const slash = find('/', begin, end); slash != nullptr) {
        return slash;
    }
    const char* const query = find('?', begin, end);
    return query != nullptr ? query : end;
}

void set(uint8_t* flag, uint8_t value) {
    if (flag != nullptr) {
        *flag = value;
    }
}

void read_port(int* port, const char* digits) {
    if (port != nullptr) {
        *port = static_cast<int>(std::strtol(digits, nullptr, 10));
    }
}

void split_host(const char* begin, const char* end, const Part& host, int* port,
                uint8_t* bracketed) {
    if (const char* const close = *begin == '[' ? find(']', begin, end) : nullptr) {
        host.assign(begin + 1, close);
        if (close[1] == ':') {
            read_port(port, close + 2);
        }
        set(bracketed, 1);
        return;
    }
    set(bracketed, 0);
    const char* const colon = find(':', begin, end);
    host.assign(begin, colon != nullptr ? colon : end);
    if (colon != nullptr) {
        read_port(port, colon + 1);
    }
}

}  // namespace

extern "C" void zxstr_api_urlSplit(char* proto, int protoSize, char* auth, int authSize, char* host,
                                   int hostSize, int* port, char* path, int pathSize,
                                   uint8_t* isBracketHost, const char* url) {
    const Part proto_part(proto, protoSize);
    const Part auth_part(auth, authSize);
    const Part host_part(host, hostSize);
    const Part path_part(path, pathSize);
    if (port != nullptr) {
        *port = -1;
    }
    if (url == nullptr) {
        return;
    }

    const char* const end = url + std::strlen(url);
    const char* const colon = find(':', url, end);
    if (colon == nullptr) {
        path_part.assign(url, end);
        return;
    }
    proto_part.assign(url, colon);
    const char* begin = colon + 1;
    for (int slashes = 0; slashes < 2 && *begin == '/'; ++slashes) {
        ++begin;
    }
    const char* const authority = authority_end(begin, end);
    path_part.assign(authority, end);
    if (authority == begin) {
        return;
    }
    if (const char* const sign = find('@', begin, authority); sign != nullptr) {
        auth_part.assign(begin, sign);
        begin = sign + 1;
    }
    split_host(begin, authority, host_part, port, isBracketHost);
}

extern "C" char* zxstr_api_getUrlRealPath(const char* url, char* out) {
    if (url == nullptr || out == nullptr) {
        return out;
    }
    const std::size_t length = std::strlen(url);
    if (length >= kUrlLimit) {
        ZX_LOG_CUT(kUrlLimit, length + 1, url);
    }
    char scratch[ZXSTR_URL_SIZE];
    zxstr_api_lcpy(scratch, url, sizeof scratch);
    std::memset(out, 0, zx::kClearedSize);

    char* rest = nullptr;
    const char* const first = strtok_r(scratch, "?", &rest);
    const bool has_query = strtok_r(nullptr, "?", &rest) != nullptr;
    return std::strcpy(out, has_query ? first : scratch);
}

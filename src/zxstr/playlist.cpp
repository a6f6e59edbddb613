// URLs of the numbered files of a stream.
#include "zxstr.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "internal/log.hpp"
#include "shared/trusted_format.hpp"

namespace {

constexpr char kTag[] = "STRING";

// Size of the text of one append(), with its NUL. Longer texts are cut.
constexpr std::size_t kPieceSize = 1024;

// The parts of a URL before the number. No text is null.
struct Address {
    Address(const char* proto_, const char* auth_, const char* host_, int port_, const char* path_)
        : proto(text(proto_)),
          auth(text(auth_)),
          host(text(host_)),
          port(port_),
          path(text(path_)) {}

    const char* proto;
    const char* auth;
    const char* host;
    int port;
    const char* path;

private:
    static const char* text(const char* given) { return given != nullptr ? given : ""; }
};

// A text of the caller. Appending to it stays within its size.
struct Entry {
    char* text;
    std::size_t size;

    [[gnu::format(printf, 2, 3)]] void append(const char* fmt, ...) const {
        char piece[kPieceSize];
        std::va_list args;
        va_start(args, fmt);
        std::vsnprintf(piece, sizeof piece, fmt, args);
        va_end(args);
        zxstr_api_lcat(text, piece, size);
    }

    void append_origin(const Address& address) const {
        if (address.proto[0] != '\0') {
            append("%s://", address.proto);
        }
        if (address.auth[0] != '\0') {
            append("@%s@", address.auth);
        }
        if (address.host[0] != '\0') {
            append("%s", address.host);
        }
    }

    // Appends the port, the path and the index.
    void append_path(const Address& address, const char* index) const {
        if (address.port > 0) {
            append(":%d", address.port);
        }
        if (std::strstr(address.path, "m3u8") == nullptr) {
            append("/%s_%s", address.path, index);
            return;
        }
        append("%s", address.path);
        // Deliberate: the index is written at this offset from the beginning of the entry, even
        // when other parts come before the path.
        const std::size_t length = std::strlen(address.path);
        const std::size_t at = length > 5 ? length - 5 : 0;
        if (at < size) {
            std::snprintf(text + at, size - at, "_%s.m3u8", index);
        }
    }
};

void build_numbered(const Entry& entry, const Address& address, int index) {
    entry.append_origin(address);
    if (address.path[0] == '\0') {
        entry.append(":%" PRId64, int64_t{address.port} + index);
        return;
    }
    char digits[16];
    std::snprintf(digits, sizeof digits, "%03d", index);
    entry.append_path(address, digits);
}

}  // namespace

extern "C" void zxstr_api_buildListurl(const char* proto, const char* auth, const char* host,
                                       int port, const char* path, int count, int stride,
                                       char* base) {
    if (base == nullptr || stride <= 0) {
        return;
    }
    const Address address(proto, auth, host, port, path);
    const auto size = static_cast<std::size_t>(stride);
    for (int i = 0; i < count; ++i) {
        char* const text = base + static_cast<std::size_t>(i) * size;
        build_numbered({text, size}, address, i);
        ZX_LOG(info, "%03d.%s", i, text);
    }
}

extern "C" void zxstr_api_buildListurl2(const char* proto, const char* auth, const char* host,
                                        int port, const char* path, int count,
                                        // `entry` writes to it, which the check does not see.
                                        // NOLINTNEXTLINE(readability-non-const-parameter)
                                        char* out) {
    if (out == nullptr) {
        return;
    }
    const Address address(proto, auth, host, port, path);
    const Entry entry{out, zx::kUnsized};
    const int64_t last = int64_t{count} - 1;
    entry.append_origin(address);
    if (address.path[0] == '\0') {
        entry.append(":[%d:%" PRId64 "]", port, port + last);
        return;
    }
    char range[32];
    std::snprintf(range, sizeof range, "[%03d:%03" PRId64 "]", 0, last);
    entry.append_path(address, range);
}

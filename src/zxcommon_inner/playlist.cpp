// Names and directories of streams, from the URLs of their playlists.
#include "zxt.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "internal/safe_name.hpp"
#include "zxcommon_inner/messages.hpp"

namespace {

constexpr std::size_t kEndingSize = 5;  // ".m3u8"
constexpr std::size_t kCommandSize = 512;

bool is_to_expand(std::string_view url, std::string_view vodpath) {
    return url.size() > kEndingSize && !url.starts_with(vodpath);
}

std::string_view name_of(std::string_view url) {
    return url.substr(0, url.size() - kEndingSize);
}

// True when a relative path leads to something below its start and never outside.
bool leads_below(std::string_view path) {
    bool is_named = false;
    while (!path.empty()) {
        const std::string_view part = path.substr(0, path.find('/'));
        if (part == "..") {
            return false;
        }
        is_named = is_named || (!part.empty() && part != ".");
        path.remove_prefix(std::min(part.size() + 1, path.size()));
    }
    return is_named;
}

// Replaces the text in `out`. The bytes after it, where the caller left room for the ending of the
// URL, become zeros.
void replace(char* out, std::string_view text) {
    std::memset(out, 0, std::strlen(out));
    std::memcpy(out, text.data(), text.size());
    std::memset(out + text.size(), 0, kEndingSize + 1);
}

}  // namespace

extern "C" void zxt_innerapi_getHlsName(const char* hls_url, const char* vodpath,
                                        char* programname) {
    if (ZX_ARE_GIVEN({hls_url, "hls_url"}, {vodpath, "vodpath"}, {programname, "programname"}) &&
        is_to_expand(hls_url, vodpath)) {
        replace(programname, name_of(hls_url));
    }
}

extern "C" int32_t zxt_innerapi_getHlsPath(const char* hls_url, const char* vodpath,
                                           char* hls_path) {
    if (!ZX_ARE_GIVEN({hls_url, "hls_url"}, {vodpath, "vodpath"}, {hls_path, "hls_path"}) ||
        !is_to_expand(hls_url, vodpath)) {
        return 0;
    }
    const std::string_view name = name_of(hls_url);
    char path[kCommandSize];
    const int path_length = std::snprintf(path, sizeof path, "%s/%.*s", vodpath,
                                          static_cast<int>(name.size()), name.data());
    char make[kCommandSize];
    const int make_length =
        std::snprintf(make, sizeof make, "mkdir  -p %s  && chmod 777 %s", path, path);
    char remove[kCommandSize];
    const int remove_length = std::snprintf(remove, sizeof remove, "rm -fr %s", path);
    if (!zx::is_whole(path_length, sizeof path) || !zx::is_whole(make_length, sizeof make) ||
        !zx::is_whole(remove_length, sizeof remove) || !zx::is_safe_path(path) ||
        !leads_below(name)) {
        ZX_LOG(error, "Path(%s/%s) is not fit for a command", vodpath, hls_url);
        return 0;
    }
    replace(hls_path, path);
    ZX_LOG(info, "-------hls_path:%s", hls_path);
    zx::run_unasked(remove);
    zx::run_unasked(make);
    return 1;
}

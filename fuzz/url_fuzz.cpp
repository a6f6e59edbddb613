// Splits any text as a URL, as its query and as the URL of a playlist, and builds numbered URLs,
// against plain models. Outputs have the size that the input says, or that the header asks for.
#include <array>

#include "said.hpp"
#include "support.hpp"
#include "zxstr.h"
#include "zxt.h"

namespace {

using zx::fuzz::cut;
using zx::fuzz::GuardedMemory;
using zx::fuzz::Input;
using zx::fuzz::require;

constexpr std::size_t kMaxText = 2048;
constexpr int kUntouched = 0xA5;

struct Parts {
    std::array<std::string, 4> texts;  // proto, auth, host, path
    int port = -1;
    int is_bracketed = kUntouched;
};

Parts split(const std::string& url) {
    Parts parts;
    auto& [proto, auth, host, path] = parts.texts;
    const std::size_t colon = url.find(':');
    if (colon == std::string::npos) {
        path = url;
        return parts;
    }
    proto = url.substr(0, colon);
    std::string rest = url.substr(colon + 1);
    rest.erase(0, std::min<std::size_t>(2, std::min(rest.find_first_not_of('/'), rest.size())));
    std::size_t end = rest.find('/');
    end = std::min(end != std::string::npos ? end : rest.find('?'), rest.size());
    path = rest.substr(end);
    rest.resize(end);
    if (rest.empty()) {
        return parts;
    }
    if (const std::size_t sign = rest.find('@'); sign != std::string::npos) {
        auth = rest.substr(0, sign);
        rest.erase(0, sign + 1);
    }
    const std::size_t close = rest.starts_with('[') ? rest.find(']') : std::string::npos;
    parts.is_bracketed = close != std::string::npos ? 1 : 0;
    host = parts.is_bracketed == 1 ? rest.substr(1, close - 1) : rest.substr(0, rest.find(':'));
    rest.erase(0, parts.is_bracketed == 1 ? close + 1 : host.size());
    if (rest.starts_with(':')) {
        parts.port = std::atoi(rest.c_str() + 1);
    }
    return parts;
}

void check_split(Input& control, const std::string& url, const char* placed) {
    static std::array<GuardedMemory, 4> outs{GuardedMemory(256), GuardedMemory(256),
                                             GuardedMemory(256), GuardedMemory(256)};
    std::array<int, 4> sizes{};
    std::array<char*, 4> out{};
    for (std::size_t i = 0; i < outs.size(); ++i) {
        sizes[i] = control.take<std::int8_t>();
        out[i] = outs[i].old_text(static_cast<std::size_t>(std::max(sizes[i], 0)));
    }
    int port = 0;
    std::uint8_t is_bracketed = kUntouched;
    zxstr_api_urlSplit(out[0], sizes[0], out[1], sizes[1], out[2], sizes[2], &port, out[3],
                       sizes[3], &is_bracketed, placed);
    const Parts expected = split(url);
    for (std::size_t i = 0; i < outs.size(); ++i) {
        require(
            sizes[i] <= 0 || out[i] == cut(expected.texts[i], static_cast<std::size_t>(sizes[i])),
            "a part of a URL");
    }
    require(port == expected.port && is_bracketed == expected.is_bracketed, "port and brackets");
}

std::string without_query(const std::string& whole) {
    const std::string url = whole.substr(0, ZXSTR_URL_SIZE - 1);
    const std::size_t begin = std::min(url.find_first_not_of('?'), url.size());
    const std::size_t end = std::min(url.find('?', begin), url.size());
    const bool has_more = url.find_first_not_of('?', end) != std::string::npos;
    return begin == url.size() ? url
                               : url.substr(has_more ? begin : 0, end - (has_more ? begin : 0));
}

void check_query(GuardedMemory& out, std::uint32_t size, const std::string& name,
                 const std::string& query, const char* placed) {
    std::string rest = query.substr(query.starts_with('?') ? 1 : 0);
    std::string value;
    bool is_found = false;
    for (bool is_last = false; !is_found && !is_last;) {
        const std::size_t end = rest.find('&');
        const std::string pair = rest.substr(0, end);
        const std::size_t sign = std::min(pair.find('='), pair.size());
        is_found = pair.substr(0, std::min<std::size_t>(sign, ZXSTR_KEY_SIZE - 1)) == name;
        value = pair.substr(std::min(sign + 1, pair.size()));
        is_last = end == std::string::npos;
        rest.erase(0, is_last ? rest.size() : end + 1);
    }
    std::replace(value.begin(), value.end(), '+', ' ');
    char* const found = out.old_text(size);
    require(zxstr_api_findTag(found, size, name.c_str(), placed) == (is_found ? 1 : 0), "a key");
    require(size == 0 || found == cut(value, size), "the value of a key");
}

// The URL of one piece of a stream, or of a range of them.
std::string numbered(const std::array<std::string, 4>& texts, int port, const std::string& ports,
                     const std::string& index, std::size_t size) {
    const auto& [proto, auth, host, path] = texts;
    std::string url = (proto.empty() ? "" : proto + "://") + (auth.empty() ? "" : "@" + auth + "@");
    url += host;
    if (path.empty()) {
        return cut(url + ":" + ports, size);
    }
    if (port > 0) {
        url.append(":").append(std::to_string(port));
    }
    if (path.find("m3u8") == std::string::npos) {
        return cut(url + "/" + path + "_" + index, size);
    }
    url = cut(url + path, size);
    const std::size_t at = path.size() > 5 ? path.size() - 5 : 0;
    return at < size ? cut(url.substr(0, at) + "_" + index + ".m3u8", size) : url;
}

void check_list(GuardedMemory& out, Input& control, const std::string& path) {
    constexpr int kCount = 3;
    const std::size_t stride = 1 + control.take_below(200);
    const auto port = control.take<std::int32_t>();
    std::array<std::string, 4> texts;
    for (std::size_t i = 0; i < 3; ++i) {
        texts[i] = control.take_line(12);
    }
    texts[3] = path.substr(0, 128);
    const auto port_of = [port](int i) { return std::to_string(std::int64_t{port} + i); };
    const auto build = [&](auto function, auto... rest) {
        function(texts[0].c_str(), texts[1].c_str(), texts[2].c_str(), port, texts[3].c_str(),
                 kCount, rest...);
    };
    char* const list = reinterpret_cast<char*>(out.fill(kCount * stride, 0));
    zx::fuzz::Lines lines{"STRING", zxlog_api_getLoglevel()};
    zx::fuzz::take_said();
    build(zxstr_api_buildListurl, static_cast<int>(stride), list);
    for (int i = 0; i < kCount; ++i) {
        lines.say(4, "%03d.%s", i, list + static_cast<std::size_t>(i) * stride);
        require(list + static_cast<std::size_t>(i) * stride ==
                    numbered(texts, port, port_of(i), std::string("00").append(std::to_string(i)),
                             stride),
                "a numbered URL");
    }
    require(zx::fuzz::take_said() == lines.said, "the lines of the numbered URLs");
    std::size_t needed = 64;
    for (const std::string& text : texts) {
        needed += text.size();
    }
    char* const range = out.text("", needed - 1);
    build(zxstr_api_buildListurl2, range);
    const std::string ports =
        std::string("[").append(port_of(0)).append(":").append(port_of(kCount - 1)).append("]");
    require(range == numbered(texts, port, ports, "[000:002]", needed), "the URL of a range");
}

// Runs with a separate output, and in place.
void check_real_path(GuardedMemory& out, const std::string& url, char* placed) {
    const std::size_t room = std::clamp<std::size_t>(url.size() + 1, 8, ZXSTR_URL_SIZE);
    zx::fuzz::Lines lines{"STRING", zxlog_api_getLoglevel()};
    zx::fuzz::take_said();
    for (char* const to : {out.old_text(room), placed}) {
        if (url.size() >= ZXSTR_URL_SIZE - 1) {
            lines.say(2, "There is a bug that buf1 (%d < %zu)(%s),please fix!!", ZXSTR_URL_SIZE - 1,
                      url.size() + 1, url.c_str());
        }
        require(zxstr_api_getUrlRealPath(placed, to) == to && to == without_query(url),
                "a URL without its query");
    }
    require(zx::fuzz::take_said() == lines.said, "the lines of a URL that is cut");
}

// The old name becomes zeros, and so does the ending after the new name.
void check_stream(GuardedMemory& out, const std::string& url, const char* placed,
                  const std::string& folder) {
    const std::size_t size = url.size() + 8;
    for (const std::string& old : {std::string("old"), std::string(url.size() + 4, 'o')}) {
        std::string expected(size, 'x');
        expected.replace(0, old.size() + 1, old + '\0');
        char* const stream = reinterpret_cast<char*>(out.fill(size, 'x'));
        std::copy(expected.begin(), expected.end(), stream);
        if (url.size() > 5 && !url.starts_with(folder)) {
            const std::string name = url.substr(0, url.size() - 5) + std::string(6, '\0');
            expected.replace(0, old.size(), old.size(), '\0');
            expected.replace(0, name.size(), name);
        }
        zxt_innerapi_getHlsName(placed, folder.c_str(), stream);
        require(std::string(stream, size) == expected, "the name of a stream");
    }
}

}  // namespace

// Runs texts that are longer than seeds.
void zx_fuzz_sweep() {
    static GuardedMemory out(4096);
    zxlog_api_setLoglevel(5);
    for (const std::size_t size : {1022U, 1023U, 1024U, 1025U, 2000U}) {
        std::string url(size, 'u');
        url += size > 1024 ? "?q" : "";
        check_real_path(out, url, std::string(url).data());
    }
    const std::string key(ZXSTR_KEY_SIZE - 1, 'k');
    for (const std::string& query : {key, key + "more", key.substr(1)}) {
        check_query(out, 8, key, query + "=v", (query + "=v").c_str());
    }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static GuardedMemory urls(kMaxText + 1);
    static GuardedMemory out(kMaxText + 1);

    Input input({data, std::min(size, kMaxText)});
    Input control(input.take_bytes(48));
    zxlog_api_setLoglevel(control.take<std::uint8_t>() % 6);
    const std::string name = control.take_line(8);
    const std::string url = input.take_text(kMaxText);
    char* const placed = urls.text(url, url.size() < 7 ? 7 - url.size() : 0);

    check_query(out, control.take<std::uint8_t>(), name, url, placed);
    check_split(control, url, placed);
    check_list(out, control, url);
    check_stream(out, url, placed, name);
    check_real_path(out, url, placed);
    return 0;
}

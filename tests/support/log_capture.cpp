// The functions of libzxlog that the library calls, defined by the test program: the dynamic linker
// prefers them to those of libzxlog.
#include "log_capture.hpp"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

#include "zxlog.h"

namespace {

std::mutex g_mutex;
std::vector<std::string> g_lines;
std::vector<std::string> g_dumps;
std::atomic<unsigned> g_level{5};

std::vector<std::string> take_from(std::vector<std::string>& lines) {
    const std::scoped_lock lock(g_mutex);
    return std::exchange(lines, {});
}

}  // namespace

extern "C" {

uint32_t zxlog_api_getLoglevel(void) {
    return g_level;
}

const char* zxlog_innerapi_logTime(void) {
    return "";
}

void zxlog_innerapi_file(const char* fmt, ...) {
    std::va_list args;
    va_start(args, fmt);
    std::va_list again;
    va_copy(again, args);
    std::string line(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, fmt, args)), '\0');
    std::vsnprintf(line.data(), line.size() + 1, fmt, again);
    va_end(again);
    va_end(args);
    if (line.ends_with("\r\n")) {
        line.resize(line.size() - 2);
    } else {
        line += "<no line end>";
    }
    const std::scoped_lock lock(g_mutex);
    g_lines.push_back(line);
}

void zxlog_innerapi_bufHex(const char* label, const void* buf, uint32_t len, const char*, int32_t) {
    std::string dump = std::string(label) + ":";
    for (uint32_t i = 0; i < len; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<const uint8_t*>(buf)[i]);
        dump += digits;
    }
    const std::scoped_lock lock(g_mutex);
    g_dumps.push_back(dump);
}

}  // extern "C"

namespace zx::test {

LogCapture::LogCapture(unsigned level) {
    set_level(level);
    flag_printLineFunc = 0;
    flag_stdPrint = 0;
    strfilterTags[0] = '\0';
    take();
    take_dumps();
}

LogCapture::~LogCapture() {
    take();
}

std::vector<std::string> LogCapture::take() {
    return take_from(g_lines);
}

std::vector<std::string> LogCapture::take_dumps() {
    return take_from(g_dumps);
}

void LogCapture::set_level(unsigned level) {
    g_level = level;
}

}  // namespace zx::test

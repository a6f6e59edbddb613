// Writes lines of any format and any texts to a file in memory and reads them back, against the C
// library's formatting and a plain escape of control characters.
#include <sys/stat.h>

#include "support.hpp"

namespace {

using zx::fuzz::Bytes;
using zx::fuzz::Input;
using zx::fuzz::require;

std::string escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<std::uint8_t>(c);
        if ((byte < 0x20 && c != '\t' && c != '\r' && c != '\n') || byte == 0x7F) {
            char code[8];
            std::snprintf(code, sizeof code, "\\x%02x", byte);
            out += code;
        } else {
            out += c;
        }
    }
    return out;
}

// A log file that holds what was written since the last look.
class Log {
public:
    Log() : fd_(memfd_create("log", MFD_CLOEXEC)) {
        const std::string path = std::string("/proc/self/fd/").append(std::to_string(fd_));
        require(zxlog_api_setFile(path.c_str()) == 0, "there is a log file");
        zxlog_api_setLoglevel(5);
    }
    std::string take() const {
        struct stat st {};
        require(fstat(fd_, &st) == 0, "the log file is there");
        std::string text(static_cast<std::size_t>(st.st_size), '\0');
        require(pread(fd_, text.data(), text.size(), 0) == st.st_size && ftruncate(fd_, 0) == 0,
                "the log file is read");
        return text;
    }

private:
    int fd_;
};

// "%", flags, a width, a precision and the letters: all that C knows, and most of it rarely.
std::string conversion(Input& control, const char* const (&letters)[8]) {
    const std::size_t form = control.take_below(64);
    std::string text = "%";
    if (form % 4 == 1) {
        text += "-+ #0"[control.take_below(5)];
    }
    if (form >= 40) {
        const std::size_t width = control.take<std::uint16_t>() % 3000;
        text += form == 63 ? "2147483648" : std::to_string(width);
    }
    if (form >= 16 && form < 48) {
        text += '.';
        text += form == 16 ? "" : std::to_string(control.take_below(40));
    }
    return text + letters[control.take_below(8)];
}

// Whatever text stands between conversions.
std::string literal(Input& input) {
    std::string text = input.take_line(input.take<std::uint8_t>());
    for (std::size_t at = 0; (at = text.find('%', at)) != std::string::npos; at += 2) {
        text.insert(at, 1, '%');
    }
    return text;
}

template <typename... Args>
void check_line(const Log& log, const std::string& format, Args... args) {
    int (*const print)(char*, std::size_t, const char*, ...) = std::snprintf;
    void (*const write)(const char*, ...) = zxlog_innerapi_file;
    static std::string text(1U << 16U, '\0');
    const int size = print(text.data(), text.size(), format.c_str(), args...);
    require(size < static_cast<int>(text.size()), "the line fits");
    const std::string expected = size < 0 ? format : text.substr(0, static_cast<std::size_t>(size));
    write(format.c_str(), args...);
    require(log.take() == escaped(expected), "the line");
}

void check_hex(const Log& log, const std::string& label, Bytes bytes) {
    zxlog_innerapi_bufHex(label.c_str(), bytes.data(), static_cast<std::uint32_t>(bytes.size()),
                          "fuzz", 7);
    std::string lines = log.take();
    const std::size_t stamp = std::strlen("[2024-05-01 08:30:00.250]");
    const auto require_line = [&](const std::string& line) {
        require(lines.substr(std::min(stamp, lines.size()), line.size()) == line,
                "a line of a dump");
        lines.erase(0, stamp + line.size());
    };
    char size[32];
    std::snprintf(size, sizeof size, ": %zu bytes\r\n", bytes.size());
    require_line("[HEX][fuzz 7]" + escaped(label) + size);
    for (std::size_t at = 0; at < bytes.size(); at += 16) {
        char text[32];
        std::snprintf(text, sizeof text, "[HEX]%08zx: ", at);
        std::string line = text;
        std::string letters;
        for (std::size_t i = at; i < std::min(at + 16, bytes.size()); ++i) {
            std::snprintf(text, sizeof text, "%02x ", bytes[i]);
            line += text;
            letters += bytes[i] >= 0x20 && bytes[i] < 0x7F ? static_cast<char>(bytes[i]) : '.';
        }
        line.resize(std::strlen("[HEX]00000000: ") + 16 * 3, ' ');
        require_line(line + " " + letters + "\r\n");
    }
    require(lines.empty(), "nothing else");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr const char* kInts[8] = {"d", "i", "u", "x", "X", "o", "c", "d"};
    constexpr const char* kLongs[8] = {"ld", "li", "lu", "lx", "zu", "zd", "llu", "lX"};
    constexpr const char* kTexts[8] = {"s", "s", "s", "s", "s", "s", "s", "p"};
    static const Log log;

    Input input({data, size});
    Input control(input.take_bytes(48));
    const auto number = control.take<std::uint64_t>();
    const auto limit = static_cast<std::int32_t>(control.take<std::int8_t>());
    const bool is_null = control.take_below(8) == 0;

    const std::string text = input.take_line(input.take<std::uint16_t>() % 4096);
    const char* const given = is_null ? nullptr : text.c_str();
    std::string format = literal(input) + conversion(control, kInts) + literal(input);
    format += conversion(control, kLongs) + literal(input) + conversion(control, kTexts);
    format += literal(input) + "%.*s" + conversion(control, kLongs) + literal(input) + "\r\n";
    check_line(log, format, static_cast<int>(number), number, given, limit, text.c_str(), ~number);
    check_line(log, literal(input) + conversion(control, kTexts) + "%%\r\n", given);
    check_hex(log, text, input.take_bytes(128));
    return 0;
}

// Writes log lines with any format and any texts to a file in memory, and reads them back. They
// must be what the C library formats, with the control characters escaped in a plain way. Also runs
// the parts that make a line in memory between inaccessible pages.
#include <sys/stat.h>

#include <cstdarg>
#include <utility>

#include "shared/controls.hpp"
#include "shared/plain_format.hpp"
#include "support.hpp"

namespace {

using zx::fuzz::Bytes;
using zx::fuzz::Input;
using zx::fuzz::require;

// Returns the size of the character at `at`. To check the character, this encodes its code point
// again.
std::size_t character_at(const std::string& text, std::size_t at) {
    for (std::size_t size = 2; size <= 4 && at + size <= text.size(); ++size) {
        std::uint32_t code = static_cast<std::uint8_t>(text[at]) & (0x7FU >> size);
        for (std::size_t i = 1; i < size; ++i) {
            code = code << 6U | (static_cast<std::uint8_t>(text[at + i]) & 0x3FU);
        }
        const std::size_t least = code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
        std::string anew(1, static_cast<char>(0xFF00U >> size | code >> (6 * (size - 1))));
        for (std::size_t i = size - 1; i > 0; --i) {
            anew += static_cast<char>(0x80U | (code >> (6 * (i - 1)) & 0x3FU));
        }
        if (least == size && code < 0x110000 && (code < 0xD800 || code > 0xDFFF) &&
            text.compare(at, size, anew) == 0) {
            return size;
        }
    }
    return 1;
}

std::string escaped(const std::string& text) {
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size = character_at(text, at);
        const auto first = static_cast<std::uint8_t>(text[at]);
        const auto last = static_cast<std::uint8_t>(text[at + size - 1]);
        const bool is_control =
            size == 1 ? (first < 0x20 && first != '\t') || (first >= 0x7F && first < 0xA0)
                      : size == 2 && first == 0xC2 && last < 0xA0;
        for (const std::size_t end = at + size; at < end; ++at) {
            char code[8];
            std::snprintf(code, sizeof code, "\\x%02x", static_cast<std::uint8_t>(text[at]));
            out += is_control ? code : text.substr(at, 1);
        }
    }
    return out;
}

// A format under construction, and the line that is expected from it.
class Line {
public:
    // Adds a text of the format itself, which appears in the log without escapes.
    Line& own(std::string text) {
        if (!text.empty()) {
            flush();
        }
        expected_ += text;
        for (std::size_t at = 0; (at = text.find('%', at)) != std::string::npos; at += 2) {
            text.insert(at, 1, '%');
        }
        format_ += text;
        return *this;
    }
    template <typename... Args>
    Line& argument(const std::string& conversion, Args... args) {
        int (*const print)(char*, std::size_t, const char*, ...) = std::snprintf;
        static std::string room(1U << 16U, '\0');
        const int size = print(room.data(), room.size(), conversion.c_str(), args...);
        require(size < static_cast<int>(room.size()), "the line fits");
        is_refused_ |= size < 0;
        brought_ += room.substr(0, static_cast<std::size_t>(std::max(size, 0)));
        format_ += conversion;
        return *this;
    }
    [[nodiscard]] const char* format() const { return format_.c_str(); }
    [[nodiscard]] std::string expected() {
        flush();
        return is_refused_ ? format_ : expected_;
    }

private:
    void flush() { expected_ += escaped(std::exchange(brought_, {})); }

    std::string format_;
    std::string expected_;
    std::string brought_;  // what arguments have added since the last text of the format
    bool is_refused_ = false;
};

// A page between two inaccessible pages.
class Page {
public:
    Page() : size_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
        void* const memory =
            mmap(nullptr, 3 * size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        require(memory != MAP_FAILED, "there is memory");
        page_ = static_cast<char*>(memory) + size_;
        require(mprotect(page_, size_, PROT_READ | PROT_WRITE) == 0, "there is a page");
    }
    // Returns `size` bytes at either end of the page; all other bytes are 0xA5.
    char* place(std::size_t size, bool at_end) {
        std::memset(page_, 0xA5, size_);
        used_ = {page_ + (at_end ? size_ - size : 0), size};
        return used_.data();
    }
    char* place(const std::string& text, bool at_end) {
        return std::copy(text.begin(), text.end(), place(text.size(), at_end)) - text.size();
    }
    void require_rest_untouched() const {
        for (const char* at = page_; at < page_ + size_; ++at) {
            require(*at == '\xA5' || (at >= used_.data() && at < used_.data() + used_.size()),
                    "nothing is written outside");
        }
    }
    [[nodiscard]] std::size_t size() const { return size_; }

private:
    std::size_t size_;
    char* page_ = nullptr;
    std::span<char> used_;
};

int print_plain(char* out, std::size_t size, const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    const int length = zx::PlainFormat(out, size).print(format, args);
    va_end(args);
    return length;
}

// Runs the library's own formatter with outputs of every size near the needed one. It must write
// what snprintf writes, or return -1.
template <typename... Args>
void check_plain(bool is_plain, const std::string& format, Args... args) {
    int (*const print)(char*, std::size_t, const char*, ...) = std::snprintf;
    static Page page;
    static std::string expected(page.size(), '\0');
    const int length = print(expected.data(), expected.size(), format.c_str(), args...);
    const std::size_t fits = length < 0 ? 0 : static_cast<std::size_t>(length) + 1;
    if (fits + 2 > page.size()) {
        return;
    }
    for (std::size_t size = fits > 40 ? fits - 30 : 1; size < fits + 3; ++size) {
        for (const bool at_end : {false, true}) {
            char* const out = page.place(size, at_end);
            const int got = print_plain(out, size, format.c_str(), args...);
            require(got < 0 ? !is_plain || size < fits
                            : got == length && size >= fits &&
                                  std::memcmp(out, expected.data(), fits) == 0,
                    "the own formatter");
            page.require_rest_untouched();
        }
    }
}

// Input and output have exactly the needed size, and are at either end of a page.
void check_escape(const std::string& text) {
    static Page in;
    static Page out;
    const std::string expected = escaped(text);
    if (expected.size() > out.size()) {
        return;
    }
    for (const bool at_end : {false, true}) {
        const char* const from = in.place(text, at_end);
        char* const to = out.place(expected.size(), at_end);
        require(zx::put_escaped(from, from + text.size(), to) == to + expected.size() &&
                    expected.compare(0, expected.size(), to, expected.size()) == 0,
                "the escaped text");
        out.require_rest_untouched();
    }
}

// A log file in memory. take() returns what was written since the last call.
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

// Makes a conversion: "%", flags, a width, a precision and the letters. It is anything that C
// allows; most of it is rare.
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

// A text between two conversions.
std::string literal(Input& input) {
    return input.take_line(input.take<std::uint8_t>());
}

template <typename... Args>
void check_line(const Log& log, Line line, Args... args) {
    void (*const write)(const char*, ...) = zxlog_innerapi_file;
    write(line.format(), args...);
    require(log.take() == line.expected(), "the line");
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
    static Page page;  // for a text without a NUL
    const std::string part = text.substr(0, static_cast<std::size_t>(std::max(limit, 0)));
    const char* const bare = limit >= 0 && is_null ? page.place(part, true) : text.c_str();
    const int width = limit >= 0 && is_null ? static_cast<int>(part.size()) : limit;

    const auto small = static_cast<int>(number);
    Line line;
    line.own(literal(input)).argument(conversion(control, kInts), small);
    line.own(literal(input)).argument(conversion(control, kLongs), number);
    line.own(literal(input)).argument(conversion(control, kTexts), given).own(literal(input));
    line.argument("%.*s", width, bare).argument(conversion(control, kLongs), ~number);
    line.own(literal(input)).own("\r\n");
    check_line(log, line, small, number, given, width, bare, ~number);
    check_plain(false, line.format(), small, number, given, width, bare, ~number);
    line = Line();
    line.own(literal(input)).argument(conversion(control, kTexts), given).own("%\r\n");
    check_line(log, line, given);
    line = Line();
    line.own(literal(input)).argument("%s", text.c_str()).argument("%.*s", width, bare);
    check_line(log, line, text.c_str(), width, bare);
    check_plain(true, "%s[%.*s] %d %lu %02d%% %c\r\n", text.c_str(), width, bare, small, number,
                static_cast<int>(number % 100), static_cast<int>(number % 255 + 1));
    check_escape(text);
    check_hex(log, text, input.take_bytes(128));
    return 0;
}

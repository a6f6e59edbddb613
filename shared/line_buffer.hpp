// The text of one line, formatted without the heap. It is on the stack, or in memory pages of its
// own when it is long. The log file and the echo of libzxcommon share this. It is safe in signal
// handlers.
#pragma once

#include <sys/mman.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "shared/controls.hpp"
#include "shared/plain_format.hpp"

namespace zx {

class LineBuffer {
public:
    // cppcheck-suppress uninitMemberVar  // clearing costs time, only formatted text is read
    LineBuffer() = default;
    LineBuffer(const LineBuffer&) = delete;
    LineBuffer& operator=(const LineBuffer&) = delete;
    ~LineBuffer() { unmap(); }

    // Sets the text to what vsnprintf() gives, with the control characters of the arguments
    // escaped. Those of the format stay. When there are no pages for a long line, the line is cut
    // to the part on the stack and keeps its line end. When the C library refuses to format a line,
    // the text is the format.
    void format(const char* fmt, std::va_list args) {
        std::va_list plain;
        va_copy(plain, args);
        int needed = PlainFormat(text_, capacity_).print(fmt, plain);
        va_end(plain);
        if (needed < 0) {
            needed = print_long(fmt, args);
        }
        length_ = static_cast<std::size_t>(needed);
        if (length_ >= capacity_) {
            length_ = capacity_ - 1;
            std::memcpy(text_ + length_ - 2, "\r\n", 2);
            blank();
        } else if (count_doubtful(text_, length_) != count_doubtful(fmt, std::strlen(fmt))) {
            escape(fmt, args);
        }
    }

    [[nodiscard]] const char* data() const { return text_; }
    [[nodiscard]] std::size_t size() const { return length_; }

private:
    static constexpr std::size_t kStackSize = 2048;

    static int print(char* out, std::size_t size, const char* fmt, std::va_list args) {
        std::va_list own;
        va_copy(own, args);
        const int needed = std::vsnprintf(out, size, fmt, own);
        va_end(own);
        return needed;
    }

    // Formats with the C library, in pages when the text is long.
    int print_long(const char* fmt, std::va_list args) {
        int needed = print(text_, capacity_, fmt, args);
        if (needed < 0) {
            return std::snprintf(text_, capacity_, "%s", fmt);
        }
        const std::size_t size = static_cast<std::size_t>(needed) + 1;
        if (size > capacity_) {
            if (char* const pages = map(size); pages != nullptr) {
                use(pages, pages, size);
                needed = print(text_, capacity_, fmt, args);
            }
        }
        return needed;
    }

    // Some doubtful bytes came with the arguments. To find these, the line is formatted again from
    // a format with question marks in the place of its doubtful bytes. Where the two lines differ,
    // the byte is the format's own.
    [[gnu::cold, gnu::noinline]] void escape(const char* fmt, std::va_list args) {
        const std::size_t fmt_size = std::strlen(fmt) + 1;
        const std::size_t room = fmt_size + length_ + 1 + kEscapedSize * length_;
        char scratch[kStackSize];
        char* const pages = room > sizeof scratch ? map(room) : nullptr;
        if (room > sizeof scratch && pages == nullptr) {
            blank();
            return;
        }
        char* const marking_fmt = pages != nullptr ? pages : scratch;
        char* const marked = marking_fmt + fmt_size;
        char* const out = marked + length_ + 1;
        std::replace_copy_if(fmt, fmt + fmt_size - 1, marking_fmt, is_doubtful, '?');
        marking_fmt[fmt_size - 1] = '\0';
        if (print(marked, length_ + 1, marking_fmt, args) != static_cast<int>(length_)) {
            std::memcpy(marked, text_, length_);  // an argument is changing: escape everything
        }
        const char* const end = text_ + length_;
        char* to = out;
        for (const char* from = text_; from < end;) {
            const char* const own = std::mismatch(from, end, marked + (from - text_)).first;
            to = put_escaped(from, own, to);
            from = own;
            if (from < end) {
                *to++ = *from++;
            }
        }
        length_ = static_cast<std::size_t>(to - out);
        if (pages != nullptr) {
            use(out, pages, room);
        } else {
            std::memcpy(text_, out, length_);
        }
    }

    // Without pages for escaping, question marks replace the control characters.
    [[gnu::cold, gnu::noinline]] void blank() {
        const bool keeps_end = length_ >= 2 && std::memcmp(text_ + length_ - 2, "\r\n", 2) == 0;
        std::replace_if(text_, text_ + length_ - (keeps_end ? 2 : 0), is_doubtful, '?');
    }

    static char* map(std::size_t size) {
        void* const pages =
            mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        return pages != MAP_FAILED ? static_cast<char*>(pages) : nullptr;
    }

    // Takes over the pages, and `text` inside them.
    void use(char* text, char* pages, std::size_t size) {
        unmap();
        pages_ = pages;
        pages_size_ = size;
        text_ = text;
        capacity_ = size - static_cast<std::size_t>(text - pages);
    }

    void unmap() {
        if (pages_ != nullptr) {
            munmap(pages_, pages_size_);
        }
    }

    char stack_[kStackSize];
    char* text_ = stack_;
    std::size_t capacity_ = kStackSize;
    std::size_t length_ = 0;
    char* pages_ = nullptr;
    std::size_t pages_size_ = 0;
};

}  // namespace zx

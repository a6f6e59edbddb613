// The text of one line, formatted without the heap: on the stack, or in pages of its own when it is
// long. Shared by the log file and by the echo of libzxcommon; safe in signal handlers.
#pragma once

#include <sys/mman.h>

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "plain_format.hpp"
#include "write_once.hpp"

namespace zxlog {

class LineBuffer {
public:
    // cppcheck-suppress uninitMemberVar  // clearing costs time, only formatted text is read
    LineBuffer() = default;
    LineBuffer(const LineBuffer&) = delete;
    LineBuffer& operator=(const LineBuffer&) = delete;
    ~LineBuffer() { unmap(); }

    // Replaces the text. A line for which no pages can be had is cut to the stack's part and keeps
    // its line end; a line that the C library refuses to format is shown as its format.
    void format(const char* fmt, std::va_list args) {
        std::va_list again;
        va_copy(again, args);
        int needed = PlainFormat(text_, capacity_).print(fmt, args);
        if (needed < 0) {
            needed = print(fmt, again);
        }
        va_end(again);
        length_ = static_cast<std::size_t>(needed);
        if (length_ >= capacity_) {
            length_ = capacity_ - 1;
            std::memcpy(text_ + length_ - 2, "\r\n", 2);
        }
    }

    // Writes control characters other than tab, CR and LF as "\x1b", but for those in the first
    // `head` and the last `tail` bytes, which are the writer's own.
    void escape_controls(std::size_t head, std::size_t tail) {
        if (length_ < head + tail || !has_control(text_ + head, text_ + length_ - tail)) {
            return;
        }
        std::size_t controls = 0;
        for (std::size_t i = head; i < length_ - tail; ++i) {
            controls += is_control(text_[i]) ? 1U : 0U;
        }
        const std::size_t wanted = length_ + kEscapeGrowth * controls;
        if (wanted + 1 > capacity_ && !grow(wanted + 1)) {
            blank_controls(head, tail);
            return;
        }
        expand(head, tail, wanted);
    }

    [[nodiscard]] const char* data() const { return text_; }
    [[nodiscard]] std::size_t size() const { return length_; }

private:
    static constexpr std::size_t kStackSize = 2048;
    static constexpr std::size_t kEscapeGrowth = 3;  // "\x1b" for one byte

    // Without branches: the compiler asks it of sixteen bytes at a time.
    static bool is_control(char c) {
        const auto byte = static_cast<unsigned char>(c);
        const bool kept = (byte == '\t') | (byte == '\r') | (byte == '\n');
        return ((byte < 0x20) & !kept) | (byte == 0x7f);
    }

    // Nearly all lines answer with no.
    static bool has_control(const char* from, const char* to) {
        unsigned char found = 0;
        for (; from < to; ++from) {
            found |= static_cast<unsigned char>(is_control(*from));
        }
        return found != 0;
    }

    // As vsnprintf, in pages where the text needs them.
    int print(const char* fmt, std::va_list args) {
        std::va_list again;
        va_copy(again, args);
        int needed = std::vsnprintf(text_, capacity_, fmt, args);
        if (needed < 0) {
            needed = std::snprintf(text_, capacity_, "%s", fmt);
        } else if (static_cast<std::size_t>(needed) >= capacity_ &&
                   grow(static_cast<std::size_t>(needed) + 1)) {
            needed = std::vsnprintf(text_, capacity_, fmt, again);
        }
        va_end(again);
        return needed;
    }

    void expand(std::size_t head, std::size_t tail, std::size_t wanted) {
        constexpr char kDigits[] = "0123456789abcdef";
        std::size_t to = wanted;
        const auto put = [&](char c) { text_[--to] = c; };
        for (std::size_t from = length_; from > 0; --from) {
            const char c = text_[from - 1];
            if (from <= head || from > length_ - tail || !is_control(c)) {
                put(c);
                continue;
            }
            put(kDigits[static_cast<unsigned char>(c) & 15U]);
            put(kDigits[static_cast<unsigned char>(c) >> 4U]);
            put('x');
            put('\\');
        }
        length_ = wanted;
    }

    void blank_controls(std::size_t head, std::size_t tail) {
        for (std::size_t i = head; i < length_ - tail; ++i) {
            if (is_control(text_[i])) {
                text_[i] = '?';
            }
        }
    }

    // Room for `size` bytes, with the text kept.
    bool grow(std::size_t size) {
        void* const pages =
            mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED) {
            return false;
        }
        std::memcpy(pages, text_, length_);
        unmap();
        text_ = static_cast<char*>(pages);
        capacity_ = size;
        return true;
    }

    void unmap() {
        if (text_ != stack_) {
            munmap(text_, capacity_);
        }
    }

    char stack_[kStackSize];
    char* text_ = stack_;
    std::size_t capacity_ = kStackSize;
    std::size_t length_ = 0;
};

}  // namespace zxlog

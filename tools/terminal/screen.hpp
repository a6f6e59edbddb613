// A live screen on the terminal.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

struct screen;

namespace terminal {

enum class Style { plain, title, alarm, dim };

struct ScreenLine {
    std::string text;
    Style style = Style::plain;
};

// Keys that are no characters.
enum SpecialKey : int {
    kKeyUp = 0x110000,
    kKeyDown,
    kKeyPageUp,
    kKeyPageDown,
    kKeyLeft,
    kKeyRight
};

// What a screen shows. It knows nothing of the terminal, so tests can read its lines.
class Content {
public:
    Content() = default;
    Content(const Content&) = delete;
    Content& operator=(const Content&) = delete;
    virtual ~Content() = default;

    // False: quit.
    virtual bool on_key(int key) = 0;

    // At most `height` clean lines of at most `width` columns.
    [[nodiscard]] virtual std::vector<ScreenLine> draw(std::size_t width, std::size_t height) = 0;
};

// The terminal belongs to the screen until the object goes. It is standard output. If standard
// input is something else, the keys come from the terminal all the same.
class Screen {
public:
    // `name` is what needs the screen, for the error message. Throws a Failure if there is no
    // terminal, or if nothing is known about it.
    explicit Screen(const std::string& name);
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;
    ~Screen();

    // Readable when it is time to call handle_keys().
    [[nodiscard]] int fd() const;

    void show(Content& content) const;

    // Gives the keys to the content, without waiting. False: quit.
    [[nodiscard]] bool handle_keys(Content& content) const;

private:
    struct Closer {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    std::unique_ptr<std::FILE, Closer> keys_;  // NULL: standard input
    screen* screen_;                           // of ncurses
};

}  // namespace terminal

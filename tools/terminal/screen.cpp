#include "terminal/screen.hpp"

#define NCURSES_NOMACROS
#include <curses.h>
#include <unistd.h>

#include "common/failure.hpp"
#include "terminal/text.hpp"

namespace terminal {
namespace {

constexpr short kAlarmPair = 1;

int attribute_of(Style style) {
    switch (style) {
        case Style::title:
            return static_cast<int>(A_REVERSE);
        case Style::alarm:
            return static_cast<int>(A_BOLD) | (has_colors() ? COLOR_PAIR(kAlarmPair) : 0);
        case Style::dim:
            return static_cast<int>(A_DIM);
        case Style::plain:
            break;
    }
    return static_cast<int>(A_NORMAL);
}

int translated(int key) {
    switch (key) {
        case KEY_UP:
            return kKeyUp;
        case KEY_DOWN:
            return kKeyDown;
        case KEY_PPAGE:
            return kKeyPageUp;
        case KEY_NPAGE:
            return kKeyPageDown;
        case KEY_LEFT:
            return kKeyLeft;
        case KEY_RIGHT:
            return kKeyRight;
        default:
            return key;
    }
}

}  // namespace

Screen::Screen(const std::string& name)
    : keys_(isatty(STDIN_FILENO) == 1 ? nullptr : std::fopen("/dev/tty", "re")),
      screen_(newterm(nullptr, stdout, keys_ != nullptr ? keys_.get() : stdin)) {
    if (screen_ == nullptr) {
        throw tools::Failure(name + " needs a terminal that TERM names");
    }
    constexpr int kEscapeMs = 25;
    set_escdelay(kEscapeMs);
    cbreak();
    noecho();
    curs_set(0);
    keypad(stdscr, true);
    nodelay(stdscr, true);
    if (has_colors()) {
        start_color();
        use_default_colors();
        init_pair(kAlarmPair, COLOR_RED, -1);
    }
}

Screen::~Screen() {
    endwin();
    delscreen(screen_);
}

int Screen::fd() const {
    return keys_ != nullptr ? fileno(keys_.get()) : STDIN_FILENO;
}

void Screen::show(Content& content) const {
    const auto width = static_cast<std::size_t>(getmaxx(stdscr));
    const auto height = static_cast<std::size_t>(getmaxy(stdscr));
    erase();
    int row = 0;
    for (const ScreenLine& line : content.draw(width, height)) {
        attrset(attribute_of(line.style));
        const bool is_bar = line.style == Style::title;
        mvaddstr(row++, 0, (is_bar ? fitted(line.text, width, false) : line.text).c_str());
    }
    attrset(A_NORMAL);
    refresh();
}

bool Screen::handle_keys(Content& content) const {
    for (int key; (key = getch()) != ERR;) {
        if (!content.on_key(translated(key))) {
            return false;
        }
    }
    return true;
}

}  // namespace terminal

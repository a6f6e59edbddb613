#include "screen.hpp"

#define NCURSES_NOMACROS
#include <curses.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "common/failure.hpp"
#include "text.hpp"
#include "top.hpp"

namespace ctl {
namespace {

constexpr std::int64_t kRoundMs = 1000;

// The terminal belongs to the screen until the object goes.
class Terminal {
public:
    Terminal() : screen_(newterm(nullptr, stdout, stdin)) {
        if (screen_ == nullptr) {
            throw tools::Failure("top needs a terminal that TERM names");
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
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal() {
        endwin();
        delscreen(screen_);
    }

    void show(Top& top) const {
        const int width = getmaxx(stdscr);
        const int height = getmaxy(stdscr);
        erase();
        int row = 0;
        for (const ScreenLine& line :
             top.draw(static_cast<std::size_t>(width), static_cast<std::size_t>(height))) {
            attrset(attribute_of(line.style));
            const bool is_bar = line.style == Style::title;
            mvaddstr(
                row++, 0,
                (is_bar ? fitted(line.text, static_cast<std::size_t>(width), false) : line.text)
                    .c_str());
        }
        attrset(A_NORMAL);
        refresh();
    }

    // Gives the keys to the screen. False: quit.
    [[nodiscard]] bool handle_keys(Top& top) const {
        for (int key; (key = getch()) != ERR;) {
            if (!top.on_key(translated(key))) {
                return false;
            }
        }
        return true;
    }

private:
    static constexpr short kAlarmPair = 1;

    static int attribute_of(Style style) {
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

    static int translated(int key) {
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

    SCREEN* screen_;
};

std::string time_of_day() {
    const std::time_t now = std::time(nullptr);
    tm parts{};
    char text[16];
    localtime_r(&now, &parts);
    return {text, std::strftime(text, sizeof text, "%T", &parts)};
}

// Asks one question after the other, and begins again each second. It never waits.
class Rounds {
public:
    Rounds(Connection& connection, Top& top, std::int64_t timeout_ms)
        : connection_(connection), top_(top), timeout_ms_(timeout_ms) {}

    // Does what can be done now.
    void go_on() {
        if (has_ended_) {
            return;
        }
        try {
            while (take_answer()) {
            }
            if (!is_asking_ && !top_.is_paused() && now_ms() >= next_round_ms_) {
                next_round_ms_ = now_ms() + kRoundMs;
                ask(0);
            }
        } catch (const std::runtime_error& failure) {
            has_ended_ = true;
            top_.set_state(failure.what(), true);
            return;
        }
        if (const std::int64_t waited = now_ms() - asked_ms_; is_asking_ && waited > timeout_ms_) {
            top_.set_state("no answer for " + std::to_string(waited / 1000) + " s", true);
        }
    }

    // -1: nothing is expected from the connection.
    [[nodiscard]] int fd() const { return has_ended_ ? -1 : connection_.fd(); }

private:
    void ask(std::size_t question) {
        question_ = question;
        asked_ms_ = now_ms();
        is_asking_ = true;
        connection_.send(Top::kQuestions[question]);
    }

    // False: it has not arrived yet. Also notices the end of the program between the questions.
    bool take_answer() {
        auto line = connection_.next_line();
        if (!line) {
            connection_.receive();
            line = connection_.next_line();
        }
        if (!line) {
            return false;
        }
        Json answer = parse_answer(*line);
        if (!is_asking_) {
            throw tools::Failure("the program says: " + clean(error_of(answer.get())));
        }
        top_.take(question_, std::move(answer));
        if (question_ + 1 < Top::kQuestions.size()) {
            ask(question_ + 1);
        } else {
            is_asking_ = false;
            top_.set_state(time_of_day(), false);
        }
        return true;
    }

    Connection& connection_;
    Top& top_;
    const std::int64_t timeout_ms_;
    std::size_t question_ = 0;
    bool is_asking_ = false;
    bool has_ended_ = false;
    std::int64_t asked_ms_ = 0;
    std::int64_t next_round_ms_ = 0;
};

[[noreturn]] void print_rounds(Connection& connection, const Options& options) {
    for (;;) {
        for (const char* const question : Top::kQuestions) {
            connection.send(question);
            const std::string_view line = connection.wait_for_line(options.timeout_ms);
            (void)parse_answer(line);
            std::puts(clean_json(line).c_str());
        }
        if (std::fflush(stdout) != 0) {
            throw tools::system_failure("standard output");
        }
        usleep(kRoundMs * 1000);
    }
}

}  // namespace

void show_top(Connection& connection, const Place& place, const Options& options) {
    if (options.json) {
        print_rounds(connection, options);
    }
    constexpr int kStepMs = 200;
    Top top(clean(place.name) +
            (place.process != 0 ? " (" + std::to_string(place.process) + ")" : ""));
    Rounds rounds(connection, top, options.timeout_ms);
    const Terminal terminal;
    while (terminal.handle_keys(top)) {
        rounds.go_on();
        terminal.show(top);
        pollfd waits[] = {{STDIN_FILENO, POLLIN, 0}, {rounds.fd(), POLLIN, 0}};
        poll(waits, 2, kStepMs);
        if ((waits[0].revents & (POLLHUP | POLLERR)) != 0) {
            return;
        }
    }
}

}  // namespace ctl

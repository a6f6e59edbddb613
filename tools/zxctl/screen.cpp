#include "screen.hpp"

#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "common/failure.hpp"
#include "terminal/screen.hpp"
#include "terminal/text.hpp"
#include "top.hpp"

namespace ctl {
namespace {

using terminal::clean, terminal::clean_json;

constexpr std::int64_t kRoundMs = 1000;

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
    const terminal::Screen screen("top");
    while (screen.handle_keys(top)) {
        rounds.go_on();
        screen.show(top);
        pollfd waits[] = {{screen.fd(), POLLIN, 0}, {rounds.fd(), POLLIN, 0}};
        poll(waits, 2, kStepMs);
        if ((waits[0].revents & (POLLHUP | POLLERR)) != 0) {
            return;
        }
    }
}

}  // namespace ctl

// What the live screen shows, as lines of text. It knows nothing of the terminal.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "answer.hpp"
#include "terminal/screen.hpp"
#include "view.hpp"

namespace ctl {

class Top final : public terminal::Content {
public:
    explicit Top(std::string who) : who_(std::move(who)) {}

    // What the program is asked each second, and its answers.
    static constexpr std::array<const char*, 5> kQuestions = {"threads", "locks", "waits", "fifos",
                                                              "memory"};
    void take(std::size_t question, Json answer);

    // What the first line says at its end; an alarm stands out.
    void set_state(const std::string& state, bool is_alarm);

    bool on_key(int key) override;
    [[nodiscard]] bool is_paused() const { return is_paused_; }

    [[nodiscard]] std::vector<terminal::ScreenLine> draw(std::size_t width,
                                                         std::size_t height) override;

private:
    struct Panel {
        const char* title;
        std::size_t question;
        const char* array;
        std::optional<std::size_t> sorted_by{};
        bool reversed = false;
        std::size_t first = 0;  // row that is shown
    };

    [[nodiscard]] static View view_for(const Panel& panel, const cJSON* array);
    void sort_by(bool next);
    [[nodiscard]] const cJSON* array_of(std::size_t question, const char* name) const;
    [[nodiscard]] std::string summary() const;
    [[nodiscard]] std::string alarm() const;
    [[nodiscard]] std::string tabs() const;
    void draw_panel(std::vector<terminal::ScreenLine>& lines, std::size_t width,
                    std::size_t height);

    const std::string who_;
    std::string state_;
    bool has_alarm_ = false;
    std::array<Json, kQuestions.size()> answers_;
    std::array<Panel, 4> panels_ = {{{"threads", 0, "threads"},
                                     {"locks", 1, "locks"},
                                     {"FIFOs", 3, "fifos"},
                                     {"memory", 4, "places"}}};
    std::size_t chosen_ = 0;
    std::size_t page_ = 1;  // rows that fit
    bool is_paused_ = false;
    bool has_help_ = false;
};

}  // namespace ctl

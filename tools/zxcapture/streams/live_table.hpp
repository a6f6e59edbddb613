// The live tables, as lines of text. It knows nothing of the terminal.
#pragma once

#include <optional>

#include "streams/sheet.hpp"
#include "terminal/screen.hpp"

namespace capture {

// One sheet at a time, sorted by the column that a key has chosen.
class LiveTable final : public terminal::Content {
public:
    // What is shown from now on: a line of text, and the sheets, always the same ones.
    void set(std::string headline, std::vector<Sheet> sheets);

    bool on_key(int key) override;
    [[nodiscard]] std::vector<terminal::ScreenLine> draw(std::size_t width,
                                                         std::size_t height) override;

private:
    // What the user has chosen for a sheet.
    struct Choice {
        std::optional<std::size_t> sorted_by;
        bool reversed = false;
        std::size_t first = 0;  // row that is shown
    };

    void choose_sheet(std::size_t number);
    void choose_column(int key);
    void move(bool is_down, std::size_t rows);
    void sort_chosen();
    [[nodiscard]] std::string tabs() const;
    [[nodiscard]] std::string help() const;

    std::string headline_;
    std::vector<Sheet> sheets_;
    std::vector<Choice> choices_;
    std::size_t chosen_ = 0;
    std::size_t page_ = 1;  // rows that fit
    bool is_paused_ = false;
};

}  // namespace capture

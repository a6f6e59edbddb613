// A printer that keeps tables of what the frames bring. It shows them live on a terminal, or an
// object of JSON each second, and a summary at the end.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/json.hpp"
#include "show/printer.hpp"
#include "streams/live_table.hpp"

namespace capture {

// What the tables are made of. It knows no terminal and no output.
class Tables {
public:
    Tables() = default;
    Tables(const Tables&) = delete;
    Tables& operator=(const Tables&) = delete;
    virtual ~Tables() = default;

    // `now_us` is the time of the frame, in microseconds since 1970.
    virtual void add(const Frame& frame, const Packet& packet, std::int64_t now_us) = 0;

    // So many seconds of the stream are over at this time. Rates are those of these seconds.
    virtual void end_second(std::int64_t now_us, double seconds) = 0;

    // The tables as they are now, one after the other. `is_summary`: the last time.
    [[nodiscard]] virtual std::vector<Sheet> sheets(bool is_summary) const = 0;

    // One line about all of them.
    [[nodiscard]] virtual std::string headline(bool is_summary) const = 0;

    // The same as an object, or as an array of objects, which are each printed on a line.
    [[nodiscard]] virtual tools::Json json(bool is_summary) const = 0;
};

enum class TablesForm {
    live,     // on the terminal, and the summary at the end
    summary,  // at the end alone
    json,     // an object a second, and one at the end
};

class TablesPrinter final : public Printer {
public:
    // `name` is the option, for error messages. Throws a Failure if the terminal is not good for a
    // screen.
    TablesPrinter(std::unique_ptr<Tables> tables, TablesForm form, const std::string& name);

    void add(const Frame& frame, const Packet& packet, std::uint64_t number,
             Output& output) override;
    void refresh(Output& output) override;
    void finish(Output& output) override;

private:
    void pass(std::int64_t now, Output& output);
    void end_second(std::int64_t seconds, Output& output);
    void show();
    void look_at_keys();
    void print_json(bool is_summary, Output& output) const;
    void print_summary(Output& output) const;

    const std::unique_ptr<Tables> tables_;
    const TablesForm form_;
    std::optional<terminal::Screen> screen_;
    LiveTable live_;
    // Times of the stream, which are those of its frames.
    std::optional<std::int64_t> begin_us_;  // of the second that is not over yet
    std::int64_t last_us_ = 0;              // of the last frame
    std::int64_t next_look_us_ = 0;         // at the keys
    // Times of the machine.
    std::int64_t idle_since_us_ = 0;  // 0: there was a frame
    std::int64_t shown_us_ = 0;
};

}  // namespace capture

#include "streams/tables.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

#include "stop.hpp"
#include "terminal/text.hpp"
#include "zxtime.h"

namespace capture {
namespace {

constexpr std::int64_t kSecondUs = 1000000;
constexpr std::int64_t kLookUs = 100000;
constexpr std::int64_t kLeastShownUs = 500000;  // a file comes faster than anyone can read

std::int64_t clock_us() {
    return static_cast<std::int64_t>(zxtime_api_upTimeUs());
}

std::size_t width_of_output() {
    winsize size{};
    return isatty(STDOUT_FILENO) == 1 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 &&
                   size.ws_col != 0
               ? size.ws_col
               : SIZE_MAX;
}

}  // namespace

TablesPrinter::TablesPrinter(std::unique_ptr<Tables> tables, TablesForm form,
                             const std::string& name)
    : tables_(std::move(tables)), form_(form) {
    if (form == TablesForm::live) {
        screen_.emplace(name);
        show();
    }
}

void TablesPrinter::add(const Frame& frame, const Packet& packet, std::uint64_t, Output& output) {
    const std::int64_t now = microseconds_of(frame.time);
    idle_since_us_ = 0;
    last_us_ = now;
    pass(now, output);
    tables_->add(frame, packet, now);
}

// The stream's time goes on while there are no frames.
void TablesPrinter::refresh(Output& output) {
    idle_since_us_ = idle_since_us_ == 0 ? clock_us() : idle_since_us_;
    if (begin_us_) {
        pass(last_us_ + clock_us() - idle_since_us_, output);
    }
    look_at_keys();
}

void TablesPrinter::pass(std::int64_t now, Output& output) {
    if (begin_us_ && now < *begin_us_) {  // captures that were joined may go back in time
        end_second(1, output);
        begin_us_.reset();
    }
    if (!begin_us_) {
        begin_us_ = now;
        next_look_us_ = now;
    }
    if (now - *begin_us_ >= kSecondUs) {
        end_second(1, output);
    }
    if (const std::int64_t quiet = (now - *begin_us_) / kSecondUs; quiet > 0) {
        end_second(quiet, output);
    }
    if (screen_ && now >= next_look_us_) {
        next_look_us_ = now + kLookUs;
        look_at_keys();
    }
}

void TablesPrinter::end_second(std::int64_t seconds, Output& output) {
    *begin_us_ += seconds * kSecondUs;
    tables_->end_second(*begin_us_, static_cast<double>(seconds));
    if (form_ == TablesForm::json) {
        print_json(false, output);
    } else if (screen_ && clock_us() - shown_us_ >= kLeastShownUs) {
        show();
    }
}

void TablesPrinter::show() {
    shown_us_ = clock_us();
    live_.set(tables_->headline(false), tables_->sheets(false));
    screen_->show(live_);
}

void TablesPrinter::look_at_keys() {
    if (!screen_) {
        return;
    }
    if (!screen_->handle_keys(live_)) {
        request_stop();
    }
    screen_->show(live_);
}

void TablesPrinter::finish(Output& output) {
    screen_.reset();
    form_ == TablesForm::json ? print_json(true, output) : print_summary(output);
}

void TablesPrinter::print_json(bool is_summary, Output& output) const {
    const tools::Json objects = tables_->json(is_summary);
    const bool is_array = cJSON_IsArray(objects.get()) != 0;
    for (const cJSON* object = is_array ? objects->child : objects.get(); object != nullptr;
         object = object->next) {
        if (char* const text = cJSON_PrintUnformatted(object); text != nullptr) {
            output.add(terminal::clean_json(text));
            output.add("\n");
            cJSON_free(text);
        }
    }
    output.flush();
}

void TablesPrinter::print_summary(Output& output) const {
    output.add(tables_->headline(true) + '\n');
    std::vector<Sheet> sheets = tables_->sheets(true);
    for (Sheet& sheet : sheets) {
        if (sheet.rows.empty()) {
            continue;
        }
        sort_rows(sheet, sheet.sorted_by, false);
        output.add('\n' + sheet.title + '\n');
        for (const std::string& line : lines_of(sheet, width_of_output())) {
            output.add(line + '\n');
        }
    }
    output.flush();
}

}  // namespace capture

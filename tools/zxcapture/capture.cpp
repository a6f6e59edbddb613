#include "capture.hpp"

#include <unistd.h>

#include <cstdio>

#include "common/failure.hpp"
#include "filter/filter.hpp"
#include "packet/names.hpp"
#include "show/columns.hpp"
#include "show/counts.hpp"
#include "show/field_dump.hpp"
#include "show/json.hpp"
#include "show/line.hpp"
#include "show/output.hpp"
#include "show/progress.hpp"
#include "source/source.hpp"
#include "stop.hpp"
#include "streams/conversations.hpp"
#include "streams/extract.hpp"
#include "streams/streams.hpp"
#include "write/capture_files.hpp"

namespace capture {
namespace {

std::unique_ptr<Printer> printer_for(const Options& options, const Source& source) {
    switch (options.form) {
        case Form::line:
            return std::make_unique<Line>(options.time, options.line);
        case Form::dump:
            return std::make_unique<FieldDump>(options.time, options.line);
        case Form::json:
            return std::make_unique<Json>(options.fields);
        case Form::columns:
            return std::make_unique<Columns>(options.fields);
        case Form::streams:
            return std::make_unique<TablesPrinter>(std::make_unique<Streams>(options.rtp_clocks),
                                                   options.tables, "--streams");
        case Form::conversations:
            return std::make_unique<TablesPrinter>(std::make_unique<Conversations>(),
                                                   options.tables, "--conversations");
        case Form::extract:
            return std::make_unique<Extract>(options.extracted_flow, options.writing.path,
                                             source.file_id());
        default:
            return nullptr;
    }
}

std::unique_ptr<Source> source_for(const Options& options) {
    return options.live.interface.empty() ? open_file(options.input_file, options.selection)
                                          : open_interface(options.live, options.selection);
}

class Session {
public:
    explicit Session(const Options& options);

    void run();
    void finish_printing();
    void flush();
    void finish_files();
    void print_counts();

private:
    void idle();
    bool handle(const Frame& frame);

    const Options& options_;
    std::unique_ptr<Source> source_;
    std::optional<CaptureFiles> files_;
    Filter filter_;
    std::unique_ptr<Printer> printer_;  // NULL: nothing is printed for each frame
    Output output_{STDOUT_FILENO};
    Counts counts_;
};

Session::Session(const Options& options)
    : options_(options), source_(source_for(options)), filter_(options.wanted) {
    if (!options.writing.path.empty() && options.form != Form::extract) {
        files_.emplace(options.writing, options.selection.snapshot_length, *source_);
    }
    if (!options.live.interface.empty()) {
        std::fprintf(stderr, "capturing from %s; press Ctrl-C to end\n",
                     options.live.interface.c_str());
    }
    printer_ = printer_for(options, *source_);  // it may draw on the screen from now on
}

// There is no frame for now.
void Session::idle() {
    if (printer_) {
        printer_->refresh(output_);
    }
    flush();
}

void Session::run() {
    source_->on_idle([this] { idle(); });
    const bool is_screen_free = options_.form == Form::none || isatty(STDOUT_FILENO) == 0;
    Progress progress(is_screen_free && isatty(STDERR_FILENO) == 1);
    Frame frame;
    while (options_.max_frames == 0 || counts_.passed() < options_.max_frames) {
        const Got got = source_->next(frame);
        if (got == Got::end) {
            break;
        }
        counts_.add_seen();
        if (got == Got::frame && !handle(frame)) {
            break;
        }
        progress.show_when_due(*source_);
    }
}

// False: the last capture file is complete.
bool Session::handle(const Frame& frame) {
    const Packet packet = dissect(frame);
    if (!filter_.passes(frame, packet)) {
        return true;
    }
    if (files_) {
        if (!files_->has_room_for(frame)) {
            return false;
        }
        files_->add(frame);
    }
    counts_.add_passed(frame, protocol_name(packet));
    if (printer_) {
        printer_->add(frame, packet, counts_.seen(), output_);
    }
    return true;
}

void Session::finish_printing() {
    if (printer_) {
        printer_->finish(output_);
    }
}

// Called when there is no frame for now, and at the end.
void Session::flush() {
    output_.flush();
    if (files_) {
        files_->flush();
    }
}

void Session::finish_files() {
    if (files_) {
        files_->finish();
    }
}

// The counts go to standard error, or to standard output if nothing else is printed there.
void Session::print_counts() {
    std::string text = counts_.text() + "\n";
    if (const auto drops = source_->drops()) {
        text += "frames: " + std::to_string(drops->kernel) + " dropped by the kernel, " +
                std::to_string(drops->interface) + " by the interface\n";
    }
    if (options_.form == Form::none && options_.writing.path != "-") {
        output_.add(text);
        output_.flush();
    } else {
        std::fputs(text.c_str(), stderr);
    }
}

void print_list(const std::string& list) {
    Output output(STDOUT_FILENO);
    output.add(list);
    output.flush();
}

// What was captured is written to the end, also if the reader of the lines has enough.
void run_session(const Options& options) {
    Session session(options);
    std::optional<tools::Failure> failure;
    bool is_closed = false;
    const auto attempt = [&](void (Session::*step)()) {
        try {
            (session.*step)();
        } catch (const tools::Failure& first) {
            failure = failure ? failure : first;
        } catch (const OutputClosed&) {
            is_closed = true;
        }
    };
    attempt(&Session::run);
    attempt(&Session::finish_printing);
    attempt(&Session::finish_files);
    attempt(&Session::flush);
    if (!is_closed) {
        attempt(&Session::print_counts);
    }
    if (failure) {
        throw *failure;
    }
}

}  // namespace

void run(const Options& options) {
    install_stop_handlers();
    try {
        if (options.lists_fields) {
            print_list(field_list());
        } else if (options.lists_interfaces) {
            print_list(list_interfaces());
        } else {
            run_session(options);
        }
    } catch (const OutputClosed&) {
        return;  // its reader has enough
    }
}

}  // namespace capture

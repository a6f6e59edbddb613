#include "capture.hpp"

#include <unistd.h>

#include <cstdio>

#include "capture_file.hpp"
#include "common/failure.hpp"
#include "counts.hpp"
#include "decoder.hpp"
#include "field_dump.hpp"
#include "line.hpp"
#include "output.hpp"
#include "progress.hpp"
#include "source.hpp"
#include "stop.hpp"

namespace capture {
namespace {

class Session {
public:
    explicit Session(const Options& options);

    void run();
    void flush();
    void print_counts();

private:
    void handle_passed(const Frame& frame);

    const Options& options_;
    std::unique_ptr<Source> source_;
    std::optional<CaptureFile> file_;
    std::optional<FieldDump> dump_;
    Decoder decoder_;
    Line line_;
    Output output_{STDOUT_FILENO};
    Counts counts_;
};

Session::Session(const Options& options)
    : options_(options),
      source_(options.interface.empty() ? open_file(options.input_file, options.output_file)
                                        : open_interface(options.interface, options.promiscuous)),
      decoder_(options.wanted),
      line_(options.time) {
    if (!options.output_file.empty()) {
        file_.emplace(options.output_file);
    }
    if (options.form == Form::dump) {
        dump_.emplace();
    }
    if (!options.interface.empty()) {
        std::fprintf(stderr, "capturing from %s; press Ctrl-C to end\n", options.interface.c_str());
    }
}

void Session::run() {
    const bool is_screen_free = options_.form == Form::none || isatty(STDOUT_FILENO) == 0;
    Progress progress(is_screen_free && isatty(STDERR_FILENO) == 1);
    Frame frame;
    while (!stop_requested() &&
           (options_.max_frames == 0 || counts_.passed() < options_.max_frames)) {
        const Got got = source_->next(frame);
        if (got == Got::end) {
            break;
        }
        if (got == Got::nothing) {
            flush();
            continue;
        }
        counts_.add_seen();
        if (decoder_.passes(frame)) {
            handle_passed(frame);
        }
        progress.show_when_due(*source_);
    }
}

void Session::handle_passed(const Frame& frame) {
    counts_.add_passed(frame, protocol_name(decoder_.record(), decoder_.layers()));
    if (file_) {
        file_->add(frame);
    }
    if (options_.form != Form::none) {
        output_.add(line_.print(frame, decoder_.record(), decoder_.layers()));
    }
    if (dump_) {
        output_.add(dump_->print(decoder_, frame));
    }
}

void Session::flush() {
    output_.flush();
    if (file_) {
        file_->flush();
    }
}

// The counts go to standard error, or to standard output if nothing else is printed there.
void Session::print_counts() {
    std::string text = counts_.text() + "\n";
    if (const auto drops = source_->drops()) {
        text += "frames: " + std::to_string(*drops) + " dropped by the kernel\n";
    }
    if (options_.form == Form::none && options_.output_file != "-") {
        output_.add(text);
        output_.flush();
    } else {
        std::fputs(text.c_str(), stderr);
    }
}

}  // namespace

void run(const Options& options) {
    install_stop_handlers();
    Session session(options);
    std::optional<tools::Failure> failure;
    const auto attempt = [&](void (Session::*step)()) {
        try {
            (session.*step)();
        } catch (const tools::Failure& first) {
            failure = failure ? failure : first;
        }
    };
    try {
        attempt(&Session::run);
        attempt(&Session::flush);
        attempt(&Session::print_counts);
    } catch (const OutputClosed&) {
        return;
    }
    if (failure) {
        throw *failure;
    }
}

}  // namespace capture

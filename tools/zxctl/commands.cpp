#include "commands.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string_view>
#include <thread>

#include "answer.hpp"
#include "common/failure.hpp"
#include "connection.hpp"
#include "places.hpp"
#include "screen.hpp"
#include "show.hpp"
#include "terminal/amount.hpp"
#include "terminal/table.hpp"
#include "terminal/text.hpp"
#include "view.hpp"

namespace ctl {
namespace {

using terminal::amount_text, terminal::clean, terminal::clean_json, terminal::Table;

constexpr std::int64_t kMilli = 1000;

std::string question_of(const Options& options) {
    std::string question = options.topic;
    for (const std::string& pair : options.pairs) {
        question += ' ' + pair;
    }
    return question;
}

void throw_if_error(const cJSON* answer) {
    if (const std::string_view error = error_of(answer); !error.empty()) {
        throw tools::Failure("the program says: " + clean(error));
    }
}

// Checks an answer and prints it.
void print_answer(std::string_view line, const Options& options) {
    const Json answer = parse_answer(line);
    if (options.json) {
        std::puts(clean_json(line).c_str());
        throw_if_error(answer.get());
        return;
    }
    throw_if_error(answer.get());
    show(answer.get(), standard_output());
}

void flush() {
    if (std::fflush(stdout) != 0) {
        throw tools::system_failure("standard output");
    }
}

std::string_view ask(Connection& connection, std::string_view question, std::int64_t timeout_ms) {
    connection.send(question);
    return connection.wait_for_line(timeout_ms);
}

// The lines of the log as they come, until the program ends.
void tail(Connection& connection, const Options& options) {
    connection.send(question_of(options));
    for (;;) {
        const std::string_view line = connection.wait_for_line(Connection::kForever);
        const Json answer = parse_answer(line);
        if (options.json) {
            std::puts(clean_json(line).c_str());
        }
        throw_if_error(answer.get());
        if (!options.json) {
            show_log_line(answer.get(), standard_output());
        }
        flush();
    }
}

[[noreturn]] void watch_memory(Connection& connection, const Options& options) {
    const std::int64_t begin = now_ms();
    Json first;
    for (;;) {
        const std::string_view line = ask(connection, question_of(options), options.timeout_ms);
        Json answer = parse_answer(line);
        if (options.json) {
            std::puts(clean_json(line).c_str());
        }
        throw_if_error(answer.get());
        if (first == nullptr) {
            first.reset(cJSON_Duplicate(answer.get(), 1));
        } else if (!options.json) {
            subtract(answer.get(), first.get());
            const auto age = static_cast<double>(now_ms() - begin) / kMilli;
            std::printf("\nmore than %s ago:\n", amount_text("age_s", age).c_str());
        }
        if (!options.json) {
            show(answer.get(), standard_output());
        }
        flush();
        std::this_thread::sleep_for(std::chrono::seconds(options.watch_seconds));
    }
}

// Where a trace goes. Nobody waits for one that cannot be written. When none comes, an older one
// stays, and no new file is left.
class TraceFile {
public:
    // "-": standard output.
    explicit TraceFile(const std::string& path)
        : path_(path), file_(path == "-" ? dup(STDOUT_FILENO) : open_at(O_WRONLY | O_CLOEXEC)) {
        if (!file_ && path != "-" && errno == ENOENT) {
            file_.reset(open_at(O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC));
            is_new_ = static_cast<bool>(file_);
        }
        if (!file_) {
            throw trouble();
        }
    }
    TraceFile(const TraceFile&) = delete;
    TraceFile& operator=(const TraceFile&) = delete;
    ~TraceFile() {
        if (is_new_) {
            unlink(path_.c_str());
        }
    }

    void write(std::string_view text) {
        is_new_ = false;
        // What is no file, such as a pipe, has no length.
        if (path_ != "-" && ftruncate(file_.get(), 0) != 0 && errno != EINVAL) {
            throw trouble();
        }
        while (!text.empty()) {
            const ssize_t size = ::write(file_.get(), text.data(), text.size());
            if (size < 0) {
                throw trouble();
            }
            text.remove_prefix(static_cast<std::size_t>(size));
        }
    }

private:
    [[nodiscard]] int open_at(int flags) const {
        constexpr mode_t kMode = 0644;
        return open(path_.c_str(), flags, kMode);
    }
    [[nodiscard]] tools::Failure trouble() const {
        return tools::system_failure(path_ == "-" ? "standard output" : clean(path_));
    }

    const std::string& path_;
    zxcommon::Descriptor file_;
    bool is_new_ = false;  // nothing was written yet
};

// The number after the last "dropped", which follows the events.
std::string dropped_text(std::string_view line) {
    constexpr std::string_view kDigits = "0123456789";
    const std::size_t key = line.rfind("\"dropped\":");
    const std::size_t at =
        key != std::string_view::npos ? line.find_first_of(kDigits, key) : std::string_view::npos;
    if (at == std::string_view::npos) {
        return "none";
    }
    return clean(line.substr(at, line.find_first_not_of(kDigits, at) - at));
}

void trace(Connection& connection, const Options& options) {
    const std::string path = options.output_file.empty() ? "-" : options.output_file;
    TraceFile file(path);
    const std::int64_t seconds_ms = static_cast<std::int64_t>(options.trace_seconds) * kMilli;
    const std::string_view line =
        ask(connection, question_of(options), seconds_ms + options.timeout_ms);
    const TraceShape shape = shape_of_trace(line);
    if (!shape.is_whole) {
        throw_if_error(parse_answer(line).get());
        throw tools::Failure("the answer is not a trace");
    }
    file.write((options.json ? clean_json(line) : std::string(line)) + '\n');
    if (path != "-") {
        std::printf("%s: %s events, %s dropped\n", clean(path).c_str(),
                    amount_text("events", static_cast<double>(shape.spans)).c_str(),
                    dropped_text(line).c_str());
    }
}

// A program in the list, with the version of its library or the reason why it cannot be asked.
struct Entry {
    Place place;
    std::string library;
};

Entry entry_of(const Place& place, const Options& options) {
    Entry entry{place, ""};
    if (!place.trouble.empty()) {
        return entry;
    }
    try {
        Connection connection(place.path);
        const Json answer = parse_answer(ask(connection, "program", options.timeout_ms));
        throw_if_error(answer.get());
        entry.library = clean(text_member(answer.get(), "library"));
    } catch (const std::runtime_error& failure) {
        entry.place.trouble = failure.what();
    }
    return entry;
}

void print_json(const Entry& entry) {
    const Json object(cJSON_CreateObject());
    cJSON_AddStringToObject(object.get(), "program", entry.place.name.c_str());
    cJSON_AddNumberToObject(object.get(), "pid", entry.place.process);
    cJSON_AddStringToObject(object.get(), "path", entry.place.path.c_str());
    cJSON_AddStringToObject(object.get(), "library", entry.library.c_str());
    cJSON_AddBoolToObject(object.get(), "stale", entry.place.is_stale);
    cJSON_AddStringToObject(object.get(), "trouble", entry.place.trouble.c_str());
    char* const text = cJSON_PrintUnformatted(object.get());
    std::puts(text != nullptr ? clean_json(text).c_str() : "{}");
    cJSON_free(text);
}

void remove_socket(Place& place) {
    place.trouble = unlink(place.path.c_str()) == 0
                        ? "removed"
                        : tools::system_failure("cannot be removed").what();
}

void show_list(const std::vector<Entry>& entries, std::size_t stale_count) {
    if (entries.empty()) {
        std::puts("no program serves (the environment variable ZX_DIAG makes one serve)");
        return;
    }
    Table table({{"program", false},
                 {"process", true},
                 {"state", false},
                 {"library", false},
                 {"socket", false}});
    for (const Entry& entry : entries) {
        const Place& place = entry.place;
        table.add({clean(place.name), place.process != 0 ? std::to_string(place.process) : "-",
                   place.trouble.empty() ? "serves" : place.trouble,
                   entry.library.empty() ? "-" : entry.library, clean(place.path)});
    }
    table.print(standard_output().width, [](const std::string& line) { std::puts(line.c_str()); });
    if (stale_count != 0) {
        std::printf("stale sockets, which nobody serves: %zu ('zxctl list --clean' removes them)\n",
                    stale_count);
    }
}

void list(const Options& options) {
    std::vector<Entry> entries;
    std::size_t stale_count = 0;
    for (const Place& place : find_places(options)) {
        Entry& entry = entries.emplace_back(entry_of(place, options));
        if (place.is_stale && options.clean) {
            remove_socket(entry.place);
        } else if (place.is_stale) {
            entry.place.trouble = "stale";
            ++stale_count;
        }
        if (options.json) {
            print_json(entry);
        }
    }
    if (!options.json) {
        show_list(entries, stale_count);
    }
}

// Adds the name of the place to what a Failure says.
template <typename Work>
void at_place(const Place& place, const Work& work) {
    const std::string who =
        clean(place.name) + (place.process != 0 ? " (" + std::to_string(place.process) + ")" : "");
    try {
        work();
    } catch (const std::runtime_error& failure) {
        flush();
        throw tools::Failure(who + ": " + failure.what());
    }
}

}  // namespace

void run(const Options& options) {
    if (options.topic.empty()) {
        list(options);
        flush();
        return;
    }
    const Place place = place_of(options);
    at_place(place, [&] {
        Connection connection(place.path);
        if (options.topic == "top") {
            show_top(connection, place, options);
        } else if (options.topic == "tail") {
            tail(connection, options);
        } else if (options.topic == "trace") {
            trace(connection, options);
        } else if (options.watch_seconds != 0) {
            watch_memory(connection, options);
        } else {
            print_answer(ask(connection, question_of(options), options.timeout_ms), options);
        }
        flush();
    });
}

}  // namespace ctl

// Runs sequences of operations on the tracked allocator, against a list of what it should know.
// What it does know is read from its table for a status page, from its log, and from the answers of
// the diagnosis.
#include <cjson/cJSON.h>
#include <sys/syscall.h>

#include <cinttypes>
#include <ctime>
#include <map>
#include <memory>
#include <tuple>
#include <vector>

#include "said.hpp"
#include "support.hpp"
#include "zxdiag.h"
#include "zxmem.h"
#include "zxt.h"

namespace {

using zx::fuzz::Input;
using zx::fuzz::require;

constexpr std::size_t kMaxSteps = 64;
constexpr std::size_t kMaxMany = 600;  // nodes: the index grows a few times
constexpr const char* kFolder =
    "folder/of_a_project/and_folders_in_it/one/two/three/four/five/six/seven/eight/nine/ten/eleven/"
    "and/the/file/itself/with_a_name_at_whose_end_it_is_known.cpp";
constexpr const char* kFiles[] = {"a.c", "", "folder/a_longer_name.cpp", kFolder};
constexpr std::size_t kKeptOfFile = 127;
constexpr int kFewPlaces = 1000;  // so that the diagnosis has not forgotten any

std::time_t g_now = 1700000000;

struct Buffer {
    void* at;
    std::uint32_t size;
};
struct Node {
    Buffer buffer;
    std::string name;
    std::string file;
    std::int32_t line;
    std::time_t made;
};

// What the diagnosis should know of a place, and what it says.
using Place = std::tuple<std::string, std::string, std::int64_t>;  // name, end of the file, line
struct Counts {
    std::int64_t buffers = 0;
    std::int64_t bytes = 0;
    std::int64_t oldest_s = 0;
    bool operator==(const Counts&) const = default;
};
using Counted = std::map<Place, Counts>;

struct Answer {
    explicit Answer(const char* question) {
        char* text = zxdiag_api_ask(question);
        object.reset(cJSON_Parse(text));
        zxdiag_api_free(&text);
    }
    static std::int64_t number(const cJSON* of, const char* key) {
        const cJSON* const item = cJSON_GetObjectItem(of, key);
        return item != nullptr ? static_cast<std::int64_t>(item->valuedouble) : 0;
    }
    static std::string text(const cJSON* of, const char* key) {
        const char* const value = cJSON_GetStringValue(cJSON_GetObjectItem(of, key));
        return value != nullptr ? value : "";
    }
    // The places that have `buffers` (the key) other than 0.
    [[nodiscard]] Counted places(const char* buffers, const char* bytes) const {
        Counted all;
        const cJSON* row = nullptr;
        cJSON_ArrayForEach(row, cJSON_GetObjectItem(object.get(), "places")) {
            require(number(row, "made") - number(row, "freed") == number(row, "buffers"),
                    "what was made and not freed is there");
            if (number(row, buffers) != 0 || number(row, bytes) != 0) {
                Counts& counts = all[{text(row, "name"), text(row, "file"), number(row, "line")}];
                require(counts.buffers == 0, "a place is there once");
                counts = {number(row, buffers), number(row, bytes),
                          number(row, "buffers") != 0 ? number(row, "oldest_s") : 0};
            }
        }
        return all;
    }

    std::unique_ptr<cJSON, decltype(&cJSON_Delete)> object{nullptr, cJSON_Delete};
};

std::string cell(const std::string& text) {
    return "<th align=\"left\">" + text + "</th><th align=\"left\"></th>";
}

std::string heading(const std::string& text) {
    return "<h4 style=\"color:black;\">" + text + "</h4>";
}

std::string amount(std::uint64_t bytes) {
    char text[ZXT_UNIT_SIZE];
    return zxt_innerapi_bit2str_64(text, bytes, 0);
}

template <typename... Args>
std::string printed(const char* fmt, Args... args) {
    char text[64];
    int (*const print)(char*, std::size_t, const char*, ...) = std::snprintf;
    return {text, static_cast<std::size_t>(print(text, sizeof text, fmt, args...))};
}

std::string time_of_day(std::time_t sec) {
    char text[32];
    std::tm t{};
    std::strftime(text, sizeof text, "%H:%M:%S", localtime_r(&sec, &t));
    return text;
}

std::string size_class(std::uint32_t size) {
    return size < 10240 ? "nor" : size < 512000 ? "middle" : "high";
}

class Model {
public:
    Model() = default;
    Model(const Model&) = delete;
    Model& operator=(const Model&) = delete;

    // There is one allocator in the process. It must be empty again for the next input.
    ~Model() {
        while (!buffers_.empty()) {
            release(0);
        }
        zxmem_api_init(1);
        for (const Node& node : nodes_) {
            zxmem_innerapi_nodeRm(node.buffer.at);
        }
        nodes_.clear();
        is_on_ = is_ready_ = true;
        check();
        zxdiag_api_stop();
        is_counting_ = false;
        zxmem_api_deinit();
        zxmem_api_init(0);
        is_on_ = is_ready_ = false;
        check();
        char page[] = "<p>";
        zxmem_api_info(page, nullptr);
        lines_.say(1, "Param error####text");
        require(zx::fuzz::take_said() == lines_.said && page == std::string("<p>"), "no text");
    }

    void run(Input& input) {
        const std::size_t what = input.take_below(18);
        g_now += what % 2 == 0 ? 0 : 1;
        if (what < 7) {
            allocate(input, what % 2 == 0 ? zxmem_api_malloc : zxmem_api_calloc);
        } else if (what < 11) {
            if (!buffers_.empty()) {
                release(input.take_below(buffers_.size()));
            }
        } else if (what == 11) {
            if (void* foreign = std::malloc(1 + input.take_below(64)); foreign != nullptr) {
                buffers_.push_back({foreign, 0});
            }
        } else if (what == 12 && !buffers_.empty()) {
            change_nodes(input, buffers_[input.take_below(buffers_.size())]);
        } else if (what == 16) {
            diagnose(input.take_below(3));
        } else if (what == 17) {
            check_diagnosis();
        } else if (what == 15) {
            add_many(input);
        } else if (what == 13) {
            zxmem_api_deinit();
            is_ready_ = false;
        } else {
            switch_on(static_cast<std::uint8_t>(input.take_below(3)));
        }
    }

    void check() {
        static std::vector<char> page(1024 + 800 * (kMaxSteps + kMaxMany + 1));
        std::strcpy(page.data(), "<p>");
        zxmem_api_info(page.data(), "none");
        zxmem_api_showBlock();
        if (!is_on_) {
            lines_.say(2, "No support zxmem_api_showBlock");
        } else if (!is_ready_) {
            lines_.say(1, "Must init  zxmem_zxlock_ctt  furst");
            lines_.say(1, "Must init  zxmem_zxlock_ctt  first");
        } else {
            list();
        }
        require(page.data() == "<p>" + (is_on_ && is_ready_ ? table()
                                        : is_on_            ? heading("Wait zxmem init...")
                                                            : heading("none")),
                "the page");
        require(zx::fuzz::take_said() == lines_.said, "the lines");
        lines_.said.clear();
        check_diagnosis();
    }

private:
    void diagnose(std::size_t what) {
        if (what == 0) {
            is_counting_ = zxdiag_api_start() == 0;
        } else if (what == 1) {
            zxdiag_api_stop();
            is_counting_ = false;
        } else if (is_ready_ && is_counting_) {
            const Answer answer("memory mark=here");
            require(Answer::text(answer.object.get(), "state") == "complete", "a mark");
            marked_ = counted(false);
            is_marked_ = true;
        }
    }

    // The nodes by place, or by name alone.
    [[nodiscard]] Counted counted(bool by_name) const {
        Counted all;
        for (const Node& node : nodes_) {
            const std::string& file = node.file;
            const std::size_t cut = file.size() > kKeptOfFile ? file.size() - kKeptOfFile : 0;
            Counts& counts =
                by_name ? all[{node.name, "", 0}]
                        : all[{node.name, file.substr(cut), static_cast<std::uint32_t>(node.line)}];
            ++counts.buffers;
            counts.bytes += node.buffer.size;
            counts.oldest_s = std::max(counts.oldest_s, g_now - node.made);
        }
        return all;
    }

    // How it differs from the mark.
    [[nodiscard]] Counted more() const {
        Counted all = counted(false);
        for (const auto& [place, then] : marked_) {
            all[place].buffers -= then.buffers;
            all[place].bytes -= then.bytes;
        }
        std::erase_if(all, [](const auto& counts) {
            return counts.second.buffers == 0 && counts.second.bytes == 0;
        });
        return all;
    }

    void check_diagnosis() const {
        const Answer answer(is_marked_ && is_ready_ && is_counting_ ? "memory since=here"
                                                                    : "memory");
        const cJSON* const object = answer.object.get();
        require(Answer::text(object, "state") == (!is_ready_      ? "not tracking"
                                                  : !is_counting_ ? "not counting"
                                                                  : "complete"),
                "the state of the diagnosis");
        if (!is_ready_ || !is_counting_) {
            return;
        }
        require(Answer::number(object, "buffers") == static_cast<std::int64_t>(nodes_.size()),
                "all nodes are counted");
        if (Answer::number(object, "left_out") == 0) {
            require(answer.places("buffers", "bytes") == counted(false), "the nodes by place");
        }
        if (cJSON_GetArraySize(cJSON_GetObjectItem(object, "places")) < kFewPlaces) {
            require(Answer("memory by=name").places("buffers", "bytes") == counted(true),
                    "the nodes by name");
            require(!is_marked_ || answer.places("more_buffers", "more_bytes") == more(),
                    "the difference");
        }
    }

    void switch_on(std::uint8_t enable) {
        zxmem_api_init(enable);
        is_on_ = is_ready_ || enable == 1;
        is_ready_ = is_on_;
    }

    void add_node(const Buffer& buffer, const std::string& name, const char* file,
                  std::uint32_t line) {
        if (name.size() >= ZXMEM_NAME_SIZE) {
            lines_.say(2, "There is a bug that buf1 (%d < %zu)(%s),please fix!!", ZXMEM_NAME_SIZE,
                       name.size() + 1, name.c_str());
        }
        nodes_.push_back({buffer, name.substr(0, ZXMEM_NAME_SIZE), file,
                          static_cast<std::int32_t>(line), g_now});
    }

    // Every call warns when tracking is on without its lock.
    [[nodiscard]] bool is_tracking() {
        if (is_on_ && !is_ready_) {
            lines_.say(2, "Must init  zxmem_zxlock_ctt  first");
        }
        return is_on_ && is_ready_;
    }

    // Adds nodes at regular distances, which could all get into one chain of the index, and then
    // removes some. No memory is needed, because the list only knows addresses.
    void add_many(Input& input) {
        constexpr std::uintptr_t kSteps[] = {0, 1, 16, 4096, 1U << 20U, std::uintptr_t{1} << 32U};
        const std::uintptr_t step = kSteps[input.take_below(std::size(kSteps))];
        const auto base = std::uintptr_t{input.take<std::uint32_t>()} + 1;
        const std::size_t count = input.take<std::uint8_t>();
        for (std::size_t i = 0; i < count && nodes_.size() < kMaxMany; ++i) {
            const Buffer buffer{reinterpret_cast<void*>(base + i * step), 1};
            add_node_by_hand(buffer, "one of many");
        }
        const std::size_t kept = 1 + input.take_below(4);
        for (std::size_t i = 0; i < count; ++i) {
            if (i % kept != 0) {
                void* const at = reinterpret_cast<void*>(base + i * step);
                zxmem_innerapi_nodeRm(at);
                remove_node(at);
            }
        }
    }
    void add_node_by_hand(const Buffer& buffer, const std::string& name) {
        zxmem_innerapi_nodeAdd(buffer.at, buffer.size, name.c_str(), kFiles[0], 1);
        add_node(buffer, name, kFiles[0], 1);
    }

    void remove_node(const void* buffer) {
        const auto oldest = std::find_if(nodes_.begin(), nodes_.end(), [buffer](const Node& node) {
            return node.buffer.at == buffer;
        });
        if (oldest != nodes_.end()) {
            nodes_.erase(oldest);
        }
    }

    void allocate(Input& input, decltype(zxmem_api_malloc)* take) {
        constexpr std::uint32_t kSizes[] = {0, 1, 24, 200, 10239, 10240, 511999, 512000};
        const std::uint32_t size = kSizes[input.take_below(std::size(kSizes))];
        const std::string name(input.take_below(140), static_cast<char>('a' + nodes_.size() % 26));
        const char* const file = kFiles[input.take_below(std::size(kFiles))];
        const auto line = input.take<std::uint32_t>();
        // A missing name is allowed, too.
        const char* const given = name.empty() ? nullptr : name.c_str();
        auto* const at = static_cast<std::uint8_t*>(take(size, given, file, line));
        require(at != nullptr && (size == 0 || *at == 0) &&
                    (size <= 1 || std::memcmp(at, at + 1, size - 1) == 0),
                "a zeroed buffer");
        buffers_.push_back({at, size});
        if (is_tracking()) {
            add_node(buffers_.back(), name, file, line);
        }
    }

    void release(std::size_t index) {
        void* at = buffers_[index].at;
        buffers_.erase(buffers_.begin() + static_cast<std::ptrdiff_t>(index));
        if (is_tracking()) {
            remove_node(at);
        }
        zxmem_api_free(&at);
        require(at == nullptr, "the pointer is cleared");
        zxmem_api_free(&at);
        if (is_tracking()) {
            lines_.say(1, "dbuf is null");
        }
    }

    void change_nodes(Input& input, const Buffer& buffer) {
        if (input.take_below(2) == 0) {
            add_node_by_hand(buffer, "again");
        } else {
            zxmem_innerapi_nodeRm(buffer.at);
            remove_node(buffer.at);
        }
    }

    [[nodiscard]] std::string table() const {
        std::string page =
            "<table cellpadding=\"4\" cellspacing=\"0\"><tbody style=\"color:black;\"><tr>";
        for (const char* const title :
             {"NUM", "ADDR", "NAME", "TIME", "FALG", "SIZE", "FILE", "LINE"}) {
            page += cell(title);
        }
        page += "<th align=\"left\"></tr>";
        std::uint64_t total = 0;
        for (std::size_t i = 0; i < nodes_.size(); ++i) {
            const auto& [buffer, name, file, line, made] = nodes_[i];
            page += "<tr>" + cell(printed("%08zu", i + 1)) + cell(printed("%p", buffer.at)) +
                    cell(name) + cell(time_of_day(made)) + cell(size_class(buffer.size)) +
                    cell(amount(buffer.size)) + cell(file) + cell(std::to_string(line)) + "</tr>";
            total += buffer.size;
        }
        return page + heading("Toal memory leak:" + amount(total) + " MB") + "</tbody></table>";
    }

    // The number counts log lines, and the echo is another line.
    void list() {
        std::uint64_t total = 0;
        int number = 1;
        for (const Node& node : nodes_) {
            lines_.say(4, "Memry leak[%08d]:addr ,size :%p   %s ---file,line %s %d", number,
                       node.buffer.at, amount(node.buffer.size).c_str(), node.file.c_str(),
                       node.line);
            number += flag_stdPrint == 1 ? 2 : 1;
            total += node.buffer.size;
        }
        lines_.say(4, "Toal memry leak:%d byte", static_cast<int>(total));
    }

    std::vector<Buffer> buffers_;
    std::vector<Node> nodes_;
    zx::fuzz::Lines lines_{"MEMRY_MAP", zxlog_api_getLoglevel()};
    bool is_on_ = false;
    bool is_ready_ = false;
    bool is_counting_ = false;
    Counted marked_;
    bool is_marked_ = false;
};

// The inputs switch the diagnosis on.
[[maybe_unused]] const int kIgnored = unsetenv("ZX_DIAG");

}  // namespace

// These take the place of the C library's functions.
extern "C" [[gnu::visibility("default")]] std::time_t time(std::time_t*) noexcept {
    return g_now;
}
extern "C" [[gnu::visibility("default")]] int clock_gettime(clockid_t clock,
                                                            timespec* now) noexcept {
    if (clock != CLOCK_MONOTONIC) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    }
    *now = {g_now, 0};
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input({data, size});
    const auto level = input.take<std::uint8_t>();
    zxlog_api_setLoglevel(level % 6);
    flag_stdPrint = level == 250 ? 1 : 0;
    zx::fuzz::take_said();
    Model model;
    for (std::size_t step = 0; step < kMaxSteps && !input.empty(); ++step) {
        model.run(input);
        if (step % 16 == 15 || input.empty()) {
            model.check();
        }
    }
    return 0;
}

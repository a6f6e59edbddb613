// Sequences of operations on the tracked allocator, against a list of what it should know. What it
// knows is read from the table that it makes for a status page.
#include <cinttypes>
#include <ctime>
#include <vector>

#include "support.hpp"
#include "zxmem.h"

namespace {

using zx::fuzz::Input;
using zx::fuzz::require;

constexpr std::size_t kMaxSteps = 64;
constexpr std::size_t kMaxMany = 600;  // nodes; the index grows some times on the way
constexpr const char* kFiles[] = {"a.c", "", "folder/a_longer_name.cpp"};

struct Buffer {
    void* at;
    std::uint32_t size;
};
struct Node {
    void* buffer;
    std::vector<std::string> cells;  // name, size class, file, line
    std::time_t from;                // it was made since then, and before `to`
    std::time_t to;
};

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

    // The allocator is one for the process: the next input finds it as this one did.
    ~Model() {
        while (!buffers_.empty()) {
            release(0);
        }
        zxmem_api_init(1);
        for (const Node& node : nodes_) {
            zxmem_innerapi_nodeRm(node.buffer);
        }
        nodes_.clear();
        is_on_ = is_ready_ = true;
        check();
        zxmem_api_deinit();
        zxmem_api_init(0);
    }

    void run(Input& input) {
        const std::size_t what = input.take_below(16);
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
        } else if (what == 15) {
            add_many(input);
        } else if (what == 13) {
            zxmem_api_deinit();
            is_ready_ = false;
        } else {
            switch_on(static_cast<std::uint8_t>(input.take_below(3)));
        }
    }

    void check() const {
        static std::vector<char> page(1024 + 700 * (kMaxSteps + kMaxMany + 1));
        page[0] = '\0';
        zxmem_api_info(page.data(), "none");
        if (!is_on_ || !is_ready_) {
            require(std::string(page.data()).find(is_on_ ? "Wait" : "none") != std::string::npos,
                    "a word in place of the table");
            return;
        }
        check_table(page.data());
    }

private:
    void switch_on(std::uint8_t enable) {
        zxmem_api_init(enable);
        is_on_ = is_ready_ || enable == 1;
        is_ready_ = is_on_;
    }

    void add_node(const Buffer& buffer, const std::string& name, const char* file,
                  std::uint32_t line, std::time_t from) {
        nodes_.push_back({buffer.at,
                          {name.substr(0, ZXMEM_NAME_SIZE), size_class(buffer.size), file,
                           std::to_string(static_cast<std::int32_t>(line))},
                          from,
                          std::time(nullptr)});
    }

    // Nodes at regular distances, which the index would like to see in one chain, and then some of
    // them gone: the list knows addresses, not memory.
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
        const std::time_t from = std::time(nullptr);
        zxmem_innerapi_nodeAdd(buffer.at, buffer.size, name.c_str(), kFiles[0], 1);
        add_node(buffer, name, kFiles[0], 1, from);
    }

    void remove_node(const void* buffer) {
        const auto oldest = std::find_if(nodes_.begin(), nodes_.end(), [buffer](const Node& node) {
            return node.buffer == buffer;
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
        const std::time_t from = std::time(nullptr);
        auto* const at = static_cast<std::uint8_t*>(take(size, name.c_str(), file, line));
        require(at != nullptr && (size == 0 || *at == 0) &&
                    (size <= 1 || std::memcmp(at, at + 1, size - 1) == 0),
                "a zeroed buffer");
        buffers_.push_back({at, size});
        if (is_on_ && is_ready_) {
            add_node(buffers_.back(), name, file, line, from);
        }
    }

    void release(std::size_t index) {
        void* at = buffers_[index].at;
        buffers_.erase(buffers_.begin() + static_cast<std::ptrdiff_t>(index));
        if (is_on_ && is_ready_) {
            remove_node(at);
        }
        zxmem_api_free(&at);
        require(at == nullptr, "the pointer is cleared");
    }

    void change_nodes(Input& input, const Buffer& buffer) {
        if (input.take_below(2) == 0) {
            add_node_by_hand(buffer, "again");
        } else {
            zxmem_innerapi_nodeRm(buffer.at);
            remove_node(buffer.at);
        }
    }

    // Cells of every row: number, address, name, time, size class, size, file, line.
    void check_table(const char* html) const {
        const std::string page = html;
        constexpr char kOpen[] = "<th align=\"left\">";
        std::size_t at = page.find("</tr>");
        for (std::size_t i = 0; i < nodes_.size(); ++i) {
            std::vector<std::string> cells;
            for (int column = 0; column < 16; ++column) {
                at = page.find(kOpen, at);
                require(at != std::string::npos, "a row for each buffer");
                at += sizeof kOpen - 1;
                if (column % 2 == 0) {  // the others are empty
                    cells.push_back(page.substr(at, page.find("</th>", at) - at));
                }
            }
            char number[32];
            char address[32];
            std::snprintf(number, sizeof number, "%08zu", i + 1);
            std::snprintf(address, sizeof address, "%p", nodes_[i].buffer);
            const std::vector<std::string> known{cells[2], cells[4], cells[6], cells[7]};
            require(cells[0] == number && cells[1] == address && known == nodes_[i].cells, "a row");
            std::time_t made = nodes_[i].from;
            while (made < nodes_[i].to && cells[3] != time_of_day(made)) {
                ++made;
            }
            require(cells[3] == time_of_day(made), "the time of an allocation");
        }
        require(page.find(kOpen, at) == std::string::npos, "no other rows");
    }

    std::vector<Buffer> buffers_;
    std::vector<Node> nodes_;
    bool is_on_ = false;
    bool is_ready_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input({data, size});
    zx::fuzz::log_to_nowhere(input.take<std::uint8_t>());
    Model model;
    for (std::size_t step = 0; step < kMaxSteps && !input.empty(); ++step) {
        model.run(input);
        if (step % 16 == 15 || input.empty()) {
            model.check();
        }
    }
    return 0;
}

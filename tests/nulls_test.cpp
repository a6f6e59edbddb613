// Every exported function with each of its pointers NULL in turn, and with all of them.
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>

#include <array>
#include <concepts>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <type_traits>
#include <utility>
#include <vector>

#include "child.hpp"
#include "log_capture.hpp"
#include "sha1.h"
#include "zxaes.h"
#include "zxcommon.h"
#include "zxcrc.h"
#include "zxdes.h"
#include "zxenv.h"
#include "zxepoll.h"
#include "zxfifo.h"
#include "zxframe.h"
#include "zxlock.h"
#include "zxlog.h"
#include "zxmd.h"
#include "zxmd5.h"
#include "zxmem.h"
#include "zxnet.h"
#include "zxsignal.h"
#include "zxstr.h"
#include "zxsysctl.h"
#include "zxt.h"
#include "zxthread.h"
#include "zxtime.h"

namespace {

// ------------------------------------------------ arguments that are in order

template <typename R, typename... Args>
R stand_in(Args...) {
    return R{};
}
template <typename R, typename... Args>
auto stand_in_for(R (*)(Args...)) -> R (*)(Args...) {
    return stand_in<R, Args...>;
}

alignas(64) std::array<std::array<std::uint8_t, 65536>, 12> g_rooms;

// Zeros, or what makes a record whole; numbers are 16, and texts address, mask and name.
template <typename T>
T in_order(std::size_t place) {
    if constexpr (!std::is_pointer_v<T>) {
        return static_cast<T>(16);
    } else if constexpr (std::is_function_v<std::remove_pointer_t<T>>) {
        return stand_in_for(T{});
    } else if constexpr (std::is_same_v<T, const char*>) {
        return "255.0.0.0";
    } else if constexpr (std::is_same_v<std::remove_const_t<std::remove_pointer_t<T>>,
                                        zxfifoblock_ctt>) {
        return zxfifo_api_blockInit(64, "whole");
    } else {
        void* const room = g_rooms.at(place).data();
        if constexpr (std::is_same_v<T, zxlock_ctt*>) {
            zxlock_api_init(static_cast<T>(room), "whole");
        } else if constexpr (std::is_same_v<T, zxsharelist_ctt*>) {
            zxfifo_api_shareListInit(static_cast<T>(room), "whole");
        }
        return static_cast<T>(room);
    }
}

// --------------------------------------------------------------------- calls

std::string shown(const char* text) {
    return text != nullptr ? std::string("\"").append(text).append("\"") : "NULL";
}
std::string shown(const void* at) {
    return at != nullptr ? "there" : "NULL";
}
template <typename T>
requires std::integral<T> || std::is_enum_v<T> std::string shown(T number) {
    return std::to_string(static_cast<std::int64_t>(number));
}

constexpr std::size_t kAll = 99;

template <typename T>
T argument(std::size_t place, std::size_t missing) {
    const T whole = in_order<T>(place);
    return std::is_pointer_v<T> && (place == missing || missing == kAll) ? T{} : whole;
}

// The words of a text with a space after each; in place of numbers, `number` if there is one.
std::string words_of(const std::string& text, const char* number = nullptr) {
    std::istringstream in(text);
    std::string words;
    for (std::string word; in >> word;) {
        const bool is_number = word.find_first_not_of("0123456789") == std::string::npos;
        words.append(is_number && number != nullptr ? number : word.c_str()).append(" ");
    }
    return words;
}

// What a function that is called in a child process gives, changes, logs and prints. `call` gives
// its result, once with the arguments made and once called.
std::string outcome(std::string (*call)(void* function, std::size_t missing, bool is_real),
                    void* function, std::size_t missing) {
    return zx::test::in_child([=] {
        alarm(60);
        call(function, missing, false);
        const auto before = std::make_unique<decltype(g_rooms)>(g_rooms);
        zx::test::LogCapture log(2);
        const int printed = memfd_create("printed", 0);
        dup2(printed, STDOUT_FILENO);
        const int opened = dup(printed);  // by the function, when it opens something
        close(opened);
        const std::string result = call(function, missing, true);
        const bool is_opened = result == std::to_string(opened) && fcntl(opened, F_GETFD) >= 0;
        std::string told = words_of(is_opened ? "opened" : result);
        told += *before != g_rooms ? "touches " : "";
        for (const std::string& line : log.take()) {
            told += words_of(line);
        }
        std::fflush(stdout);
        char text[256];
        const ssize_t size = pread(printed, text, sizeof text, 0);
        told += words_of({text, static_cast<std::size_t>(std::max(size, ssize_t{0}))}, "LINE");
        return told.substr(0, told.find_last_not_of(' ') + 1);
    });
}

// --------------------------------------------------------------------- table

// A function, told apart from its types.
struct Probe {
    std::vector<bool> is_pointer;
    std::string (*call)(void* function, std::size_t missing, bool is_real);
};

template <typename F, typename... Args>
Probe probe() {
    const auto call = [](void* function, std::size_t missing, bool is_real) -> std::string {
        static std::optional<std::tuple<Args...>> arguments;
        if (!is_real) {
            [&]<std::size_t... Places>(std::index_sequence<Places...>) {
                arguments.emplace(argument<Args>(Places, missing)...);
            }
            (std::index_sequence_for<Args...>());
            return "";
        }
        const auto run = [&](Args... args) { return reinterpret_cast<F>(function)(args...); };
        if constexpr (std::is_void_v<decltype(std::apply(run, *arguments))>) {
            std::apply(run, *arguments);
            return "";
        } else {
            return shown(std::apply(run, *arguments));
        }
    };
    return {{std::is_pointer_v<Args>...}, call};
}
template <typename R, typename... Args>
Probe probe_of(R (*)(Args...)) {
    if constexpr ((std::is_pointer_v<Args> || ...)) {
        return probe<R (*)(Args...), Args...>();
    } else {
        return {};
    }
}
template <typename R, typename... Args>
Probe probe_of(R (*)(Args..., ...)) {
    return probe<R (*)(Args..., ...), Args...>();
}
Probe probe_of(const void*) {  // a variable
    return {};
}

// "name|what it gives without its first pointer|without its second|..."; "must not": it must have
// that one, its header says so; "handed on": to a callback, and it would never return.
std::map<std::string, std::string> rows() {
    std::map<std::string, std::string> all;
    std::ifstream file(ZX_NULLS);
    for (std::string line; std::getline(file, line);) {
        if (!line.starts_with('#')) {
            all[line.substr(0, line.find('|'))] = line;
        }
    }
    return all;
}

// The row of a function as it is; those that are not to be called are as they stand.
std::string seen(const std::string& name, const Probe& probe, const std::string& row) {
    // The capture of this program stands before some functions of libzxlog.
    void* const function = dlsym(RTLD_NEXT, name.c_str());
    std::istringstream columns(row);
    std::string expected, text = name;
    std::getline(columns, expected, '|');
    bool may_all = true;
    for (std::size_t place = 0; place < probe.is_pointer.size(); ++place) {
        if (probe.is_pointer[place]) {
            std::getline(columns, expected, '|');
            const bool may = expected != "must not" && expected != "handed on";
            may_all = may_all && may;
            text.append("|").append(may ? outcome(probe.call, function, place) : expected);
        }
    }
    if (may_all && outcome(probe.call, function, kAll).starts_with("<ended")) {
        text += "|ended without any";
    }
    return text;
}

TEST(Nulls, AreAnsweredByEveryFunction) {
    const std::pair<const char*, Probe> functions[] = {
#define ZX_EXPORTED(name) {#name, probe_of(&name)},
#include "exported_names.inc"
#undef ZX_EXPORTED
    };
    auto expected = rows();
    for (const auto& [name, probe] : functions) {
        if (!probe.is_pointer.empty()) {
            EXPECT_EQ(expected[name], seen(name, probe, expected[name]));
            expected.erase(name);
        }
    }
    EXPECT_THAT(expected, testing::IsEmpty()) << "there is no such function";
}

}  // namespace

// Calls every exported function with each of its pointers NULL in turn, and with all of them NULL.
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
#include "zxdiag.h"
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

// ---------------------------------------------------------- valid arguments

template <typename R, typename... Args>
R stand_in(Args...) {
    return R();
}
template <typename R, typename... Args>
auto stand_in_for(R (*)(Args...)) -> R (*)(Args...) {
    return stand_in<R, Args...>;
}

alignas(64) std::array<std::array<std::uint8_t, 65536>, 12> g_rooms;

// A valid argument: zeros, or an initialised record. Numbers are 16. Every text is usable as an
// address, a mask and a name.
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

// The words of a text, each with a space after it. Numbers become `number` if there is one.
std::string words_of(const std::string& text, const char* number = nullptr) {
    std::istringstream in(text);
    std::string words;
    for (std::string word; in >> word;) {
        const bool is_number = word.find_first_not_of("0123456789") == std::string::npos;
        words.append(is_number && number != nullptr ? number : word.c_str()).append(" ");
    }
    return words;
}

// Calls a function in a child process, and returns what it returns, changes, logs and prints.
// `call` runs twice: it makes the arguments first, and then calls the function.
std::string outcome(std::string (*call)(void* function, std::size_t missing, bool is_real),
                    void* function, std::size_t missing) {
    return zx::test::in_child([=] {
        alarm(60);
        call(function, missing, false);
        const auto before = std::make_unique<decltype(g_rooms)>(g_rooms);
        zx::test::LogCapture log(2);
        const int printed = memfd_create("printed", 0);
        dup2(printed, STDOUT_FILENO);
        const int opened = dup(printed);  // the number that the function's next file gets
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

// A function without its types.
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

// "name|what it returns without its first pointer|without its second|...". "must not": the header
// says that it must be there. "handed on": it goes to a callback, and the call would not return.
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

// The actual row of a function. Columns that must not be called stay as they are.
std::string seen(const std::string& name, const Probe& probe, const std::string& row) {
    // This program's log capture hides some functions of libzxlog, so this looks them up.
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

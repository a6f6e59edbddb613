#include "zone.hpp"

#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <array>
#include <atomic>

namespace zxlog {
namespace {

struct OffsetChange {
    std::int64_t since;   // second of the epoch from which the offset holds
    std::int32_t offset;  // seconds east of UTC
};

constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kWeek = 7 * kDay;
constexpr int kWeeksKnown = 40 * 53;

enum State : int { unknown, learning, known };

std::atomic<int> g_state{unknown};
std::array<OffsetChange, 128> g_changes;  // written once, before g_state says `known`
std::size_t g_change_count;

std::int32_t offset_at(std::int64_t sec) {
    const time_t when = static_cast<time_t>(sec);
    tm local{};
    return localtime_r(&when, &local) != nullptr ? static_cast<std::int32_t>(local.tm_gmtoff) : 0;
}

// The first second in (low, high] with the offset of `high`.
std::int64_t change_between(std::int64_t low, std::int64_t high) {
    const std::int32_t after = offset_at(high);
    while (high - low > 1) {
        const std::int64_t middle = low + (high - low) / 2;
        (offset_at(middle) == after ? high : low) = middle;
    }
    return high;
}

bool signals_are_blocked() {
    sigset_t blocked;
    if (pthread_sigmask(SIG_BLOCK, nullptr, &blocked) != 0) {
        return true;
    }
    return sigisemptyset(&blocked) == 0;
}

}  // namespace

void learn_zone() {
    int expected = unknown;
    if (!g_state.compare_exchange_strong(expected, learning)) {
        return;
    }
    tzset();
    std::int64_t week = time(nullptr) - kDay;
    g_changes[0] = {INT64_MIN, offset_at(week)};
    std::size_t count = 1;
    for (int i = 0; i < kWeeksKnown && count < g_changes.size(); ++i, week += kWeek) {
        const std::int32_t next = offset_at(week + kWeek);
        if (next != g_changes[count - 1].offset) {
            g_changes[count++] = {change_between(week, week + kWeek), next};
        }
    }
    g_change_count = count;
    g_state.store(known, std::memory_order_release);
}

void learn_zone_unless_in_handler() {
    // While a handler runs, its signal is blocked; a thread that blocks signals for other reasons
    // leaves the learning to the next one.
    if (g_state.load(std::memory_order_relaxed) == unknown && !signals_are_blocked()) {
        learn_zone();
    }
}

CivilTime civil_time(std::int64_t epoch_sec) {
    std::int64_t sec = epoch_sec;
    if (g_state.load(std::memory_order_acquire) == known) {
        std::size_t i = 0;
        while (i + 1 < g_change_count && g_changes[i + 1].since <= epoch_sec) {
            ++i;
        }
        sec += g_changes[i].offset;
    }

    // Days to a date of the proleptic Gregorian calendar, in eras of 400 years from 1 March.
    std::int64_t days = sec / kDay;
    std::int64_t rest = sec % kDay;
    if (rest < 0) {
        rest += kDay;
        --days;
    }
    days += 719468;
    const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const std::int64_t day_of_era = days - era * 146097;
    const std::int64_t year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const std::int64_t day_of_year =
        day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const std::int64_t shifted_month = (5 * day_of_year + 2) / 153;
    const std::int64_t month = shifted_month < 10 ? shifted_month + 3 : shifted_month - 9;

    return {static_cast<int>(year_of_era + era * 400 + (month <= 2 ? 1 : 0)),
            static_cast<int>(month),
            static_cast<int>(day_of_year - (153 * shifted_month + 2) / 5 + 1),
            static_cast<int>(rest / 3600),
            static_cast<int>(rest / 60 % 60),
            static_cast<int>(rest % 60)};
}

}  // namespace zxlog

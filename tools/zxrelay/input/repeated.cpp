#include "input/repeated.hpp"

#include <algorithm>

namespace relay {
namespace {

using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr int kLongestPause = 30;  // seconds

}  // namespace

void Repeated::run() {
    int pause = 1;
    while (!is_done()) {
        const Played played = play();
        finished_ = once_ && played.has_delivered;
        if (is_done()) {
            break;
        }
        pause = played.has_delivered ? 1 : pause;
        log({Level::warning, kTag}, "source %s: %s; the next attempt follows in %d s",
            entrance_.name().c_str(), played.end.c_str(), pause);
        interrupt_.pause(pause * 1000);
        pause = std::min(2 * pause, kLongestPause);
    }
}

}  // namespace relay

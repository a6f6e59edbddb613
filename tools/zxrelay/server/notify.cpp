#include "server/notify.hpp"

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <utility>

#include "zxcommon.hpp"
#include "zxtime.h"

namespace relay {

using zxcommon::Level, zxcommon::log;

Notifier::Notifier() {
    std::uint64_t limit_us = 0;
    if (sd_watchdog_enabled(0, &limit_us) > 0) {
        period_us_ = limit_us / 3;
    }
}

std::uint64_t Notifier::wait_us(std::uint64_t limit_us) const {
    return period_us_ != 0 ? std::min(limit_us, period_us_) : limit_us;
}

void Notifier::announce_up(const std::string& what) const {
    sd_notifyf(0, "READY=1\nSTATUS=%s", what.c_str());
}

void Notifier::keep_alive(unsigned clients, bool is_live) {
    if (clients != clients_) {
        clients_ = clients;
        sd_notifyf(0, "STATUS=%u clients", clients);
    }
    if (!is_live && std::exchange(was_live_, is_live) && period_us_ != 0) {
        log({Level::error, "RELAY"}, "%s", "a sender hangs, so systemd gets no signs of life");
    }
    was_live_ = is_live;
    const std::uint64_t now = zxtime_api_upTimeUs();
    if (is_live && period_us_ != 0 && now - last_us_ >= period_us_) {
        last_us_ = now;
        sd_notify(0, "WATCHDOG=1");
    }
}

void Notifier::announce_end() {
    sd_notify(0, "STOPPING=1");
}

}  // namespace relay

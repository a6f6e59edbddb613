#include "server/notify.hpp"

#include <systemd/sd-daemon.h>

#include <algorithm>

#include "zxtime.h"

namespace relay {

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

void Notifier::keep_alive(unsigned clients) {
    if (clients != clients_) {
        clients_ = clients;
        sd_notifyf(0, "STATUS=%u clients", clients);
    }
    const std::uint64_t now = zxtime_api_upTimeUs();
    if (period_us_ != 0 && now - last_us_ >= period_us_) {
        last_us_ = now;
        sd_notify(0, "WATCHDOG=1");
    }
}

void Notifier::announce_end() {
    sd_notify(0, "STOPPING=1");
}

}  // namespace relay

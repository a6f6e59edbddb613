// What systemd is told about the relay.
#pragma once

#include <cstdint>
#include <string>

namespace relay {

// Does nothing if systemd did not start zxrelay, or does not want to be told.
class Notifier {
public:
    Notifier();

    // How long the main thread may wait before it calls keep_alive() again: `limit_us` or less.
    [[nodiscard]] std::uint64_t wait_us(std::uint64_t limit_us) const;

    void announce_up(const std::string& what) const;
    // Tells how many clients there are. Without the sign of life that is due, systemd will restart
    // the relay.
    void keep_alive(unsigned clients, bool is_live);
    static void announce_end();

private:
    std::uint64_t period_us_ = 0;  // of the signs of life; 0: none is expected
    std::uint64_t last_us_ = 0;
    unsigned clients_ = 0;  // as told last
    bool was_live_ = true;
};

}  // namespace relay

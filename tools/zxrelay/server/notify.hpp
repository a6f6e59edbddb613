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
    void keep_alive(unsigned clients);  // and how many there are
    static void announce_end();

private:
    std::uint64_t period_us_ = 0;  // of the signs of life; 0: none is expected
    std::uint64_t last_us_ = 0;
    unsigned clients_ = 0;  // as told last
};

}  // namespace relay

// Chooses among the main input and its backups.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "common/mutex.hpp"

namespace relay {

// Inputs have ranks: 0 is the main one. An input is silent when it has sent nothing for two
// seconds. If all inputs of lower ranks are silent, an input takes over. An input of a lower rank
// takes back when it has sent for two seconds, or when the one that passes is silent.
class Selector {
public:
    // `names`: of the inputs, for the log.
    Selector(std::vector<std::string> names, std::uint64_t now_us);

    // Tells that this input sends a message now. Returns whether the message passes. The caller
    // holds the mutex, and keeps it until the message is pushed: then the channel has one producer
    // at a time.
    bool admits(std::size_t rank, std::uint64_t now_us) ZX_REQUIRES(mutex_);
    tools::Mutex& mutex() ZX_RETURNS_LOCK(mutex_) { return mutex_; }

    [[nodiscard]] bool is_chosen(std::size_t rank) const { return rank == chosen_; }
    [[nodiscard]] const std::string& name(std::size_t rank) const { return names_[rank]; }

private:
    struct Input {
        std::uint64_t since_us;  // when it began to send without a pause
        std::uint64_t last_us;   // when it has sent last
    };
    [[nodiscard]] bool is_silent(std::size_t rank, std::uint64_t now_us) const ZX_REQUIRES(mutex_);
    [[nodiscard]] bool takes_over(std::size_t rank, std::uint64_t now_us) const ZX_REQUIRES(mutex_);

    const std::vector<std::string> names_;
    tools::Mutex mutex_;
    std::vector<Input> inputs_ ZX_GUARDED_BY(mutex_);
    std::atomic<std::size_t> chosen_{0};
};

}  // namespace relay

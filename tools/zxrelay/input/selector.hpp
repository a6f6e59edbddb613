// Chooses among the main input and its backups.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

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
    bool admits(std::size_t rank, std::uint64_t now_us);
    std::mutex& mutex() { return mutex_; }

    [[nodiscard]] bool is_chosen(std::size_t rank) const { return rank == chosen_; }
    [[nodiscard]] const std::string& name(std::size_t rank) const { return inputs_[rank].name; }

private:
    struct Input {
        std::string name;
        std::uint64_t since_us;  // when it began to send without a pause
        std::uint64_t last_us;   // when it has sent last
    };
    [[nodiscard]] bool is_silent(std::size_t rank, std::uint64_t now_us) const;
    [[nodiscard]] bool takes_over(std::size_t rank, std::uint64_t now_us) const;

    std::vector<Input> inputs_;
    std::atomic<std::size_t> chosen_{0};
    std::mutex mutex_;
};

}  // namespace relay

// Calls of the libraries that fail on demand.
//
// The entries in the libraries' own tables of imports are replaced: what counts and fails are the
// libraries' calls alone, not the test's and not those that the C library makes inside.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zx::test {

enum class Fails { never, once, onwards };

// The n-th counted call of a function is to fail: it alone, or it and all behind it.
struct Fault {
    std::string_view call;
    int nth = 0;
    Fails mode = Fails::never;
};

struct Fallible {
    std::string_view name;
    // Faults worth trying where the number of calls is a matter of time; 0: any number; below 0: as
    // many, but not `onwards`, which would have no end.
    int most;
    int seen;  // counted calls
    bool is_release;
};

// Replaces the imports once. Commands and paths are kept within `directory`, the clock is fast,
// and nothing of the machine is set. Returns imports that are neither fallible by the table nor
// known to need no test.
std::vector<std::string> take_over_calls(const std::string& directory);

// Counts calls from now on, also those of child processes, and lets those of the fault fail.
void arm(const Fault& fault);
void disarm();

// Library calls that belong to the preparation of a scenario.
class Uncounted {
public:
    Uncounted();
    ~Uncounted();
    Uncounted(const Uncounted&) = delete;
    Uncounted& operator=(const Uncounted&) = delete;

private:
    bool counted_;
};

std::vector<Fallible> fallible_calls();

// What the libraries hold in this process: memory, threads and the like, and open descriptors.
std::string holdings();

}  // namespace zx::test

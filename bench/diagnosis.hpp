// The diagnosis of this library, on while something of one of these classes lives.
#pragma once

#include <optional>

#include "diag_client.hpp"
#include "files.hpp"
#include "zxdiag.h"

namespace zx::bench {

struct Counting {
    Counting() { zxdiag_api_start(); }
    ~Counting() { zxdiag_api_stop(); }
};

class Tracing {
public:
    Tracing() {
        const std::string path = folder_.path() + "/socket";
        zxdiag_api_serve(path.c_str());
        client_.emplace(path);
        client_->send_question("trace seconds=60");
        zx::test::DiagClient(path).ask("help");  // is answered when the trace has begun
    }
    ~Tracing() { zxdiag_api_stop(); }

private:
    zx::test::Folder folder_;
    std::optional<zx::test::DiagClient> client_;
};

// A trace has room for 65,536 events, and what finds none costs less. This is for up to four events
// in each turn.
inline constexpr int kTracedTurns = 15'000;

// Lives while `Switch` does.
template <typename Switch, typename Subject>
struct With : Switch, Subject {};

}  // namespace zx::bench

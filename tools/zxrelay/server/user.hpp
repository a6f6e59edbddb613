// The user that the relay runs as.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace relay {

class User {
public:
    // An empty name is the user who starts zxrelay. Throws a Failure if there is no such user.
    explicit User(std::string name);

    // Calls `open` with the rights of the user if root starts zxrelay for somebody else. So a link
    // that the user has prepared leads no further than the user gets without it. Returns the result
    // of `open`, and keeps its errno. Only one thread may run. Throws a Failure.
    [[nodiscard]] int open_as(const std::function<int()>& open) const;

    // Becomes the user for good and gives up all capabilities. From now on the process and its
    // children cannot gain privileges, whoever the user is. Throws a Failure.
    void become() const;

private:
    [[nodiscard]] bool is_other() const;

    const std::string name_;
    uid_t uid_ = 0;
    gid_t gid_ = 0;
};

}  // namespace relay

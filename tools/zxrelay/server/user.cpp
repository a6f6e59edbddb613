#include "server/user.hpp"

#include <grp.h>
#include <limits.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "common/failure.hpp"
#include "zxmd.h"

namespace relay {
namespace {

// Gives root the rights of a user, until the end of the block.
class Disguise {
public:
    Disguise(const char* name, uid_t uid, gid_t gid) : groups_(NGROUPS_MAX + 1) {
        const int count = getgroups(static_cast<int>(groups_.size()), groups_.data());
        groups_.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        if (initgroups(name, gid) != 0 || setegid(gid) != 0 || seteuid(uid) != 0) {
            const auto failure = tools::system_failure(std::string("cannot act as ") + name);
            take_off();
            throw failure;
        }
    }
    ~Disguise() { take_off(); }
    Disguise(const Disguise&) = delete;
    Disguise& operator=(const Disguise&) = delete;

private:
    // Cannot fail: the real user is still root.
    void take_off() {
        const int code = errno;
        [[maybe_unused]] const bool done = seteuid(0) == 0 && setegid(getgid()) == 0 &&
                                           setgroups(groups_.size(), groups_.data()) == 0;
        errno = code;
    }

    std::vector<gid_t> groups_;
};

// A capability that is not in the bounding set cannot come back.
void drop_bounding_set() {
    for (unsigned long i = 0; prctl(PR_CAPBSET_READ, i, 0, 0, 0) >= 0; ++i) {
        prctl(PR_CAPBSET_DROP, i, 0, 0, 0);
    }
}

}  // namespace

User::User(std::string name) : name_(std::move(name)) {
    if (name_.empty()) {
        return;
    }
    const passwd* const user = getpwnam(name_.c_str());
    if (user == nullptr) {
        throw tools::Failure("there is no user " + name_);
    }
    uid_ = user->pw_uid;
    gid_ = user->pw_gid;
}

bool User::is_other() const {
    return !name_.empty() && uid_ != 0;
}

int User::open_as(const std::function<int()>& open) const {
    if (!is_other() || getuid() != 0 || geteuid() != 0) {
        return open();
    }
    const Disguise disguise(name_.c_str(), uid_, gid_);
    return open();
}

void User::become() const {
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    if (is_other()) {
        prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
        drop_bounding_set();
    }
    if (name_.empty()) {
        return;
    }
    if (const int code = zxmd_api_changeUser(name_.c_str()); code != 0) {
        throw tools::Failure("cannot become the user " + name_ + " (" + std::to_string(code) +
                             ", see the log)");
    }
}

}  // namespace relay

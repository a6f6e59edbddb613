// The log file of the relay: opened with the rights of its user, and rotated.
#pragma once

#include <cstdint>
#include <string>

#include "options.hpp"
#include "server/user.hpp"
#include "zxcommon.hpp"

namespace relay {

// With no file, lines go to standard error, and most functions do nothing.
class Log {
public:
    // Opens the file with the rights of `user`. Until settle(), the log goes through the open
    // descriptor alone: root opens nothing that a user has put in the place of the file. Throws a
    // Failure.
    Log(const Options& options, const User& user);

    // From now on, the log opens its file by its path, and in the journal its lines have
    // priorities. Called after the process has changed to its user.
    void settle();

    // Opens the path again, and logs that.
    void reopen();

    // Once a minute, renames a large file to "FILE.1", the older "FILE.1" to "FILE.2" and so on,
    // and starts a new one. Removes what is older than the files to keep.
    void rotate_when_due();

private:
    void rotate();
    [[nodiscard]] std::string older(unsigned number) const;

    const std::string path_;
    const unsigned keep_;
    zxcommon::Descriptor opened_;
    std::uint64_t last_check_us_ = 0;  // 0: the first call checks
};

}  // namespace relay

#include "server/log.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "common/failure.hpp"
#include "server/journal.hpp"
#include "zxlog.h"
#include "zxmd.h"
#include "zxtime.h"

namespace relay {
namespace {

using zxcommon::Level, zxcommon::log;
namespace fs = std::filesystem;

constexpr char kTag[] = "RELAY";
constexpr std::uint64_t kMinuteUs = 60000000;

// As the log itself opens its file.
int open_file(const char* path) {
    return open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0644);
}

bool is_large(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && st.st_size > ZXMD_MSG_FILE_LIMIT;
}

}  // namespace

Log::Log(const Options& options, const User& user)
    : path_(options.log_file), keep_(options.log_keep) {
    zxlog_api_setLoglevel(options.log_level);
    if (path_.empty()) {
        zxlog_api_setFile(nullptr);
        return;
    }
    opened_ = zxcommon::Descriptor(user.open_as([&] { return open_file(path_.c_str()); }));
    const std::string same = "/proc/self/fd/" + std::to_string(opened_.get());
    if (!opened_ || zxlog_api_setFile(same.c_str()) != 0) {
        throw tools::system_failure("cannot write the log " + path_);
    }
}

void Log::settle() {
    if (path_.empty()) {
        give_lines_priorities();
        return;
    }
    if (zxlog_api_setFile(path_.c_str()) != 0) {
        throw tools::system_failure("cannot write the log " + path_);
    }
    opened_.reset();
    rotate_when_due();
}

void Log::reopen() {
    if (!path_.empty() && zxlog_api_setFile(path_.c_str()) != 0) {
        log({Level::error, kTag}, "signal 1: cannot open the log again: %s", std::strerror(errno));
        return;
    }
    log({Level::notice, kTag}, "signal 1: %s",
        path_.empty() ? "there is no log file to open again" : "the log is open again");
}

void Log::rotate_when_due() {
    const std::uint64_t now = zxtime_api_upTimeUs();
    if (last_check_us_ != 0 && now - last_check_us_ < kMinuteUs) {
        return;
    }
    last_check_us_ = now;
    if (!path_.empty() && is_large(path_)) {
        rotate();
    }
}

void Log::rotate() {
    std::error_code ignored;  // some of these files do not exist yet
    for (unsigned number = keep_ + 1; fs::remove(older(number), ignored); ++number) {
    }
    for (unsigned number = keep_; number > 1; --number) {
        fs::rename(older(number - 1), older(number), ignored);
    }
    if (std::rename(path_.c_str(), older(1).c_str()) != 0 ||
        zxlog_api_setFile(path_.c_str()) != 0) {
        log({Level::error, kTag}, "cannot rotate the log: %s", std::strerror(errno));
    }
}

std::string Log::older(unsigned number) const {
    return path_ + "." + std::to_string(number);
}

}  // namespace relay

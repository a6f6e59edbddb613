#include "write/sink.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include "common/failure.hpp"
#include "show/output.hpp"

namespace capture {
namespace {

constexpr std::size_t kFull = 256U << 10U;
constexpr mode_t kMode = 0666;  // less the umask

}  // namespace

Sink::Sink(const std::string& path, const std::optional<FileId>& read)
    : name_(path == "-" ? "standard output" : path),
      own_(path == "-" ? -1 : open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, kMode)),
      descriptor_(path == "-" ? STDOUT_FILENO : own_.get()) {
    struct stat st {};
    if (descriptor_ < 0 || fstat(descriptor_, &st) != 0) {
        fail();
    }
    if (S_ISREG(st.st_mode)) {
        if (read == FileId{st.st_dev, st.st_ino}) {
            throw tools::Failure("cannot write " + name_ + " while reading from it");
        }
        if (own_ && ftruncate(descriptor_, 0) != 0) {
            fail();
        }
    }
    buffer_.reserve(2 * kFull);
}

void Sink::add(std::span<const std::uint8_t> bytes) {
    buffer_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

void Sink::end_record() {
    if (buffer_.size() >= kFull) {
        flush();
    }
}

void Sink::flush() {
    written_ += buffer_.size();
    if (!write_all(descriptor_, buffer_)) {
        fail();
    }
}

void Sink::fail() const {
    throw tools::system_failure("cannot write " + name_);
}

}  // namespace capture

#include "commands/input_spool.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "commands/interrupt.h"
#include "commands/output_file.h"
#include "formats/cloud.h"

namespace zulconvert {

using zulformats::FormatError;

InputSpool::InputSpool(const std::string& name)
    : name_(isStandardStream(name) ? "standard input" : name), path_(name) {
    int in = STDIN_FILENO;
    if (!isStandardStream(name)) {
        struct stat info;
        if (::stat(name.c_str(), &info) != 0) return;  // the reader says why it cannot open it
        if (S_ISDIR(info.st_mode))
            throw FormatError(name + ": is a folder; give the files in it, or a file");
        if (S_ISREG(info.st_mode)) return;
        in = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
        if (in < 0) throw FormatError(name + ": cannot be opened (" + std::strerror(errno) + ")");
    }
    std::string copy;
    int out = createUniqueFile(temporaryFolder(), "zul-input", copy, guard_);
    if (out < 0) {
        const int reason = errno;
        if (in != STDIN_FILENO) ::close(in);
        throw FormatError(name_ + ": cannot copy it to a temporary file in " + temporaryFolder() +
                          " (" + std::strerror(reason) + ")");
    }
    path_ = copy;
    spooled_ = true;
    std::string failure;
    std::vector<char> buffer(1 << 20);
    for (;;) {
        const ssize_t got = ::read(in, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            failure = name_ + ": reading failed (" + std::strerror(errno) + ")";
            break;
        }
        if (got == 0) break;
        if (!writeAll(out, buffer.data(), static_cast<size_t>(got))) {
            failure = name_ + ": cannot copy it to " + temporaryFolder() + " (" +
                      std::strerror(errno) + ")";
            break;
        }
    }
    if (::close(out) != 0 && failure.empty())
        failure =
            name_ + ": cannot copy it to " + temporaryFolder() + " (" + std::strerror(errno) + ")";
    if (in != STDIN_FILENO) ::close(in);
    if (!failure.empty()) {
        std::remove(path_.c_str());
        releasePartialFile(guard_);
        throw FormatError(failure);
    }
}

InputSpool::~InputSpool() {
    if (spooled_) std::remove(path_.c_str());
    releasePartialFile(guard_);
}

std::string InputSpool::rename(std::string message) const {
    if (!spooled_) return message;
    for (size_t at; (at = message.find(path_)) != std::string::npos;)
        message.replace(at, path_.size(), name_);
    return message;
}

}  // namespace zulconvert

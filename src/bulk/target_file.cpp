#include "bulk/target_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <random>

namespace zulbulk {

namespace {

// Writers of one process, even on one path at once, never share a name: the process number,
// a counter of the process and random bits.
std::string temporaryName(const std::string& path) {
    static std::atomic<unsigned long> counter{0};
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    std::random_device device;
    char suffix[64];
    std::snprintf(suffix, sizeof suffix, ".partial-%ld-%lu-%08x", static_cast<long>(::getpid()),
                  counter.fetch_add(1), static_cast<unsigned>(device()));
    return folder + "." + name + suffix;
}

}  // namespace

zul_Status TargetFile::open(const char* path, bool publish) {
    path_ = path;
    if (!publish) {
        // Truncated only when it holds something: reopening an empty file (a temporary name the
        // caller made) with O_TRUNC makes the file system write it back on close.
        fd_ = ::open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
        struct stat info;
        if (fd_ >= 0 && ::fstat(fd_, &info) == 0 && (info.st_size == 0 || ::ftruncate(fd_, 0) == 0))
            return zul_STATUS_OK;
        keepError();
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
        return zul_STATUS_WRITE_ERROR;
    }
    // A name that exists already (left by a process that died) is never reused: another is drawn.
    for (int attempt = 0; attempt < 16 && fd_ < 0; ++attempt) {
        temporary_ = temporaryName(path_);
        fd_ = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd_ < 0 && errno != EEXIST) break;
    }
    if (fd_ >= 0) return zul_STATUS_OK;
    keepError();
    temporary_.clear();
    return zul_STATUS_WRITE_ERROR;
}

bool TargetFile::write(const char* bytes, size_t size) {
    while (size > 0) {
        const ssize_t done = ::write(fd_, bytes, size);
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) {
            if (done == 0) errno = ENOSPC;  // a write that takes nothing: no room
            keepError();
            return false;
        }
        bytes += done;
        size -= static_cast<size_t>(done);
    }
    return true;
}

zul_Status TargetFile::finish() {
    const int fd = fd_;
    fd_ = -1;
    bool done = ::close(fd) == 0;
    if (!done) keepError();
    if (!temporary_.empty()) {
        done = done && std::rename(temporary_.c_str(), path_.c_str()) == 0;
        if (!done) keepError();
        if (!done) std::remove(temporary_.c_str());
        temporary_.clear();
    }
    return done ? zul_STATUS_OK : zul_STATUS_WRITE_ERROR;
}

void TargetFile::abandon() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    if (!temporary_.empty()) std::remove(temporary_.c_str());
    temporary_.clear();
}

}  // namespace zulbulk

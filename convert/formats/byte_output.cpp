#include "formats/byte_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "formats/cloud.h"

namespace zulformats {

ByteOutput::ByteOutput(const std::string& path)
    : path_(path), buffer_(new unsigned char[kBufferSize]) {
    // Truncated only when it holds something: reopening an empty file (the temporary file an
    // output is written under) with O_TRUNC makes the file system write it back on close.
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    struct stat info;
    if (fd < 0 || ::fstat(fd, &info) != 0 || (info.st_size > 0 && ::ftruncate(fd, 0) != 0) ||
        (file_ = ::fdopen(fd, "wb")) == nullptr) {
        const int reason = errno;
        if (fd >= 0) ::close(fd);
        throw FormatError(path + ": cannot create the file (" + std::strerror(reason) + ")");
    }
    // The writes that reach the file are large already.
    std::setvbuf(file_, nullptr, _IONBF, 0);
}

ByteOutput::~ByteOutput() {
    if (file_ != nullptr) finish();
}

bool ByteOutput::put(const void* data, size_t n) {
    if (std::fwrite(data, 1, n, file_) == n) return true;
    std::lock_guard<std::mutex> lock(mutex_);
    if (!failed_) reason_ = errno != 0 ? errno : EIO;
    failed_ = true;
    return false;
}

void ByteOutput::writeQueued() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return stop_ || !queued_.empty(); });
        if (queued_.empty()) return;
        std::pair<Buffer, size_t> next = std::move(queued_.front());
        queued_.pop_front();
        writing_ = true;
        const bool skip = failed_;
        lock.unlock();
        if (!skip) put(next.first.get(), next.second);
        lock.lock();
        writing_ = false;
        spare_.push_back(std::move(next.first));
        changed_.notify_all();
    }
}

void ByteOutput::flush() {
    if (used_ == 0) return;
    std::unique_lock<std::mutex> lock(mutex_);
    if (!thread_.joinable()) thread_ = std::thread(&ByteOutput::writeQueued, this);
    queued_.emplace_back(std::move(buffer_), used_);
    used_ = 0;
    changed_.notify_all();
    if (spare_.empty() && made_ < kBuffers) {
        ++made_;
        lock.unlock();
        buffer_.reset(new unsigned char[kBufferSize]);
        return;
    }
    changed_.wait(lock, [this] { return !spare_.empty(); });
    buffer_ = std::move(spare_.back());
    spare_.pop_back();
}

void ByteOutput::drain() {
    if (!thread_.joinable()) {
        // Never more than a buffer: written here, no thread started.
        if (used_ > 0 && !failed_) put(buffer_.get(), used_);
        used_ = 0;
        return;
    }
    flush();
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return queued_.empty() && !writing_; });
}

void ByteOutput::writeThrough(const void* data, size_t n) {
    flush();
    if (n < kBufferSize) {
        std::memcpy(buffer_.get(), data, n);
        used_ = n;
        return;
    }
    // Large: written from where it is, after what came before.
    writeInPlace(data, n);
}

void ByteOutput::writeInPlace(const void* data, size_t n) {
    drain();
    std::unique_lock<std::mutex> lock(mutex_);
    const bool failed = failed_;
    lock.unlock();
    if (!failed && n > 0) put(data, n);
}

void ByteOutput::rewrite(uint64_t offset, const void* data, size_t n) {
    drain();
    std::unique_lock<std::mutex> lock(mutex_);
    const bool failed = failed_;
    lock.unlock();
    if (failed) return;
    if (std::fseek(file_, static_cast<long>(offset), SEEK_SET) != 0 || !put(data, n) ||
        std::fseek(file_, 0, SEEK_END) != 0) {
        lock.lock();
        if (!failed_) reason_ = errno;
        failed_ = true;
    }
}

bool ByteOutput::finish() {
    drain();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable()) thread_.join();
    std::FILE* file = std::exchange(file_, nullptr);
    return std::fclose(file) == 0;
}

void ByteOutput::close() {
    if (file_ == nullptr) return;
    const bool closed = finish();
    const int reason = failed_ ? reason_ : errno;
    if (failed_ || !closed) {
        throw FormatError(path_ + ": writing the file failed (" + std::strerror(reason) + ")");
    }
}

}  // namespace zulformats

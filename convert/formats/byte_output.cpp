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
    if (file_ == nullptr) return;
    flush();
    std::fclose(file_);
}

void ByteOutput::flush() {
    if (!failed_ && used_ > 0 && std::fwrite(buffer_.get(), 1, used_, file_) != used_) {
        failed_ = true;
    }
    used_ = 0;
}

void ByteOutput::writeThrough(const void* data, size_t n) {
    flush();
    if (n < kBufferSize) {
        std::memcpy(buffer_.get(), data, n);
        used_ = n;
    } else if (!failed_ && std::fwrite(data, 1, n, file_) != n) {
        failed_ = true;
    }
}

void ByteOutput::rewrite(uint64_t offset, const void* data, size_t n) {
    flush();
    if (failed_) return;
    if (std::fseek(file_, static_cast<long>(offset), SEEK_SET) != 0) failed_ = true;
    if (!failed_ && std::fwrite(data, 1, n, file_) != n) failed_ = true;
    if (std::fseek(file_, 0, SEEK_END) != 0) failed_ = true;
}

void ByteOutput::close() {
    if (file_ != nullptr) flush();
    std::FILE* file = std::exchange(file_, nullptr);
    const bool closed = file != nullptr && std::fclose(file) == 0;
    if (failed_ || !closed) {
        throw FormatError(path_ + ": writing the file failed (" + std::strerror(errno) + ")");
    }
}

}  // namespace zulformats

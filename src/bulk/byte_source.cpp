#include "bulk/byte_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace zulbulk {

ByteSource::~ByteSource() {
    if (fd_ >= 0) ::close(fd_);
}

zul_Status ByteSource::openFile(const char* path, int64_t start) {
    fd_ = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) return zul_STATUS_READ_ERROR;
    struct stat info;
    if (::fstat(fd_, &info) != 0 || !S_ISREG(info.st_mode)) return zul_STATUS_READ_ERROR;
    if (start > static_cast<int64_t>(info.st_size)) return zul_STATUS_TRUNCATED;
    start_ = start;
    size_ = static_cast<int64_t>(info.st_size) - start;
    return zul_STATUS_OK;
}

void ByteSource::openBuffer(const void* bytes, size_t size) {
    buffer_ = static_cast<const char*>(bytes);
    size_ = static_cast<int64_t>(size);
}

zul_Status ByteSource::read(int64_t offset, int64_t count, char* target) const {
    if (offset < 0 || count < 0) return zul_STATUS_READ_ERROR;
    if (fd_ < 0) {
        if (offset > size_ || count > size_ - offset) return zul_STATUS_TRUNCATED;
        if (count > 0) std::memcpy(target, buffer_ + offset, static_cast<size_t>(count));
        return zul_STATUS_OK;
    }
    int64_t done = 0;
    while (done < count) {
        const ssize_t got = ::pread(fd_, target + done, static_cast<size_t>(count - done),
                                    static_cast<off_t>(start_ + offset + done));
        if (got == 0) return zul_STATUS_TRUNCATED;
        if (got < 0) {
            if (errno == EINTR) continue;
            return zul_STATUS_READ_ERROR;
        }
        done += got;
    }
    return zul_STATUS_OK;
}

}  // namespace zulbulk

// Where the bytes of an indexed stream come from: a file read by offset (pread, so that threads
// never share a file position) or a caller's buffer. Reads are safe from any number of threads.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zul.h"

namespace zulbulk {

class ByteSource {
public:
    ByteSource() = default;
    ~ByteSource();
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;

    // Opens the file and notes its size from byte `start` on, where the bytes read begin:
    // zul_STATUS_READ_ERROR if either fails, zul_STATUS_TRUNCATED if the file ends before `start`.
    zul_Status openFile(const char* path, int64_t start = 0);
    void openBuffer(const void* bytes, size_t size);

    int64_t size() const { return size_; }
    // Copies `count` bytes from `offset` into `target`: zul_STATUS_TRUNCATED if the source ends
    // before them, zul_STATUS_READ_ERROR if reading fails.
    zul_Status read(int64_t offset, int64_t count, char* target) const;

private:
    int fd_ = -1;
    int64_t start_ = 0;
    const char* buffer_ = nullptr;
    int64_t size_ = 0;
};

}  // namespace zulbulk

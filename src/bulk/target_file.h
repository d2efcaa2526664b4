// The file a bulk writer writes: either the caller's path itself (created or truncated), or a new
// file of a unique name beside it, created exclusively and renamed over the path when it is
// complete, so that the path never holds a partial stream. Only a file the writer created is ever
// removed, and only that temporary one.
#pragma once

#include <cerrno>
#include <cstddef>
#include <string>

#include "zul_bulk.h"

namespace zulbulk {

class TargetFile {
public:
    TargetFile() = default;
    // Abandons a file that is still open.
    ~TargetFile() { abandon(); }
    TargetFile(const TargetFile&) = delete;
    TargetFile& operator=(const TargetFile&) = delete;

    // Opens for writing; `publish` selects the temporary file. zul_STATUS_WRITE_ERROR if the file
    // cannot be created.
    zul_Status open(const char* path, bool publish);
    // Appends all the bytes, or returns false.
    bool write(const char* bytes, size_t size);
    // Closes the file and, when publishing, renames it over the path (removed if either fails).
    // zul_STATUS_WRITE_ERROR if either fails.
    zul_Status finish();
    // Closes the file; a temporary one is removed, the path itself stays as written.
    void abandon();
    // The system's reason (errno) for the first open, write, close or rename that failed, or 0.
    // Writes may run on any thread: the reason is kept here for the caller's.
    int error() const { return error_; }

private:
    int fd_ = -1;
    std::string path_;
    std::string temporary_;  // empty unless publishing
    int error_ = 0;
    void keepError() {
        if (error_ == 0) error_ = errno;
    }
};

}  // namespace zulbulk

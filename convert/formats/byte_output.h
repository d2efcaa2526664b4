// Buffered writing of a file (its own buffer: a write of a few bytes is a copy), with the failure
// kept until it is reported: writes after a failure do nothing, and close() throws FormatError
// naming the file.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

namespace zulformats {

class ByteOutput {
public:
    // Creates `path`, replacing a file that exists; throws FormatError if it cannot.
    explicit ByteOutput(const std::string& path);
    ~ByteOutput();
    ByteOutput(const ByteOutput&) = delete;
    ByteOutput& operator=(const ByteOutput&) = delete;

    // Small writes (a record, a number) are gathered here and reach the file a megabyte at a time.
    void write(const void* data, size_t n) {
        if (n <= kBufferSize - used_) {
            std::memcpy(buffer_.get() + used_, data, n);
            used_ += n;
            return;
        }
        writeThrough(data, n);
    }
    void text(const std::string& s) { write(s.data(), s.size()); }
    template <typename T>
    void little(T value) {
        write(&value, sizeof(T));
    }
    template <typename T>
    void big(T value) {
        unsigned char bytes[sizeof(T)];
        std::memcpy(bytes, &value, sizeof(T));
        for (size_t i = 0; i < sizeof(T) / 2; ++i) std::swap(bytes[i], bytes[sizeof(T) - 1 - i]);
        write(bytes, sizeof(T));
    }
    // Overwrites bytes already written at `offset` (a header completed at the end).
    void rewrite(uint64_t offset, const void* data, size_t n);
    // Flushes and closes; throws FormatError if any write failed.
    void close();

private:
    static constexpr size_t kBufferSize = size_t{1} << 20;

    // Empties the buffer into the file.
    void flush();
    // What does not fit in the buffer: the buffer first, then `data`.
    void writeThrough(const void* data, size_t n);

    std::string path_;
    std::FILE* file_ = nullptr;
    bool failed_ = false;
    std::unique_ptr<unsigned char[]> buffer_;
    size_t used_ = 0;
};

}  // namespace zulformats

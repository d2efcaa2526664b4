// Buffered writing of a file (its own buffer: a write of a few bytes is a copy), with the failure
// kept until it is reported: writes after a failure do nothing, and close() throws FormatError
// naming the file. A full buffer is written by a thread of the output's own while the caller
// fills the next, so that the file system's copy overlaps the work that makes the bytes.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

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
    // Room for `n` bytes at the end of what is written, to be filled by the caller and then
    // counted by wrote(n) before any other call; nullptr when `n` is more than a buffer holds
    // (write() them instead). Bytes made in place are not copied.
    unsigned char* room(size_t n) {
        if (n > kBufferSize) return nullptr;
        if (n > kBufferSize - used_) flush();
        return buffer_.get() + used_;
    }
    void wrote(size_t n) { used_ += n; }
    // Writes `n` bytes from where they are, on the calling thread, behind everything before: for
    // blocks the caller made whole elsewhere, which a copy into the buffer would only cost.
    void writeInPlace(const void* data, size_t n);
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
    // Buffers at most: one filled by the caller, the others written or waiting.
    static constexpr size_t kBuffers = 3;

    using Buffer = std::unique_ptr<unsigned char[]>;

    // Hands the buffer to the writing thread and takes an empty one.
    void flush();
    // What does not fit in the buffer: the buffer first, then `data`.
    void writeThrough(const void* data, size_t n);
    // Waits until every buffer handed over is in the file.
    void drain();
    // The writing thread's loop.
    void writeQueued();
    // Writes on the calling thread; false (with the reason kept) if the file takes less.
    bool put(const void* data, size_t n);
    // Flushes, drains and stops the thread; closes the file. False if closing failed.
    bool finish();

    std::string path_;
    std::FILE* file_ = nullptr;
    Buffer buffer_;
    size_t used_ = 0;

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::pair<Buffer, size_t>> queued_;  // in file order
    std::vector<Buffer> spare_;
    size_t made_ = 1;       // buffers allocated
    bool writing_ = false;  // the thread holds a buffer
    bool stop_ = false;
    bool failed_ = false;
    int reason_ = 0;  // errno of the first failure
    std::thread thread_;
};

}  // namespace zulformats

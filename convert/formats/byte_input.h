// Buffered reading of a file: exact reads that throw when the file ends early, text lines,
// skipping, and little- and big-endian numbers out of byte records.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace zulformats {

class ByteInput {
public:
    // Opens `path`; throws FormatError naming it if it cannot be opened.
    explicit ByteInput(const std::string& path);
    ~ByteInput();
    ByteInput(const ByteInput&) = delete;
    ByteInput& operator=(const ByteInput&) = delete;

    const std::string& path() const { return path_; }
    uint64_t size() const { return size_; }
    uint64_t position() const { return position_ - (end_ - next_); }

    // Reads exactly `n` bytes; throws FormatError ("ends early" with `what`) if the file is
    // shorter.
    void read(void* data, size_t n, const char* what) {
        // Most reads are small and lie within the buffer.
        if (static_cast<size_t>(end_ - next_) >= n) {
            if (n > 0) std::memcpy(data, next_, n);  // an empty read may have no buffers at all
            next_ += n;
            return;
        }
        readAcross(data, n, what);
    }
    // The next `n` bytes (at most largestTake()), read without a copy: they stay valid until the
    // next call, and 8 more bytes after them can be loaded (what they hold is not defined).
    // Throws as read() does.
    const unsigned char* take(size_t n, const char* what) {
        if (static_cast<size_t>(end_ - next_) < n) gather(n, what);
        const char* at = next_;
        next_ += n;
        return reinterpret_cast<const unsigned char*>(at);
    }
    size_t largestTake() const;
    // Reads up to `n` bytes, returns how many; 0 only at the end of the file.
    size_t readSome(void* data, size_t n);
    // Reads one line without its end ("\n" or "\r\n"); false at the end of the file. A line
    // longer than `maxLength` throws.
    bool readLine(std::string& line, size_t maxLength = 1 << 20);
    void seek(uint64_t offset);
    // Throws FormatError: "<path>: <message>".
    [[noreturn]] void fail(const std::string& message) const;

private:
    bool refill();
    // Moves what is left of the buffer to its start and reads until it holds `n` bytes.
    void gather(size_t n, const char* what);
    // read() of bytes that the buffer does not hold all of.
    void readAcross(void* data, size_t n, const char* what);

    std::string path_;
    std::FILE* file_ = nullptr;
    uint64_t size_ = 0;
    uint64_t position_ = 0;  // file offset of end_
    std::vector<char> buffer_;
    const char* next_ = nullptr;
    const char* end_ = nullptr;
};

// `text` fit for a message on a terminal: at most `limit` bytes, each byte that is not printable
// ASCII shown as "?", so that a binary header is never echoed raw.
inline std::string printable(const std::string& text, size_t limit = 60) {
    std::string shown = text.substr(0, limit);
    for (char& c : shown) {
        if (c < 0x20 || c > 0x7e) c = '?';
    }
    return text.size() > limit ? shown + "..." : shown;
}

template <typename T>
T loadLittle(const unsigned char* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

template <typename T>
T loadBig(const unsigned char* bytes) {
    unsigned char reversed[sizeof(T)];
    for (size_t i = 0; i < sizeof(T); ++i) reversed[i] = bytes[sizeof(T) - 1 - i];
    return loadLittle<T>(reversed);
}

}  // namespace zulformats

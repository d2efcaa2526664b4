#include "formats/byte_input.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "formats/cloud.h"

namespace zulformats {

namespace {
const size_t kBufferSize = 1 << 20;
// Bytes the buffer holds beyond what it reads into: loads of a whole word at the end of what
// take() hands out stay inside it.
const size_t kSlack = 8;
}  // namespace

ByteInput::ByteInput(const std::string& path) : path_(path), buffer_(kBufferSize + kSlack) {
    file_ = std::fopen(path.c_str(), "rb");
    if (file_ == nullptr) {
        fail(std::string("cannot open the file (") + std::strerror(errno) + ")");
    }
    struct stat status;
    if (::fstat(::fileno(file_), &status) != 0 || !S_ISREG(status.st_mode)) {
        std::fclose(file_);
        file_ = nullptr;
        fail("cannot read it: it is not a regular file");
    }
    size_ = static_cast<uint64_t>(status.st_size);
    next_ = end_ = buffer_.data();
}

ByteInput::~ByteInput() {
    if (file_ != nullptr) std::fclose(file_);
}

void ByteInput::fail(const std::string& message) const {
    throw FormatError(path_ + ": " + message);
}

size_t ByteInput::largestTake() const { return buffer_.size() - kSlack; }

void ByteInput::gather(size_t n, const char* what) {
    if (n > largestTake()) fail(std::string("cannot take so much at once, inside ") + what);
    const size_t have = static_cast<size_t>(end_ - next_);
    std::memmove(buffer_.data(), next_, have);
    size_t got = have;
    while (got < n) {
        const size_t more = std::fread(buffer_.data() + got, 1, largestTake() - got, file_);
        if (more == 0) {
            if (std::ferror(file_)) fail("a read failed");
            next_ = end_ = buffer_.data();
            fail(std::string("the file ends early, inside ") + what);
        }
        position_ += more;
        got += more;
    }
    next_ = buffer_.data();
    end_ = buffer_.data() + got;
}

bool ByteInput::refill() {
    const size_t n = std::fread(buffer_.data(), 1, largestTake(), file_);
    if (n == 0 && std::ferror(file_)) fail("a read failed");
    position_ += n;
    next_ = buffer_.data();
    end_ = buffer_.data() + n;
    return n > 0;
}

size_t ByteInput::readSome(void* data, size_t n) {
    char* out = static_cast<char*>(data);
    size_t done = 0;
    while (done < n) {
        if (next_ == end_ && !refill()) break;
        const size_t take = std::min(n - done, static_cast<size_t>(end_ - next_));
        std::memcpy(out + done, next_, take);
        next_ += take;
        done += take;
    }
    return done;
}

void ByteInput::readAcross(void* data, size_t n, const char* what) {
    if (readSome(data, n) != n) fail(std::string("the file ends early, inside ") + what);
}

bool ByteInput::readLine(std::string& line, size_t maxLength) {
    line.clear();
    for (;;) {
        if (next_ == end_ && !refill()) return !line.empty();
        const char* newline = static_cast<const char*>(std::memchr(next_, '\n', end_ - next_));
        const char* stop = newline != nullptr ? newline : end_;
        line.append(next_, stop);
        if (line.size() > maxLength) fail("a line is too long for a point cloud file");
        next_ = newline != nullptr ? newline + 1 : end_;
        if (newline != nullptr) {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            return true;
        }
    }
}

void ByteInput::seek(uint64_t offset) {
    if (offset > size_) fail("the file ends before its data");
    if (std::fseek(file_, static_cast<long>(offset), SEEK_SET) != 0) fail("a seek failed");
    position_ = offset;
    next_ = end_ = buffer_.data();
}

}  // namespace zulformats

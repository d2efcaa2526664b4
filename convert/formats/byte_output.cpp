#include "formats/byte_output.h"

#include <cerrno>
#include <utility>

#include "formats/cloud.h"

namespace zulformats {

ByteOutput::ByteOutput(const std::string& path) : path_(path) {
    file_ = std::fopen(path.c_str(), "wb");
    if (file_ == nullptr) {
        throw FormatError(path + ": cannot create the file (" + std::strerror(errno) + ")");
    }
    std::setvbuf(file_, nullptr, _IOFBF, 1 << 20);
}

ByteOutput::~ByteOutput() {
    if (file_ != nullptr) std::fclose(file_);
}

void ByteOutput::write(const void* data, size_t n) {
    if (!failed_ && std::fwrite(data, 1, n, file_) != n) failed_ = true;
}

void ByteOutput::rewrite(uint64_t offset, const void* data, size_t n) {
    if (failed_) return;
    if (std::fseek(file_, static_cast<long>(offset), SEEK_SET) != 0) failed_ = true;
    write(data, n);
    if (std::fseek(file_, 0, SEEK_END) != 0) failed_ = true;
}

void ByteOutput::close() {
    std::FILE* file = std::exchange(file_, nullptr);
    const bool closed = file != nullptr && std::fclose(file) == 0;
    if (failed_ || !closed) {
        throw FormatError(path_ + ": writing the file failed (" + std::strerror(errno) + ")");
    }
}

}  // namespace zulformats

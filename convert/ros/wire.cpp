#include "wire.h"

#include <cstring>
#include <string>

namespace zul::ros {

namespace {

uint32_t load32(const uint8_t* p, bool big) {
    return big ? (uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3])
               : (uint32_t(p[3]) << 24 | uint32_t(p[2]) << 16 | uint32_t(p[1]) << 8 | p[0]);
}

}  // namespace

WireReader::WireReader(const uint8_t* bytes, size_t size, Serialization family, const char* message)
    : data_(bytes), size_(size), message_(message) {
    if (family == Serialization::Ros1) return;
    need(4, "CDR encapsulation header");
    if (data_[0] != 0 || data_[1] > 1)
        fail("its CDR encapsulation header " + std::to_string(data_[0]) + " " +
             std::to_string(data_[1]) +
             " is neither plain CDR big-endian (0 0) nor little-endian (0 1)");
    wire_ = data_[1] == 1 ? Wire::CdrLittle : Wire::CdrBig;
    cdrOptions_ = uint16_t(data_[2] << 8 | data_[3]);
    pos_ = origin_ = 4;
}

void WireReader::fail(const std::string& text) const {
    throw Error(std::string(message_) + ": " + text);
}

void WireReader::need(size_t size, const char* what) {
    if (size > size_ - pos_)
        fail("ends inside " + std::string(what) + " (byte " + std::to_string(pos_) + " of " +
             std::to_string(size_) + ", " + std::to_string(size) + " more needed)");
}

void WireReader::align(size_t size) {
    if (!isCdr(wire_)) return;
    const size_t skip = (size - (pos_ - origin_) % size) % size;
    need(skip, "alignment padding");
    pos_ += skip;
}

uint8_t WireReader::u8(const char* what) {
    need(1, what);
    return data_[pos_++];
}

uint32_t WireReader::u32(const char* what) {
    align(4);
    need(4, what);
    const uint32_t value = load32(data_ + pos_, wire_ == Wire::CdrBig);
    pos_ += 4;
    return value;
}

std::string WireReader::string(const char* what) {
    const uint32_t length = u32(what);
    need(length, what);
    const char* text = reinterpret_cast<const char*>(data_ + pos_);
    pos_ += length;
    if (!isCdr(wire_)) return std::string(text, length);
    if (length == 0 || text[length - 1] != '\0')
        fail(std::string(what) + " is a CDR string without its terminating NUL");
    return std::string(text, length - 1);
}

const uint8_t* WireReader::bytes(size_t& count, const char* what) {
    count = this->count(1, what);
    const uint8_t* start = data_ + pos_;
    pos_ += count;
    return start;
}

uint32_t WireReader::count(size_t minElementSize, const char* what) {
    const uint32_t n = u32(what);
    if (minElementSize > 0 && n > (size_ - pos_) / minElementSize)
        fail(std::string(what) + " claims " + std::to_string(n) + " elements, more than the " +
             std::to_string(size_ - pos_) + " bytes left can hold");
    return n;
}

uint8_t WireReader::finish() {
    const size_t left = size_ - pos_;
    bool zeros = true;
    for (size_t i = pos_; i < size_; ++i) zeros = zeros && data_[i] == 0;
    if (left > 3 || !zeros || (left > 0 && !isCdr(wire_)))
        fail(std::to_string(left) + " bytes follow the last field");
    return uint8_t(left);
}

WireWriter::WireWriter(Wire wire, uint16_t cdrOptions, size_t reserve) : wire_(wire) {
    out_.reserve(reserve + 64);
    if (!isCdr(wire)) return;
    out_.push_back(0);
    out_.push_back(wire == Wire::CdrLittle ? 1 : 0);
    out_.push_back(uint8_t(cdrOptions >> 8));
    out_.push_back(uint8_t(cdrOptions));
}

void WireWriter::align(size_t size) {
    if (!isCdr(wire_)) return;
    while ((out_.size() - 4) % size != 0) out_.push_back(0);
}

namespace {

void putU32(Wire wire, uint32_t value, uint8_t* b) {
    if (wire == Wire::CdrBig) {
        b[0] = uint8_t(value >> 24), b[1] = uint8_t(value >> 16), b[2] = uint8_t(value >> 8);
        b[3] = uint8_t(value);
    } else {
        b[0] = uint8_t(value), b[1] = uint8_t(value >> 8), b[2] = uint8_t(value >> 16);
        b[3] = uint8_t(value >> 24);
    }
}

}  // namespace

void WireWriter::u32(uint32_t value) {
    align(4);
    uint8_t b[4];
    putU32(wire_, value, b);
    out_.insert(out_.end(), b, b + 4);
}

size_t WireWriter::beginBytes() {
    u32(0);
    return out_.size() - 4;
}

void WireWriter::endBytes(size_t lengthAt) {
    const size_t size = out_.size() - lengthAt - 4;
    if (size > UINT32_MAX)
        throw Error("an array of " + std::to_string(size) +
                    " bytes, more than a message's array holds");
    putU32(wire_, uint32_t(size), out_.data() + lengthAt);
}

void WireWriter::string(const std::string& value) {
    const bool cdr = isCdr(wire_);
    u32(uint32_t(value.size() + (cdr ? 1 : 0)));
    out_.insert(out_.end(), value.begin(), value.end());
    if (cdr) out_.push_back(0);
}

void WireWriter::bytes(const uint8_t* data, size_t size) {
    u32(uint32_t(size));
    out_.insert(out_.end(), data, data + size);
}

size_t WireWriter::zeroBytes(size_t size) {
    u32(uint32_t(size));
    const size_t at = out_.size();
    out_.resize(at + size);
    return at;
}

}  // namespace zul::ros

// The two serialisations of ROS messages, read and written field by field: ROS 1's (little-endian,
// packed, strings without a terminator) and ROS 2's CDR (a 4-byte encapsulation header that names
// the byte order, then every primitive aligned to its size counted from after that header, strings
// with a terminating NUL counted in their length).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ros_error.h"

namespace zul::ros {

// How a message is serialised.
enum class Wire : uint8_t {
    Ros1 = 0,       // ROS 1, little-endian
    CdrLittle = 1,  // ROS 2 CDR, encapsulation 00 01
    CdrBig = 2,     // ROS 2 CDR, encapsulation 00 00
};

// The family a caller names; the CDR byte order comes from the message itself.
enum class Serialization : uint8_t { Ros1 = 0, Ros2 = 1 };

inline bool isCdr(Wire wire) { return wire != Wire::Ros1; }

// Reads primitives from a serialised message; every read past the end throws an Error that names
// `what` and the byte offset.
class WireReader {
public:
    // Reads the CDR encapsulation header for Serialization::Ros2.
    WireReader(const uint8_t* bytes, size_t size, Serialization family, const char* message);

    Wire wire() const { return wire_; }
    uint16_t cdrOptions() const { return cdrOptions_; }
    uint8_t u8(const char* what);
    uint32_t u32(const char* what);
    std::string string(const char* what);
    // An array of bytes: a u32 count, then the bytes (pointed to, not copied).
    const uint8_t* bytes(size_t& count, const char* what);
    // A u32 element count, checked against the bytes left at `minElementSize` each.
    uint32_t count(size_t minElementSize, const char* what);
    // After the last field: nothing may follow but up to 3 zero bytes of CDR padding, whose number
    // is handed back.
    uint8_t finish();

private:
    void align(size_t size);
    void need(size_t size, const char* what);
    [[noreturn]] void fail(const std::string& text) const;

    const uint8_t* data_;
    size_t size_, pos_ = 0, origin_ = 0;
    Wire wire_ = Wire::Ros1;
    uint16_t cdrOptions_ = 0;
    const char* message_;
};

// Writes primitives in one serialisation.
class WireWriter {
public:
    WireWriter(Wire wire, uint16_t cdrOptions, size_t reserve);

    void u8(uint8_t value) { out_.push_back(value); }
    void u32(uint32_t value);
    void string(const std::string& value);
    void bytes(const uint8_t* data, size_t size);
    // An array of `size` zero bytes, to be filled in place: returns their offset in the output.
    size_t zeroBytes(size_t size);
    // An array whose bytes the caller appends to output() and whose length endBytes() then
    // writes: returns where the length goes.
    size_t beginBytes();
    void endBytes(size_t lengthAt);
    std::vector<uint8_t>& output() { return out_; }
    // Trailing zero bytes, as the message came with them.
    void pad(uint8_t count) { out_.insert(out_.end(), count, 0); }
    std::vector<uint8_t> take() { return std::move(out_); }

private:
    void align(size_t size);

    std::vector<uint8_t> out_;
    Wire wire_;
};

}  // namespace zul::ros

// The fields of the stream's points that the stream lacks, in the companion (zul_companion.h): one
// column a value of every record byte range that is not in the stream (a field of count N gives N
// columns), each chunk's values in the chunk's stored order, with each point's message index as
// the companion's order (which lets it code a column in message order where that is smaller).
// The stream and the companion travel as the companion's one blob.
#pragma once

#include <zul_companion.h>

#include <cstdint>
#include <string>
#include <vector>

#include "cloud_layout.h"
#include "cloud_message.h"

namespace zul::ros {

// One companion column: a value of a record's byte range.
struct CompanionField {
    std::string name;
    zul_FieldType type;
    uint32_t offset;  // in the record
    uint32_t width;   // bytes of a value
};

// The columns a layout gives, in order, with names the companion takes (unique, at most 47
// bytes): the field's name, NAME[k] for value k of a field of several, padding@OFFSET; a name that
// is empty, too long, already taken or not of printable ASCII becomes #R.K (range R, value K),
// with '_' appended while that is taken.
std::vector<CompanionField> companionFields(const CloudLayout& layout);

// Writes the companion while the stream's chunks are made.
class CompanionWriter {
public:
    CompanionWriter(const CloudLayout& layout, const uint8_t* streamHead, size_t headSize);
    // The record and the message index of each of a chunk's points in stored order, and the
    // chunk's bytes as the encoder gave them.
    void chunk(const std::vector<const uint8_t*>& records, const std::vector<uint64_t>& indices,
               const uint8_t* bytes, size_t size);
    const std::vector<CompanionField>& fields() const { return fields_; }
    // Column `f` takes its values from `values` (every message point's, little-endian, in message
    // order, kept by the caller until the last chunk) instead of the records.
    void takeValues(size_t f, const uint8_t* values) { sources_[f] = values; }
    // Finishes the companion: returns the size of the one blob of it and `stream` (the stream
    // whose chunks were given), which appendBlob() then appends to `out`.
    size_t finish(const std::vector<uint8_t>& stream);
    void appendBlob(const std::vector<uint8_t>& stream, std::vector<uint8_t>& out) const;

private:
    std::vector<CompanionField> fields_;
    std::vector<const uint8_t*> sources_;  // a column's values by message index, or null
    bool bigEndian_;
    // Closed also when the constructor throws.
    struct Handle {
        zul_xout_Writer value = nullptr;
        ~Handle() { zul_xout_close(&value); }
    } handle_;
    zul_xout_Writer& writer_ = handle_.value;
    int64_t chunks_ = 0;
    std::vector<uint8_t> values_;
    const void* companion_ = nullptr;  // the finished companion's bytes, the writer's
    size_t companionSize_ = 0, blobSize_ = 0;
};

// Reads the companion of a blob's stream.
class CompanionColumnReader {
public:
    CompanionColumnReader(const CloudLayout& layout, const uint8_t* companion, size_t size,
                          const uint8_t* stream, size_t streamSize, size_t chunks);
    // Reads chunk `chunk` of `n` points: `order` gets each stored point's message index;
    // place() then writes their field values.
    void readChunk(int64_t chunk, uint32_t n, std::vector<uint64_t>& order);
    // Writes the field values of each stored point of the last chunk read into its record
    // (`records`, one a point in stored order), whose bytes must be zero: a column of zeros is
    // left out.
    void place(uint8_t* const* records) const;

private:
    std::vector<CompanionField> fields_;
    bool bigEndian_;
    // Closed also when the constructor throws.
    struct Handle {
        zul_xin_Reader value = nullptr;
        ~Handle() { zul_xin_close(&value); }
    } handle_;
    zul_xin_Reader& reader_ = handle_.value;
    std::vector<std::vector<uint8_t>> values_;
    uint32_t readPoints_ = 0;  // of the last chunk read
};

}  // namespace zul::ros

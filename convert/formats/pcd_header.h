// The text header of a PCD file: its fields with their sizes, types and counts, the number of
// points and the encoding of the data that follows.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "formats/byte_input.h"

namespace zulformats {

struct PcdField {
    std::string name;
    int size = 4;       // bytes of one value: 1, 2, 4 or 8
    char type = 'F';    // 'F' float, 'U' unsigned, 'I' signed
    int count = 1;      // values of the field a point
    size_t offset = 0;  // byte offset in a binary record
    size_t column = 0;  // index of its first value in an ascii line
};

enum class PcdData { Ascii, Binary, BinaryCompressed };

struct PcdHeader {
    std::vector<PcdField> fields;
    uint64_t points = 0;
    uint64_t width = 0, height = 1;  // height above 1: an organised cloud
    bool customViewpoint = false;    // a VIEWPOINT other than the identity
    PcdData data = PcdData::Ascii;
    size_t recordSize = 0;
    size_t valuesPerPoint = 0;

    // The field of that name, or null.
    const PcdField* find(const std::string& name) const;
};

// Reads the header up to and including its DATA line; throws FormatError for what is missing,
// inconsistent or not supported.
PcdHeader readPcdHeader(ByteInput& in);

// The value of one field value at `bytes`, as the field's size and type say, in little-endian
// order.
double pcdValue(const PcdField& field, const unsigned char* bytes);

}  // namespace zulformats

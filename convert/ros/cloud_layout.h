// The record layout of a PointCloud2, checked, and the role of every byte of a point record: the
// position fields, colour and intensity that the stream holds exactly, and the byte ranges that go
// into columns (every other field, the colour's fourth byte, the padding between fields).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cloud_message.h"

namespace zul::ros {

enum DataType : uint8_t {
    kInt8 = 1,
    kUint8 = 2,
    kInt16 = 3,
    kUint16 = 4,
    kInt32 = 5,
    kUint32 = 6,
    kFloat32 = 7,
    kFloat64 = 8
};

// Bytes of one value of a datatype, 0 for an unknown one.
int datatypeSize(uint8_t datatype);

// A byte range of the point record that goes into a column, with the datatype its values are
// coded by (kUint8 for padding, whose bytes are kept as they are).
struct ColumnRange {
    std::string name;  // the field's name, "padding@OFFSET" for bytes no field covers,
                       // "NAME.alpha" for the fourth byte of a packed colour
    uint32_t offset = 0;
    uint32_t valueSize = 1;  // bytes of one value
    uint32_t count = 1;      // values a point
    uint8_t datatype = kUint8;
    bool padding = false;
};

// A field the stream holds, by its place in the record.
struct StreamField {
    int field = -1;  // index into fields, -1 if absent
    uint32_t offset = 0;
    uint8_t datatype = 0;
    const char* role = "";  // "x", "y", "z", "colour", "intensity"
};

struct CloudLayout {
    uint64_t points = 0;       // height x width
    uint64_t recordBytes = 0;  // width x point_step, the bytes of one row's points
    bool bigEndian = false;
    bool hasPositions = false;  // x, y, z are FLOAT32 or FLOAT64, one value each
    StreamField position[3];
    StreamField color;                 // rgb or rgba, 4 bytes, one value: its low three bytes
    StreamField intensity;             // any numeric datatype, one value, if every value is exact
    std::vector<ColumnRange> columns;  // in record order
};

// Checks the fields against point_step, row_step and the data size (`dataSize`) and lays the record
// out; throws Error naming the field or size that is wrong. `intensityCandidate` false keeps the
// intensity field in a column whatever its values.
CloudLayout layOutCloud(const CloudDescription& cloud, uint64_t dataSize, bool intensityCandidate);

}  // namespace zul::ros

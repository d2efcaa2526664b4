// The fixed numbers of LAS that its reader and writer share.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace zulformats {

// The public header of LAS 1.0 to 1.2, and the one of 1.4 with its 64-bit counts.
constexpr size_t kLas12HeaderSize = 227;
constexpr size_t kLas14HeaderSize = 375;

// Smallest record of each point format 0 to 10.
constexpr size_t kLasRecordSize[11] = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};

// Where 16-bit red, green and blue start in a record, or 0 for formats without colour.
constexpr int kLasColorOffset[11] = {0, 0, 20, 28, 0, 28, 0, 30, 30, 0, 30};

// A field of a point record that a zul stream has no place for.
struct LasField {
    const char* name;
    size_t offset, size;
};

// The fields of point format `format` that a zul stream leaves out, with the record's extra bytes
// past the format's own.
inline std::vector<LasField> lasDroppedFields(int format, size_t recordLength) {
    std::vector<LasField> fields;
    if (format <= 5) {
        fields = {{"return numbers", 14, 1},
                  {"classification", 15, 1},
                  {"scan angle", 16, 1},
                  {"user data", 17, 1},
                  {"point source ID", 18, 2}};
        if (format == 1 || format >= 3) fields.push_back({"GPS time", 20, 8});
        if (format >= 4) fields.push_back({"wave packets", format == 4 ? 28u : 34u, 29});
    } else {
        fields = {{"return numbers", 14, 1}, {"classification flags", 15, 1},
                  {"classification", 16, 1}, {"user data", 17, 1},
                  {"scan angle", 18, 2},     {"point source ID", 20, 2},
                  {"GPS time", 22, 8}};
        if (format == 8 || format == 10) fields.push_back({"near infrared", 36, 2});
        if (format >= 9) fields.push_back({"wave packets", format == 9 ? 30u : 38u, 29});
    }
    if (recordLength > kLasRecordSize[format]) {
        fields.push_back(
            {"extra bytes", kLasRecordSize[format], recordLength - kLasRecordSize[format]});
    }
    return fields;
}

}  // namespace zulformats

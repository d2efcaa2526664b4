#include "commands/companion_las.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "formats/byte_input.h"
#include "formats/las_records.h"

namespace zulconvert {

using zulformats::loadLittle;

bool parseLasHead(const unsigned char* bytes, size_t size, LasHead& head, std::string& problem) {
    if (size < zulformats::kLas12HeaderSize || std::memcmp(bytes, "LASF", 4) != 0) {
        problem = "not a LAS header";
        return false;
    }
    head.minor = bytes[25];
    head.headerSize = loadLittle<uint16_t>(bytes + 94);
    head.dataOffset = loadLittle<uint32_t>(bytes + 96);
    head.pointFormat = bytes[104];
    head.recordLength = loadLittle<uint16_t>(bytes + 105);
    head.count = loadLittle<uint32_t>(bytes + 107);
    if (bytes[24] != 1 || head.minor > 4 || head.pointFormat > 10 ||
        head.headerSize < zulformats::kLas12HeaderSize || head.dataOffset < head.headerSize ||
        head.recordLength < zulformats::kLasRecordSize[head.pointFormat]) {
        problem = "a LAS header the tool does not read";
        return false;
    }
    if (head.minor >= 4 && head.headerSize >= zulformats::kLas14HeaderSize &&
        size >= zulformats::kLas14HeaderSize) {
        const uint64_t count64 = loadLittle<uint64_t>(bytes + 247);
        if (count64 != 0) head.count = count64;
    }
    for (int axis = 0; axis < 3; ++axis) {
        head.scale[axis] = loadLittle<double>(bytes + 131 + 8 * axis);
        head.offset[axis] = loadLittle<double>(bytes + 155 + 8 * axis);
    }
    head.colorOffset = zulformats::kLasColorOffset[head.pointFormat];
    return true;
}

std::vector<LasColumn> lasColumns(int format, size_t recordLength) {
    std::vector<LasColumn> columns;
    const auto wave = [&](size_t at) {
        columns.push_back({"wavepacket_index", zul_FIELD_U8, 1, at});
        columns.push_back({"wavepacket_offset", zul_FIELD_U64, 8, at + 1});
        columns.push_back({"wavepacket_size", zul_FIELD_U32, 4, at + 9});
        columns.push_back({"return_point_wave_location", zul_FIELD_F32, 4, at + 13});
        columns.push_back({"x_t", zul_FIELD_F32, 4, at + 17});
        columns.push_back({"y_t", zul_FIELD_F32, 4, at + 21});
        columns.push_back({"z_t", zul_FIELD_F32, 4, at + 25});
    };
    if (format <= 5) {
        columns = {{"bit_fields", zul_FIELD_U8, 1, 14},
                   {"raw_classification", zul_FIELD_U8, 1, 15},
                   {"scan_angle_rank", zul_FIELD_I8, 1, 16},
                   {"user_data", zul_FIELD_U8, 1, 17},
                   {"point_source_id", zul_FIELD_U16, 2, 18}};
        if (format == 1 || format >= 3) columns.push_back({"gps_time", zul_FIELD_F64, 8, 20});
        if (format == 4) wave(28);
        if (format == 5) wave(34);
    } else {
        columns = {
            {"bit_fields", zul_FIELD_U8, 1, 14},     {"classification_flags", zul_FIELD_U8, 1, 15},
            {"classification", zul_FIELD_U8, 1, 16}, {"user_data", zul_FIELD_U8, 1, 17},
            {"scan_angle", zul_FIELD_I16, 2, 18},    {"point_source_id", zul_FIELD_U16, 2, 20},
            {"gps_time", zul_FIELD_F64, 8, 22}};
        if (format == 8 || format == 10) columns.push_back({"nir", zul_FIELD_U16, 2, 36});
        if (format == 9) wave(30);
        if (format == 10) wave(38);
    }
    const size_t own = zulformats::kLasRecordSize[format];
    if (recordLength > own) {
        columns.push_back(
            {"extra_bytes", zul_FIELD_RAW, static_cast<int>(recordLength - own), own});
    }
    return columns;
}

const char* const kLasResidualNames[7] = {
    "X_residual", "Y_residual", "Z_residual", "intensity_residual",
    "red_low",    "green_low",  "blue_low"};

}  // namespace zulconvert

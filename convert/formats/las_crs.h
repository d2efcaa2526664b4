// The variable-length records of a LAS file, and the coordinate reference system they carry: WKT
// (record 2112) or GeoTIFF keys (34735) under the user "LASF_Projection".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "formats/byte_input.h"
#include "formats/byte_output.h"

namespace zulformats {

struct LasVlr {
    std::string user, description;
    uint16_t record = 0;
    std::vector<unsigned char> data;
};

constexpr size_t kLasVlrHeaderSize = 54;

// Reads `count` records from `in`'s position; throws FormatError if one runs past `end`.
std::vector<LasVlr> readLasVlrs(ByteInput& in, uint32_t count, uint64_t end);
void writeLasVlr(ByteOutput& out, const LasVlr& vlr);

bool isCrsVlr(const LasVlr& vlr);

// The system the records give, as PROJ reads it ("EPSG:2903+5103", or WKT); empty if they give
// none. `problem` says what could not be read (user-defined GeoTIFF keys, say).
std::string crsOfVlrs(const std::vector<LasVlr>& vlrs, std::string& problem);

// The records that carry `crs` in a LAS file: a WKT record for LAS 1.4, GeoTIFF keys (by EPSG
// code) for LAS 1.2. Throws FormatError naming `path` if PROJ cannot express it so.
std::vector<LasVlr> crsVlrs(const std::string& crs, bool wkt, const std::string& path);

}  // namespace zulformats

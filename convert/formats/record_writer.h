// The data of a PCD or PLY file from whole records (RecordLayout: every field little-endian), in
// the layout's encoding: text lines, binary records in either byte order, or a PCD's LZF block
// of fields column after column.
#pragma once

#include <cstdint>
#include <string>

#include "formats/byte_output.h"
#include "formats/cloud.h"

namespace zulformats {

// Writes `count` records at `records` to `out`; throws FormatError naming `path` for an encoding
// the format has not or a block LZF cannot compress.
void writeRecordData(ByteOutput& out, const std::string& path, Format format,
                     const RecordLayout& layout, const unsigned char* records, uint64_t count);

// The header text with its point counts set to `count` (a PCD file's WIDTH, HEIGHT 1 and POINTS,
// a PLY file's vertex element) unless it is -1, for an output of fewer points than the input
// had, and its encoding (a PCD file's DATA, a PLY file's format) set to `encoding` unless empty.
std::string rewriteHeader(const std::string& header, Format format, int64_t count,
                          const std::string& encoding);

}  // namespace zulformats

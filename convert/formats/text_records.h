// A text file (XYZ, CSV) written back from its records (text_reader.cpp: a line's values as
// float64 fields, whole-number columns as int64): one line a record, its values in the file's
// column order, separated as the file's encoding word says.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "formats/byte_output.h"
#include "formats/cloud.h"

namespace zulformats {

// How a column's values are spelled: the shortest decimal that reads back to the same double
// (or the int64 as it is), with `decimals` decimals (a position the stream rounded to its step)
// or as the shortest decimal of a float (a normal the stream rounded).
enum class TextSpelling { Exact, Decimals, Float };

// Writes `count` records at `records`, `spelling` one a field of the layout, each line ending
// in `lineEnd` ("\n" or "\r\n"); throws FormatError
// naming `path` for an encoding word that is not one ("space", "tab", "comma", "semicolon",
// "semicolon decimal-comma").
void writeTextRecords(ByteOutput& out, const std::string& path, const RecordLayout& layout,
                      const std::vector<TextSpelling>& spelling, int decimals,
                      const unsigned char* records, uint64_t count, const char* lineEnd);

// `header` with its first line that is neither blank nor a comment (a .pts file's point count)
// set to `count`.
std::string recountTextHeader(const std::string& header, uint64_t count);

}  // namespace zulformats

// The fixed numbers of LAS that its reader and writer share.
#pragma once

#include <cstddef>

namespace zultool {

// The public header of LAS 1.0 to 1.2, and the one of 1.4 with its 64-bit counts.
constexpr size_t kLas12HeaderSize = 227;
constexpr size_t kLas14HeaderSize = 375;

// Smallest record of each point format 0 to 10.
constexpr size_t kLasRecordSize[11] = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};

// Where 16-bit red, green and blue start in a record, or 0 for formats without colour.
constexpr int kLasColorOffset[11] = {0, 0, 20, 28, 0, 28, 0, 30, 30, 0, 30};

}  // namespace zultool

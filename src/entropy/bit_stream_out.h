// A bit cursor that appends to a growable byte vector owned by the caller. The vector's length is
// a capacity that runs ahead of the data: the valid bytes are those before bytePosition once the
// writer is aligned. The first touch of a byte stores instead of OR-ing, so stale bytes in a
// reused vector do no harm and bits no field reached are 0.
#pragma once

#include <cstdint>
#include <vector>

#include "zul.h"

namespace zullib {

class ZUL_API BitStreamOut {
public:
    BitStreamOut(std::vector<unsigned char>& buffer, int64_t bytePosition);

    // Appends the low `numBits` bits of `value`, least significant first; higher bits of `value`
    // are ignored. 0 bits change nothing, not even the vector.
    void writeBits(uint64_t value, int numBits);
    // Byte-aligned writes look only at bytePosition, never at bitPosition; little-endian.
    void writeByteAlignedUInt8(uint8_t value);
    void writeByteAlignedUInt32(uint32_t value);
    void writeByteAlignedUInt64(uint64_t value);
    void writeByteAligned(const unsigned char* bytes, int numBytes);
    // Closes a partly filled byte; at a byte boundary it does nothing (no pad byte).
    void alignToByte();

    std::vector<unsigned char>& buffer;
    int64_t bytePosition;
    int bitPosition;
};

}  // namespace zullib

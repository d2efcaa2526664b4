// A bit cursor over a byte array that the caller owns. It never fails loudly: a read that cannot
// be satisfied gives 0, consumes nothing and sets a sticky flag, which a decoder looks at once,
// at the end of a stream. Fields go least significant bit first, bytes are little-endian.
#pragma once

#include <cstdint>

#include "zul.h"

namespace zullib {

class ZUL_API BitStreamIn {
public:
    // `size` is the index one past the last readable byte (an end, not a count). The flag is set
    // at once if `bytePosition` is greater than `size`.
    BitStreamIn(const void* data, int64_t size, int64_t bytePosition);

    // The next `numBits` bits as one field. 0 bits give 0 without looking at anything. Up to 64
    // bits are returned; a wider read (only a corrupt stream asks for one) consumes all its bits
    // and returns its low 64 bits.
    uint64_t readBits(int numBits);
    // Byte-aligned reads look only at bytePosition, never at bitPosition.
    void readByteAligned(unsigned char* destination, int numBytes);
    uint8_t readByteAlignedUInt8();
    uint16_t readByteAlignedUInt16();
    uint32_t readByteAlignedUInt32();
    uint64_t readByteAlignedUInt64();
    // Skips the rest of a partly consumed byte; flags a position past the end.
    void alignToByte();

    const unsigned char* data;
    int64_t size;
    int64_t bytePosition;
    int bitPosition;
    bool errorFlag;
};

}  // namespace zullib

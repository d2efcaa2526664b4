#include "entropy/bit_stream_in.h"

#include <cstring>

#include "frame/stored_bytes.h"

namespace zullib {

namespace {
// True if `numBits` more bits lie inside [0, size) and the flag is clear; a read that does not
// fit sets the flag. 128-bit arithmetic: no position or size a caller passes can overflow it, and
// a negative start is as unreadable as one past the end.
bool reserveBits(BitStreamIn& in, int64_t numBits) {
    const __int128 start = static_cast<__int128>(in.bytePosition) * 8 + in.bitPosition;
    if (in.bytePosition < 0 || start + numBits > static_cast<__int128>(in.size) * 8) {
        in.errorFlag = true;
        return false;
    }
    return !in.errorFlag;
}

// The same for `numBytes` whole bytes from the start of the current byte: byte-aligned reads look
// at bytePosition only.
bool reserveBytes(BitStreamIn& in, int64_t numBytes) {
    if (in.bytePosition < 0 || numBytes < 0 || in.bytePosition > in.size ||
        numBytes > in.size - in.bytePosition) {
        in.errorFlag = true;
        return false;
    }
    return !in.errorFlag;
}

uint64_t readLittleEndian(BitStreamIn& in, int numBytes) {
    unsigned char bytes[8];
    in.readByteAligned(bytes, numBytes);
    return in.errorFlag ? 0 : loadLE(bytes, numBytes);
}
}  // namespace

BitStreamIn::BitStreamIn(const void* data, int64_t size, int64_t bytePosition)
    : data(static_cast<const unsigned char*>(data)),
      size(size),
      bytePosition(bytePosition),
      bitPosition(0),
      errorFlag(bytePosition > size) {}

uint64_t BitStreamIn::readBits(int numBits) {
    if (numBits <= 0) return 0;
    // Fast path: with eight readable bytes at the cursor, a field of up to 56 bits lies inside
    // one little-endian word, whatever the bit position (at most 7 + 56 bits are spanned).
    if (numBits <= 56 && !errorFlag && bytePosition >= 0 && size - bytePosition >= 8) {
        const uint64_t word = loadLE(data + bytePosition, 8);
        const uint64_t result = (word >> bitPosition) & ((uint64_t{1} << numBits) - 1);
        const int end = bitPosition + numBits;
        bytePosition += end >> 3;
        bitPosition = end & 7;
        return result;
    }
    if (!reserveBits(*this, numBits)) return 0;
    const int valueBits = numBits < 64 ? numBits : 64;
    uint64_t result = 0;
    int gathered = 0;
    while (gathered < valueBits) {
        int width = 8 - bitPosition;
        if (width > valueBits - gathered) width = valueBits - gathered;
        const uint64_t piece = (data[bytePosition] >> bitPosition) & ((1u << width) - 1);
        result |= piece << gathered;
        gathered += width;
        bitPosition += width;
        if (bitPosition == 8) {
            bitPosition = 0;
            ++bytePosition;
        }
    }
    // Bits beyond 64 are consumed without being looked at; reserveBits has checked they exist.
    const int64_t skipped = static_cast<int64_t>(numBits) - valueBits + bitPosition;
    bytePosition += skipped / 8;
    bitPosition = static_cast<int>(skipped % 8);
    return result;
}

void BitStreamIn::readByteAligned(unsigned char* destination, int numBytes) {
    if (!reserveBytes(*this, numBytes) || numBytes == 0) return;
    std::memcpy(destination, data + bytePosition, static_cast<size_t>(numBytes));
    bytePosition += numBytes;
}

uint8_t BitStreamIn::readByteAlignedUInt8() {
    return static_cast<uint8_t>(readLittleEndian(*this, 1));
}

uint16_t BitStreamIn::readByteAlignedUInt16() {
    return static_cast<uint16_t>(readLittleEndian(*this, 2));
}

uint32_t BitStreamIn::readByteAlignedUInt32() {
    return static_cast<uint32_t>(readLittleEndian(*this, 4));
}

uint64_t BitStreamIn::readByteAlignedUInt64() { return readLittleEndian(*this, 8); }

void BitStreamIn::alignToByte() {
    if (bitPosition > 0) {
        bitPosition = 0;
        ++bytePosition;
    }
    if (bytePosition > size) errorFlag = true;
}

}  // namespace zullib

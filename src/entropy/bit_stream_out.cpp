#include "entropy/bit_stream_out.h"

#include <cstring>

#include "frame/stored_bytes.h"

namespace zullib {

namespace {
// Grows the vector to twice what is needed whenever it is too short, so resizing stays rare.
void ensureRoom(std::vector<unsigned char>& buffer, int64_t need) {
    if (static_cast<int64_t>(buffer.size()) < need) buffer.resize(static_cast<size_t>(2 * need));
}

void writeLittleEndian(BitStreamOut& out, uint64_t value, int numBytes) {
    ensureRoom(out.buffer, out.bytePosition + numBytes + 2);
    storeLE(out.buffer.data() + out.bytePosition, value, numBytes);
    out.bytePosition += numBytes;
}
}  // namespace

BitStreamOut::BitStreamOut(std::vector<unsigned char>& buffer, int64_t bytePosition)
    : buffer(buffer), bytePosition(bytePosition), bitPosition(0) {
    ensureRoom(buffer, bytePosition + 1);
}

void BitStreamOut::writeBits(uint64_t value, int numBits) {
    if (numBits <= 0) return;
    ensureRoom(buffer, bytePosition + 1 + (static_cast<int64_t>(numBits) + 7) / 8);
    if (numBits <= 56 && static_cast<int64_t>(buffer.size()) >= bytePosition + 8) {
        // The whole field in one 8-byte store: the bits already in the current byte are kept, the
        // rest of the eight bytes lies beyond the data, where the next touch stores again.
        unsigned char* at = buffer.data() + bytePosition;
        const uint64_t kept = bitPosition > 0 ? at[0] & ((1u << bitPosition) - 1) : 0;
        const uint64_t field = value & ((uint64_t{1} << numBits) - 1);
        storeLE(at, kept | (field << bitPosition), 8);
        const int end = bitPosition + numBits;
        bytePosition += end >> 3;
        bitPosition = end & 7;
        return;
    }
    int written = 0;
    while (written < numBits) {
        int width = 8 - bitPosition;
        if (width > numBits - written) width = numBits - written;
        // Bits of a field wider than 64 beyond bit 63 are zero.
        const uint64_t bits = written < 64 ? value >> written : 0;
        const unsigned char piece =
            static_cast<unsigned char>((bits & ((1u << width) - 1)) << bitPosition);
        if (bitPosition == 0)
            buffer[bytePosition] = piece;
        else
            buffer[bytePosition] |= piece;
        written += width;
        bitPosition += width;
        if (bitPosition > 7) {
            bitPosition = 0;
            ++bytePosition;
        }
    }
}

void BitStreamOut::writeByteAlignedUInt8(uint8_t value) { writeLittleEndian(*this, value, 1); }

void BitStreamOut::writeByteAlignedUInt32(uint32_t value) { writeLittleEndian(*this, value, 4); }

void BitStreamOut::writeByteAlignedUInt64(uint64_t value) { writeLittleEndian(*this, value, 8); }

void BitStreamOut::writeByteAligned(const unsigned char* bytes, int numBytes) {
    if (numBytes <= 0) return;
    ensureRoom(buffer, bytePosition + numBytes + 2);
    std::memcpy(buffer.data() + bytePosition, bytes, static_cast<size_t>(numBytes));
    bytePosition += numBytes;
}

void BitStreamOut::alignToByte() {
    if (bitPosition > 0) {
        ensureRoom(buffer, bytePosition + 2);
        bitPosition = 0;
        ++bytePosition;
    }
}

}  // namespace zullib

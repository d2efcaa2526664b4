// The fast writer of a stream body: bits gather in a 64-bit word and leave it as one unaligned
// 8-byte store per field, so no bit is handled on its own. It writes the same bytes as
// BitStreamOut: fields least significant bit first, bits no field reached are 0, and the bytes
// beyond the data are overwritten with zeros that the next field or stream replaces.
#pragma once

#include <cstdint>
#include <cstring>

#include "entropy/bit_stream_out.h"

namespace zullib {

class BitPacker {
public:
    // Bytes kept free behind the fields: every put() stores a whole 8-byte word at the cursor,
    // whose last full byte lies within the fields, so 8 would do; 16 leaves a word to spare.
    static constexpr int64_t kStoreReach = 16;

    // Takes over `out` at its byte position (which must be on a byte boundary) with room for
    // `maxBytes` more bytes of fields.
    BitPacker(BitStreamOut& out, int64_t maxBytes) : out_(out) {
        const int64_t need = out.bytePosition + maxBytes + kStoreReach;
        if (static_cast<int64_t>(out.buffer.size()) < need)
            out.buffer.resize(static_cast<size_t>(2 * need));
        at_ = out.buffer.data() + out.bytePosition;
    }

    // Appends the low `numBits` bits of `bits`, which must hold nothing above them; at most 56.
    void put(uint64_t bits, int numBits) {
        word_ |= bits << fill_;
        fill_ += numBits;
        store();
    }

    // Any width up to 64; higher bits of `value` are ignored.
    void putWide(uint64_t value, int numBits) {
        if (numBits > 32) {
            put(value & 0xFFFFFFFFu, 32);
            value >>= 32;
            numBits -= 32;
        }
        put(value & ((uint64_t{1} << numBits) - 1), numBits);
    }

    // Closes the last partly filled byte and hands the position back to `out`.
    void finish() {
        at_ += (fill_ + 7) >> 3;
        out_.bytePosition = at_ - out_.buffer.data();
        out_.bitPosition = 0;
    }

private:
    // The word goes out whole; the cursor advances over its complete bytes only.
    void store() {
        unsigned char bytes[8];
        for (int i = 0; i < 8; ++i) bytes[i] = static_cast<unsigned char>(word_ >> (8 * i));
        std::memcpy(at_, bytes, 8);
        at_ += fill_ >> 3;
        word_ >>= fill_ & ~7;
        fill_ &= 7;
    }

    BitStreamOut& out_;
    unsigned char* at_;
    uint64_t word_ = 0;
    int fill_ = 0;
};

}  // namespace zullib

// The fast reader of a stream body: fields come out of one unaligned 8-byte load each, and a
// prefix is counted with one count-trailing-ones rather than bit by bit. It trusts its caller to
// keep it inside the data (see room()); near the end of the data the caller reads with
// BitStreamIn, which checks every read. Both give the same fields.
#pragma once

#include <cstdint>
#include <cstring>

#include "entropy/bit_stream_in.h"

namespace zullib {

class BitUnpacker {
public:
    explicit BitUnpacker(BitStreamIn& in)
        : in_(in), data_(in.data), position_(in.bytePosition), bit_(in.bitPosition) {}

    // Whether at least `bytes` bytes lie between the cursor and the end of the data.
    bool room(int64_t bytes) const { return in_.size - position_ >= bytes; }

    // The number of one-bits before the first zero-bit, at most `limit`; consumes them and the
    // zero-bit, unless `limit` ones were found. Needs 9 bytes of room.
    int prefix(int limit) {
        const uint64_t ones = ~peek();
        int count = ones == 0 ? 64 : __builtin_ctzll(ones);
        if (count >= limit) {
            count = limit;
            skip(limit);
        } else {
            skip(count + 1);
        }
        return count;
    }

    // A field of up to 64 bits. Needs 17 bytes of room.
    uint64_t read(int numBits) {
        if (numBits <= 56) {
            const uint64_t field = numBits == 0 ? 0 : peek() & ((uint64_t{1} << numBits) - 1);
            skip(numBits);
            return field;
        }
        const uint64_t low = peek() & 0xFFFFFFFFu;
        skip(32);
        const int high = numBits - 32;
        const uint64_t top = peek() & (high == 32 ? 0xFFFFFFFFu : (uint64_t{1} << high) - 1);
        skip(high);
        return low | top << 32;
    }

    // The next 57 bits or more, without consuming them; then skip() what was used. Needs 8 bytes
    // of room.
    uint64_t peek() const {
        unsigned char bytes[8];
        std::memcpy(bytes, data_ + position_, 8);
        uint64_t word = 0;
        for (int i = 0; i < 8; ++i) word |= uint64_t{bytes[i]} << (8 * i);
        return word >> bit_;
    }
    void skip(int numBits) {
        const int end = bit_ + numBits;
        position_ += end >> 3;
        bit_ = end & 7;
    }

    // Hands the position back to the checked reader.
    void finish() {
        in_.bytePosition = position_;
        in_.bitPosition = bit_;
    }

private:
    BitStreamIn& in_;
    const unsigned char* data_;
    int64_t position_;
    int bit_;
};

}  // namespace zullib

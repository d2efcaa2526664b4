// The fast reader of a stream body. Bits wait in a 64-bit register that is topped up from one
// unaligned 8-byte load before each field, so a field costs a mask and a shift, and a prefix is
// counted with one count-trailing-ones rather than bit by bit. It trusts its caller to keep it
// inside the data (see room()); near the end of the data the caller reads with BitStreamIn,
// which checks every read. Both give the same fields and end at the same position.
#pragma once

#include <cstdint>
#include <cstring>

#include "entropy/bit_stream_in.h"
#include "frame/compiler.h"

namespace zullib {

// A value: a loop copies it into a local, steps with it, and stores it back, so that the
// register state is not reloaded after every byte stored to the records. The bytes a refill
// loads past the counted bits are the stream's own next bits, loaded again in the same place by
// the next refill.
class BitUnpacker {
public:
    // Bits a refill leaves in the register at least: it adds whole bytes to the 64-bit register,
    // which may still hold up to 7 bits of a byte, so 64 - 8 bits are always there.
    static constexpr int kRefilledBits = 56;
    // Bytes to keep between the codes a caller means to read and the end of the data. A refill
    // loads 8 bytes from where the register's bits end, up to 63 bits past the position, so it
    // touches at most 15 bytes past the last code's byte; 24 is the margin the fast paths have
    // always run and been sanitised with, a further 8-byte load to spare.
    static constexpr int64_t kLoadReach = 24;

    BitUnpacker() = default;
    // Starts at the reader's position; does nothing (and room() is false) within 8 bytes of the
    // end, before the start of the data or after a failed read.
    explicit BitUnpacker(const BitStreamIn& in)
        : data_(in.data), size_(in.size), next_(in.bytePosition) {
        started_ = !in.errorFlag && next_ >= 0 && in.size - next_ >= 8;
        if (!started_) return;
        refill();
        skip(in.bitPosition);
    }

    // Whether at least `bytes` bytes lie between the bytes already loaded and the end of the data.
    bool room(int64_t bytes) const { return started_ && size_ - next_ >= bytes; }

    // The number of one-bits before the first zero-bit, at most `limit` (at most 56); consumes
    // them and the zero-bit, unless `limit` ones were found. Needs 8 bytes of room.
    ZUL_ALWAYS_INLINE int prefix(int limit) {
        refill();
        const uint64_t zeros = ~buffer_;
        int count = zeros == 0 ? 64 : countTrailingZeros(zeros);
        if (count >= limit) {
            count = limit;
            skip(limit);
        } else {
            skip(count + 1);
        }
        return count;
    }

    // A field of up to 64 bits. Needs 16 bytes of room.
    ZUL_ALWAYS_INLINE uint64_t read(int numBits) {
        if (numBits > kRefilledBits) {
            const uint64_t low = readShort(32);
            return low | readShort(numBits - 32) << 32;
        }
        return readShort(numBits);
    }

    // At least the next 56 bits, without consuming them; then skip() what was used. Needs 8
    // bytes of room.
    ZUL_ALWAYS_INLINE uint64_t peek() {
        refill();
        return buffer_;
    }
    // The bits loaded by the last refill() or peek(), not topped up: for a caller that knows
    // they suffice.
    uint64_t buffered() const { return buffer_; }
    // How many of them belong to the position.
    int available() const { return count_; }
    // Tops the register up to 56 bits or more. Needs 8 bytes of room.
    ZUL_ALWAYS_INLINE void refill() {
        unsigned char bytes[8];
        std::memcpy(bytes, data_ + next_, 8);
        uint64_t word = 0;
        for (int i = 0; i < 8; ++i) word |= uint64_t{bytes[i]} << (8 * i);
        buffer_ |= word << count_;
        next_ += (63 - count_) >> 3;
        count_ |= kRefilledBits;
    }

    // At most what the last peek() showed.
    ZUL_ALWAYS_INLINE void skip(int numBits) {
        buffer_ >>= numBits;
        count_ -= numBits;
    }

    // Hands the position back to the checked reader.
    void finish(BitStreamIn& in) const {
        if (!started_) return;
        const int64_t bit = next_ * 8 - count_;
        in.bytePosition = bit >> 3;
        in.bitPosition = static_cast<int>(bit & 7);
    }

private:
    ZUL_ALWAYS_INLINE uint64_t readShort(int numBits) {
        refill();
        const uint64_t field = buffer_ & ((uint64_t{1} << numBits) - 1);
        skip(numBits);
        return field;
    }

    const unsigned char* data_ = nullptr;
    int64_t size_ = 0;
    int64_t next_ = 0;  // the first byte not yet loaded
    uint64_t buffer_ = 0;
    int count_ = 0;  // bits in the register that belong to the position
    bool started_ = false;
};

}  // namespace zullib

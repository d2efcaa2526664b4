#include "column_codec.h"

#include <zstd.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "format.h"

namespace zulx {

namespace {

template <typename U>
void transformAs(const uint8_t* in, uint8_t* out, int64_t count, uint8_t transform) {
    U previous = 0;
    for (int64_t i = 0; i < count; ++i) {
        const U value = load<U>(in + i * sizeof(U));
        store<U>(
            out + i * sizeof(U),
            static_cast<U>(transform == kTransformDelta ? value - previous : value ^ previous));
        previous = value;
    }
}

template <typename U>
void untransformAs(uint8_t* data, int64_t count, uint8_t transform) {
    U previous = 0;
    for (int64_t i = 0; i < count; ++i) {
        const U coded = load<U>(data + i * sizeof(U));
        previous =
            static_cast<U>(transform == kTransformDelta ? previous + coded : previous ^ coded);
        store<U>(data + i * sizeof(U), previous);
    }
}

void transform(const uint8_t* in, uint8_t* out, int64_t count, int32_t width, uint8_t how,
               bool inverse) {
    if (how == kTransformNone) {
        if (!inverse && count) std::memcpy(out, in, static_cast<size_t>(count) * width);
        return;
    }
    switch (width) {
        case 1:
            inverse ? untransformAs<uint8_t>(out, count, how)
                    : transformAs<uint8_t>(in, out, count, how);
            break;
        case 2:
            inverse ? untransformAs<uint16_t>(out, count, how)
                    : transformAs<uint16_t>(in, out, count, how);
            break;
        case 4:
            inverse ? untransformAs<uint32_t>(out, count, how)
                    : transformAs<uint32_t>(in, out, count, how);
            break;
        default:
            inverse ? untransformAs<uint64_t>(out, count, how)
                    : transformAs<uint64_t>(in, out, count, how);
            break;
    }
}

// Byte j of value i goes to plane j, at i; or back.
void planes(const uint8_t* in, uint8_t* out, int64_t count, int32_t width, bool inverse) {
    const size_t n = static_cast<size_t>(count), w = static_cast<size_t>(width);
    for (size_t j = 0; j < w; ++j)
        for (size_t i = 0; i < n; ++i) {
            if (inverse)
                out[i * w + j] = in[j * n + i];
            else
                out[j * n + i] = in[i * w + j];
        }
}

// The level every column is compressed at, and the values a coding is tried on before it codes
// them all (docs/companion.md gives the measurements).
constexpr int kLevel = 3;
constexpr int64_t kSampleValues = 2048;

}  // namespace

void encodeSegment(const void* values, int64_t count, int32_t width, uint8_t coding, int level,
                   std::vector<uint8_t>& out) {
    const size_t raw = static_cast<size_t>(count) * static_cast<size_t>(width);
    std::vector<uint8_t> a(raw), b;
    transform(static_cast<const uint8_t*>(values), a.data(), count, width, coding & kTransformMask,
              false);
    if (coding & kBytePlanes) {
        b.resize(raw);
        planes(a.data(), b.data(), count, width, false);
        a.swap(b);
    }
    const size_t at = out.size();
    out.resize(at + kSegmentHeaderSize);
    if (coding & kZstd) {
        const size_t bound = ZSTD_compressBound(raw);
        out.resize(at + kSegmentHeaderSize + bound);
        const size_t made =
            ZSTD_compress(out.data() + at + kSegmentHeaderSize, bound, a.data(), raw, level);
        if (ZSTD_isError(made)) throw std::bad_alloc();  // only a failed allocation errs here
        out.resize(at + kSegmentHeaderSize + made);
    } else {
        appendBytes(out, a.data(), raw);
    }
    out[at] = coding;
    out[at + 1] = out[at + 2] = out[at + 3] = 0;
    store<uint32_t>(out.data() + at + 4,
                    static_cast<uint32_t>(out.size() - at - kSegmentHeaderSize));
}

std::vector<uint32_t> inputOrderOf(const uint64_t* indices, int64_t count) {
    std::vector<uint32_t> positions(static_cast<size_t>(count));
    for (size_t i = 0; i < positions.size(); ++i) positions[i] = static_cast<uint32_t>(i);
    std::stable_sort(positions.begin(), positions.end(),
                     [indices](uint32_t a, uint32_t b) { return indices[a] < indices[b]; });
    return positions;
}

void encodeBestSegment(const void* values, int64_t count, int32_t width, int32_t type,
                       const std::vector<uint32_t>* inputOrder, std::vector<uint8_t>& out) {
    const size_t w = static_cast<size_t>(width);
    const uint8_t* stored = static_cast<const uint8_t*>(values);
    std::vector<uint8_t> permuted;
    if (inputOrder) {
        permuted.resize(static_cast<size_t>(count) * w);
        for (size_t k = 0; k < inputOrder->size(); ++k)
            std::memcpy(&permuted[k * w], stored + (*inputOrder)[k] * w, w);
    }
    // Every coding the type may use, tried on a sample of the first values; the winner codes
    // them all. A transform needs a typed field, planes more than one byte a value.
    const bool transforms = type != zul_FIELD_RAW;
    const int64_t sample = std::min<int64_t>(count, kSampleValues);
    // The two codings that make the fewest bytes of the sample code all values; the smaller
    // result is kept (a sample alone misjudges some columns).
    uint8_t first = kZstd, second = kZstd;
    size_t firstSize = SIZE_MAX, secondSize = SIZE_MAX;
    std::vector<uint8_t> trial;
    for (int order = 0; order < (inputOrder ? 2 : 1); ++order)
        for (uint8_t transform : {kTransformNone, kTransformDelta, kTransformXor})
            for (uint8_t planesFlag : {uint8_t{0}, uint8_t{kBytePlanes}}) {
                if ((transform != kTransformNone && !transforms) || (planesFlag && width == 1))
                    continue;
                const uint8_t coding = static_cast<uint8_t>(transform | planesFlag | kZstd |
                                                            (order ? kInputOrder : 0));
                trial.clear();
                encodeSegment(order ? permuted.data() : stored, sample, width, coding, kLevel,
                              trial);
                if (trial.size() < firstSize) {
                    second = first, secondSize = firstSize;
                    first = coding, firstSize = trial.size();
                } else if (trial.size() < secondSize) {
                    second = coding, secondSize = trial.size();
                }
            }
    std::vector<uint8_t> best;
    encodeSegment(stored, count, width, kTransformNone, 0, best);  // the values as they are
    for (uint8_t coding : {first, second}) {
        if (coding == second && (secondSize == SIZE_MAX || count == sample)) break;
        trial.clear();
        encodeSegment(coding & kInputOrder ? permuted.data() : stored, count, width, coding, kLevel,
                      trial);
        if (trial.size() < best.size()) best.swap(trial);
    }
    appendBytes(out, best.data(), best.size());
}

zul_Status decodeSegment(uint8_t coding, const uint8_t* stored, size_t storedSize, int64_t count,
                         int32_t width, const std::vector<uint32_t>* inputOrder, void* out) {
    if (coding & kInputOrder) {
        if (!inputOrder || inputOrder->size() != static_cast<size_t>(count))
            return zul_STATUS_CORRUPT_DATA;
        const size_t w = static_cast<size_t>(width);
        std::vector<uint8_t> permuted(static_cast<size_t>(count) * w);
        const zul_Status status = decodeSegment(static_cast<uint8_t>(coding & ~kInputOrder), stored,
                                                storedSize, count, width, nullptr, permuted.data());
        if (status != zul_STATUS_OK) return status;
        uint8_t* target = static_cast<uint8_t*>(out);
        for (size_t k = 0; k < inputOrder->size(); ++k)
            std::memcpy(target + (*inputOrder)[k] * w, &permuted[k * w], w);
        return zul_STATUS_OK;
    }
    if (coding & ~kCodingMask) return zul_STATUS_CORRUPT_DATA;
    const uint8_t how = coding & kTransformMask;
    if (how == kTransformMask) return zul_STATUS_CORRUPT_DATA;
    if (how != kTransformNone && width != 1 && width != 2 && width != 4 && width != 8)
        return zul_STATUS_CORRUPT_DATA;
    const size_t raw = static_cast<size_t>(count) * static_cast<size_t>(width);
    uint8_t* target = static_cast<uint8_t*>(out);
    // Planes are undone from a copy; everything else in place, in the caller's room.
    std::vector<uint8_t> copy;
    uint8_t* first = target;
    if (coding & kBytePlanes) {
        copy.resize(raw);
        first = copy.data();
    }
    if (coding & kZstd) {
        const unsigned long long declared = ZSTD_getFrameContentSize(stored, storedSize);
        if (declared != raw) return zul_STATUS_CORRUPT_DATA;
        const size_t made = ZSTD_decompress(first, raw, stored, storedSize);
        if (ZSTD_isError(made) || made != raw) return zul_STATUS_CORRUPT_DATA;
    } else {
        if (storedSize != raw) return zul_STATUS_CORRUPT_DATA;
        if (raw) std::memcpy(first, stored, raw);
    }
    if (coding & kBytePlanes) planes(copy.data(), target, count, width, true);
    transform(nullptr, target, count, width, how, true);
    return zul_STATUS_OK;
}

}  // namespace zulx

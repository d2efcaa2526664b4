#include "column_codec.h"

#include <zstd.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <numeric>

#include "format.h"

namespace zulx {

namespace {

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

// Undoes the difference or XOR of each value with the one before, in place.
void untransform(uint8_t* data, int64_t count, int32_t width, uint8_t how) {
    if (how == kTransformNone) return;
    switch (width) {
        case 1:
            return untransformAs<uint8_t>(data, count, how);
        case 2:
            return untransformAs<uint16_t>(data, count, how);
        case 4:
            return untransformAs<uint32_t>(data, count, how);
        default:
            return untransformAs<uint64_t>(data, count, how);
    }
}

// Eight 8-byte words as the rows of a matrix of bytes (byte c of a word: its bits 8c up), made
// its transpose: byte c of word r becomes byte r of word c, in three rounds of swapping blocks.
inline void transposeBytes(uint64_t v[8]) {
    constexpr uint64_t kHalves = 0x00000000FFFFFFFFull, kQuarters = 0x0000FFFF0000FFFFull,
                       kBytes = 0x00FF00FF00FF00FFull;
    for (size_t r = 0; r < 4; ++r) {
        const uint64_t t = ((v[r] >> 32) ^ v[r + 4]) & kHalves;
        v[r] ^= t << 32;
        v[r + 4] ^= t;
    }
    for (const size_t r : {0, 1, 4, 5}) {
        const uint64_t t = ((v[r] >> 16) ^ v[r + 2]) & kQuarters;
        v[r] ^= t << 16;
        v[r + 2] ^= t;
    }
    for (size_t r = 0; r < 8; r += 2) {
        const uint64_t t = ((v[r] >> 8) ^ v[r + 1]) & kBytes;
        v[r] ^= t << 8;
        v[r + 1] ^= t;
    }
}

// The writer's preparation in one pass: value i is value order[i] of `in` (or value i without an
// order), then its difference or XOR with the one before it (in that order), then its bytes go to
// the planes (byte j to plane j, at i) or stay together.
template <typename U, uint8_t How, bool Planes>
void prepareAs(const uint8_t* in, const uint32_t* order, size_t n, uint8_t* out) {
    constexpr size_t W = sizeof(U);
    U previous = 0;
    size_t i = 0;
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    if constexpr (Planes && W == 8) {
        // Eight values at a time: their bytes transposed in registers, a word to each plane.
        for (; i + 8 <= n; i += 8) {
            uint64_t v[8];
            for (size_t r = 0; r < 8; ++r) {
                const U value = load<U>(in + (order ? order[i + r] : i + r) * W);
                v[r] = How == kTransformDelta ? static_cast<U>(value - previous)
                       : How == kTransformXor ? static_cast<U>(value ^ previous)
                                              : value;
                previous = value;
            }
            transposeBytes(v);
            for (size_t j = 0; j < 8; ++j) store<uint64_t>(out + j * n + i, v[j]);
        }
    }
#endif
    for (; i < n; ++i) {
        const U value = load<U>(in + (order ? order[i] : i) * W);
        const U coded = How == kTransformDelta ? static_cast<U>(value - previous)
                        : How == kTransformXor ? static_cast<U>(value ^ previous)
                                               : value;
        previous = value;
        if (Planes) {
            uint8_t bytes[W];
            std::memcpy(bytes, &coded, W);
            for (size_t j = 0; j < W; ++j) out[j * n + i] = bytes[j];
        } else {
            store<U>(out + i * W, coded);
        }
    }
}

template <typename U>
void prepareWith(const uint8_t* in, const uint32_t* order, size_t n, uint8_t how, bool planes,
                 uint8_t* out) {
    if (how == kTransformDelta)
        planes ? prepareAs<U, kTransformDelta, true>(in, order, n, out)
               : prepareAs<U, kTransformDelta, false>(in, order, n, out);
    else if (how == kTransformXor)
        planes ? prepareAs<U, kTransformXor, true>(in, order, n, out)
               : prepareAs<U, kTransformXor, false>(in, order, n, out);
    else
        planes ? prepareAs<U, kTransformNone, true>(in, order, n, out)
               : prepareAs<U, kTransformNone, false>(in, order, n, out);
}

// Prepares `n` values of `width` bytes for zstd as `coding` says (the transform only for widths
// 1, 2, 4 and 8).
void prepare(const uint8_t* in, const uint32_t* order, size_t n, size_t width, uint8_t coding,
             uint8_t* out) {
    const uint8_t how = coding & kTransformMask;
    const bool planes = (coding & kBytePlanes) != 0;
    switch (width) {
        case 1:
            return prepareWith<uint8_t>(in, order, n, how, false, out);
        case 2:
            return prepareWith<uint16_t>(in, order, n, how, planes, out);
        case 4:
            return prepareWith<uint32_t>(in, order, n, how, planes, out);
        case 8:
            return prepareWith<uint64_t>(in, order, n, how, planes, out);
        default:
            for (size_t i = 0; i < n; ++i) {
                const uint8_t* value = in + (order ? order[i] : i) * width;
                for (size_t j = 0; j < width; ++j)
                    (planes ? out[j * n + i] : out[i * width + j]) = value[j];
            }
    }
}

// Byte j of value i comes back from plane j, at i. Widths of the typed fields get loops of their
// own, which the compiler unrolls.
template <size_t W>
void unplanesOf(const uint8_t* in, uint8_t* out, size_t n) {
    for (size_t i = 0; i < n; ++i)
        for (size_t j = 0; j < W; ++j) out[i * W + j] = in[j * n + i];
}

void unplanes(const uint8_t* in, uint8_t* out, int64_t count, int32_t width) {
    const size_t n = static_cast<size_t>(count), w = static_cast<size_t>(width);
    switch (w) {
        case 2:
            return unplanesOf<2>(in, out, n);
        case 4:
            return unplanesOf<4>(in, out, n);
        case 8:
            return unplanesOf<8>(in, out, n);
        default:
            for (size_t j = 0; j < w; ++j)
                for (size_t i = 0; i < n; ++i) out[i * w + j] = in[j * n + i];
    }
}

// Value k of `in` goes to value order[k] of `out`.
template <size_t W>
void scatterOf(const uint8_t* in, uint8_t* out, const std::vector<uint32_t>& order) {
    for (size_t k = 0; k < order.size(); ++k) std::memcpy(out + order[k] * W, in + k * W, W);
}

void scatter(const uint8_t* in, uint8_t* out, const std::vector<uint32_t>& order, int32_t width) {
    const size_t w = static_cast<size_t>(width);
    switch (width) {
        case 1:
            return scatterOf<1>(in, out, order);
        case 2:
            return scatterOf<2>(in, out, order);
        case 4:
            return scatterOf<4>(in, out, order);
        case 8:
            return scatterOf<8>(in, out, order);
        default:
            for (size_t k = 0; k < order.size(); ++k)
                std::memcpy(out + order[k] * w, in + k * w, w);
    }
}

// The level every column is compressed at, the values a coding is tried on before the best codes
// them all, and a sample so small that no other coding is tried (docs/companion.md gives the
// measurements).
constexpr int kLevel = 1;
constexpr int64_t kSampleValues = 512;
constexpr size_t kTinySample = 32;
// Chunks of at most kWholeTrialValues values try the codings on all of them (the best trial is
// the segment) and keep the winner for the next chunks, while those hold at most kValuesPerTrial
// values with the chunk the trials ran on, and until one makes more than kGrowth times the bytes
// a value (plus kGrowthSlack) of that chunk. Larger chunks try the codings on a sample, each (a
// first sample misleads more often than the whole chunk: docs/companion.md).
constexpr int64_t kWholeTrialValues = 4096;
constexpr int64_t kValuesPerTrial = 65536;
constexpr double kGrowth = 1.25, kGrowthSlack = 0.05;
// zstd's shortest match for the byte planes of 8-byte floats (GPS time) in a small chunk, coded
// whole: zstd takes 5 below 16 KiB, where the noise of the low planes makes short matches that
// cost more than they save; 6 codes them in fewer instructions and bytes on the large LAS file
// (docs/figures.md). Other segments take zstd's choice (6 made the input order of the small LAS
// files up to 2% larger).
constexpr int kWideFloatMinMatch = 6;
int minMatchOf(uint8_t coding, int32_t type, int32_t width, bool whole) {
    return whole && width == 8 && isFloat(type) && (coding & kBytePlanes) ? kWideFloatMinMatch : 0;
}

// A thread's zstd contexts and buffers, kept from call to call.
struct Scratch {
    ZSTD_CCtx* compressor = nullptr;
    int level = ZSTD_CLEVEL_DEFAULT, minMatch = 0;  // the compressor's parameters
    ZSTD_DCtx* decompressor = nullptr;
    std::vector<uint8_t> prepared, compressed, trial, best;  // of the writer
    std::vector<uint8_t> unpermuted, unplaned;               // of the reader
    ~Scratch() {
        ZSTD_freeCCtx(compressor);
        ZSTD_freeDCtx(decompressor);
    }
};

Scratch& scratch() {
    thread_local Scratch s;
    if (!s.compressor) s.compressor = ZSTD_createCCtx();
    if (!s.decompressor) s.decompressor = ZSTD_createDCtx();
    if (!s.compressor || !s.decompressor) throw std::bad_alloc();
    return s;
}

}  // namespace

namespace {

// Compresses `raw` bytes at `data` into the thread's buffer (as large as the bound) with zstd at
// `level`, the shortest match `minMatch` bytes (0: zstd's choice for that size). The context
// keeps its parameters from call to call.
size_t compress(Scratch& s, const uint8_t* data, size_t raw, int level, int minMatch) {
    if (level != s.level || minMatch != s.minMatch) {
        if (ZSTD_isError(ZSTD_CCtx_setParameter(s.compressor, ZSTD_c_compressionLevel, level)) ||
            ZSTD_isError(ZSTD_CCtx_setParameter(s.compressor, ZSTD_c_minMatch, minMatch)))
            throw std::bad_alloc();  // only out-of-range values err, and these are constants
        s.level = level;
        s.minMatch = minMatch;
    }
    return ZSTD_compress2(s.compressor, s.compressed.data(), s.compressed.size(), data, raw);
}

// A column of one byte repeated (a field that does not change in a chunk, all its planes alike)
// is common, and zstd would build its entropy tables for it all the same: such bytes get a zstd
// frame of RLE blocks, written here, when they are `raw` bytes at `data`, between 1 byte and
// kLargestRepeatedFrame. Returns whether it appended the frame to `out`.
constexpr size_t kLargestRepeatedFrame = size_t{1} << 20;  // its window: the whole content
constexpr size_t kLargestRleBlock = size_t{1} << 17;

bool repeatedByteFrame(const uint8_t* data, size_t raw, std::vector<uint8_t>& out) {
    if (raw == 0 || raw > kLargestRepeatedFrame || std::memcmp(data, data + 1, raw - 1) != 0)
        return false;
    append<uint32_t>(out, ZSTD_MAGICNUMBER);
    // The frame header: a single segment (no window descriptor) and its content size, in 1 byte
    // below 256, else in 2 bytes less 256, else in 4.
    if (raw < 256) {
        out.push_back(0x20);
        out.push_back(static_cast<uint8_t>(raw));
    } else if (raw < 65536 + 256) {
        out.push_back(0x60);
        append<uint16_t>(out, static_cast<uint16_t>(raw - 256));
    } else {
        out.push_back(0xA0);
        append<uint32_t>(out, static_cast<uint32_t>(raw));
    }
    for (size_t done = 0; done < raw;) {
        const size_t size = std::min(raw - done, kLargestRleBlock);
        done += size;
        // Block header, 3 bytes: last block (bit 0), type 1 = RLE (bits 1-2), size (bits 3-23).
        const uint32_t header =
            (done == raw ? 1u : 0u) | (1u << 1) | static_cast<uint32_t>(size << 3);
        out.push_back(static_cast<uint8_t>(header));
        out.push_back(static_cast<uint8_t>(header >> 8));
        out.push_back(static_cast<uint8_t>(header >> 16));
        out.push_back(data[0]);
    }
    return true;
}

// encodeSegment of the values in the order `order` gives (of its first `count`), when not null,
// with zstd's shortest match `minMatch` (0: zstd's choice).
void encodeOrdered(const uint8_t* values, const uint32_t* order, int64_t count, int32_t width,
                   uint8_t coding, int level, int minMatch, std::vector<uint8_t>& out) {
    Scratch& s = scratch();
    const size_t raw = static_cast<size_t>(count) * static_cast<size_t>(width);
    const uint8_t* data = values;
    if ((coding & (kTransformMask | kBytePlanes)) || order) {
        // Gathered, transformed and split into planes in one pass, into a buffer of the thread's.
        if (s.prepared.size() < raw) s.prepared.resize(raw);
        prepare(values, order, static_cast<size_t>(count), static_cast<size_t>(width), coding,
                s.prepared.data());
        data = s.prepared.data();
    }
    const size_t at = out.size();
    if (coding & kZstd) {
        // Into a buffer of the thread's, which keeps its room: no zero-filling of a bound a call.
        const size_t bound = ZSTD_compressBound(raw);
        if (s.compressed.size() < bound) s.compressed.resize(bound);
        out.resize(at + kSegmentHeaderSize);
        if (!repeatedByteFrame(data, raw, out)) {
            const size_t made = compress(s, data, raw, level, minMatch);
            if (ZSTD_isError(made)) throw std::bad_alloc();  // only a failed allocation errs here
            appendBytes(out, s.compressed.data(), made);
        }
    } else {
        out.resize(at + kSegmentHeaderSize);
        appendBytes(out, data, raw);
    }
    out[at] = coding;
    out[at + 1] = out[at + 2] = out[at + 3] = 0;
    store<uint32_t>(out.data() + at + 4,
                    static_cast<uint32_t>(out.size() - at - kSegmentHeaderSize));
}

}  // namespace

void encodeSegment(const void* values, int64_t count, int32_t width, uint8_t coding, int level,
                   std::vector<uint8_t>& out) {
    encodeOrdered(static_cast<const uint8_t*>(values), nullptr, count, width, coding, level, 0,
                  out);
}

namespace {

// The radix sort of inputOrderOf in `Passes` digits of `digit` bits: each index less `low`,
// packed with its position below it, into `a` (or `b`, the other buffer), which it returns.
constexpr int kMaxIndexDigitBits = 11;
template <int Passes>
const uint64_t* sortByIndex(const uint64_t* indices, size_t n, uint64_t low, int digit, uint64_t* a,
                            uint64_t* b) {
    const uint64_t mask = (uint64_t{1} << digit) - 1;
    uint32_t starts[Passes][1u << kMaxIndexDigitBits];
    for (int p = 0; p < Passes; ++p) std::fill_n(starts[p], mask + 1, 0u);
    for (size_t i = 0; i < n; ++i) {
        const uint64_t key = indices[i] - low;
        a[i] = key << 32 | i;
        for (int p = 0; p < Passes; ++p) ++starts[p][(key >> (p * digit)) & mask];
    }
    for (int p = 0; p < Passes; ++p) {
        std::exclusive_scan(starts[p], starts[p] + mask + 1, starts[p], 0u);
        uint32_t* start = starts[p];
        const int shift = 32 + p * digit;
        for (size_t i = 0; i < n; ++i) b[start[(a[i] >> shift) & mask]++] = a[i];
        std::swap(a, b);
    }
    return a;
}

}  // namespace

std::vector<uint32_t> inputOrderOf(const uint64_t* indices, int64_t count) {
    const size_t n = static_cast<size_t>(count);
    std::vector<uint32_t> positions(n);
    if (n == 0) return positions;
    uint64_t low = indices[0], high = low;
    bool sorted = true;
    for (size_t i = 1; i < n; ++i) {
        sorted = sorted && indices[i - 1] <= indices[i];
        low = std::min(low, indices[i]);
        high = std::max(high, indices[i]);
    }
    if (sorted) {
        for (size_t i = 0; i < n; ++i) positions[i] = static_cast<uint32_t>(i);
        return positions;
    }
    const uint64_t span = high - low;
    if (span >> 32) {
        for (size_t i = 0; i < n; ++i) positions[i] = static_cast<uint32_t>(i);
        std::stable_sort(positions.begin(), positions.end(),
                         [indices](uint32_t a, uint32_t b) { return indices[a] < indices[b]; });
        return positions;
    }
    // A radix sort from the least significant digit of each index less the smallest, packed with
    // its position below it: stable, so ties stay in stored order. The span's bits are cut into
    // as few digits of at most 11 bits as it takes, of equal width, so that a chunk's indices (a
    // lidar tile's span is just over 16 bits) need few buckets; every digit's buckets are counted
    // in one pass.
    int bits = 0;
    while (bits < 32 && (span >> bits) != 0) ++bits;
    const int passes = (bits + kMaxIndexDigitBits - 1) / kMaxIndexDigitBits;
    const int digit = (bits + passes - 1) / passes;
    thread_local std::vector<uint64_t> packed, other;
    if (packed.size() < n) packed.resize(n), other.resize(n);
    const uint64_t* sortedPacked =
        passes == 1   ? sortByIndex<1>(indices, n, low, digit, packed.data(), other.data())
        : passes == 2 ? sortByIndex<2>(indices, n, low, digit, packed.data(), other.data())
                      : sortByIndex<3>(indices, n, low, digit, packed.data(), other.data());
    for (size_t i = 0; i < n; ++i) positions[i] = static_cast<uint32_t>(sortedPacked[i]);
    return positions;
}

void encodeBestSegment(const void* values, int64_t count, int32_t width, int32_t type,
                       const std::vector<uint32_t>* inputOrder, CodingChoice& choice,
                       std::vector<uint8_t>& out) {
    const size_t w = static_cast<size_t>(width);
    const uint8_t* stored = static_cast<const uint8_t*>(values);
    Scratch& s = scratch();
    // The input's order, gathered by the coding itself.
    const uint32_t* order = inputOrder ? inputOrder->data() : nullptr;
    const bool whole = count <= kWholeTrialValues;
    const bool trials = !whole || choice.coding == 0 || choice.valuesLeft < count ||
                        ((choice.coding & kInputOrder) && !inputOrder);
    // With trials on all values, the best trial's segment is the column's.
    const int64_t sample = whole ? count : kSampleValues;
    bool coded = false;
    if (trials) {
        // The codings a type tries (measured: the difference beats the XOR on GPS time, planes
        // help wide integers; one-byte values gain little from either). Each is tried on the
        // values or a sample of the first, in stored order and, with the order kept, in the
        // input's order; the winner codes them all.
        static const uint8_t oneByte[] = {kZstd, kTransformDelta | kZstd};
        static const uint8_t integers[] = {kZstd, kBytePlanes | kZstd,
                                           kTransformDelta | kBytePlanes | kZstd};
        static const uint8_t floats[] = {kZstd, kBytePlanes | kZstd,
                                         kTransformDelta | kBytePlanes | kZstd,
                                         kTransformXor | kBytePlanes | kZstd};
        static const uint8_t rawBytes[] = {kZstd, kBytePlanes | kZstd};
        const uint8_t* codings = integers;
        size_t numCodings = sizeof integers;
        if (type == zul_FIELD_RAW)
            codings = rawBytes, numCodings = width == 1 ? 1 : sizeof rawBytes;
        else if (width == 1)
            codings = oneByte, numCodings = sizeof oneByte;
        else if (isFloat(type))
            codings = floats, numCodings = sizeof floats;
        uint8_t bestCoding = kZstd;
        s.best.clear();
        for (int inInput = 0; inInput < (order ? 2 : 1); ++inInput)
            for (size_t c = 0; c < numCodings; ++c) {
                if (!s.best.empty() && s.best.size() <= kTinySample) break;
                const uint8_t coding =
                    static_cast<uint8_t>(codings[c] | (inInput ? kInputOrder : 0));
                s.trial.clear();
                encodeOrdered(stored, inInput ? order : nullptr, sample, width, coding, kLevel,
                              minMatchOf(coding, type, width, whole), s.trial);
                if (s.best.empty() || s.trial.size() < s.best.size())
                    s.best.swap(s.trial), bestCoding = coding;
            }
        choice.coding = bestCoding;
        choice.valuesLeft = kValuesPerTrial - count;
        coded = sample == count;
    } else {
        choice.valuesLeft -= count;
    }
    const size_t at = out.size();
    if (coded)
        appendBytes(out, s.best.data(), s.best.size());
    else
        encodeOrdered(stored, choice.coding & kInputOrder ? order : nullptr, count, width,
                      choice.coding, kLevel, minMatchOf(choice.coding, type, width, whole), out);
    const size_t made = out.size() - at - kSegmentHeaderSize;
    const double perValue = count ? static_cast<double>(made) / static_cast<double>(count) : 0;
    if (trials)
        choice.bytesPerValue = perValue;
    else if (perValue > kGrowth * choice.bytesPerValue + kGrowthSlack)
        choice.valuesLeft = 0;  // the next chunk tries the codings again
    if (made > static_cast<size_t>(count) * w) {
        out.resize(at);  // the values as they are take less room
        encodeSegment(stored, count, width, kTransformNone, 0, out);
    }
}

zul_Status decodeSegment(uint8_t coding, const uint8_t* stored, size_t storedSize, int64_t count,
                         int32_t width, const std::vector<uint32_t>* inputOrder, void* out) {
    if (coding & kInputOrder) {
        if (!inputOrder || inputOrder->size() != static_cast<size_t>(count))
            return zul_STATUS_CORRUPT_DATA;
        const size_t w = static_cast<size_t>(width);
        // A buffer of the thread's that only grows: a resize would zero what it adds each time.
        std::vector<uint8_t>& permuted = scratch().unpermuted;
        if (permuted.size() < static_cast<size_t>(count) * w)
            permuted.resize(static_cast<size_t>(count) * w);
        const zul_Status status = decodeSegment(static_cast<uint8_t>(coding & ~kInputOrder), stored,
                                                storedSize, count, width, nullptr, permuted.data());
        if (status != zul_STATUS_OK) return status;
        scatter(permuted.data(), static_cast<uint8_t*>(out), *inputOrder, width);
        return zul_STATUS_OK;
    }
    if (coding & ~kCodingMask) return zul_STATUS_CORRUPT_DATA;
    const uint8_t how = coding & kTransformMask;
    if (how == kTransformMask) return zul_STATUS_CORRUPT_DATA;
    if (how != kTransformNone && width != 1 && width != 2 && width != 4 && width != 8)
        return zul_STATUS_CORRUPT_DATA;
    const size_t raw = static_cast<size_t>(count) * static_cast<size_t>(width);
    uint8_t* target = static_cast<uint8_t*>(out);
    // Planes are undone from a copy, a buffer of the thread's; everything else in place, in the
    // caller's room.
    std::vector<uint8_t>& copy = scratch().unplaned;
    uint8_t* first = target;
    if (coding & kBytePlanes) {
        if (copy.size() < raw) copy.resize(raw);
        first = copy.data();
    }
    if (coding & kZstd) {
        const unsigned long long declared = ZSTD_getFrameContentSize(stored, storedSize);
        if (declared != raw) return zul_STATUS_CORRUPT_DATA;
        const size_t made =
            ZSTD_decompressDCtx(scratch().decompressor, first, raw, stored, storedSize);
        if (ZSTD_isError(made) || made != raw) return zul_STATUS_CORRUPT_DATA;
    } else {
        if (storedSize != raw) return zul_STATUS_CORRUPT_DATA;
        if (raw) std::memcpy(first, stored, raw);
    }
    if (coding & kBytePlanes) unplanes(copy.data(), target, count, width);
    untransform(target, count, width, how);
    return zul_STATUS_OK;
}

}  // namespace zulx

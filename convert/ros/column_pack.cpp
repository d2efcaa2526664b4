#include "column_pack.h"

#include <zstd.h>

#include <cstring>
#include <memory>

#include "byte_order.h"
#include "cloud_layout.h"
#include "ros_error.h"
#include "scratch.h"

namespace zul::ros {

namespace {

template <typename T>
void forward(const uint8_t* in, size_t n, size_t lag, ColumnCoding coding, uint8_t* out) {
    for (size_t i = 0; i < n; ++i) {
        T v = loadLittle<T>(in + i * sizeof(T));
        const T p = i >= lag ? loadLittle<T>(in + (i - lag) * sizeof(T)) : T(0);
        if (coding == ColumnCoding::Delta) v = T(v - p);
        if (coding == ColumnCoding::Xor) v = T(v ^ p);
        for (size_t b = 0; b < sizeof(T); ++b) out[b * n + i] = uint8_t(v >> (8 * b));
    }
}

template <typename T>
void backward(const uint8_t* in, size_t n, size_t lag, ColumnCoding coding, uint8_t* out) {
    for (size_t i = 0; i < n; ++i) {
        T v = 0;
        for (size_t b = 0; b < sizeof(T); ++b) v = T(v | T(T(in[b * n + i]) << (8 * b)));
        const T p = i >= lag ? loadLittle<T>(out + (i - lag) * sizeof(T)) : T(0);
        if (coding == ColumnCoding::Delta) v = T(v + p);
        if (coding == ColumnCoding::Xor) v = T(v ^ p);
        storeLittle<T>(out + i * sizeof(T), v);
    }
}

// The values regrouped (and differenced) as the container stores them, or back.
void transform(const Column& column, const uint8_t* in, uint8_t* out, bool forwards) {
    const size_t size = column.coding == ColumnCoding::Raw ? 1 : datatypeSize(column.datatype);
    const size_t n = column.bytes.size() / size, lag = column.valuesPerPoint;
    switch (size) {
        case 1:
            if (column.coding == ColumnCoding::Raw) {
                std::memcpy(out, in, n);
                return;
            }
            forwards ? forward<uint8_t>(in, n, lag, column.coding, out)
                     : backward<uint8_t>(in, n, lag, column.coding, out);
            return;
        case 2:
            forwards ? forward<uint16_t>(in, n, lag, column.coding, out)
                     : backward<uint16_t>(in, n, lag, column.coding, out);
            return;
        case 4:
            forwards ? forward<uint32_t>(in, n, lag, column.coding, out)
                     : backward<uint32_t>(in, n, lag, column.coding, out);
            return;
        default:
            forwards ? forward<uint64_t>(in, n, lag, column.coding, out)
                     : backward<uint64_t>(in, n, lag, column.coding, out);
    }
}

void put(std::vector<uint8_t>& out, uint64_t value, int bytes) {
    for (int b = 0; b < bytes; ++b) out.push_back(uint8_t(value >> (8 * b)));
}

struct ContextFree {
    void operator()(ZSTD_CCtx* c) const { ZSTD_freeCCtx(c); }
    void operator()(ZSTD_DCtx* d) const { ZSTD_freeDCtx(d); }
};

// One zstd context a thread, kept between messages.
ZSTD_CCtx* compressor() {
    thread_local std::unique_ptr<ZSTD_CCtx, ContextFree> context(ZSTD_createCCtx());
    return context.get();
}

ZSTD_DCtx* decompressor() {
    thread_local std::unique_ptr<ZSTD_DCtx, ContextFree> context(ZSTD_createDCtx());
    return context.get();
}

bool checkShape(const Column& column) {
    const int size = datatypeSize(column.datatype);
    return size > 0 && column.valuesPerPoint > 0 &&
           (column.coding == ColumnCoding::Raw || column.bytes.size() % size == 0);
}

}  // namespace

size_t packedColumnsBound(const std::vector<Column>& columns) {
    size_t bound = 4;
    for (const Column& column : columns)
        bound += 2 + column.name.size() + 2 + 4 + 8 + 8 + ZSTD_compressBound(column.bytes.size());
    return bound;
}

void packColumns(const std::vector<Column>& columns, int zstdLevel, std::vector<uint8_t>& out) {
    put(out, columns.size(), 4);
    // The regrouped values and their frame in buffers of the thread, kept for the next message:
    // the frame is copied out, so that the output's room for the largest frame zstd might make is
    // neither zeroed nor faulted in.
    thread_local UnsetVector<uint8_t> shuffledBuffer, frameBuffer;
    const ScratchLease<UnsetVector<uint8_t>> shuffledLease(shuffledBuffer), frameLease(frameBuffer);
    UnsetVector<uint8_t>& shuffled = *shuffledLease;
    UnsetVector<uint8_t>& frame = *frameLease;
    for (const Column& column : columns) {
        if (!checkShape(column)) throw Error("column '" + column.name + "' is malformed");
        put(out, column.name.size(), 2);
        out.insert(out.end(), column.name.begin(), column.name.end());
        out.push_back(column.datatype);
        out.push_back(uint8_t(column.coding));
        put(out, column.valuesPerPoint, 4);
        put(out, column.bytes.size(), 8);
        if (column.bytes.empty()) {
            put(out, 0, 8);
            continue;
        }
        shuffled.resize(column.bytes.size());
        transform(column, column.bytes.data(), shuffled.data(), true);
        const size_t bound = ZSTD_compressBound(shuffled.size());
        if (frame.size() < bound) frame.resize(bound);
        const size_t coded = ZSTD_compressCCtx(compressor(), frame.data(), bound, shuffled.data(),
                                               shuffled.size(), zstdLevel);
        if (ZSTD_isError(coded))
            throw Error("column '" + column.name + "': zstd: " + ZSTD_getErrorName(coded));
        put(out, coded, 8);
        out.insert(out.end(), frame.begin(), frame.begin() + ptrdiff_t(coded));
    }
}

ColumnReader::ColumnReader(const uint8_t* bytes, size_t size) : bytes_(bytes), size_(size) {
    count_ = get(4, "its column count");
}

const uint8_t* ColumnReader::take(size_t n, const std::string& what) {
    if (n > size_ - pos_) throw Error("the column container ends inside " + what);
    const uint8_t* at = bytes_ + pos_;
    pos_ += n;
    return at;
}

uint64_t ColumnReader::get(int n, const std::string& what) {
    const uint8_t* at = take(size_t(n), what);
    uint64_t value = 0;
    for (int b = 0; b < n; ++b) value |= uint64_t(at[b]) << (8 * b);
    return value;
}

void ColumnReader::read(Column& column) {
    const std::string what = "column '" + column.name + "'";
    if (read_ == count_)
        throw Error("the column container holds " + std::to_string(count_) + " columns and lacks " +
                    what);
    ++read_;
    const size_t nameSize = size_t(get(2, what));
    const uint8_t* name = take(nameSize, what);
    const uint8_t datatype = uint8_t(get(1, what)), coding = uint8_t(get(1, what));
    const uint64_t perPoint = get(4, what), rawSize = get(8, what), coded = get(8, what);
    if (std::string(reinterpret_cast<const char*>(name), nameSize) != column.name ||
        datatype != column.datatype || coding != uint8_t(column.coding) ||
        perPoint != column.valuesPerPoint)
        throw Error("the column container holds '" +
                    std::string(reinterpret_cast<const char*>(name), nameSize) +
                    "' or another type where the cloud's layout puts " + what);
    if (rawSize != column.bytes.size())
        throw Error(what + " holds " + std::to_string(rawSize) + " bytes, the cloud's layout " +
                    std::to_string(column.bytes.size()));
    if (coded > size_ - pos_) throw Error("the column container ends inside " + what);
    const uint8_t* data = take(size_t(coded), what);
    if (rawSize == 0) {
        if (coded != 0) throw Error(what + " is empty but holds coded bytes");
        return;
    }
    // Bytes kept as they are straight into the column; others through a buffer of the thread.
    const bool raw = column.coding == ColumnCoding::Raw;
    thread_local UnsetVector<uint8_t> buffer;
    const ScratchLease<UnsetVector<uint8_t>> lease(buffer);
    if (!raw) buffer.resize(rawSize);
    uint8_t* to = raw ? column.bytes.data() : buffer.data();
    const size_t got = ZSTD_decompressDCtx(decompressor(), to, rawSize, data, coded);
    if (ZSTD_isError(got) || got != rawSize)
        throw Error(what + " is damaged (zstd: " +
                    (ZSTD_isError(got) ? ZSTD_getErrorName(got) : "too few bytes") + ")");
    if (!raw) transform(column, to, column.bytes.data(), false);
}

void ColumnReader::finish() const {
    if (read_ != count_)
        throw Error("the column container holds " + std::to_string(count_ - read_) +
                    " columns more than the cloud's layout");
    if (pos_ != size_) throw Error(std::to_string(size_ - pos_) + " bytes follow the last column");
}

}  // namespace zul::ros

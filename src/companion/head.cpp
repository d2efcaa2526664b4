#include "head.h"

#include <xxhash.h>

#include <cmath>

namespace zulx {

uint64_t checksum(const void* bytes, size_t size) { return XXH3_64bits(bytes, size); }

uint64_t headChecksum(const uint8_t* head, size_t headSize) {
    XXH3_state_t* state = XXH3_createState();
    if (!state) throw std::bad_alloc();
    const uint8_t zero[8] = {};
    XXH3_64bits_reset(state);
    XXH3_64bits_update(state, head, kHdrHeadChecksum);
    XXH3_64bits_update(state, zero, sizeof zero);
    XXH3_64bits_update(state, head + kHdrHeadChecksum + 8, headSize - kHdrHeadChecksum - 8);
    const uint64_t result = XXH3_64bits_digest(state);
    XXH3_freeState(state);
    return result;
}

int64_t headSizeOf(int64_t numChunks, int64_t numFields) {
    return static_cast<int64_t>(kHeaderSize) + numChunks * static_cast<int64_t>(kChunkEntrySize) +
           numFields * static_cast<int64_t>(kFieldEntrySize);
}

std::vector<uint8_t> writeHead(const Head& head) {
    std::vector<uint8_t> out(static_cast<size_t>(head.headSize), 0);
    uint8_t* p = out.data();
    std::memcpy(p, kMagic, sizeof kMagic);
    store<uint16_t>(p + kHdrVersion, head.version);
    store<uint16_t>(p + kHdrFlags, head.hasOrder ? kFlagOrder : 0);
    store<uint32_t>(p + kHdrNumFields, static_cast<uint32_t>(head.fields.size()));
    store<uint64_t>(p + kHdrNumChunks, head.chunks.size());
    store<int64_t>(p + kHdrNumPoints, head.numPoints);
    std::memcpy(p + kHdrMarker, head.marker, 16);
    store<int64_t>(p + kHdrStreamHeadSize, head.streamHeadSize);
    store<uint64_t>(p + kHdrStreamHeadChecksum, head.streamHeadChecksum);
    store<int64_t>(p + kHdrStreamSize, head.streamSize);
    store<int64_t>(p + kHdrHeadSize, head.headSize);
    store<int64_t>(p + kHdrMetaOffset, head.metaOffset);
    store<int64_t>(p + kHdrMetaSize, head.metaSize);
    store<uint64_t>(p + kHdrMetaChecksum, head.metaChecksum);
    uint8_t* e = p + kHeaderSize;
    for (const ChunkEntry& entry : head.chunks) {
        const zul_idx_Chunk& c = entry.chunk;
        store<int64_t>(e + kChkOffset, c.offset);
        store<int64_t>(e + kChkSize, c.size);
        store<uint32_t>(e + kChkNumPoints, static_cast<uint32_t>(c.numPoints));
        store<uint64_t>(e + kChkChecksum, entry.checksum);
        for (int a = 0; a < 3; ++a) {
            store<int64_t>(e + kChkGridMin + 8 * a, c.gridMin[a]);
            store<int64_t>(e + kChkGridMax + 8 * a, c.gridMax[a]);
            store<double>(e + kChkMin + 8 * a, c.min[a]);
            store<double>(e + kChkMax + 8 * a, c.max[a]);
        }
        store<int64_t>(e + kChkBlockOffset, entry.blockOffset);
        store<int64_t>(e + kChkBlockSize, entry.blockSize);
        store<uint64_t>(e + kChkBlockChecksum, entry.blockChecksum);
        e += kChunkEntrySize;
    }
    for (const Field& f : head.fields) {
        std::memcpy(e, f.name.data(), f.name.size());
        e[48] = static_cast<uint8_t>(f.type);
        store<uint16_t>(e + 50, static_cast<uint16_t>(f.width));
        e += kFieldEntrySize;
    }
    store<uint64_t>(p + kHdrHeadChecksum, headChecksum(p, out.size()));
    return out;
}

namespace {

void appendText(std::vector<uint8_t>& out, const std::string& text) {
    append<uint32_t>(out, static_cast<uint32_t>(text.size()));
    appendBytes(out, text.data(), text.size());
}

// Reads the metadata front to back; every length is checked against what is left.
class MetaCursor {
public:
    MetaCursor(const uint8_t* bytes, size_t size) : p_(bytes), left_(size) {}
    template <typename T>
    bool take(T& value) {
        if (left_ < sizeof(T)) return false;
        value = load<T>(p_);
        p_ += sizeof(T), left_ -= sizeof(T);
        return true;
    }
    bool takeBytes(uint64_t size, const uint8_t*& at) {
        if (size > left_) return false;
        at = p_;
        p_ += size, left_ -= size;
        return true;
    }
    bool takeText(std::string& text) {
        uint32_t size = 0;
        const uint8_t* at = nullptr;
        if (!take(size) || !takeBytes(size, at)) return false;
        text.assign(reinterpret_cast<const char*>(at), size);
        return text.find('\0') == std::string::npos;
    }
    size_t left() const { return left_; }

private:
    const uint8_t* p_;
    size_t left_;
};

}  // namespace

std::vector<uint8_t> writeMeta(const Meta& meta, uint16_t version) {
    std::vector<uint8_t> out;
    append<uint32_t>(out, static_cast<uint32_t>(meta.sourceKind));
    append<uint32_t>(out, 0);
    append<uint64_t>(out, meta.source.size());
    appendBytes(out, meta.source.data(), meta.source.size());
    appendText(out, meta.format);
    append<uint32_t>(out, static_cast<uint32_t>(meta.conventions.size()));
    for (const auto& kv : meta.conventions) appendText(out, kv.first), appendText(out, kv.second);
    if (version == kVersionRows) {
        append<uint64_t>(out, static_cast<uint64_t>(meta.rowCount));
        append<uint32_t>(out, static_cast<uint32_t>(meta.rowWidth));
        append<uint32_t>(out, 0);
        for (const MetaSegment* segment : {&meta.rowIndices, &meta.rowBytes}) {
            append<uint8_t>(out, segment->coding);
            appendBytes(out, "\0\0\0", 3);
            append<uint32_t>(out, static_cast<uint32_t>(segment->bytes.size()));
            appendBytes(out, segment->bytes.data(), segment->bytes.size());
        }
    }
    return out;
}

zul_Status readMeta(const uint8_t* bytes, size_t size, uint16_t version, Meta& meta) {
    MetaCursor in(bytes, size);
    uint32_t kind = 0, reserved = 0, numConventions = 0;
    uint64_t sourceSize = 0;
    const uint8_t* source = nullptr;
    if (!in.take(kind) || !in.take(reserved) || !in.take(sourceSize) ||
        !in.takeBytes(sourceSize, source) || !in.takeText(meta.format) || !in.take(numConventions))
        return zul_STATUS_CORRUPT_DATA;
    if (kind > zul_SOURCE_OTHER || reserved != 0 || (kind == zul_SOURCE_NONE && sourceSize))
        return zul_STATUS_CORRUPT_DATA;
    // A convention takes at least 8 bytes: its count is bounded before anything is allocated.
    if (numConventions > in.left() / 8) return zul_STATUS_CORRUPT_DATA;
    meta.sourceKind = static_cast<int32_t>(kind);
    meta.source.assign(source, source + sourceSize);
    meta.conventions.resize(numConventions);
    for (auto& kv : meta.conventions)
        if (!in.takeText(kv.first) || kv.first.empty() || !in.takeText(kv.second))
            return zul_STATUS_CORRUPT_DATA;
    for (size_t i = 1; i < meta.conventions.size(); ++i)
        for (size_t j = 0; j < i; ++j)
            if (meta.conventions[i].first == meta.conventions[j].first)
                return zul_STATUS_CORRUPT_DATA;
    if (version == kVersionRows) {
        uint64_t count = 0;
        uint32_t width = 0, reserved2 = 0;
        if (!in.take(count) || !in.take(width) || !in.take(reserved2) || reserved2 != 0 ||
            count == 0 || count > (uint64_t{1} << 40) || width == 0 ||
            width > static_cast<uint32_t>(kMaxRowWidth))
            return zul_STATUS_CORRUPT_DATA;
        meta.rowCount = static_cast<int64_t>(count);
        meta.rowWidth = static_cast<int32_t>(width);
        for (MetaSegment* segment : {&meta.rowIndices, &meta.rowBytes}) {
            uint8_t coding = 0, pad[3] = {};
            uint32_t stored = 0;
            const uint8_t* at = nullptr;
            if (!in.take(coding) || !in.take(pad[0]) || !in.take(pad[1]) || !in.take(pad[2]) ||
                pad[0] || pad[1] || pad[2] || (coding & ~(kCodingMask & ~kInputOrder)) ||
                !in.take(stored) || !in.takeBytes(stored, at))
                return zul_STATUS_CORRUPT_DATA;
            segment->coding = coding;
            segment->bytes.assign(at, at + stored);
        }
    }
    return in.left() == 0 ? zul_STATUS_OK : zul_STATUS_CORRUPT_DATA;
}

zul_Status peekHeadSize(const uint8_t* p, size_t size, int64_t& headSize) {
    if (size < kHeaderSize) return zul_STATUS_TRUNCATED;
    if (std::memcmp(p, kMagic, sizeof kMagic) != 0) return zul_STATUS_BAD_SIGNATURE;
    const uint16_t version = load<uint16_t>(p + kHdrVersion);
    if (version != kVersion && version != kVersionRows) return zul_STATUS_BAD_VERSION;
    if (load<uint16_t>(p + kHdrFlags) & ~kFlagOrder) return zul_STATUS_CORRUPT_DATA;
    const uint32_t numFields = load<uint32_t>(p + kHdrNumFields);
    const uint64_t numChunks = load<uint64_t>(p + kHdrNumChunks);
    // 2^40 chunks would need a head of 160 TiB: anything near it is damage.
    if (numFields > static_cast<uint32_t>(kMaxFields) || numChunks > (uint64_t{1} << 40))
        return zul_STATUS_CORRUPT_DATA;
    const int64_t expected =
        headSizeOf(static_cast<int64_t>(numChunks), static_cast<int64_t>(numFields));
    if (load<int64_t>(p + kHdrHeadSize) != expected) return zul_STATUS_CORRUPT_DATA;
    headSize = expected;
    return zul_STATUS_OK;
}

zul_Status readHead(const uint8_t* p, size_t size, int64_t fileSize, Head& head) {
    int64_t headSize = 0;
    zul_Status status = peekHeadSize(p, size, headSize);
    if (status != zul_STATUS_OK) return status;
    if (headSize > fileSize || static_cast<int64_t>(size) < headSize) return zul_STATUS_TRUNCATED;
    if (!checksumMatches(load<uint64_t>(p + kHdrHeadChecksum),
                         headChecksum(p, static_cast<size_t>(headSize))))
        return zul_STATUS_CORRUPT_DATA;
    head.headSize = headSize;
    head.version = load<uint16_t>(p + kHdrVersion);
    head.hasOrder = load<uint16_t>(p + kHdrFlags) & kFlagOrder;
    std::memcpy(head.marker, p + kHdrMarker, 16);
    head.numPoints = load<int64_t>(p + kHdrNumPoints);
    head.streamHeadSize = load<int64_t>(p + kHdrStreamHeadSize);
    head.streamHeadChecksum = load<uint64_t>(p + kHdrStreamHeadChecksum);
    head.streamSize = load<int64_t>(p + kHdrStreamSize);
    head.metaOffset = load<int64_t>(p + kHdrMetaOffset);
    head.metaSize = load<int64_t>(p + kHdrMetaSize);
    head.metaChecksum = load<uint64_t>(p + kHdrMetaChecksum);
    if (head.streamHeadSize != kStreamHeadV1 && head.streamHeadSize != kStreamHeadV2)
        return zul_STATUS_CORRUPT_DATA;
    const size_t numChunks = static_cast<size_t>(load<uint64_t>(p + kHdrNumChunks));
    const size_t numFields = load<uint32_t>(p + kHdrNumFields);
    head.chunks.resize(numChunks);
    head.fields.resize(numFields);
    // The chunks lie back to back in the stream, their blocks back to back in the companion.
    int64_t streamAt = head.streamHeadSize, blockAt = headSize, points = 0;
    const int64_t minBlock = static_cast<int64_t>(kSegmentHeaderSize) * head.segments();
    const uint8_t* e = p + kHeaderSize;
    for (ChunkEntry& entry : head.chunks) {
        zul_idx_Chunk& c = entry.chunk;
        c.offset = load<int64_t>(e + kChkOffset);
        c.size = load<int64_t>(e + kChkSize);
        const uint32_t count = load<uint32_t>(e + kChkNumPoints);
        if (c.offset != streamAt || c.size < 16 || c.size > INT64_MAX - streamAt || count < 1 ||
            count > kMaxChunkPoints || load<uint32_t>(e + kChkReserved) != 0)
            return zul_STATUS_CORRUPT_DATA;
        c.numPoints = static_cast<int32_t>(count);
        entry.checksum = load<uint64_t>(e + kChkChecksum);
        for (int a = 0; a < 3; ++a) {
            c.gridMin[a] = load<int64_t>(e + kChkGridMin + 8 * a);
            c.gridMax[a] = load<int64_t>(e + kChkGridMax + 8 * a);
            c.min[a] = load<double>(e + kChkMin + 8 * a);
            c.max[a] = load<double>(e + kChkMax + 8 * a);
            if (c.gridMin[a] > c.gridMax[a] || !(c.min[a] <= c.max[a]))
                return zul_STATUS_CORRUPT_DATA;
        }
        entry.blockOffset = load<int64_t>(e + kChkBlockOffset);
        entry.blockSize = load<int64_t>(e + kChkBlockSize);
        entry.blockChecksum = load<uint64_t>(e + kChkBlockChecksum);
        if (entry.blockOffset != blockAt || entry.blockSize < minBlock ||
            entry.blockSize > fileSize - blockAt)
            return entry.blockSize > fileSize - blockAt && entry.blockSize >= minBlock
                       ? zul_STATUS_TRUNCATED
                       : zul_STATUS_CORRUPT_DATA;
        streamAt += c.size;
        blockAt += entry.blockSize;
        points += count;
        e += kChunkEntrySize;
    }
    if (points != head.numPoints || streamAt != head.streamSize || head.metaOffset != blockAt ||
        head.metaSize < 0)
        return zul_STATUS_CORRUPT_DATA;
    if (head.metaSize > fileSize - blockAt) return zul_STATUS_TRUNCATED;
    if (head.metaSize != fileSize - blockAt) return zul_STATUS_CORRUPT_DATA;
    for (size_t i = 0; i < numFields; ++i, e += kFieldEntrySize) {
        Field& f = head.fields[i];
        const char* name = reinterpret_cast<const char*>(e);
        const size_t length = strnlen(name, 48);
        if (length == 0 || length > ZUL_FIELD_NAME_MAX) return zul_STATUS_CORRUPT_DATA;
        // The name's padding, the reserved byte after the type and the reserved tail are 0.
        for (size_t k = length; k < kFieldEntrySize; ++k)
            if (e[k] != 0 && k != 48 && k != 50 && k != 51) return zul_STATUS_CORRUPT_DATA;
        f.name.assign(name, length);
        f.type = e[48];
        f.width = load<uint16_t>(e + 50);
        const int32_t fixed = typeWidth(f.type);
        if (f.type == zul_FIELD_RAW ? f.width < 1 : (fixed == 0 || f.width != fixed))
            return zul_STATUS_CORRUPT_DATA;
        for (size_t j = 0; j < i; ++j)
            if (head.fields[j].name == f.name) return zul_STATUS_CORRUPT_DATA;
    }
    return zul_STATUS_OK;
}

}  // namespace zulx

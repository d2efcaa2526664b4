// zul_xin_: the companion reader.
#include <cmath>

#include "column_codec.h"
#include "head.h"
#include "stream_bytes.h"

using namespace zulx;

struct zul_xin_ReaderStruct {
    bool open = false;
    bool headOnly = false;
    ByteSource source;
    int64_t fileSize = 0;
    Head head;
    Meta meta;

    zul_Status loadAll() {
        fileSize = source.size();
        std::vector<uint8_t> bytes;
        zul_Status status = source.read(0, std::min<int64_t>(fileSize, kHeaderSize), bytes);
        int64_t headSize = 0;
        if (status == zul_STATUS_OK) status = peekHeadSize(bytes.data(), bytes.size(), headSize);
        if (status == zul_STATUS_OK) status = source.read(0, headSize, bytes);
        if (status == zul_STATUS_OK) status = readHead(bytes.data(), bytes.size(), fileSize, head);
        if (status == zul_STATUS_OK) status = source.read(head.metaOffset, head.metaSize, bytes);
        if (status == zul_STATUS_OK &&
            !checksumMatches(head.metaChecksum, checksum(bytes.data(), bytes.size())))
            status = zul_STATUS_CORRUPT_DATA;
        if (status == zul_STATUS_OK)
            status = readMeta(bytes.data(), bytes.size(), head.version, meta);
        open = status == zul_STATUS_OK;
        return status;
    }

    // Checks a block's bytes and decodes the segments whose room `out` gives (one pointer a
    // field, then the order's; null skips a segment), the order once for all the segments coded
    // in the input's order.
    zul_Status decode(const ChunkEntry& entry, const uint8_t* block, size_t size,
                      void* const* out) const {
        if (static_cast<int64_t>(size) != entry.blockSize) return zul_STATUS_INVALID_ARGUMENT;
        if (!checksumMatches(entry.blockChecksum, checksum(block, size)))
            return zul_STATUS_CORRUPT_DATA;
        struct Segment {
            uint8_t coding;
            size_t at, size;
        };
        std::vector<Segment> parts;
        for (size_t at = 0; at < size;) {
            if (size - at < kSegmentHeaderSize) return zul_STATUS_CORRUPT_DATA;
            const uint32_t stored = load<uint32_t>(block + at + 4);
            if (block[at + 1] || block[at + 2] || block[at + 3] ||
                stored > size - at - kSegmentHeaderSize)
                return zul_STATUS_CORRUPT_DATA;
            parts.push_back({block[at], at + kSegmentHeaderSize, stored});
            at += kSegmentHeaderSize + stored;
        }
        if (parts.size() != static_cast<size_t>(head.segments())) return zul_STATUS_CORRUPT_DATA;
        const int64_t count = entry.chunk.numPoints;
        const size_t numFields = head.fields.size();
        bool needOrder = head.hasOrder && out[numFields];
        for (size_t f = 0; f < numFields; ++f)
            needOrder = needOrder || (head.hasOrder && out[f] && (parts[f].coding & kInputOrder));
        std::vector<uint32_t> inputOrder;
        if (needOrder) {
            const Segment& orderPart = parts.back();
            std::vector<uint64_t> own;
            uint64_t* indices = static_cast<uint64_t*>(out[numFields]);
            if (!indices) own.resize(static_cast<size_t>(count)), indices = own.data();
            const zul_Status status = decodeSegment(orderPart.coding, block + orderPart.at,
                                                    orderPart.size, count, 8, nullptr, indices);
            if (status != zul_STATUS_OK) return status;
            for (size_t f = 0; f < numFields && inputOrder.empty(); ++f)
                if (out[f] && (parts[f].coding & kInputOrder))
                    inputOrder = inputOrderOf(indices, count);
        }
        for (size_t f = 0; f < numFields; ++f) {
            if (!out[f]) continue;
            const Segment& part = parts[f];
            const zul_Status status =
                decodeSegment(part.coding, block + part.at, part.size, count, head.fields[f].width,
                              inputOrder.empty() ? nullptr : &inputOrder, out[f]);
            if (status != zul_STATUS_OK) return status;
        }
        return zul_STATUS_OK;
    }

    // Decodes segment `segment` alone (the order's is numFields).
    zul_Status decodeOne(const ChunkEntry& entry, const uint8_t* block, size_t size, size_t segment,
                         void* values) const {
        std::vector<void*> out(head.fields.size() + 1, nullptr);
        out[segment] = values;
        return decode(entry, block, size, out.data());
    }

    // The checks a whole chunk's read makes: the room for every field given or null, the
    // order's null without order.
    zul_Status prepareAll(int64_t chunk, void* const* values, int32_t numFields,
                          const uint64_t* indices, int64_t capacity) const {
        if (chunk < 0 || chunk >= static_cast<int64_t>(head.chunks.size()) ||
            numFields != static_cast<int32_t>(head.fields.size()) || (!values && numFields > 0))
            return zul_STATUS_INVALID_ARGUMENT;
        if (indices && !head.hasOrder) return zul_STATUS_INVALID_STATE;
        if (capacity < head.chunks[static_cast<size_t>(chunk)].chunk.numPoints)
            return zul_STATUS_INVALID_ARGUMENT;
        return zul_STATUS_OK;
    }

    std::vector<void*> rooms(void* const* values, int32_t numFields, uint64_t* indices) const {
        std::vector<void*> out(static_cast<size_t>(numFields) + 1, nullptr);
        for (int32_t f = 0; f < numFields; ++f) out[static_cast<size_t>(f)] = values[f];
        out.back() = indices;
        return out;
    }

    zul_Status readBlock(const ChunkEntry& entry, std::vector<uint8_t>& copy,
                         const uint8_t*& block) const {
        if (headOnly) return zul_STATUS_INVALID_STATE;
        return source.view(entry.blockOffset, entry.blockSize, copy, block);
    }

    // The checks every column read makes before it touches anything.
    zul_Status prepare(int64_t chunk, int32_t field, int64_t capacity, const void* values,
                       size_t& segment) const {
        if (!values || chunk < 0 || chunk >= static_cast<int64_t>(head.chunks.size()) ||
            field < -1 || field >= static_cast<int32_t>(head.fields.size()))
            return zul_STATUS_INVALID_ARGUMENT;
        if (field == -1) {
            if (!head.hasOrder) return zul_STATUS_INVALID_STATE;
            segment = head.fields.size();
        } else {
            segment = static_cast<size_t>(field);
        }
        if (capacity < head.chunks[static_cast<size_t>(chunk)].chunk.numPoints)
            return zul_STATUS_INVALID_ARGUMENT;
        return zul_STATUS_OK;
    }

    zul_Status readSegment(int64_t chunk, int32_t field, void* values, int64_t capacity) const {
        size_t segment = 0;
        zul_Status status = prepare(chunk, field, capacity, values, segment);
        if (status != zul_STATUS_OK) return status;
        const ChunkEntry& entry = head.chunks[static_cast<size_t>(chunk)];
        std::vector<uint8_t> copy;
        const uint8_t* block = nullptr;
        status = readBlock(entry, copy, block);
        if (status != zul_STATUS_OK) return status;
        return decodeOne(entry, block, static_cast<size_t>(entry.blockSize), segment, values);
    }

    // Compares the binding with a stream's facts; the checksums are not compared.
    zul_Status compare(const StreamFacts& facts, bool withHead) const {
        if (withHead && (std::memcmp(facts.marker, head.marker, 16) != 0 ||
                         facts.headSize != head.streamHeadSize || facts.size != head.streamSize))
            return zul_STATUS_COMPANION_MISMATCH;
        if (facts.damage != zul_STATUS_OK || facts.chunks.size() != head.chunks.size())
            return zul_STATUS_COMPANION_MISMATCH;
        for (size_t c = 0; c < facts.chunks.size(); ++c) {
            const zul_idx_Chunk &a = facts.chunks[c], &b = head.chunks[c].chunk;
            if (a.offset != b.offset || a.size != b.size || a.numPoints != b.numPoints)
                return zul_STATUS_COMPANION_MISMATCH;
            for (int k = 0; k < 3; ++k)
                if (a.gridMin[k] != b.gridMin[k] || a.gridMax[k] != b.gridMax[k])
                    return zul_STATUS_COMPANION_MISMATCH;
        }
        return zul_STATUS_OK;
    }

    zul_Status verify(const ByteSource& stream, int64_t* bad, int64_t capacity,
                      int64_t* numBad) const {
        int64_t count = 0;
        auto name = [&](int64_t chunk) {
            if (count < capacity) bad[count] = chunk;
            ++count;
        };
        std::vector<uint8_t> bytes;
        zul_Status status = stream.read(0, head.streamHeadSize, bytes);
        if (status != zul_STATUS_OK) return status;
        if (std::memcmp(bytes.data() + head.streamHeadSize - 16, head.marker, 16) != 0)
            return zul_STATUS_COMPANION_MISMATCH;
        if (checksum(bytes.data(), bytes.size()) != head.streamHeadChecksum) name(-1);
        for (size_t c = 0; c < head.chunks.size(); ++c) {
            const ChunkEntry& entry = head.chunks[c];
            const uint8_t* chunk = nullptr;
            status = stream.view(entry.chunk.offset, entry.chunk.size, bytes, chunk);
            if (status == zul_STATUS_TRUNCATED) {
                name(static_cast<int64_t>(c));
                continue;
            }
            if (status != zul_STATUS_OK) return status;
            if (checksum(chunk, static_cast<size_t>(entry.chunk.size)) != entry.checksum)
                name(static_cast<int64_t>(c));
        }
        if (stream.size() > head.streamSize) name(static_cast<int64_t>(head.chunks.size()));
        *numBad = count;
        return count == 0 ? zul_STATUS_OK : zul_STATUS_STREAM_CHANGED;
    }
};

namespace {

bool ready(zul_xin_Reader reader) { return reader && reader->open; }

zul_Status openWith(zul_xin_Reader* reader) {
    if (!reader) return zul_STATUS_INVALID_ARGUMENT;
    *reader = new zul_xin_ReaderStruct();
    return zul_STATUS_OK;
}

}  // namespace

extern "C" {

ZUL_API zul_Status zul_xin_getHeadSize(const void* bytes, size_t size, int64_t* headSize) {
    if (!bytes || !headSize) return zul_STATUS_INVALID_ARGUMENT;
    return peekHeadSize(static_cast<const uint8_t*>(bytes), size, *headSize);
}

ZUL_API zul_Status zul_xin_openFile(zul_xin_Reader* reader, const char* path) {
    if (openWith(reader) != zul_STATUS_OK || !path) return zul_STATUS_INVALID_ARGUMENT;
    const zul_Status status = (*reader)->source.openFile(path);
    return status != zul_STATUS_OK ? status : (*reader)->loadAll();
}

ZUL_API zul_Status zul_xin_openBuffer(zul_xin_Reader* reader, const void* bytes, size_t size) {
    if (openWith(reader) != zul_STATUS_OK || (!bytes && size)) return zul_STATUS_INVALID_ARGUMENT;
    (*reader)->source.openMemory(bytes, size);
    return (*reader)->loadAll();
}

ZUL_API zul_Status zul_xin_openHead(zul_xin_Reader* reader, const void* bytes, size_t size,
                                    int64_t fileSize) {
    if (openWith(reader) != zul_STATUS_OK || !bytes || fileSize < 0)
        return zul_STATUS_INVALID_ARGUMENT;
    zul_xin_ReaderStruct& r = **reader;
    r.fileSize = fileSize;
    r.headOnly = true;
    const zul_Status status = readHead(static_cast<const uint8_t*>(bytes), size, fileSize, r.head);
    r.open = status == zul_STATUS_OK;
    return status;
}

ZUL_API zul_Status zul_xin_bindStreamBuffer(zul_xin_Reader reader, const void* bytes, size_t size) {
    if (!reader || (!bytes && size)) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader)) return zul_STATUS_INVALID_STATE;
    StreamFacts facts;
    const zul_Status status = readStream(nullptr, bytes, size, false, facts);
    if (status == zul_STATUS_TRUNCATED) return zul_STATUS_COMPANION_MISMATCH;
    return status != zul_STATUS_OK ? status : reader->compare(facts, true);
}

ZUL_API zul_Status zul_xin_bindStreamFile(zul_xin_Reader reader, const char* path) {
    if (!reader || !path) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader)) return zul_STATUS_INVALID_STATE;
    StreamFacts facts;
    const zul_Status status = readStream(path, nullptr, 0, false, facts);
    if (status == zul_STATUS_TRUNCATED) return zul_STATUS_COMPANION_MISMATCH;
    return status != zul_STATUS_OK ? status : reader->compare(facts, true);
}

ZUL_API zul_Status zul_xin_bindIndex(zul_xin_Reader reader, zul_idx_Index index) {
    if (!reader || !index) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader)) return zul_STATUS_INVALID_STATE;
    StreamFacts facts;
    int64_t numChunks = 0;
    zul_Status status = zul_idx_getCounts(index, &numChunks, nullptr);
    if (status == zul_STATUS_OK) status = zul_idx_getDamage(index, &facts.damage, nullptr, nullptr);
    if (status != zul_STATUS_OK) return status;
    facts.chunks.resize(static_cast<size_t>(numChunks));
    for (int64_t c = 0; c < numChunks && status == zul_STATUS_OK; ++c)
        status = zul_idx_getChunk(index, c, &facts.chunks[static_cast<size_t>(c)]);
    return status != zul_STATUS_OK ? status : reader->compare(facts, false);
}

ZUL_API zul_Status zul_xin_getInfo(zul_xin_Reader reader, zul_CompanionInfo* info) {
    if (!reader || !info) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader)) return zul_STATUS_INVALID_STATE;
    const Head& h = reader->head;
    *info = zul_CompanionInfo();
    info->numChunks = static_cast<int64_t>(h.chunks.size());
    info->numPoints = h.numPoints;
    info->numFields = static_cast<int32_t>(h.fields.size());
    info->hasOrder = h.hasOrder;
    info->streamSize = h.streamSize;
    info->headSize = h.headSize;
    info->fileSize = reader->fileSize;
    std::memcpy(info->syncMarker, h.marker, 16);
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xin_getChunk(zul_xin_Reader reader, int64_t chunk,
                                    zul_CompanionChunk* info) {
    if (!reader || !info) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader)) return zul_STATUS_INVALID_STATE;
    if (chunk < 0 || chunk >= static_cast<int64_t>(reader->head.chunks.size()))
        return zul_STATUS_INVALID_ARGUMENT;
    const ChunkEntry& e = reader->head.chunks[static_cast<size_t>(chunk)];
    info->chunk = e.chunk;
    info->checksum = e.checksum;
    info->blockOffset = e.blockOffset;
    info->blockSize = e.blockSize;
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xin_getField(zul_xin_Reader reader, int32_t field, zul_FieldInfo* info) {
    if (!reader || !info) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader)) return zul_STATUS_INVALID_STATE;
    if (field < 0 || field >= static_cast<int32_t>(reader->head.fields.size()))
        return zul_STATUS_INVALID_ARGUMENT;
    const Field& f = reader->head.fields[static_cast<size_t>(field)];
    *info = zul_FieldInfo();
    std::memcpy(info->name, f.name.data(), f.name.size());
    info->type = static_cast<zul_FieldType>(f.type);
    info->width = f.width;
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xin_findField(zul_xin_Reader reader, const char* name, int32_t* field) {
    if (!reader || !name || !field) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader)) return zul_STATUS_INVALID_STATE;
    *field = -1;
    for (size_t i = 0; i < reader->head.fields.size(); ++i)
        if (reader->head.fields[i].name == name) *field = static_cast<int32_t>(i);
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xin_getSource(zul_xin_Reader reader, zul_SourceKind* kind,
                                     const void** bytes, size_t* size) {
    if (!reader || !kind || !bytes || !size) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader) || reader->headOnly) return zul_STATUS_INVALID_STATE;
    *kind = static_cast<zul_SourceKind>(reader->meta.sourceKind);
    *bytes = reader->meta.source.empty() ? nullptr : reader->meta.source.data();
    *size = reader->meta.source.size();
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xin_getFormat(zul_xin_Reader reader, const char** format) {
    if (!reader || !format) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader) || reader->headOnly) return zul_STATUS_INVALID_STATE;
    *format = reader->meta.format.c_str();
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xin_getConventionCount(zul_xin_Reader reader, int32_t* count) {
    if (!reader || !count) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader) || reader->headOnly) return zul_STATUS_INVALID_STATE;
    *count = static_cast<int32_t>(reader->meta.conventions.size());
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xin_getConvention(zul_xin_Reader reader, int32_t i, const char** key,
                                         const char** value) {
    if (!reader || !key || !value) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader) || reader->headOnly) return zul_STATUS_INVALID_STATE;
    if (i < 0 || i >= static_cast<int32_t>(reader->meta.conventions.size()))
        return zul_STATUS_INVALID_ARGUMENT;
    *key = reader->meta.conventions[static_cast<size_t>(i)].first.c_str();
    *value = reader->meta.conventions[static_cast<size_t>(i)].second.c_str();
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xin_getRowInfo(zul_xin_Reader reader, int64_t* count, int32_t* width) {
    if (!reader || !count || !width) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader) || reader->headOnly) return zul_STATUS_INVALID_STATE;
    *count = reader->meta.rowCount;
    *width = reader->meta.rowWidth;
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xin_readRows(zul_xin_Reader reader, uint64_t* indices, void* rows,
                                    int64_t capacity) {
    if (!reader || !indices || !rows) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader) || reader->headOnly) return zul_STATUS_INVALID_STATE;
    const Meta& meta = reader->meta;
    if (capacity < meta.rowCount) return zul_STATUS_INVALID_ARGUMENT;
    zul_Status status =
        decodeSegment(meta.rowIndices.coding, meta.rowIndices.bytes.data(),
                      meta.rowIndices.bytes.size(), meta.rowCount, 8, nullptr, indices);
    if (status == zul_STATUS_OK)
        status =
            decodeSegment(meta.rowBytes.coding, meta.rowBytes.bytes.data(),
                          meta.rowBytes.bytes.size(), meta.rowCount, meta.rowWidth, nullptr, rows);
    for (int64_t i = 1; status == zul_STATUS_OK && i < meta.rowCount; ++i)
        if (indices[i] <= indices[i - 1]) status = zul_STATUS_CORRUPT_DATA;
    return status;
}

ZUL_API zul_Status zul_xin_readColumn(zul_xin_Reader reader, int64_t chunk, int32_t field,
                                      void* values, int64_t capacity) {
    if (!reader || field < 0) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader)) return zul_STATUS_INVALID_STATE;
    return reader->readSegment(chunk, field, values, capacity);
}

ZUL_API zul_Status zul_xin_readOrder(zul_xin_Reader reader, int64_t chunk, uint64_t* indices,
                                     int64_t capacity) {
    if (!reader) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader)) return zul_STATUS_INVALID_STATE;
    return reader->readSegment(chunk, -1, indices, capacity);
}

ZUL_API zul_Status zul_xin_readColumnFromBlock(zul_xin_Reader reader, int64_t chunk, int32_t field,
                                               const void* block, size_t size, void* values,
                                               int64_t capacity) {
    if (!reader || (!block && size)) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader)) return zul_STATUS_INVALID_STATE;
    size_t segment = 0;
    const zul_Status status = reader->prepare(chunk, field, capacity, values, segment);
    if (status != zul_STATUS_OK) return status;
    return reader->decodeOne(reader->head.chunks[static_cast<size_t>(chunk)],
                             static_cast<const uint8_t*>(block), size, segment, values);
}

ZUL_API zul_Status zul_xin_readChunk(zul_xin_Reader reader, int64_t chunk, void* const* values,
                                     int32_t numFields, uint64_t* indices, int64_t capacity) {
    if (!reader) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader)) return zul_STATUS_INVALID_STATE;
    zul_Status status = reader->prepareAll(chunk, values, numFields, indices, capacity);
    if (status != zul_STATUS_OK) return status;
    const ChunkEntry& entry = reader->head.chunks[static_cast<size_t>(chunk)];
    std::vector<uint8_t> copy;
    const uint8_t* block = nullptr;
    status = reader->readBlock(entry, copy, block);
    if (status != zul_STATUS_OK) return status;
    return reader->decode(entry, block, static_cast<size_t>(entry.blockSize),
                          reader->rooms(values, numFields, indices).data());
}

ZUL_API zul_Status zul_xin_readChunkFromBlock(zul_xin_Reader reader, int64_t chunk,
                                              const void* block, size_t size, void* const* values,
                                              int32_t numFields, uint64_t* indices,
                                              int64_t capacity) {
    if (!reader || (!block && size)) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader)) return zul_STATUS_INVALID_STATE;
    const zul_Status status = reader->prepareAll(chunk, values, numFields, indices, capacity);
    if (status != zul_STATUS_OK) return status;
    return reader->decode(reader->head.chunks[static_cast<size_t>(chunk)],
                          static_cast<const uint8_t*>(block), size,
                          reader->rooms(values, numFields, indices).data());
}

ZUL_API zul_Status zul_xin_checkBlock(zul_xin_Reader reader, int64_t chunk) {
    if (!reader) return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader) || reader->headOnly) return zul_STATUS_INVALID_STATE;
    if (chunk < 0 || chunk >= static_cast<int64_t>(reader->head.chunks.size()))
        return zul_STATUS_INVALID_ARGUMENT;
    const ChunkEntry& entry = reader->head.chunks[static_cast<size_t>(chunk)];
    std::vector<uint8_t> block;
    const zul_Status status = reader->source.read(entry.blockOffset, entry.blockSize, block);
    if (status != zul_STATUS_OK) return status;
    return checksumMatches(entry.blockChecksum, checksum(block.data(), block.size()))
               ? zul_STATUS_OK
               : zul_STATUS_CORRUPT_DATA;
}

ZUL_API zul_Status zul_xin_verifyBuffer(zul_xin_Reader reader, const void* bytes, size_t size,
                                        int64_t* bad, int64_t capacity, int64_t* numBad) {
    if (!reader || (!bytes && size) || !numBad || capacity < 0 || (!bad && capacity))
        return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader)) return zul_STATUS_INVALID_STATE;
    ByteSource stream;
    stream.openMemory(bytes, size);
    return reader->verify(stream, bad, capacity, numBad);
}

ZUL_API zul_Status zul_xin_verifyFile(zul_xin_Reader reader, const char* path, int64_t* bad,
                                      int64_t capacity, int64_t* numBad) {
    if (!reader || !path || !numBad || capacity < 0 || (!bad && capacity))
        return zul_STATUS_INVALID_ARGUMENT;
    if (!ready(reader)) return zul_STATUS_INVALID_STATE;
    ByteSource stream;
    if (stream.openFile(path) != zul_STATUS_OK) return zul_STATUS_READ_ERROR;
    return reader->verify(stream, bad, capacity, numBad);
}

ZUL_API void zul_xin_close(zul_xin_Reader* reader) {
    if (!reader) return;
    delete *reader;
    *reader = nullptr;
}

}  // extern "C"

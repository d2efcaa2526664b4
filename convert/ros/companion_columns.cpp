#include "companion_columns.h"

#include <algorithm>
#include <cstring>
#include <set>

#include "point_access.h"
#include "record_columns.h"
#include "ros_error.h"

namespace zul::ros {

namespace {

zul_FieldType fieldType(uint8_t datatype) {
    switch (datatype) {
        case kInt8:
            return zul_FIELD_I8;
        case kUint8:
            return zul_FIELD_U8;
        case kInt16:
            return zul_FIELD_I16;
        case kUint16:
            return zul_FIELD_U16;
        case kInt32:
            return zul_FIELD_I32;
        case kUint32:
            return zul_FIELD_U32;
        case kFloat32:
            return zul_FIELD_F32;
        default:
            return zul_FIELD_F64;
    }
}

// Whether `size` bytes are all zero: 64 at a time, stopping at the first block that is not.
bool allZero(const uint8_t* bytes, size_t size) {
    size_t i = 0;
    for (; i + 64 <= size; i += 64) {
        uint64_t any = 0;
        for (size_t k = 0; k < 64; k += 8) any |= load<uint64_t>(bytes + i + k, false);
        if (any != 0) return false;
    }
    uint64_t any = 0;
    for (; i < size; ++i) any |= bytes[i];
    return any == 0;
}

// The values of the points `indices` names, `W` bytes each, from `source` (by message index).
template <size_t W>
void gatherByIndex(const uint8_t* source, const uint64_t* indices, size_t n, uint8_t* out) {
    for (size_t j = 0; j < n; ++j) std::memcpy(out + j * W, source + indices[j] * W, W);
}

void gatherByIndex(const uint8_t* source, const uint64_t* indices, size_t n, uint32_t width,
                   uint8_t* out) {
    switch (width) {
        case 1:
            return gatherByIndex<1>(source, indices, n, out);
        case 2:
            return gatherByIndex<2>(source, indices, n, out);
        case 4:
            return gatherByIndex<4>(source, indices, n, out);
        default:
            return gatherByIndex<8>(source, indices, n, out);
    }
}

void check(zul_Status status, const std::string& what) {
    if (status != zul_STATUS_OK)
        throw Error("compressed_data's companion: " + what + " (" + zul_x_statusText(status) + ")");
}

}  // namespace

std::vector<CompanionField> companionFields(const CloudLayout& layout) {
    std::vector<CompanionField> fields;
    std::set<std::string> taken;
    for (size_t r = 0; r < layout.columns.size(); ++r) {
        const ColumnRange& range = layout.columns[r];
        const uint32_t values = range.padding ? 1 : range.count;
        for (uint32_t k = 0; k < values; ++k) {
            CompanionField field;
            field.name = range.count > 1 && !range.padding
                             ? range.name + "[" + std::to_string(k) + "]"
                             : range.name;
            // The companion takes names of UTF-8 without NUL; a message's may hold any bytes.
            const bool plain = std::all_of(field.name.begin(), field.name.end(),
                                           [](char c) { return c >= 0x20 && c < 0x7f; });
            if (field.name.empty() || !plain || field.name.size() > ZUL_FIELD_NAME_MAX ||
                taken.count(field.name)) {
                field.name = "#" + std::to_string(r) + "." + std::to_string(k);
                while (taken.count(field.name)) field.name += "_";
            }
            taken.insert(field.name);
            field.type = range.padding ? zul_FIELD_RAW : fieldType(range.datatype);
            field.width = range.padding ? range.count : range.valueSize;
            field.offset = range.offset + k * range.valueSize;
            fields.push_back(field);
        }
    }
    return fields;
}

CompanionWriter::CompanionWriter(const CloudLayout& layout, const uint8_t* streamHead,
                                 size_t headSize)
    : fields_(companionFields(layout)),
      sources_(fields_.size(), nullptr),
      bigEndian_(layout.bigEndian) {
    zul_xout_open(&writer_, nullptr);
    for (const CompanionField& field : fields_)
        check(zul_xout_addField(writer_, field.name.c_str(), field.type, int32_t(field.width),
                                nullptr),
              "field '" + field.name + "' refused");
    check(zul_xout_keepOrder(writer_), "the order refused");
    check(zul_xout_setFormat(writer_, "ros PointCloud2"), "the format refused");
    check(zul_xout_beginStream(writer_, streamHead, headSize), "the stream's head refused");
}

void CompanionWriter::chunk(const std::vector<const uint8_t*>& records,
                            const std::vector<uint64_t>& indices, const uint8_t* bytes,
                            size_t size) {
    check(zul_xout_addChunkBytes(writer_, bytes, size), "a chunk refused");
    const size_t n = records.size();
    for (size_t f = 0; f < fields_.size(); ++f) {
        const CompanionField& field = fields_[f];
        // Only grows: a resize would zero what it adds for each wider field.
        if (values_.size() < n * field.width) values_.resize(n * field.width);
        if (sources_[f])
            gatherByIndex(sources_[f], indices.data(), n, field.width, values_.data());
        else
            gatherValues(records.data(), n, field.offset, field.width,
                         bigEndian_ && field.type != zul_FIELD_RAW, values_.data());
        check(zul_xout_writeColumn(writer_, chunks_, int32_t(f), values_.data(), int64_t(n)),
              "a column refused");
    }
    check(zul_xout_writeOrder(writer_, chunks_, indices.data(), int64_t(n)), "the order refused");
    ++chunks_;
}

size_t CompanionWriter::finish(const std::vector<uint8_t>& stream) {
    check(zul_xout_finish(writer_, &companion_, &companionSize_), "cannot be finished");
    zul_xblob_pack(stream.data(), stream.size(), companion_, companionSize_, nullptr, 0,
                   &blobSize_);
    return blobSize_;
}

void CompanionWriter::appendBlob(const std::vector<uint8_t>& stream,
                                 std::vector<uint8_t>& out) const {
    // Packed from the writer's bytes straight into place.
    const size_t at = out.size();
    out.resize(at + blobSize_);
    size_t size = 0;
    check(zul_xblob_pack(stream.data(), stream.size(), companion_, companionSize_, out.data() + at,
                         blobSize_, &size),
          "cannot be packed with the stream");
    out.resize(at + size);
}

CompanionColumnReader::CompanionColumnReader(const CloudLayout& layout, const uint8_t* companion,
                                             size_t size, const uint8_t* stream, size_t streamSize,
                                             size_t chunks)
    : fields_(companionFields(layout)), bigEndian_(layout.bigEndian) {
    const zul_Status opened = zul_xin_openBuffer(&reader_, companion, size);
    check(opened, "cannot be opened");
    check(zul_xin_bindStreamBuffer(reader_, stream, streamSize), "does not belong to the stream");
    zul_CompanionInfo info;
    check(zul_xin_getInfo(reader_, &info), "has no head");
    if (info.numChunks != int64_t(chunks) || info.numFields != int32_t(fields_.size()) ||
        !info.hasOrder)
        throw Error("compressed_data's companion holds " + std::to_string(info.numChunks) +
                    " chunks and " + std::to_string(info.numFields) +
                    " columns, the cloud's layout " + std::to_string(chunks) + " and " +
                    std::to_string(fields_.size()) + (info.hasOrder ? "" : ", and no order"));
    for (size_t f = 0; f < fields_.size(); ++f) {
        zul_FieldInfo field;
        check(zul_xin_getField(reader_, int32_t(f), &field), "lacks a column");
        if (fields_[f].name != field.name || field.type != fields_[f].type ||
            uint32_t(field.width) != fields_[f].width)
            throw Error("compressed_data's companion holds '" + std::string(field.name) +
                        "' where the cloud's layout puts '" + fields_[f].name + "'");
    }
    values_.resize(fields_.size());
}

void CompanionColumnReader::readChunk(int64_t chunk, uint32_t n, std::vector<uint64_t>& order) {
    readPoints_ = 0;
    order.resize(n);
    std::vector<void*> rooms(fields_.size());
    for (size_t f = 0; f < fields_.size(); ++f) {
        values_[f].resize(size_t(n) * fields_[f].width);
        rooms[f] = values_[f].data();
    }
    // Every column and the order with one read and check of the chunk's block.
    check(zul_xin_readChunk(reader_, chunk, rooms.data(), int32_t(fields_.size()), order.data(), n),
          "chunk " + std::to_string(chunk) + "'s columns cannot be read");
    readPoints_ = n;
}

void CompanionColumnReader::place(uint8_t* const* records) const {
    for (size_t f = 0; f < fields_.size(); ++f) {
        const CompanionField& field = fields_[f];
        // The records are zero to begin with: a column of zeros (padding, mostly) needs no moves.
        if (allZero(values_[f].data(), size_t(readPoints_) * field.width)) continue;
        scatterValues(values_[f].data(), readPoints_, field.offset, field.width,
                      bigEndian_ && field.type != zul_FIELD_RAW, records);
    }
}

}  // namespace zul::ros

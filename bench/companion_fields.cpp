// Bits a point of the companion's columns, field by field, for LAS files of point formats 0 to 5:
// the fields the stream does not hold (returns byte, classification, scan angle, user data, point
// source ID, GPS time, the low bytes of 16-bit colour), coded in the stored order of 10000-point
// chunks cut in file order, and the input order that --keep-order adds. Figures, not timings.
//
//   companion_fields FILE.las...      (default: the LAS files of ../shared/data)
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "zul_companion.h"

namespace {

using Bytes = std::vector<uint8_t>;

template <typename T>
T at(const Bytes& b, size_t offset) {
    T value;
    std::memcpy(&value, &b[offset], sizeof value);
    return value;
}

struct LasField {
    const char* name;
    zul_FieldType type;
    int offset, width;  // in the record
};

// The fields of the records of point formats 0 to 5 that the stream lacks.
std::vector<LasField> fieldsOf(int format) {
    std::vector<LasField> fields = {{"returns", zul_FIELD_U8, 14, 1},
                                    {"classification", zul_FIELD_U8, 15, 1},
                                    {"scan_angle_rank", zul_FIELD_I8, 16, 1},
                                    {"user_data", zul_FIELD_U8, 17, 1},
                                    {"point_source_id", zul_FIELD_U16, 18, 2}};
    if (format == 1 || format >= 3) fields.push_back({"gps_time", zul_FIELD_F64, 20, 8});
    const int rgb = format == 2 ? 20 : format == 3 || format == 5 ? 28 : -1;
    if (rgb >= 0) fields.push_back({"colour_low_bytes", zul_FIELD_RAW, rgb, 6});
    return fields;
}

// A stream of the positions in chunks of 10000 points, each point's index in its chunk as its
// reflection: the decoded reflections give the stored order.
Bytes encodePositions(const std::vector<double>& xyz, double step, std::vector<int64_t>& order) {
    zul_DataType dataType;
    zul_Header2 header;
    zul_init_headers(&dataType, &header);
    dataType.quantizationStep = static_cast<float>(step);
    dataType.colorMode = zul_COLOR_NONE;
    dataType.reflectionMode = zul_REFLECTION_CLAMPED;
    dataType.maxReflection = 10000;
    zul_enc_Context encoder = nullptr;
    zul_enc_open(&encoder, &dataType);
    const char* bytes = nullptr;
    int size = 0;
    zul_enc_createFileSignature(encoder, &bytes);
    Bytes stream(bytes, bytes + 8);
    zul_enc_encodeFileHeader(encoder, &bytes, &size);
    stream.insert(stream.end(), bytes, bytes + size);
    const int64_t n = static_cast<int64_t>(xyz.size() / 3);
    for (int64_t first = 0; first < n; first += ZUL_DEFAULT_CHUNK_SIZE) {
        const int count = static_cast<int>(std::min<int64_t>(ZUL_DEFAULT_CHUNK_SIZE, n - first));
        std::vector<int32_t> index(static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) index[static_cast<size_t>(i)] = i;
        zul_PointData points = {count, const_cast<double*>(&xyz[static_cast<size_t>(3 * first)]),
                                nullptr, index.data(), nullptr};
        zul_enc_encodeChunk(encoder, &bytes, &size, &points);
        stream.insert(stream.end(), bytes, bytes + size);
    }
    zul_enc_close(&encoder);
    zul_idx_Index idx = nullptr;
    zul_idx_openBuffer(&idx, stream.data(), stream.size(), nullptr);
    zul_bulk_Points all;
    int64_t total = 0;
    zul_idx_getCounts(idx, nullptr, &total);
    zul_bulk_allocate(idx, total, &all);
    zul_bulk_decode(idx, 1, &all, nullptr);
    order.resize(static_cast<size_t>(total));
    for (int64_t i = 0; i < total; ++i)
        order[static_cast<size_t>(i)] =
            i / ZUL_DEFAULT_CHUNK_SIZE * ZUL_DEFAULT_CHUNK_SIZE + all.reflections[i];
    zul_bulk_free(&all);
    zul_idx_close(&idx);
    return stream;
}

// The column of `field` of the points `order[first .. first + count)` (the colour's low bytes:
// three a point, of six in the record).
Bytes columnOf(const Bytes& records, int recordLength, const std::vector<int64_t>& order,
               int64_t first, int64_t count, const LasField& field) {
    Bytes column;
    for (int64_t i = first; i < first + count; ++i) {
        const int64_t record = order[static_cast<size_t>(i)];
        const uint8_t* p = &records[static_cast<size_t>(record * recordLength + field.offset)];
        if (field.type == zul_FIELD_RAW)
            for (int c = 0; c < 3; ++c) column.push_back(p[2 * c]);
        else
            column.insert(column.end(), p, p + field.width);
    }
    return column;
}

// The companion of `fields`, with or without the order: the bytes of its blocks, and of the whole
// file in `*fileSize` when it is not null.
int64_t blockBytes(const Bytes& stream, const Bytes& records, int recordLength,
                   const std::vector<int64_t>& order, const std::vector<LasField>& fields,
                   bool withOrder, int64_t* fileSize = nullptr) {
    zul_xout_Writer writer = nullptr;
    zul_xout_open(&writer, nullptr);
    for (const LasField& field : fields)
        zul_xout_addField(writer, field.name, field.type,
                          field.type == zul_FIELD_RAW ? 3 : field.width, nullptr);
    if (withOrder) zul_xout_keepOrder(writer);
    zul_xout_bindStreamBuffer(writer, stream.data(), stream.size());
    const int64_t n = static_cast<int64_t>(order.size());
    for (int64_t first = 0, chunk = 0; first < n; first += ZUL_DEFAULT_CHUNK_SIZE, ++chunk) {
        const int64_t count = std::min<int64_t>(10000, n - first);
        for (size_t f = 0; f < fields.size(); ++f) {
            const Bytes column = columnOf(records, recordLength, order, first, count, fields[f]);
            zul_xout_writeColumn(writer, chunk, static_cast<int32_t>(f), column.data(), count);
        }
        std::vector<uint64_t> indices(order.begin() + first, order.begin() + first + count);
        if (withOrder) zul_xout_writeOrder(writer, chunk, indices.data(), count);
    }
    const void* bytes = nullptr;
    size_t size = 0;
    zul_xout_finish(writer, &bytes, &size);
    zul_xin_Reader reader = nullptr;
    zul_xin_openBuffer(&reader, bytes, size);
    zul_CompanionInfo info;
    zul_xin_getInfo(reader, &info);
    int64_t sum = 0;
    for (int64_t c = 0; c < info.numChunks; ++c) {
        zul_CompanionChunk chunk;
        zul_xin_getChunk(reader, c, &chunk);
        sum += chunk.blockSize;
    }
    if (fileSize) *fileSize = static_cast<int64_t>(size);
    zul_xin_close(&reader);
    zul_xout_close(&writer);
    return sum;
}

void measure(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    const Bytes file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (file.size() < 227 || std::memcmp(file.data(), "LASF", 4) != 0) {
        std::printf("%s: not a LAS file\n", path.c_str());
        return;
    }
    const int format = file[104] & 0x3F, recordLength = at<uint16_t>(file, 105);
    const int64_t n = at<uint32_t>(file, 107);
    const size_t first = at<uint32_t>(file, 96);
    if (format > 5 || first + static_cast<size_t>(n * recordLength) > file.size()) {
        std::printf("%s: point format %d or its size is not measured here\n", path.c_str(), format);
        return;
    }
    const Bytes records(
        file.begin() + static_cast<long>(first),
        file.begin() + static_cast<long>(first + static_cast<size_t>(n * recordLength)));
    double scale[3], offset[3];
    for (int a = 0; a < 3; ++a)
        scale[a] = at<double>(file, 131 + 8 * a), offset[a] = at<double>(file, 155 + 8 * a);
    std::vector<double> xyz(static_cast<size_t>(3 * n));
    for (int64_t i = 0; i < n; ++i)
        for (int a = 0; a < 3; ++a)
            xyz[static_cast<size_t>(3 * i + a)] =
                at<int32_t>(records, static_cast<size_t>(i * recordLength + 4 * a)) * scale[a] +
                offset[a];
    std::vector<int64_t> order;
    const Bytes stream = encodePositions(xyz, std::min({scale[0], scale[1], scale[2]}), order);
    std::printf("%s: %lld points, point format %d, record %d bytes\n", path.c_str(),
                static_cast<long long>(n), format, recordLength);
    const double orderBits = 8.0 * blockBytes(stream, records, recordLength, order, {}, true) / n;
    std::printf("  %-18s %14s %14s\n", "bits a point", "stored order", "order kept");
    double total = 0, totalKept = orderBits;
    for (const LasField& field : fieldsOf(format)) {
        const double bits =
            8.0 * blockBytes(stream, records, recordLength, order, {field}, false) / n;
        const double kept =
            8.0 * blockBytes(stream, records, recordLength, order, {field}, true) / n - orderBits;
        total += bits, totalKept += kept;
        std::printf("  %-18s %14.2f %14.2f\n", field.name, bits, kept);
    }
    std::printf("  %-18s %14s %14.2f\n  %-18s %14.2f %14.2f\n", "input order", "", orderBits, "sum",
                total, totalKept);
    int64_t plain = 0, kept = 0;
    blockBytes(stream, records, recordLength, order, fieldsOf(format), false, &plain);
    blockBytes(stream, records, recordLength, order, fieldsOf(format), true, &kept);
    std::printf("  %-18s %14.2f %14.2f   (the whole file: head, blocks, metadata)\n",
                "one companion", 8.0 * plain / n, 8.0 * kept / n);
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> paths(argv + 1, argv + argc);
    if (paths.empty())
        for (const char* name : {"sample_c.las", "4_6_crop.las", "1.2-with-color.las"})
            paths.push_back(std::string(ZUL_DATA_DIR) + "/" + name);
    for (const std::string& path : paths) measure(path);
    return 0;
}

// The native side of the web companion reader's test: writes a companion for a stream with the
// library's writer (zul_xout_*), then reads every column back with its reader (zul_xin_*) into
// PREFIX.NAME, one raw file a field, its chunks back to back, and prints the fields as JSON.
//   companion_make STREAM.zul OUT.zulx PREFIX all   every column type, the input's order kept
//   companion_make STREAM.zul OUT.zulx PREFIX las   classification, gps_time, return_number
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "zul_companion.h"

namespace {

struct Column {
    const char* name;
    zul_FieldType type;
    int32_t width;
};

const Column kAll[] = {
    {"u8", zul_FIELD_U8, 1},   {"i8", zul_FIELD_I8, 1},    {"u16", zul_FIELD_U16, 2},
    {"i16", zul_FIELD_I16, 2}, {"u32", zul_FIELD_U32, 4},  {"i32", zul_FIELD_I32, 4},
    {"u64", zul_FIELD_U64, 8}, {"i64", zul_FIELD_I64, 8},  {"f32", zul_FIELD_F32, 4},
    {"f64", zul_FIELD_F64, 8}, {"raw3", zul_FIELD_RAW, 3}, {"smooth_u64", zul_FIELD_U64, 8}};
const Column kLas[] = {{"classification", zul_FIELD_U8, 1},
                       {"gps_time", zul_FIELD_F64, 8},
                       {"return_number", zul_FIELD_U8, 1}};

uint64_t mix(uint64_t x) {
    x += 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
}

// Value `i` (the point's input index) of a column, as `width` bytes: a mix of smooth runs, which
// the writer codes by difference, and noise, extremes included.
void valueOf(const std::string& name, zul_FieldType type, uint64_t i, uint8_t* out, int32_t width) {
    const uint64_t noise = mix(i * 31 + name.size());
    if (name == "classification") {
        static const uint8_t classes[] = {1, 2, 2, 2, 3, 4, 5, 6, 9, 2};
        out[0] = classes[(i / 37 + noise % 2) % 10];
    } else if (name == "return_number") {
        out[0] = static_cast<uint8_t>(1 + noise % 3);
    } else if (name == "gps_time" || type == zul_FIELD_F64) {
        const double v = i % 97 == 0 ? -0.0 : 400000.0 + static_cast<double>(i) * 1.25e-5;
        std::memcpy(out, &v, 8);
    } else if (type == zul_FIELD_F32) {
        // 1000 with noise in the low mantissa bits: the XOR with the value before codes it best.
        const uint32_t bits =
            i % 50 == 3 ? 0x7F7FFFFFu : 0x447A0000u | static_cast<uint32_t>(noise & 0xFFF);
        std::memcpy(out, &bits, 4);
    } else if (name == "smooth_u64") {
        const uint64_t v = 0xFFFFFFFFull * 3 + i * 4099;  // crosses 32-bit boundaries
        std::memcpy(out, &v, 8);
    } else {
        const uint64_t v = i % 13 == 0 ? ~uint64_t{0} : (i % 2 ? noise : i * 1000003);
        std::memcpy(out, &v, static_cast<size_t>(width));
    }
}

bool fail(const char* what, zul_Status status) {
    std::fprintf(stderr, "companion_make: %s: %s\n", what, zul_x_statusText(status));
    return false;
}

bool run(const char* stream, const char* out, const std::string& prefix, bool all) {
    const Column* columns = all ? kAll : kLas;
    const int numColumns = all ? sizeof kAll / sizeof *kAll : sizeof kLas / sizeof *kLas;
    zul_idx_Index index = nullptr;
    zul_Status s = zul_idx_openFile(&index, stream, nullptr);
    int64_t numChunks = 0;
    if (s == zul_STATUS_OK) s = zul_idx_getCounts(index, &numChunks, nullptr);
    if (s != zul_STATUS_OK) return fail(stream, s);
    zul_xout_Writer writer = nullptr;
    zul_xout_open(&writer, out);
    for (int f = 0; f < numColumns && s == zul_STATUS_OK; ++f)
        s = zul_xout_addField(writer, columns[f].name, columns[f].type, columns[f].width, nullptr);
    if (s == zul_STATUS_OK && all) s = zul_xout_keepOrder(writer);
    if (s == zul_STATUS_OK) s = zul_xout_bindStreamFile(writer, stream);
    // The input index of stored point p of a chunk starting at `first`: reversed in odd chunks,
    // strided in even ones, so that the stored order is not the input's.
    uint64_t first = 0;
    for (int64_t c = 0; c < numChunks && s == zul_STATUS_OK; ++c) {
        zul_idx_Chunk chunk = {};
        s = zul_idx_getChunk(index, c, &chunk);
        const uint64_t n = static_cast<uint64_t>(chunk.numPoints);
        std::vector<uint64_t> inputs(n);
        for (uint64_t p = 0; p < n; ++p) inputs[p] = first + (c % 2 ? n - 1 - p : (p * 7919) % n);
        for (int f = 0; f < numColumns && s == zul_STATUS_OK; ++f) {
            std::vector<uint8_t> values(n * static_cast<size_t>(columns[f].width));
            for (uint64_t p = 0; p < n; ++p)
                valueOf(columns[f].name, columns[f].type, all ? inputs[p] : first + p,
                        values.data() + p * columns[f].width, columns[f].width);
            s = zul_xout_writeColumn(writer, c, f, values.data(), static_cast<int64_t>(n));
        }
        if (s == zul_STATUS_OK && all)
            s = zul_xout_writeOrder(writer, c, inputs.data(), static_cast<int64_t>(n));
        first += n;
    }
    if (s == zul_STATUS_OK) s = zul_xout_finish(writer, nullptr, nullptr);
    zul_xout_close(&writer);
    zul_idx_close(&index);
    if (s != zul_STATUS_OK) return fail(out, s);

    // Read back by the library's reader, bound to the stream.
    zul_xin_Reader reader = nullptr;
    s = zul_xin_openFile(&reader, out);
    if (s == zul_STATUS_OK) s = zul_xin_bindStreamFile(reader, stream);
    zul_CompanionInfo info = {};
    if (s == zul_STATUS_OK) s = zul_xin_getInfo(reader, &info);
    std::printf("{\"chunks\": %lld, \"headSize\": %lld, \"fields\": [",
                static_cast<long long>(info.numChunks), static_cast<long long>(info.headSize));
    for (int f = 0; f < info.numFields && s == zul_STATUS_OK; ++f) {
        zul_FieldInfo field = {};
        s = zul_xin_getField(reader, f, &field);
        FILE* raw = std::fopen((prefix + "." + field.name).c_str(), "wb");
        for (int64_t c = 0; c < info.numChunks && s == zul_STATUS_OK && raw; ++c) {
            zul_CompanionChunk chunk = {};
            s = zul_xin_getChunk(reader, c, &chunk);
            std::vector<uint8_t> values(static_cast<size_t>(chunk.chunk.numPoints) * field.width);
            if (s == zul_STATUS_OK)
                s = zul_xin_readColumn(reader, c, f, values.data(), chunk.chunk.numPoints);
            if (s == zul_STATUS_OK &&
                std::fwrite(values.data(), 1, values.size(), raw) != values.size())
                s = zul_STATUS_WRITE_ERROR;
        }
        if (!raw || std::fclose(raw) != 0) s = zul_STATUS_WRITE_ERROR;
        std::printf("%s{\"name\": \"%s\", \"type\": %d, \"width\": %d}", f ? ", " : "", field.name,
                    static_cast<int>(field.type), field.width);
    }
    std::printf("]}\n");
    zul_xin_close(&reader);
    return s == zul_STATUS_OK || fail(out, s);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5 || (std::string(argv[4]) != "all" && std::string(argv[4]) != "las")) {
        std::fprintf(stderr, "usage: companion_make STREAM.zul OUT.zulx PREFIX all|las\n");
        return 2;
    }
    return run(argv[1], argv[2], argv[3], std::string(argv[4]) == "all") ? 0 : 1;
}

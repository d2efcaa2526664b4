/* zul::CompanionWriter and zul::CompanionReader: the companion file of zul_companion.h as C++
 * classes (link libzul_companion.so). Every failing call throws zul::Error naming the C function,
 * the file where there is one, and the companion's words for the status.
 *
 *   zul::CompanionWriter out("scan.zulx");
 *   const int gps = out.addField("gps_time", zul_FIELD_F64);
 *   out.bindStreamFile("scan.zul");
 *   out.writeColumn(0, gps, times);                      // for every chunk, in order
 *   out.finish();
 *
 *   zul::CompanionReader in("scan.zulx", "scan.zul");    // refused unless bound to that stream
 *   std::vector<double> t = in.column<double>(0, in.field("gps_time"));
 */
#ifndef ZUL_COMPANION_HPP
#define ZUL_COMPANION_HPP

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "codec.hpp"
#include "error.hpp"
#include "zul_companion.h"

namespace zul {

namespace detail {
inline void checkCompanion(zul_Status status, const std::string& where) {
    if (status != zul_STATUS_OK) throw Error(status, where + " (" + zul_x_statusText(status) + ")");
}
}  // namespace detail

class CompanionWriter {
public:
    /* A writer of the file `path` at finish(). */
    explicit CompanionWriter(const std::string& path) : path_(path) { open(path.c_str()); }
    /* A writer in memory: finish() returns the bytes. */
    CompanionWriter() { open(nullptr); }
    ~CompanionWriter() { zul_xout_close(&writer_); }
    CompanionWriter(const CompanionWriter&) = delete;
    CompanionWriter& operator=(const CompanionWriter&) = delete;

    int addField(const std::string& name, zul_FieldType type, int width = 0) {
        int32_t field = -1;
        check(zul_xout_addField(writer_, name.c_str(), type, width, &field), "zul_xout_addField");
        return field;
    }
    void keepOrder() { check(zul_xout_keepOrder(writer_), "zul_xout_keepOrder"); }
    void setThreads(int threads) {
        check(zul_xout_setThreads(writer_, threads), "zul_xout_setThreads");
    }
    void setSource(zul_SourceKind kind, ByteView bytes) {
        check(zul_xout_setSource(writer_, kind, bytes.data(), bytes.size()), "zul_xout_setSource");
    }
    void setFormat(const std::string& format) {
        check(zul_xout_setFormat(writer_, format.c_str()), "zul_xout_setFormat");
    }
    void addConvention(const std::string& key, const std::string& value) {
        check(zul_xout_addConvention(writer_, key.c_str(), value.c_str()),
              "zul_xout_addConvention");
    }
    /* Rows the stream lacks: record numbers (ascending) and `width` bytes a row. */
    void setRows(const std::vector<uint64_t>& indices, const std::vector<uint8_t>& rows,
                 int width) {
        if (rows.size() != indices.size() * static_cast<size_t>(width > 0 ? width : 0))
            check(zul_STATUS_INVALID_ARGUMENT, "zul_xout_setRows");
        check(zul_xout_setRows(writer_, indices.data(), rows.data(),
                               static_cast<int64_t>(indices.size()), width),
              "zul_xout_setRows");
    }
    void bindStream(ByteView stream) {
        check(zul_xout_bindStreamBuffer(writer_, stream.data(), stream.size()),
              "zul_xout_bindStreamBuffer");
    }
    void bindStreamFile(const std::string& path) {
        check(zul_xout_bindStreamFile(writer_, path.c_str()), path + ": zul_xout_bindStreamFile");
    }
    /* A binding by parts: the stream's head, then each chunk's bytes as they are made. */
    void beginStream(ByteView head) {
        check(zul_xout_beginStream(writer_, head.data(), head.size()), "zul_xout_beginStream");
    }
    void addChunkBytes(ByteView chunk) {
        check(zul_xout_addChunkBytes(writer_, chunk.data(), chunk.size()),
              "zul_xout_addChunkBytes");
    }
    /* Values of the field's type (for zul_FIELD_RAW: bytes, width a point). */
    template <typename T>
    void writeColumn(int64_t chunk, int field, const std::vector<T>& values, int width = 0) {
        const int64_t count = static_cast<int64_t>(values.size() * sizeof(T)) /
                              (width > 0 ? width : static_cast<int64_t>(sizeof(T)));
        check(zul_xout_writeColumn(writer_, chunk, field, values.data(), count),
              "zul_xout_writeColumn");
    }
    void writeOrder(int64_t chunk, const std::vector<uint64_t>& indices) {
        check(zul_xout_writeOrder(writer_, chunk, indices.data(),
                                  static_cast<int64_t>(indices.size())),
              "zul_xout_writeOrder");
    }
    /* Writes the file, or returns the bytes of a writer in memory. */
    std::vector<uint8_t> finish() {
        const void* bytes = nullptr;
        size_t size = 0;
        check(zul_xout_finish(writer_, &bytes, &size), "zul_xout_finish");
        const uint8_t* p = static_cast<const uint8_t*>(bytes);
        return p ? std::vector<uint8_t>(p, p + size) : std::vector<uint8_t>();
    }

private:
    void open(const char* path) { check(zul_xout_open(&writer_, path), "zul_xout_open"); }
    void check(zul_Status status, const std::string& call) const {
        detail::checkCompanion(status, path_.empty() ? call : path_ + ": " + call);
    }

    zul_xout_Writer writer_ = nullptr;
    std::string path_;
};

class CompanionReader {
public:
    /* Opens the companion file `path`; with `streamPath`, binds it to that stream. */
    explicit CompanionReader(const std::string& path, const std::string& streamPath = "")
        : path_(path) {
        closeOnThrow([&] {
            check(zul_xin_openFile(&reader_, path.c_str()), "zul_xin_openFile");
            if (!streamPath.empty())
                check(zul_xin_bindStreamFile(reader_, streamPath.c_str()),
                      "zul_xin_bindStreamFile " + streamPath);
        });
    }
    /* Opens companion bytes (which must outlive the reader); with a stream, binds them. */
    explicit CompanionReader(ByteView companion, ByteView stream = ByteView()) {
        closeOnThrow([&] {
            check(zul_xin_openBuffer(&reader_, companion.data(), companion.size()),
                  "zul_xin_openBuffer");
            if (stream.data())
                check(zul_xin_bindStreamBuffer(reader_, stream.data(), stream.size()),
                      "zul_xin_bindStreamBuffer");
        });
    }
    ~CompanionReader() { zul_xin_close(&reader_); }
    CompanionReader(const CompanionReader&) = delete;
    CompanionReader& operator=(const CompanionReader&) = delete;

    zul_CompanionInfo info() const {
        zul_CompanionInfo result;
        check(zul_xin_getInfo(reader_, &result), "zul_xin_getInfo");
        return result;
    }
    zul_CompanionChunk chunk(int64_t chunk) const {
        zul_CompanionChunk result;
        check(zul_xin_getChunk(reader_, chunk, &result), "zul_xin_getChunk");
        return result;
    }
    std::vector<zul_FieldInfo> fields() const {
        std::vector<zul_FieldInfo> result(static_cast<size_t>(info().numFields));
        for (size_t i = 0; i < result.size(); ++i)
            check(zul_xin_getField(reader_, static_cast<int32_t>(i), &result[i]),
                  "zul_xin_getField");
        return result;
    }
    /* The number of the field named `name`, -1 when there is none. */
    int field(const std::string& name) const {
        int32_t result = -1;
        check(zul_xin_findField(reader_, name.c_str(), &result), "zul_xin_findField");
        return result;
    }
    /* Column `field` of chunk `chunk`, as values of T (for zul_FIELD_RAW, T = uint8_t: width bytes
     * a point). */
    template <typename T>
    std::vector<T> column(int64_t chunk, int field) const {
        zul_FieldInfo f;
        check(zul_xin_getField(reader_, field, &f), "zul_xin_getField");
        const int64_t points = this->chunk(chunk).chunk.numPoints;
        std::vector<T> values(static_cast<size_t>(points * f.width) / sizeof(T));
        check(zul_xin_readColumn(reader_, chunk, field, values.data(), points),
              "zul_xin_readColumn");
        return values;
    }
    /* All of chunk `chunk`'s columns at once, with one read of its block (zul_xin_readChunk):
     * column f as bytes, the chunk's point count times its width; `order`, when not null, gets
     * the input indices (the companion must keep them). */
    std::vector<std::vector<uint8_t>> columns(int64_t chunk,
                                              std::vector<uint64_t>* order = nullptr) const {
        const std::vector<zul_FieldInfo> all = fields();
        const int64_t points = this->chunk(chunk).chunk.numPoints;
        std::vector<std::vector<uint8_t>> values(all.size());
        std::vector<void*> rooms(all.size());
        for (size_t f = 0; f < all.size(); ++f) {
            values[f].resize(static_cast<size_t>(points * all[f].width));
            rooms[f] = values[f].data();
        }
        if (order) order->resize(static_cast<size_t>(points));
        check(zul_xin_readChunk(reader_, chunk, rooms.data(), static_cast<int32_t>(all.size()),
                                order ? order->data() : nullptr, points),
              "zul_xin_readChunk");
        return values;
    }
    std::vector<uint64_t> order(int64_t chunk) const {
        std::vector<uint64_t> values(static_cast<size_t>(this->chunk(chunk).chunk.numPoints));
        check(zul_xin_readOrder(reader_, chunk, values.data(), static_cast<int64_t>(values.size())),
              "zul_xin_readOrder");
        return values;
    }
    /* The rows the stream lacks: record numbers, and their bytes (width a row; 0 without rows). */
    struct Rows {
        std::vector<uint64_t> indices;
        std::vector<uint8_t> bytes;
        int width = 0;
    };
    Rows rows() const {
        int64_t count = 0;
        Rows result;
        check(zul_xin_getRowInfo(reader_, &count, &result.width), "zul_xin_getRowInfo");
        if (count == 0) return result;
        result.indices.resize(static_cast<size_t>(count));
        result.bytes.resize(static_cast<size_t>(count) * static_cast<size_t>(result.width));
        check(zul_xin_readRows(reader_, result.indices.data(), result.bytes.data(), count),
              "zul_xin_readRows");
        return result;
    }
    std::pair<zul_SourceKind, std::vector<uint8_t>> source() const {
        zul_SourceKind kind;
        const void* bytes = nullptr;
        size_t size = 0;
        check(zul_xin_getSource(reader_, &kind, &bytes, &size), "zul_xin_getSource");
        const uint8_t* p = static_cast<const uint8_t*>(bytes);
        return {kind, p ? std::vector<uint8_t>(p, p + size) : std::vector<uint8_t>()};
    }
    std::string format() const {
        const char* text = nullptr;
        check(zul_xin_getFormat(reader_, &text), "zul_xin_getFormat");
        return text;
    }
    std::vector<std::pair<std::string, std::string>> conventions() const {
        int32_t count = 0;
        check(zul_xin_getConventionCount(reader_, &count), "zul_xin_getConventionCount");
        std::vector<std::pair<std::string, std::string>> result;
        for (int32_t i = 0; i < count; ++i) {
            const char *key = nullptr, *value = nullptr;
            check(zul_xin_getConvention(reader_, i, &key, &value), "zul_xin_getConvention");
            result.emplace_back(key, value);
        }
        return result;
    }
    /* What zul_xin_verifyFile names: -1 the head, chunks changed or missing, numChunks for bytes
     * after the last; empty for an intact stream. Throws for a stream of another companion or one
     * that cannot be read. */
    std::vector<int64_t> verifyFile(const std::string& streamPath) const {
        return verifyWith([&](int64_t* bad, int64_t capacity, int64_t* count) {
            return zul_xin_verifyFile(reader_, streamPath.c_str(), bad, capacity, count);
        });
    }
    std::vector<int64_t> verify(ByteView stream) const {
        return verifyWith([&](int64_t* bad, int64_t capacity, int64_t* count) {
            return zul_xin_verifyBuffer(reader_, stream.data(), stream.size(), bad, capacity,
                                        count);
        });
    }
    zul_xin_Reader handle() const { return reader_; }

private:
    /* A constructor that throws runs no destructor: the reader is closed here. */
    template <typename Steps>
    void closeOnThrow(Steps steps) {
        try {
            steps();
        } catch (...) {
            zul_xin_close(&reader_);
            throw;
        }
    }
    template <typename Call>
    std::vector<int64_t> verifyWith(Call call) const {
        int64_t count = 0;
        zul_Status status = call(nullptr, 0, &count);
        std::vector<int64_t> bad(static_cast<size_t>(count));
        if (status == zul_STATUS_STREAM_CHANGED && count > 0)
            status = call(bad.data(), count, &count);
        if (status != zul_STATUS_STREAM_CHANGED) check(status, "zul_xin_verify");
        return bad;
    }
    void check(zul_Status status, const std::string& call) const {
        detail::checkCompanion(status, path_.empty() ? call : path_ + ": " + call);
    }

    zul_xin_Reader reader_ = nullptr;
    std::string path_;
};

}  // namespace zul

#endif /* ZUL_COMPANION_HPP */

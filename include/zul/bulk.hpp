/* Part of zul.hpp: zul::ChunkIndex, box queries and the bulk calls of zul_bulk.h.
 *
 *   zul::ChunkIndex index("scan.zul");
 *   zul::BulkCloud all = zul::decodeBulk(index);                 // every chunk, every core
 *   zul::BulkCloud part = zul::decodeBulk(index, index.select(lo, hi), 2);
 *   zul::encodeBulk("copy.zul", all, dataType);                  // chunks of 10000, every core
 *
 * A ChunkIndex may be queried and decoded from by several threads at once; it must outlive them.
 */
#ifndef ZUL_BULK_HPP
#define ZUL_BULK_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "codec.hpp"
#include "error.hpp"
#include "zul_bulk.h"

namespace zul {

/* Where the walk over the chunk headers stopped: status zul_STATUS_OK for a whole stream. */
struct ChunkDamage {
    zul_Status status;
    std::int64_t chunk;
    std::int64_t offset;
};

/* The chunk index of a file or of a buffer (which must outlive the index). The constructor throws
 * zul::Error when the signature or the file header is refused; damaged chunks do not throw: the
 * index lists the chunks in front of the first of them, and damage() says where it is. */
class ChunkIndex {
public:
    explicit ChunkIndex(const std::string& path, bool applyTransformation = true) : path_(path) {
        const zul_dec_Params params = paramsFor(applyTransformation);
        const zul_Status status = zul_idx_openFile(&index_, path.c_str(), &params);
        if (status != zul_STATUS_OK) {
            zul_idx_close(&index_);
            throw Error(status, path + ": zul_idx_openFile");
        }
    }
    explicit ChunkIndex(ByteView stream, bool applyTransformation = true) {
        const zul_dec_Params params = paramsFor(applyTransformation);
        const zul_Status status =
            zul_idx_openBuffer(&index_, stream.data(), stream.size(), &params);
        if (status != zul_STATUS_OK) {
            zul_idx_close(&index_);
            throw Error(status, "zul_idx_openBuffer");
        }
    }
    ~ChunkIndex() { zul_idx_close(&index_); }
    ChunkIndex(ChunkIndex&& other) noexcept
        : index_(std::exchange(other.index_, nullptr)), path_(std::move(other.path_)) {}
    ChunkIndex& operator=(ChunkIndex&& other) noexcept {
        if (this != &other) {
            zul_idx_close(&index_);
            index_ = std::exchange(other.index_, nullptr);
            path_ = std::move(other.path_);
        }
        return *this;
    }
    ChunkIndex(const ChunkIndex&) = delete;
    ChunkIndex& operator=(const ChunkIndex&) = delete;

    zul_DataType dataType() const {
        zul_DataType type{};
        check(zul_idx_getDataType(index_, &type, nullptr), "zul_idx_getDataType");
        return type;
    }
    zul_Header2 header2() const {
        zul_DataType type{};
        zul_Header2 header{};
        check(zul_idx_getDataType(index_, &type, &header), "zul_idx_getDataType");
        return header;
    }
    std::int64_t numChunks() const {
        std::int64_t count = 0;
        check(zul_idx_getCounts(index_, &count, nullptr), "zul_idx_getCounts");
        return count;
    }
    std::int64_t numPoints() const {
        std::int64_t count = 0;
        check(zul_idx_getCounts(index_, nullptr, &count), "zul_idx_getCounts");
        return count;
    }
    zul_idx_Chunk chunk(std::int64_t number) const {
        zul_idx_Chunk info{};
        check(zul_idx_getChunk(index_, number, &info), "zul_idx_getChunk");
        return info;
    }
    std::vector<zul_idx_Chunk> chunks() const {
        std::vector<zul_idx_Chunk> all(static_cast<std::size_t>(numChunks()));
        for (std::size_t k = 0; k < all.size(); ++k) all[k] = chunk(static_cast<std::int64_t>(k));
        return all;
    }
    /* The byte sizes of a chunk's coordinate, colour, reflection and normal streams. */
    std::array<std::int64_t, 4> streamSizes(std::int64_t number) const {
        std::array<std::int64_t, 4> sizes{};
        check(zul_idx_getStreamSizes(index_, number, sizes.data()), "zul_idx_getStreamSizes");
        return sizes;
    }
    /* Raises (or lowers) the decoded bytes a chunk may take; lists on past a chunk that stopped
     * the walk for the old budget. Not while other threads use the index. */
    void setChunkBudget(std::int64_t bytes) {
        check(zul_idx_setChunkBudget(index_, bytes), "zul_idx_setChunkBudget");
    }
    /* Sets the points the stream may claim for each of its bytes (0: no limit); lists on past a
     * chunk that stopped the walk for the old limit. Not while other threads use the index. */
    void setPointDensity(std::int64_t pointsPerByte) {
        check(zul_idx_setPointDensity(index_, pointsPerByte), "zul_idx_setPointDensity");
    }
    ChunkDamage damage() const {
        ChunkDamage where{zul_STATUS_OK, 0, 0};
        check(zul_idx_getDamage(index_, &where.status, &where.chunk, &where.offset),
              "zul_idx_getDamage");
        return where;
    }
    /* The numbers of the chunks that meet the closed box [min, max], in stream order. */
    std::vector<std::int64_t> select(const std::array<double, 3>& min,
                                     const std::array<double, 3>& max) const {
        std::int64_t found = 0;
        check(zul_idx_selectBox(index_, min.data(), max.data(), nullptr, 0, &found),
              "zul_idx_selectBox");
        std::vector<std::int64_t> numbers(static_cast<std::size_t>(found));
        check(zul_idx_selectBox(index_, min.data(), max.data(), numbers.data(), found, &found),
              "zul_idx_selectBox");
        return numbers;
    }
    zul_idx_Index handle() const noexcept { return index_; }
    /* The file's path, or empty for a buffer. */
    const std::string& path() const noexcept { return path_; }

private:
    static zul_dec_Params paramsFor(bool applyTransformation) {
        zul_dec_Params params{};
        params.applyTransformation = applyTransformation ? 1 : 0;
        return params;
    }
    void check(zul_Status status, const char* call) const {
        if (!index_) throw Error(zul_STATUS_INVALID_ARGUMENT, call);
        if (status != zul_STATUS_OK)
            throw Error(status, path_.empty() ? call : path_ + ": " + call);
    }

    zul_idx_Index index_ = nullptr;
    std::string path_;
};

/* Points in contiguous arrays; those of attributes the stream lacks are empty. */
struct BulkCloud {
    std::vector<double> positions;
    std::vector<std::uint8_t> colors;
    std::vector<std::int32_t> reflections;
    std::vector<float> normals;

    std::size_t size() const noexcept { return positions.size() / 3; }
    /* The arrays as the C calls take them (the encoder only reads them). */
    zul_bulk_Points view() const noexcept {
        zul_bulk_Points points{};
        points.numPoints = static_cast<std::int64_t>(size());
        points.positions = const_cast<double*>(positions.data());
        points.colors = colors.empty() ? nullptr : const_cast<std::uint8_t*>(colors.data());
        points.reflections =
            reflections.empty() ? nullptr : const_cast<std::int32_t*>(reflections.data());
        points.normals = normals.empty() ? nullptr : const_cast<float*>(normals.data());
        return points;
    }
};

namespace detail {

/* A failed bulk call: its status, and the chunk in the message. */
inline void checkBulk(zul_Status status, const char* call, std::int64_t failedChunk,
                      const std::string& path) {
    if (status == zul_STATUS_OK) return;
    std::string where = path.empty() ? std::string(call) : path + ": " + call;
    if (failedChunk >= 0) where += " (chunk " + std::to_string(failedChunk) + ")";
    throw Error(status, where);
}

}  // namespace detail

/* Decodes the listed chunks (all of them with the overload without a list) into arrays of its own,
 * on `threads` threads (0: one a core). Throws zul::Error naming the first chunk that fails. */
inline BulkCloud decodeBulk(const ChunkIndex& index, const std::vector<std::int64_t>& chunks,
                            int threads = 0) {
    std::int64_t count = 0;
    detail::checkBulk(zul_idx_countPoints(index.handle(), chunks.data(),
                                          static_cast<std::int64_t>(chunks.size()), &count),
                      "zul_idx_countPoints", -1, index.path());
    const zul_DataType type = index.dataType();
    const std::size_t n = static_cast<std::size_t>(count);
    BulkCloud cloud;
    cloud.positions.resize(3 * n);
    if (type.colorMode != zul_COLOR_NONE) cloud.colors.resize(3 * n);
    if (type.reflectionMode != zul_REFLECTION_NONE) cloud.reflections.resize(n);
    if (type.normalMode != zul_NORMAL_NONE) cloud.normals.resize(3 * n);
    zul_bulk_Points points = cloud.view();
    std::int64_t failed = -1;
    detail::checkBulk(
        zul_bulk_decodeChunks(index.handle(), chunks.data(),
                              static_cast<std::int64_t>(chunks.size()), threads, &points, &failed),
        "zul_bulk_decodeChunks", failed, index.path());
    return cloud;
}

/* Every listed chunk; throws the index's damage, if any, after decoding. */
inline BulkCloud decodeBulk(const ChunkIndex& index, int threads = 0) {
    std::vector<std::int64_t> all(static_cast<std::size_t>(index.numChunks()));
    for (std::size_t k = 0; k < all.size(); ++k) all[k] = static_cast<std::int64_t>(k);
    BulkCloud cloud = decodeBulk(index, all, threads);
    const ChunkDamage damage = index.damage();
    detail::checkBulk(damage.status, "zul_bulk_decode", damage.chunk, index.path());
    return cloud;
}

/* Encodes the cloud into a file, in chunks of `plan` (empty: `chunkSize` points each, 0 meaning
 * 10000), on `threads` threads (0: one a core). A null or disabled `header` makes a version 1
 * stream. Throws zul::Error, naming the failed chunk if there is one. */
inline void encodeBulk(const std::string& path, const BulkCloud& cloud,
                       const zul_DataType& dataType, const zul_Header2* header = nullptr,
                       const std::vector<std::int32_t>& plan = {}, std::int32_t chunkSize = 0,
                       int threads = 0) {
    const zul_bulk_Points points = cloud.view();
    std::int64_t failed = -1;
    detail::checkBulk(
        zul_bulk_encodeFile(path.c_str(), &dataType, header, &points,
                            plan.empty() ? nullptr : plan.data(),
                            static_cast<std::int64_t>(plan.size()), chunkSize, threads, &failed),
        "zul_bulk_encodeFile", failed, path);
}

/* A bulk writer (zul_bulk_openWriter): chunks cut by the caller, encoded on `threads` threads (0:
 * one a core), appended in order. With `publish`, the file appears at `path` whole at close() or
 * not at all. A given 16-byte `syncMarker` makes the bytes reproducible. The destructor of a
 * writer that was not closed aborts it (zul_bulk_abortWriter). Throws zul::Error. */
class BulkWriter {
public:
    BulkWriter(const std::string& path, const zul_DataType& dataType,
               const zul_Header2* header = nullptr, int threads = 0, bool publish = false,
               const char* syncMarker = nullptr)
        : path_(path) {
        const zul_Status status =
            zul_bulk_openWriter(&writer_, path.c_str(), &dataType, header, syncMarker, threads,
                                publish ? ZUL_BULK_WRITE_PUBLISH : ZUL_BULK_WRITE_REPLACE);
        if (status != zul_STATUS_OK) {
            zul_bulk_abortWriter(&writer_);
            detail::checkBulk(status, "zul_bulk_openWriter", -1, path_);
        }
    }
    ~BulkWriter() { zul_bulk_abortWriter(&writer_); }
    BulkWriter(const BulkWriter&) = delete;
    BulkWriter& operator=(const BulkWriter&) = delete;

    /* Appends the cloud's points as chunks of `chunkSizes` points, which sum to its size. */
    void write(const BulkCloud& cloud, const std::vector<std::int32_t>& chunkSizes) {
        const zul_bulk_Points points = cloud.view();
        std::int64_t failed = -1;
        detail::checkBulk(
            zul_bulk_writeChunks(writer_, &points, chunkSizes.data(),
                                 static_cast<std::int64_t>(chunkSizes.size()), &failed),
            "zul_bulk_writeChunks", failed, path_);
    }

    /* As write(), and returns the order in which each chunk stores its points: element
     * first + k is the number (0 to the chunk's size - 1) of the k-th point a decoder hands out of
     * the chunk whose first point is point `first` of the cloud. */
    std::vector<std::uint32_t> writeOrdered(const BulkCloud& cloud,
                                            const std::vector<std::int32_t>& chunkSizes) {
        const zul_bulk_Points points = cloud.view();
        std::vector<std::uint32_t> order(cloud.size());
        std::int64_t failed = -1;
        detail::checkBulk(zul_bulk_writeChunksOrdered(writer_, &points, chunkSizes.data(),
                                                      static_cast<std::int64_t>(chunkSizes.size()),
                                                      order.data(), &failed),
                          "zul_bulk_writeChunksOrdered", failed, path_);
        return order;
    }

    /* Appends chunks an Encoder of the writer's data type made (Encoder::encodeChunk), as they
     * are: the file is then what write() of the same points and chunks writes. The writer puts
     * its own sync marker in each chunk. */
    void writeEncoded(const std::vector<ByteView>& chunks) {
        std::vector<const char*> starts;
        std::vector<std::int64_t> sizes;
        for (const ByteView& chunk : chunks) {
            starts.push_back(detail::chars(chunk));
            sizes.push_back(static_cast<std::int64_t>(chunk.size()));
        }
        std::int64_t failed = -1;
        detail::checkBulk(
            zul_bulk_writeEncodedChunks(writer_, starts.data(), sizes.data(),
                                        static_cast<std::int64_t>(chunks.size()), &failed),
            "zul_bulk_writeEncodedChunks", failed, path_);
    }

    /* Completes (and publishes) the file. */
    void close() {
        detail::checkBulk(zul_bulk_closeWriter(&writer_), "zul_bulk_closeWriter", -1, path_);
    }

private:
    zul_bulk_Writer writer_ = nullptr;
    std::string path_;
};

}  // namespace zul

#endif /* ZUL_BULK_HPP */

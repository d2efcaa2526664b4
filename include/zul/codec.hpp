/* Part of zul.hpp: zul::Encoder and zul::Decoder, the in-memory codec, one stream piece a call. */
#ifndef ZUL_CODEC_HPP
#define ZUL_CODEC_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "error.hpp"
#include "zul.h"

namespace zul {

/* A run of bytes that the viewer does not own: a stream piece handed out by an Encoder (valid as
 * zul.h says for the call that made it), or a piece of the caller's buffer given to a Decoder. */
class ByteView {
public:
    ByteView() noexcept = default;
    ByteView(const void* data, std::size_t size) noexcept
        : data_(static_cast<const std::uint8_t*>(data)), size_(size) {}
    ByteView(const std::vector<std::uint8_t>& bytes) noexcept
        : data_(bytes.data()), size_(bytes.size()) {}

    const std::uint8_t* data() const noexcept { return data_; }
    std::size_t size() const noexcept { return size_; }
    const std::uint8_t* begin() const noexcept { return data_; }
    const std::uint8_t* end() const noexcept { return data_ + size_; }
    std::vector<std::uint8_t> toVector() const { return {begin(), end()}; }

private:
    const std::uint8_t* data_ = nullptr;
    std::size_t size_ = 0;
};

namespace detail {

inline const char* chars(ByteView bytes) noexcept {
    return reinterpret_cast<const char*>(bytes.data());
}

/* A piece shorter than the stream says it is: the stream ends inside it. */
inline void needBytes(ByteView bytes, std::size_t size, const char* what) {
    if (bytes.size() < size) throw Error(zul_STATUS_TRUNCATED, what);
}

/* zul_Point records gathered into the parallel arrays of a chunk, and back. */
class PointArrays {
public:
    zul_PointData gather(const zul_DataType& dataType, const zul_Point* points, std::size_t count) {
        if ((count > 0 && points == nullptr) || count > 2147483647u)
            throw Error(zul_STATUS_INVALID_ARGUMENT, "zul_enc_encodeChunk");
        positions_.resize(3 * count);
        colors_.resize(dataType.colorMode != zul_COLOR_NONE ? 3 * count : 0);
        reflections_.resize(dataType.reflectionMode != zul_REFLECTION_NONE ? count : 0);
        normals_.resize(dataType.normalMode != zul_NORMAL_NONE ? 3 * count : 0);
        for (std::size_t i = 0; i < count; ++i) {
            const zul_Point& p = points[i];
            std::memcpy(&positions_[3 * i], p.position, sizeof p.position);
            if (!colors_.empty()) std::memcpy(&colors_[3 * i], p.color, sizeof p.color);
            if (!reflections_.empty()) reflections_[i] = p.reflection;
            if (!normals_.empty()) std::memcpy(&normals_[3 * i], p.normal, sizeof p.normal);
        }
        zul_PointData data;
        data.numPoints = static_cast<std::int32_t>(count);
        data.positions = positions_.data();
        data.colors = colors_.data();
        data.reflections = reflections_.data();
        data.normals = normals_.data();
        return data;
    }

    /* Appends the chunk's points; fields of attributes the chunk lacks are 0. */
    static void append(const zul_PointData& data, std::vector<zul_Point>& out) {
        for (std::size_t i = 0; i < static_cast<std::size_t>(data.numPoints); ++i) {
            zul_Point p{};
            std::memcpy(p.position, &data.positions[3 * i], sizeof p.position);
            if (data.colors) std::memcpy(p.color, &data.colors[3 * i], sizeof p.color);
            if (data.reflections) p.reflection = data.reflections[i];
            if (data.normals) std::memcpy(p.normal, &data.normals[3 * i], sizeof p.normal);
            out.push_back(p);
        }
    }

private:
    std::vector<double> positions_;
    std::vector<std::uint8_t> colors_;
    std::vector<std::int32_t> reflections_;
    std::vector<float> normals_;
};

}  // namespace detail

/* Encodes in memory: the signature, the file header, then one chunk a call. The stream is these
 * pieces, stored in this order. */
class Encoder {
public:
    /* A version 1 stream. */
    explicit Encoder(const zul_DataType& dataType) : Encoder(dataType, nullptr) {}
    /* A version 2 stream if `header` is enabled. */
    Encoder(const zul_DataType& dataType, const zul_Header2& header) : Encoder(dataType, &header) {}

    ~Encoder() { zul_enc_close(&context_); }
    Encoder(Encoder&& other) noexcept
        : context_(std::exchange(other.context_, nullptr)),
          dataType_(other.dataType_),
          arrays_(std::move(other.arrays_)) {}
    Encoder& operator=(Encoder&& other) noexcept {
        if (this != &other) {
            zul_enc_close(&context_);
            context_ = std::exchange(other.context_, nullptr);
            dataType_ = other.dataType_;
            arrays_ = std::move(other.arrays_);
        }
        return *this;
    }
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;

    /* The 8 signature bytes, valid while the encoder lives. */
    ByteView signature() const {
        const char* bytes = nullptr;
        detail::check(zul_enc_createFileSignature(context_, &bytes), "zul_enc_createFileSignature");
        return ByteView(bytes, 8);
    }
    /* The file header (28 bytes, or 164 in version 2), valid while the encoder lives. */
    ByteView fileHeader() const {
        const char* bytes = nullptr;
        int size = 0;
        detail::check(zul_enc_encodeFileHeader(context_, &bytes, &size),
                      "zul_enc_encodeFileHeader");
        return ByteView(bytes, static_cast<std::size_t>(size));
    }
    /* One chunk of these points, valid until the next chunk. */
    ByteView encodeChunk(const zul_PointData& points) {
        const char* bytes = nullptr;
        int size = 0;
        detail::check(zul_enc_encodeChunk(context_, &bytes, &size, &points), "zul_enc_encodeChunk");
        return ByteView(bytes, static_cast<std::size_t>(size));
    }
    /* One chunk of `count` points (fewer than 2^31), valid until the next chunk. */
    ByteView encodeChunk(const zul_Point* points, std::size_t count) {
        if (!context_) detail::check(zul_STATUS_INVALID_ARGUMENT, "zul_enc_encodeChunk");
        return encodeChunk(arrays_.gather(dataType_, points, count));
    }

    zul_enc_Context handle() const noexcept { return context_; }

private:
    Encoder(const zul_DataType& dataType, const zul_Header2* header) : dataType_(dataType) {
        detail::check(zul_enc_open2(&context_, &dataType, header), "zul_enc_open2");
    }

    zul_enc_Context context_ = nullptr;
    zul_DataType dataType_;
    detail::PointArrays arrays_;
};

/* Decodes in memory, one piece at a time as the stream gives it: the 8 signature bytes
 * (constructor), the file header, then for each chunk its header after the 16-byte sync marker,
 * and the body if the points are wanted. A piece shorter than the size the stream gave for it
 * throws zul_STATUS_TRUNCATED. */
class Decoder {
public:
    explicit Decoder(ByteView signature, bool applyTransformation = true) {
        detail::needBytes(signature, 8, "zul_dec_open2");
        zul_dec_Params params{};
        params.applyTransformation = applyTransformation ? 1 : 0;
        const zul_Status status =
            zul_dec_open2(&context_, &fileHeaderSize_, detail::chars(signature), &params);
        if (status != zul_STATUS_OK) {
            zul_dec_close(&context_);
            detail::check(status, "zul_dec_open2");
        }
    }

    ~Decoder() { zul_dec_close(&context_); }
    Decoder(Decoder&& other) noexcept { *this = std::move(other); }
    Decoder& operator=(Decoder&& other) noexcept {
        if (this != &other) {
            zul_dec_close(&context_);
            context_ = std::exchange(other.context_, nullptr);
            fileHeaderSize_ = other.fileHeaderSize_;
            chunkHeaderSize_ = other.chunkHeaderSize_;
            chunkBodySize_ = other.chunkBodySize_;
            syncMarker_ = other.syncMarker_;
            dataType_ = other.dataType_;
            header2_ = other.header2_;
        }
        return *this;
    }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    /* The size of the file header, from the signature: 28 or 164. */
    int fileHeaderSize() const noexcept { return fileHeaderSize_; }

    /* Decodes the file header; afterwards dataType, header2, chunkHeaderSize and syncMarker hold
     * what it says. */
    void decodeFileHeader(ByteView fileHeader) {
        detail::needBytes(fileHeader, static_cast<std::size_t>(fileHeaderSize_),
                          "zul_dec_decodeFileHeader2");
        const char* marker = nullptr;
        detail::check(zul_dec_decodeFileHeader2(context_, &dataType_, &header2_, &chunkHeaderSize_,
                                                &marker, detail::chars(fileHeader)),
                      "zul_dec_decodeFileHeader2");
        syncMarker_ = ByteView(marker, 16);
    }
    const zul_DataType& dataType() const noexcept { return dataType_; }
    /* The sensor header; for a version 1 stream one with `enabled` false. */
    const zul_Header2& header2() const noexcept { return header2_; }
    /* The size of every chunk header (56 to 68), which follows a chunk's 16-byte sync marker. */
    int chunkHeaderSize() const noexcept { return chunkHeaderSize_; }
    /* The 16 bytes that open every chunk of the stream. */
    ByteView syncMarker() const noexcept { return syncMarker_; }

    /* Decodes a chunk header and returns the size of the chunk's body. Skipping the body is
     * calling this again with the next chunk's header. */
    int decodeChunkHeader(ByteView chunkHeader) {
        detail::needBytes(chunkHeader, static_cast<std::size_t>(chunkHeaderSize_),
                          "zul_dec_decodeChunkHeader");
        chunkBodySize_ = 0;
        int bodySize = 0;
        detail::check(zul_dec_decodeChunkHeader(context_, &bodySize, detail::chars(chunkHeader)),
                      "zul_dec_decodeChunkHeader");
        chunkBodySize_ = bodySize;
        return bodySize;
    }
    /* The point count of the last chunk header. */
    int numPointsInChunk() const {
        int numPoints = 0;
        detail::check(zul_dec_getNumPointsInChunk(context_, &numPoints),
                      "zul_dec_getNumPointsInChunk");
        return numPoints;
    }
    /* Decodes the body of the chunk whose header came last. The arrays belong to the decoder
     * and stay valid until the next body or the decoder's end. */
    zul_PointData decodeChunkBody(ByteView chunkBody) {
        detail::needBytes(chunkBody, static_cast<std::size_t>(chunkBodySize_),
                          "zul_dec_decodeChunkBody");
        zul_PointData points{};
        detail::check(zul_dec_decodeChunkBody(context_, &points, detail::chars(chunkBody)),
                      "zul_dec_decodeChunkBody");
        return points;
    }

    zul_dec_Context handle() const noexcept { return context_; }

private:
    zul_dec_Context context_ = nullptr;
    int fileHeaderSize_ = 0;
    int chunkHeaderSize_ = 0;
    int chunkBodySize_ = 0;
    ByteView syncMarker_;
    zul_DataType dataType_{};
    zul_Header2 header2_{};
};

}  // namespace zul

#endif /* ZUL_CODEC_HPP */

/* Part of zul.hpp: a whole cloud encoded into a stream in memory, and back. */
#ifndef ZUL_MEMORY_HPP
#define ZUL_MEMORY_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <vector>

#include "codec.hpp"
#include "error.hpp"
#include "zul.h"

namespace zul {

/* A whole stream decoded: its records and every point, chunk after chunk. */
struct Cloud {
    zul_DataType dataType;
    zul_Header2 header2;
    std::vector<zul_Point> points;
};

/* Encodes `count` points into a whole stream, `chunkSize` points a chunk (1 to 2147483646), as
 * the file writer would write it. A null or disabled `header` gives a version 1 stream. */
inline std::vector<std::uint8_t> encode(const zul_Point* points, std::size_t count,
                                        const zul_DataType& dataType,
                                        const zul_Header2* header = nullptr,
                                        int chunkSize = ZUL_DEFAULT_CHUNK_SIZE) {
    if (chunkSize < 1 || chunkSize > ZUL_MAX_CHUNK_SIZE)
        throw Error(zul_STATUS_INVALID_ARGUMENT, "zul::encode");
    Encoder encoder = header ? Encoder(dataType, *header) : Encoder(dataType);
    std::vector<std::uint8_t> stream;
    const ByteView signature = encoder.signature(), fileHeader = encoder.fileHeader();
    stream.insert(stream.end(), signature.begin(), signature.end());
    stream.insert(stream.end(), fileHeader.begin(), fileHeader.end());
    for (std::size_t first = 0; first < count; first += static_cast<std::size_t>(chunkSize)) {
        const std::size_t n = std::min(count - first, static_cast<std::size_t>(chunkSize));
        const ByteView chunk = encoder.encodeChunk(points + first, n);
        stream.insert(stream.end(), chunk.begin(), chunk.end());
    }
    return stream;
}

inline std::vector<std::uint8_t> encode(const std::vector<zul_Point>& points,
                                        const zul_DataType& dataType,
                                        int chunkSize = ZUL_DEFAULT_CHUNK_SIZE) {
    return encode(points.data(), points.size(), dataType, nullptr, chunkSize);
}

inline std::vector<std::uint8_t> encode(const std::vector<zul_Point>& points,
                                        const zul_DataType& dataType, const zul_Header2& header,
                                        int chunkSize = ZUL_DEFAULT_CHUNK_SIZE) {
    return encode(points.data(), points.size(), dataType, &header, chunkSize);
}

namespace detail {

/* Goes through a whole stream as a file reader does: signature, file header, then for each chunk
 * its marker and header, after which `onChunk(decoder, body)` may decode the body or skip it.
 * Returns the decoder, which holds the stream's records. */
template <typename OnChunk>
Decoder walkStream(ByteView stream, bool applyTransformation, OnChunk onChunk) {
    std::size_t at = 0;
    auto piece = [&](std::size_t size) {
        const ByteView bytes(stream.data() + at, stream.size() - at);
        at += std::min(size, bytes.size());
        return bytes;
    };
    Decoder decoder(piece(8), applyTransformation);
    decoder.decodeFileHeader(piece(static_cast<std::size_t>(decoder.fileHeaderSize())));
    const ByteView marker = decoder.syncMarker();
    while (at < stream.size()) {
        const ByteView chunkMarker = piece(marker.size());
        needBytes(chunkMarker, marker.size(), "zul::decode");
        if (std::memcmp(chunkMarker.data(), marker.data(), marker.size()) != 0)
            throw Error(zul_STATUS_CORRUPT_DATA, "zul::decode");
        const int bodySize =
            decoder.decodeChunkHeader(piece(static_cast<std::size_t>(decoder.chunkHeaderSize())));
        onChunk(decoder, piece(static_cast<std::size_t>(bodySize)));
    }
    return decoder;
}

}  // namespace detail

/* Decodes a whole stream. It must end exactly after a chunk, as a file does: a stream cut
 * inside a piece throws zul_STATUS_TRUNCATED, a chunk that does not open with the stream's sync
 * marker zul_STATUS_CORRUPT_DATA, and the decoder's refusals come as they are. */
inline Cloud decode(ByteView stream, bool applyTransformation = true) {
    // The chunk headers are read first, skipping the bodies, so that the points are stored in
    // one allocation instead of being moved each time the vector grows.
    std::size_t total = 0;
    detail::walkStream(stream, applyTransformation, [&](const Decoder& walker, ByteView) {
        total += static_cast<std::size_t>(walker.numPointsInChunk());
    });
    Cloud cloud{};
    if (total > cloud.points.max_size()) throw std::bad_alloc();
    cloud.points.reserve(total);
    const Decoder decoder =
        detail::walkStream(stream, applyTransformation, [&](Decoder& walker, ByteView body) {
            detail::PointArrays::append(walker.decodeChunkBody(body), cloud.points);
        });
    cloud.dataType = decoder.dataType();
    cloud.header2 = decoder.header2();
    return cloud;
}

}  // namespace zul

#endif /* ZUL_MEMORY_HPP */

#include "chunk_walk.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "formats/byte_input.h"
#include "formats/cloud.h"

namespace zultool {

namespace {

constexpr int kMarkerSize = 16;
// In a chunk header: the box (smallest x, y, z, then largest), the point count, then the size
// of each data stream present.
constexpr int kCountOffset = 48;
constexpr int kFirstSizeOffset = 52;

struct DecoderGuard {
    zul_dec_Context context = nullptr;
    ~DecoderGuard() { zul_dec_close(&context); }
};

WalkEnd walkOrThrow(WalkEnd& end, const std::string& path, bool decodeBodies, ZulFileHead& head,
                    const std::function<void(const ChunkEntry&)>& onChunk) {
    std::unique_ptr<ByteInput> opened;
    try {
        opened = std::make_unique<ByteInput>(path);
    } catch (const FormatError&) {
        end.status = zul_STATUS_READ_ERROR;
        return end;
    }
    ByteInput& in = *opened;
    head.fileBytes = in.size();
    std::vector<char> bytes;
    // Reads exactly n bytes; false if the file ends first.
    const auto take = [&](size_t n) {
        bytes.resize(n);
        return in.readSome(bytes.data(), n) == n;
    };
    const auto fail = [&](zul_Status status) {
        end.status = status;
        return end;
    };

    DecoderGuard decoder;
    const zul_dec_Params params = {0, {0, 0, 0, 0}};  // the stored frame: the box is stored so
    int headerSize = 0;
    if (!take(8)) return fail(zul_STATUS_TRUNCATED);
    zul_Status status = zul_dec_open2(&decoder.context, &headerSize, bytes.data(), &params);
    if (status != zul_STATUS_OK) return fail(status);
    head.version = static_cast<unsigned char>(bytes[3]);  // byte 3 of the signature
    if (!take(static_cast<size_t>(headerSize))) return fail(zul_STATUS_TRUNCATED);
    int chunkHeaderSize = 0;
    const char* syncMarker = nullptr;
    status = zul_dec_decodeFileHeader2(decoder.context, &head.dataType, &head.header,
                                       &chunkHeaderSize, &syncMarker, bytes.data());
    if (status != zul_STATUS_OK) return fail(status);
    head.present[1] = head.dataType.colorMode != zul_COLOR_NONE;
    head.present[2] = head.dataType.reflectionMode != zul_REFLECTION_NONE;
    head.present[3] = head.dataType.normalMode != zul_NORMAL_NONE;

    end.stage = ZulStage::Read;
    for (ChunkEntry chunk;; ++chunk.index) {
        chunk.offset = in.position();
        end.damagedChunk = chunk.index;
        end.offset = chunk.offset;
        bytes.resize(kMarkerSize);
        const size_t got = in.readSome(bytes.data(), kMarkerSize);
        if (got == 0) break;
        if (got < kMarkerSize) return fail(zul_STATUS_TRUNCATED);
        if (std::memcmp(bytes.data(), syncMarker, kMarkerSize) != 0) {
            return fail(zul_STATUS_CORRUPT_DATA);
        }
        if (!take(static_cast<size_t>(chunkHeaderSize))) return fail(zul_STATUS_TRUNCATED);
        int bodySize = 0;
        status = zul_dec_decodeChunkHeader(decoder.context, &bodySize, bytes.data());
        if (status != zul_STATUS_OK) return fail(status);
        const auto* header = reinterpret_cast<const unsigned char*>(bytes.data());
        for (int axis = 0; axis < 3; ++axis) {
            chunk.gridMin[axis] = loadLittle<int64_t>(header + 8 * axis);
            chunk.gridMax[axis] = loadLittle<int64_t>(header + 24 + 8 * axis);
        }
        chunk.points = loadLittle<int32_t>(header + kCountOffset);
        for (int stream = 0, field = 0; stream < 4; ++stream) {
            chunk.streamBytes[stream] =
                head.present[stream] ? loadLittle<uint32_t>(header + kFirstSizeOffset + 4 * field++)
                                     : 0;
        }
        // The body is read (or skipped) only if the file holds it: no allocation beyond it.
        if (static_cast<uint64_t>(bodySize) > in.size() - in.position()) {
            return fail(zul_STATUS_TRUNCATED);
        }
        if (decodeBodies) {
            if (!take(static_cast<size_t>(bodySize))) return fail(zul_STATUS_TRUNCATED);
            zul_PointData points = {};
            status = zul_dec_decodeChunkBody(decoder.context, &points, bytes.data());
            if (status != zul_STATUS_OK) return fail(status);
        } else {
            in.seek(in.position() + static_cast<uint64_t>(bodySize));
        }
        chunk.bytes = in.position() - chunk.offset;
        ++end.intactChunks;
        end.intactPoints += chunk.points;
        onChunk(chunk);
    }
    end.status = zul_STATUS_OK;
    return end;
}

}  // namespace

WalkEnd walkChunks(const std::string& path, bool decodeBodies, ZulFileHead& head,
                   const std::function<void(const ChunkEntry&)>& onChunk) {
    WalkEnd end;
    try {
        return walkOrThrow(end, path, decodeBodies, head, onChunk);
    } catch (const FormatError&) {  // a read that failed midway
        end.status = zul_STATUS_READ_ERROR;
        return end;
    }
}

void readerBox(const ZulFileHead& head, const ChunkEntry& chunk, double min[3], double max[3]) {
    const double step = head.dataType.quantizationStep;
    double low[3], high[3];
    for (int axis = 0; axis < 3; ++axis) {
        low[axis] = static_cast<double>(chunk.gridMin[axis]) * step;
        high[axis] = static_cast<double>(chunk.gridMax[axis]) * step;
    }
    if (!head.header.enabled) {
        std::copy(low, low + 3, min);
        std::copy(high, high + 3, max);
        return;
    }
    const double* m = head.header.transformation;
    for (int corner = 0; corner < 8; ++corner) {
        double p[3];
        for (int axis = 0; axis < 3; ++axis)
            p[axis] = (corner >> axis) & 1 ? high[axis] : low[axis];
        for (int row = 0; row < 3; ++row) {
            const double value =
                m[row] * p[0] + m[4 + row] * p[1] + m[8 + row] * p[2] + m[12 + row];
            min[row] = corner == 0 ? value : std::min(min[row], value);
            max[row] = corner == 0 ? value : std::max(max[row], value);
        }
    }
}

std::string damageText(const WalkEnd& end) {
    if (end.stage == ZulStage::Open) return statusText(end.status, end.stage);
    char where[200];
    std::snprintf(where, sizeof where,
                  "damaged at chunk %" PRIu64 " (byte %" PRIu64 "): %" PRId64 " points in %" PRIu64
                  " chunk%s before it are intact; ",
                  end.damagedChunk, end.offset, end.intactPoints, end.intactChunks,
                  end.intactChunks == 1 ? "" : "s");
    return where + statusText(end.status, end.stage);
}

}  // namespace zultool

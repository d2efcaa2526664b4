#include "commands/chunk_walk.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <numeric>
#include <vector>

#include "formats/byte_input.h"
#include "formats/cloud.h"

namespace zulconvert {

using namespace zulformats;

namespace {

// Behind a chunk's sync marker, its header holds the box (smallest x, y, z, then largest), the
// point count, then the size of each data stream present: the one figure the index leaves out.
constexpr uint64_t kFirstSizeOffset = 16 + 52;

// Reads the stream sizes of `chunk` from its header; false if the file cannot be read there.
bool readStreamSizes(ByteInput& in, const ZulFileHead& head, ChunkEntry& chunk) {
    unsigned char sizes[16];
    const size_t count = static_cast<size_t>(std::count(head.present, head.present + 4, true));
    in.seek(chunk.offset + kFirstSizeOffset);
    if (in.readSome(sizes, 4 * count) != 4 * count) return false;
    for (int stream = 0, field = 0; stream < 4; ++stream) {
        chunk.streamBytes[stream] =
            head.present[stream] ? loadLittle<uint32_t>(sizes + 4 * field++) : 0;
    }
    return true;
}

ChunkEntry entryOf(zul_idx_Index index, int64_t number) {
    zul_idx_Chunk chunk = {};
    zul_idx_getChunk(index, number, &chunk);
    ChunkEntry entry;
    entry.index = static_cast<uint64_t>(number);
    entry.offset = static_cast<uint64_t>(chunk.offset);
    entry.bytes = static_cast<uint64_t>(chunk.size);
    entry.points = chunk.numPoints;
    for (int axis = 0; axis < 3; ++axis) {
        entry.min[axis] = chunk.min[axis];
        entry.max[axis] = chunk.max[axis];
    }
    return entry;
}

}  // namespace

zul_Status openIndex(const std::string& path, bool applyTransformation, IndexGuard& index,
                     ZulFileHead& head) {
    const zul_dec_Params params = {applyTransformation ? 1 : 0, {0, 0, 0, 0}};
    zul_Status status = zul_idx_openFile(&index.index, path.c_str(), &params);
    if (status != zul_STATUS_OK) return status;
    head.applyTransformation = applyTransformation;
    status = zul_idx_getDataType(index.index, &head.dataType, &head.header);
    if (status != zul_STATUS_OK) return status;
    head.present[1] = head.dataType.colorMode != zul_COLOR_NONE;
    head.present[2] = head.dataType.reflectionMode != zul_REFLECTION_NONE;
    head.present[3] = head.dataType.normalMode != zul_NORMAL_NONE;
    try {
        ByteInput in(path);
        unsigned char signature[4];
        if (in.readSome(signature, 4) != 4) return zul_STATUS_READ_ERROR;
        head.fileBytes = in.size();
        head.version = signature[3];  // byte 3 of the signature
    } catch (const FormatError&) {
        return zul_STATUS_READ_ERROR;
    }
    return zul_STATUS_OK;
}

WalkEnd walkIndex(const std::string& path, zul_idx_Index index, const ZulFileHead& head,
                  bool decodeBodies, int threads,
                  const std::function<void(const ChunkEntry&)>& onChunk) {
    WalkEnd end;
    end.stage = ZulStage::Read;
    int64_t listed = 0;
    zul_idx_getCounts(index, &listed, nullptr);
    std::unique_ptr<ByteInput> in;
    try {
        in = std::make_unique<ByteInput>(path);
    } catch (const FormatError&) {
        end.status = zul_STATUS_READ_ERROR;
        return end;
    }
    const auto deliver = [&](int64_t number) {
        ChunkEntry entry = entryOf(index, number);
        bool read = false;
        try {
            read = readStreamSizes(*in, head, entry);
        } catch (const FormatError&) {
        }
        if (!read) {
            end.status = zul_STATUS_READ_ERROR;
            end.damagedChunk = entry.index;
            end.offset = entry.offset;
            return false;
        }
        ++end.intactChunks;
        end.intactPoints += entry.points;
        onChunk(entry);
        return true;
    };
    if (decodeBodies) {
        std::vector<int64_t> all(static_cast<size_t>(listed));
        std::iota(all.begin(), all.end(), int64_t{0});
        ChunkBatches batches(path, index, head.applyTransformation, std::move(all), threads);
        while (batches.next()) {
            for (size_t k = 0; k < batches.deliveredChunks(); ++k) {
                if (!deliver(batches.batchChunks()[k])) return end;
            }
        }
        if (batches.status() != zul_STATUS_OK) {
            end.status = batches.status();
            const ChunkEntry failed = entryOf(index, batches.failedChunk());
            end.damagedChunk = failed.index;
            end.offset = failed.offset;
            return end;
        }
    } else {
        for (int64_t number = 0; number < listed; ++number) {
            if (!deliver(number)) return end;
        }
    }
    int64_t damaged = 0, offset = 0;
    zul_idx_getDamage(index, &end.status, &damaged, &offset);
    end.damagedChunk = static_cast<uint64_t>(damaged);
    end.offset = static_cast<uint64_t>(offset);
    return end;
}

WalkEnd walkChunks(const std::string& path, bool decodeBodies, int threads, ZulFileHead& head,
                   const std::function<void(const ChunkEntry&)>& onChunk) {
    IndexGuard index;
    const zul_Status status = openIndex(path, true, index, head);
    if (status != zul_STATUS_OK) {
        WalkEnd end;
        end.status = status;
        return end;
    }
    return walkIndex(path, index.index, head, decodeBodies, threads, onChunk);
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

}  // namespace zulconvert

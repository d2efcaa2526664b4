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

// The decoded bytes a point takes, as the index counts them against its budget.
int64_t decodedBytesPerPoint(const ZulFileHead& head) {
    return ZUL_BULK_DECODED_BYTES_PER_POINT + 24 + (head.present[1] ? 3 : 0) +
           (head.present[2] ? 4 : 0) + (head.present[3] ? 12 : 0);
}

// The count a chunk's header claims, behind its sync marker and its box of six 64-bit integers;
// -1 if it cannot be read. Read only for a chunk the index refused, so never on the walk.
int64_t claimedCount(const std::string& path, uint64_t offset) {
    try {
        ByteInput in(path);
        unsigned char count[4];
        in.seek(offset + ZUL_SYNC_MARKER_SIZE + 48);
        if (in.readSome(count, 4) != 4) return -1;
        return static_cast<int64_t>(loadLittle<uint32_t>(count));
    } catch (const FormatError&) {
        return -1;
    }
}

// Chunk `number` of the index, its offset in the file.
ChunkEntry entryOf(zul_idx_Index index, const ZulFileHead& head, int64_t number) {
    zul_idx_Chunk chunk = {};
    zul_idx_getChunk(index, number, &chunk);
    ChunkEntry entry;
    entry.index = static_cast<uint64_t>(number);
    entry.offset = head.start + static_cast<uint64_t>(chunk.offset);
    entry.bytes = static_cast<uint64_t>(chunk.size);
    entry.points = chunk.numPoints;
    for (int axis = 0; axis < 3; ++axis) {
        entry.min[axis] = chunk.min[axis];
        entry.max[axis] = chunk.max[axis];
    }
    return entry;
}

}  // namespace

zul_Status readHead(zul_idx_Index index, bool applyTransformation, int64_t budgetMiB,
                    ZulFileHead& head) {
    head.budgetMiB = budgetMiB;
    zul_Status status = zul_STATUS_OK;
    if (budgetMiB != zulbase::kDefaultChunkBudgetMiB) {
        status = zul_idx_setChunkBudget(index, budgetMiB << 20);
        if (status != zul_STATUS_OK) return status;
    }
    zul_idx_getCounts(index, &head.usableChunks, nullptr);
    head.applyTransformation = applyTransformation;
    status = zul_idx_getDataType(index, &head.dataType, &head.header);
    if (status != zul_STATUS_OK) return status;
    head.present[1] = head.dataType.colorMode != zul_COLOR_NONE;
    head.present[2] = head.dataType.reflectionMode != zul_REFLECTION_NONE;
    head.present[3] = head.dataType.normalMode != zul_NORMAL_NONE;
    // A lower budget than the index's default ends the list at the first chunk past it.
    for (int64_t number = 0; number < head.usableChunks; ++number) {
        zul_idx_Chunk chunk = {};
        zul_idx_getChunk(index, number, &chunk);
        if (chunk.numPoints * decodedBytesPerPoint(head) > (budgetMiB << 20)) {
            head.usableChunks = number;
            break;
        }
    }
    return zul_STATUS_OK;
}

zul_Status openIndex(const std::string& path, bool applyTransformation, int64_t budgetMiB,
                     IndexGuard& index, ZulFileHead& head) {
    const zul_dec_Params params = {applyTransformation ? 1 : 0, {0, 0, 0, 0}};
    zul_Status status = zul_idx_openFile(&index.index, path.c_str(), &params);
    if (status != zul_STATUS_OK) return status;
    status = readHead(index.index, applyTransformation, budgetMiB, head);
    if (status != zul_STATUS_OK) return status;
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
    const int64_t listed = head.usableChunks;
    const auto deliver = [&](int64_t number) {
        ChunkEntry entry = entryOf(index, head, number);
        int64_t sizes[4] = {};
        zul_idx_getStreamSizes(index, number, sizes);
        for (int stream = 0; stream < 4; ++stream)
            entry.streamBytes[stream] = static_cast<uint64_t>(sizes[stream]);
        ++end.intactChunks;
        end.intactPoints += entry.points;
        onChunk(entry);
    };
    if (decodeBodies) {
        std::vector<int64_t> all(static_cast<size_t>(listed));
        std::iota(all.begin(), all.end(), int64_t{0});
        ChunkBatches batches(path, index, head.applyTransformation, std::move(all), threads);
        while (batches.next()) {
            for (size_t k = 0; k < batches.deliveredChunks(); ++k) {
                deliver(batches.batchChunks()[k]);
            }
        }
        if (batches.status() != zul_STATUS_OK) {
            end.status = batches.status();
            const ChunkEntry failed = entryOf(index, head, batches.failedChunk());
            end.damagedChunk = failed.index;
            end.offset = failed.offset;
            return end;
        }
    } else {
        for (int64_t number = 0; number < listed; ++number) {
            deliver(number);
        }
    }
    const WalkEnd stop = indexEnd(path, index, head);
    end.status = stop.status;
    end.damagedChunk = stop.damagedChunk;
    end.offset = stop.offset;
    end.claimedPoints = stop.claimedPoints;
    end.claimedMiB = stop.claimedMiB;
    end.budgetMiB = stop.budgetMiB;
    return end;
}

WalkEnd indexEnd(const std::string& path, zul_idx_Index index, const ZulFileHead& head) {
    WalkEnd end;
    end.stage = ZulStage::Read;
    int64_t damaged = 0, offset = 0;
    zul_idx_getDamage(index, &end.status, &damaged, &offset);
    if (damaged > head.usableChunks) {
        // Past a budget below the index's own.
        zul_idx_Chunk chunk = {};
        zul_idx_getChunk(index, head.usableChunks, &chunk);
        end.status = zul_STATUS_OVER_BUDGET;
        damaged = head.usableChunks;
        offset = chunk.offset;
        end.claimedPoints = chunk.numPoints;
    } else if (end.status == zul_STATUS_OVER_BUDGET) {
        end.claimedPoints = claimedCount(path, head.start + static_cast<uint64_t>(offset));
    }
    std::vector<int64_t> before(static_cast<size_t>(damaged));
    std::iota(before.begin(), before.end(), int64_t{0});
    zul_idx_countPoints(index, before.data(), damaged, &end.intactPoints);
    end.intactChunks = static_cast<uint64_t>(damaged);
    end.damagedChunk = static_cast<uint64_t>(damaged);
    end.offset = head.start + static_cast<uint64_t>(offset);
    end.budgetMiB = head.budgetMiB;
    if (end.claimedPoints >= 0)
        end.claimedMiB = (end.claimedPoints * decodedBytesPerPoint(head) + (1 << 20) - 1) >> 20;
    return end;
}

void checkWalkEnd(const std::string& path, const WalkEnd& end) {
    if (end.status == zul_STATUS_OK) return;
    if (end.status == zul_STATUS_OVER_BUDGET || end.stream > 0)
        throw FormatError(path + ": " + damageText(end));
    checkStatus(end.status, path, end.stage);
}

std::string damageText(const WalkEnd& end) {
    if (end.stage == ZulStage::Open && end.stream == 0) return statusText(end.status, end.stage);
    char before[120];
    std::snprintf(before, sizeof before,
                  "%" PRId64 " points in %" PRIu64 " chunk%s before it %s intact", end.intactPoints,
                  end.intactChunks, end.intactChunks == 1 ? "" : "s",
                  end.intactChunks == 1 ? "is" : "are");
    char stream[100] = "";
    if (end.stream > 0) {
        std::snprintf(stream, sizeof stream, "stream %zu (byte %" PRIu64 ")%s", end.stream,
                      end.streamStart, end.streamHead ? "" : ", ");
    }
    if (end.streamHead) {
        return stream + std::string(", whose head is damaged: ") + before + "; " +
               statusText(end.status, ZulStage::Open);
    }
    char where[300];
    if (end.status == zul_STATUS_OVER_BUDGET && end.claimedPoints >= 0) {
        std::snprintf(where, sizeof where,
                      "chunk %" PRIu64 " (byte %" PRIu64 ") claims %" PRId64 " points (%" PRId64
                      " MiB decoded), more than the memory budget of %" PRId64
                      " MiB a chunk allows (over budget; --chunk-budget MiB raises it); ",
                      end.damagedChunk, end.offset, end.claimedPoints, end.claimedMiB,
                      end.budgetMiB);
        return stream + std::string(where) + before;
    }
    std::snprintf(where, sizeof where,
                  "damaged at chunk %" PRIu64 " (byte %" PRIu64 "): ", end.damagedChunk,
                  end.offset);
    return stream + std::string(where) + before + "; " + statusText(end.status, end.stage);
}

}  // namespace zulconvert

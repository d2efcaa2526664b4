#include "commands/chunk_walk.h"

#include <sys/stat.h>

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

// The count a chunk's header claims, behind its sync marker and its box of six 64-bit integers,
// and the chunk's bytes (its marker, its header of that count and a size for each stream, and
// those streams); -1 what cannot be read. Read only for a chunk the index refused, so never on
// the walk.
void readClaim(const std::string& path, uint64_t offset, const ZulFileHead& head, WalkEnd& end) {
    try {
        ByteInput in(path);
        unsigned char fields[4 * 5];
        in.seek(offset + ZUL_SYNC_MARKER_SIZE + 48);
        const int streams = 1 + head.present[1] + head.present[2] + head.present[3];
        const size_t wanted = 4 * static_cast<size_t>(1 + streams);
        if (in.readSome(fields, wanted) != wanted) return;
        end.claimedPoints = static_cast<int64_t>(loadLittle<uint32_t>(fields));
        end.chunkBytes = ZUL_SYNC_MARKER_SIZE + 48 + static_cast<int64_t>(wanted);
        for (int k = 1; k <= streams; ++k)
            end.chunkBytes += static_cast<int64_t>(loadLittle<uint32_t>(fields + 4 * k));
    } catch (const FormatError&) {
        end.claimedPoints = end.chunkBytes = -1;
    }
}

// Whether a chunk of `points` ending at byte `end` of the file, behind `before` points, passes
// the density limit.
bool overDensity(int64_t before, int64_t points, int64_t end, int64_t density) {
    return density > 0 && before + points > ZUL_BULK_DENSITY_ALLOWANCE + density * end;
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
                    int64_t pointDensity, int64_t pointsBefore, ZulFileHead& head) {
    head.budgetMiB = budgetMiB;
    zul_Status status = zul_STATUS_OK;
    if (budgetMiB != zulbase::kDefaultChunkBudgetMiB) {
        status = zul_idx_setChunkBudget(index, budgetMiB << 20);
        if (status != zul_STATUS_OK) return status;
    }
    head.pointDensity = pointDensity;
    if (pointDensity != zulbase::kDefaultPointDensity) {
        status = zul_idx_setPointDensity(index, pointDensity);
        if (status != zul_STATUS_OK) return status;
    }
    zul_idx_getCounts(index, &head.usableChunks, nullptr);
    head.applyTransformation = applyTransformation;
    status = zul_idx_getDataType(index, &head.dataType, &head.header);
    if (status != zul_STATUS_OK) return status;
    head.present[1] = head.dataType.colorMode != zul_COLOR_NONE;
    head.present[2] = head.dataType.reflectionMode != zul_REFLECTION_NONE;
    head.present[3] = head.dataType.normalMode != zul_NORMAL_NONE;
    // A lower budget or density limit than the index's default ends the list at the first chunk
    // past it.
    // The density limit counts from the start of the file, over the streams before this one too.
    int64_t before = pointsBefore;
    for (int64_t number = 0; number < head.usableChunks; ++number) {
        zul_idx_Chunk chunk = {};
        zul_idx_getChunk(index, number, &chunk);
        const int64_t end = static_cast<int64_t>(head.start) + chunk.offset + chunk.size;
        if (chunk.numPoints * decodedBytesPerPoint(head) > (budgetMiB << 20) ||
            overDensity(before, chunk.numPoints, end, pointDensity)) {
            head.usableChunks = number;
            break;
        }
        before += chunk.numPoints;
    }
    return zul_STATUS_OK;
}

zul_Status openIndex(const std::string& path, bool applyTransformation, int64_t budgetMiB,
                     int64_t pointDensity, IndexGuard& index, ZulFileHead& head) {
    const zul_dec_Params params = {applyTransformation ? 1 : 0, {0, 0, 0, 0}};
    zul_Status status = zul_idx_openFile(&index.index, path.c_str(), &params);
    if (status != zul_STATUS_OK) return status;
    status = readHead(index.index, applyTransformation, budgetMiB, pointDensity, 0, head);
    if (status != zul_STATUS_OK) return status;
    // Four bytes and the size: no buffer of a reader's own to clear.
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) return zul_STATUS_READ_ERROR;
    struct stat facts;
    unsigned char signature[4];
    const bool read = ::fstat(::fileno(file), &facts) == 0 && S_ISREG(facts.st_mode) &&
                      std::fread(signature, 1, 4, file) == 4;
    std::fclose(file);
    if (!read) return zul_STATUS_READ_ERROR;
    head.fileBytes = static_cast<uint64_t>(facts.st_size);
    head.version = signature[3];  // byte 3 of the signature
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
    end.chunkBytes = stop.chunkBytes;
    end.budgetMiB = stop.budgetMiB;
    end.pointDensity = stop.pointDensity;
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
        end.chunkBytes = chunk.size;
    } else if (end.status == zul_STATUS_OVER_BUDGET) {
        readClaim(path, head.start + static_cast<uint64_t>(offset), head, end);
    }
    std::vector<int64_t> before(static_cast<size_t>(damaged));
    std::iota(before.begin(), before.end(), int64_t{0});
    zul_idx_countPoints(index, before.data(), damaged, &end.intactPoints);
    end.intactChunks = static_cast<uint64_t>(damaged);
    end.damagedChunk = static_cast<uint64_t>(damaged);
    end.offset = head.start + static_cast<uint64_t>(offset);
    end.budgetMiB = head.budgetMiB;
    end.pointDensity = head.pointDensity;
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
    char where[400];
    const bool pastBudget = end.claimedMiB > end.budgetMiB;
    if (end.status == zul_STATUS_OVER_BUDGET && end.claimedPoints >= 0 && !pastBudget &&
        end.chunkBytes >= 0) {
        const int64_t upTo = static_cast<int64_t>(end.offset) + end.chunkBytes;
        std::snprintf(where, sizeof where,
                      "chunk %" PRIu64 " (byte %" PRIu64 ", %" PRId64 " bytes) claims %" PRId64
                      " points, bringing the file's first %" PRId64 " bytes to %" PRId64
                      " points, more than the density limit allows (%" PRId64 " points and %" PRId64
                      " for each byte; over budget; --point-density N raises it, 0 lifts it); ",
                      end.damagedChunk, end.offset, end.chunkBytes, end.claimedPoints, upTo,
                      end.intactPoints + end.claimedPoints,
                      static_cast<int64_t>(ZUL_BULK_DENSITY_ALLOWANCE), end.pointDensity);
        return stream + std::string(where) + before;
    }
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

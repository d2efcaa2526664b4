// The chunk index and the bulk decoder on any bytes, from a buffer or from a file. The index must
// open as the in-memory decoder opens, stop at the chunk header where it stops, and the bulk
// decoder, on 1 to 3 threads, must give the points and the final status that the in-memory
// decoder gives, the chunks before a damaged one whole, except that it refuses a chunk over the
// budget or the density limit (where the index stops) and a chunk whose points leave its box (every
// point it delivers lies in its chunk's box). A box query must pick chunks in order.
#include <cmath>
#include <vector>

#include "fuzz_support.h"
#include "zul_bulk.h"

using namespace zulfuzz;

namespace {

using IndexHandle = Owner<zul_idx_Index, zul_idx_close>;
using BulkPoints = Owner<zul_bulk_Points, zul_bulk_free>;

void checkSelection(zul_idx_Index index, int64_t numChunks) {
    if (numChunks == 0) return;
    zul_idx_Chunk first;
    FUZZ_CHECK(zul_idx_getChunk(index, 0, &first) == zul_STATUS_OK);
    int64_t found = -1;
    const zul_Status status = zul_idx_selectBox(index, first.min, first.max, nullptr, 0, &found);
    // A box of infinite or NaN corners is refused; any other holds its own chunk at least.
    if (status != zul_STATUS_OK) {
        FUZZ_CHECK(status == zul_STATUS_INVALID_ARGUMENT);
        return;
    }
    FUZZ_CHECK(found >= 1 && found <= numChunks);
    std::vector<int64_t> chunks(static_cast<size_t>(found));
    FUZZ_CHECK(zul_idx_selectBox(index, first.min, first.max, chunks.data(), found, &found) ==
               zul_STATUS_OK);
    FUZZ_CHECK(chunks[0] == 0);
    for (size_t k = 1; k < chunks.size(); ++k) FUZZ_CHECK(chunks[k] > chunks[k - 1]);
}

void checkBulk(const uint8_t* data, size_t size) {
    const int way = static_cast<int>(size % 6);
    const int applyTransformation = way % 2;
    const int threads = 1 + way / 2;
    const DecodedStream reference = decodeInMemory(data, size, applyTransformation);
    const zul_dec_Params params{applyTransformation, {}};
    IndexHandle index;
    if (way >= 3) writeScratch(data, size);
    const zul_Status opened = way < 3
                                  ? zul_idx_openBuffer(&index.value, data, size, &params)
                                  : zul_idx_openFile(&index.value, scratchPath().c_str(), &params);
    FUZZ_CHECK(index.value != nullptr);
    FUZZ_CHECK(opened == reference.openStatus);
    if (opened != zul_STATUS_OK) return;

    int64_t numChunks = -1, numPoints = -1, damagedChunk = -1, offset = -1;
    zul_Status damage = zul_STATUS_OK;
    FUZZ_CHECK(zul_idx_getCounts(index.value, &numChunks, &numPoints) == zul_STATUS_OK);
    FUZZ_CHECK(zul_idx_getDamage(index.value, &damage, &damagedChunk, &offset) == zul_STATUS_OK);
    FUZZ_CHECK(damagedChunk == numChunks);
    FUZZ_CHECK(offset >= 0 && static_cast<size_t>(offset) <= size);
    // The index stops at the first chunk over its limits, where the reference skipped it (or
    // earlier, at a count of 2^30 or more, which the reference may skip for the budget too).
    if (reference.overBudgetChunk >= 0 && reference.overBudgetChunk <= numChunks)
        FUZZ_CHECK(damage == zul_STATUS_OVER_BUDGET || damage == zul_STATUS_CORRUPT_DATA);
    else if (!reference.skippedChunk && reference.endStatus == zul_STATUS_END_OF_FILE)
        FUZZ_CHECK(damage == zul_STATUS_OK && numPoints == reference.pointsDeclared);
    else if (!reference.skippedChunk && !reference.endedInBody)
        FUZZ_CHECK(damage == reference.endStatus);
    if (damage == zul_STATUS_OVER_BUDGET && !reference.endedInBody)
        FUZZ_CHECK(reference.overBudgetChunk == numChunks);
    checkSelection(index.value, numChunks);

    // Every listed chunk is within the budget, and all of them within the density limit.
    FUZZ_CHECK(numPoints <= densityBound(static_cast<int64_t>(size)));
    BulkPoints bulk;
    FUZZ_CHECK(zul_bulk_allocate(index.value, numPoints, &bulk.value) == zul_STATUS_OK);
    int64_t failed = -2;
    const zul_Status status = zul_bulk_decode(index.value, threads, &bulk.value, &failed);
    FUZZ_CHECK(status != zul_STATUS_OUT_OF_MEMORY);
    FUZZ_CHECK((status == zul_STATUS_OK) == (failed == -1));
    FUZZ_CHECK(bulk.value.numPoints >= 0 && bulk.value.numPoints <= numPoints);
    // The points delivered lie in their chunks' boxes, which is what the bulk decoder promises
    // beyond the in-memory decoder: a chunk of points outside its box is refused.
    int64_t first = 0;
    for (int64_t k = 0; k < numChunks && first < bulk.value.numPoints; ++k) {
        zul_idx_Chunk chunk;
        FUZZ_CHECK(zul_idx_getChunk(index.value, k, &chunk) == zul_STATUS_OK);
        for (int64_t i = first; i < first + chunk.numPoints; ++i)
            for (int axis = 0; axis < 3; ++axis) {
                const double v = bulk.value.positions[3 * i + axis];
                const double low = chunk.min[axis], high = chunk.max[axis];
                // A matrix may make NaN of infinite terms; no order holds for it.
                if (std::isnan(v) || std::isnan(low) || std::isnan(high)) continue;
                FUZZ_CHECK(v >= low && v <= high);
            }
        first += chunk.numPoints;
    }
    if (reference.skippedChunk) return;
    // Up to a refused box, the bulk decoder ends as the reference does; a refused box is a chunk
    // the reference decoded, and the points before it are the reference's.
    const bool refusedBox = status == zul_STATUS_CORRUPT_DATA &&
                            static_cast<size_t>(bulk.value.numPoints) < reference.points.size();
    if (!refusedBox) {
        FUZZ_CHECK(status == (reference.endStatus == zul_STATUS_END_OF_FILE ? zul_STATUS_OK
                                                                            : reference.endStatus));
        FUZZ_CHECK(static_cast<size_t>(bulk.value.numPoints) == reference.points.size());
    }
    if (bulk.value.numPoints == 0) return;
    const zul_PointData asChunk{static_cast<int32_t>(bulk.value.numPoints), bulk.value.positions,
                                bulk.value.colors, bulk.value.reflections, bulk.value.normals};
    std::vector<zul_Point> points;
    appendPoints(asChunk, reference.dataType, applyTransformation && reference.header2.enabled,
                 points);
    std::vector<zul_Point> expected = reference.points;
    expected.resize(points.size());
    checkSamePoints(expected, points);
}

}  // namespace

FUZZ_TARGET(checkBulk)

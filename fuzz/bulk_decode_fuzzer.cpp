// The chunk index and the bulk decoder on any bytes, from a buffer or from a file. The index must
// open as the in-memory decoder opens, stop at the chunk header where it stops, and the bulk
// decoder, on 1 to 3 threads, must give the points and the final status that the in-memory
// decoder gives, the chunks before a damaged one whole. A box query must pick chunks in order.
#include <cstring>
#include <new>
#include <vector>

#include "fuzz_check.h"
#include "memory_stream.h"
#include "temp_file.h"
#include "zul_bulk.h"

using namespace zulfuzz;

namespace {

struct IndexHandle {
    zul_idx_Index index = nullptr;
    ~IndexHandle() { zul_idx_close(&index); }
};

struct BulkPoints {
    zul_bulk_Points points{};
    ~BulkPoints() { zul_bulk_free(&points); }
};

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
    zul_dec_Params params{};
    params.applyTransformation = applyTransformation;

    IndexHandle handle;
    zul_Status opened;
    if (way < 3) {
        opened = zul_idx_openBuffer(&handle.index, data, size, &params);
    } else {
        writeScratch(data, size);
        opened = zul_idx_openFile(&handle.index, scratchPath().c_str(), &params);
    }
    FUZZ_CHECK(handle.index != nullptr);
    FUZZ_CHECK(opened == reference.openStatus);
    if (opened != zul_STATUS_OK) return;

    int64_t numChunks = -1, numPoints = -1, damagedChunk = -1, offset = -1;
    zul_Status damage = zul_STATUS_OK;
    FUZZ_CHECK(zul_idx_getCounts(handle.index, &numChunks, &numPoints) == zul_STATUS_OK);
    FUZZ_CHECK(zul_idx_getDamage(handle.index, &damage, &damagedChunk, &offset) == zul_STATUS_OK);
    FUZZ_CHECK(damagedChunk == numChunks);
    FUZZ_CHECK(offset >= 0 && static_cast<size_t>(offset) <= size);
    // A chunk over the budget was skipped by the reference: if it holds 2^30 points or more, the
    // index stops there, the reference does not.
    if (!reference.skippedChunk && reference.endStatus == zul_STATUS_END_OF_FILE) {
        FUZZ_CHECK(damage == zul_STATUS_OK);
        FUZZ_CHECK(numPoints == reference.pointsDeclared);
    }
    if (!reference.skippedChunk && !reference.endedInBody &&
        reference.endStatus != zul_STATUS_END_OF_FILE) {
        FUZZ_CHECK(damage == reference.endStatus);
    }
    checkSelection(handle.index, numChunks);

    // Over the budget, a caller would not decode.
    if (numPoints > kMaxPointsDecoded || reference.skippedChunk) return;
    BulkPoints out;
    FUZZ_CHECK(zul_bulk_allocate(handle.index, numPoints, &out.points) == zul_STATUS_OK);
    int64_t failed = -2;
    const zul_Status status = zul_bulk_decode(handle.index, threads, &out.points, &failed);
    FUZZ_CHECK(status == (reference.endStatus == zul_STATUS_END_OF_FILE ? zul_STATUS_OK
                                                                        : reference.endStatus));
    FUZZ_CHECK((status == zul_STATUS_OK) == (failed == -1));
    FUZZ_CHECK(static_cast<size_t>(out.points.numPoints) == reference.points.size());
    const zul_DataType& type = reference.dataType;
    for (size_t i = 0; i < reference.points.size(); ++i) {
        const zul_Point& p = reference.points[i];
        FUZZ_CHECK(std::memcmp(p.position, out.points.positions + 3 * i, sizeof p.position) == 0);
        if (type.colorMode != zul_COLOR_NONE) {
            FUZZ_CHECK(std::memcmp(p.color, out.points.colors + 3 * i, sizeof p.color) == 0);
        }
        if (type.reflectionMode != zul_REFLECTION_NONE) {
            FUZZ_CHECK(p.reflection == out.points.reflections[i]);
        }
        if (type.normalMode != zul_NORMAL_NONE) {
            FUZZ_CHECK(std::memcmp(p.normal, out.points.normals + 3 * i, sizeof p.normal) == 0);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        checkBulk(data, size);
    } catch (const std::bad_alloc&) {
        // Running out of memory is the one way the library may leave a call other than by a
        // status.
    }
    return 0;
}

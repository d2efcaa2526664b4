// Round trip through the file layer: points drawn from the input (any doubles, NaN and infinities
// included) are written with zul_out_ and read back with zul_in_, and every point read must be
// exactly what its input quantises to, in the stored frame and through the sensor header's
// matrix. The writer's statuses are checked as well: a chunk with a normal too short is refused,
// and nothing after it is written.
#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "fuzz_support.h"

using namespace zulfuzz;

namespace {

using PointKey = std::array<uint64_t, 7>;

// The bits of a point, for sorting and comparing; a chunk's points come back in the encoder's
// order, not in the order they were written.
PointKey keyOf(const zul_Point& p) {
    PointKey key{};
    std::memcpy(&key[0], p.position, sizeof p.position);
    std::memcpy(&key[3], p.normal, sizeof p.normal);
    std::memcpy(&key[5], p.color, sizeof p.color);
    key[6] = static_cast<uint32_t>(p.reflection);
    return key;
}

// Writes the case; returns the number of points in the chunks that reached the file, or SIZE_MAX
// if the writer refused to open.
size_t writeCase(const RoundTripCase& c) {
    zul_out_Context writer = nullptr;
    const zul_Status opened = zul_out_open2(&writer, scratchPath().c_str(), &c.dataType,
                                            c.passHeader ? &c.header : nullptr);
    const zul_DataType& t = c.dataType;
    const bool reflectionOk = t.reflectionMode ? t.maxReflection >= 1 : t.maxReflection == 0;
    if (!(t.quantizationStep >= 9.9e-10f && t.quantizationStep <= 10.0f) || t.colorMode > 2 ||
        !reflectionOk)
        FUZZ_CHECK(opened == zul_STATUS_INVALID_ARGUMENT);
    // A refused open leaves no handle behind.
    FUZZ_CHECK((opened == zul_STATUS_OK) == (writer != nullptr));
    if (opened != zul_STATUS_OK) return SIZE_MAX;
    FUZZ_CHECK(zul_out_setChunkSize(writer, c.chunkSize) == zul_STATUS_OK);
    const size_t chunk = static_cast<size_t>(c.chunkSize);
    bool tooShort = false;  // a normal too short in the chunk being filled
    for (size_t i = 0; i < c.points.size(); ++i) {
        const zul_Status status = zul_out_writePoint(writer, &c.points[i]);
        if (i == 0) FUZZ_CHECK(zul_out_setChunkSize(writer, 7) == zul_STATUS_INVALID_STATE);
        tooShort = tooShort || (c.dataType.normalMode && isTooShort(c.points[i].normal));
        const bool refused = tooShort && (i + 1) % chunk == 0;
        FUZZ_CHECK(status == (refused ? zul_STATUS_INVALID_ARGUMENT : zul_STATUS_OK));
        if (refused) {
            // Nothing more is taken; closing reports no failure again.
            FUZZ_CHECK(zul_out_writePoint(writer, &c.points[i]) == zul_STATUS_INVALID_STATE);
            FUZZ_CHECK(zul_out_close(&writer) == zul_STATUS_OK && writer == nullptr);
            return i + 1 - chunk;
        }
        if ((i + 1) % chunk == 0) tooShort = false;
    }
    FUZZ_CHECK(zul_out_close(&writer) == (tooShort ? zul_STATUS_INVALID_ARGUMENT : zul_STATUS_OK));
    FUZZ_CHECK(writer == nullptr);
    return tooShort ? c.points.size() / chunk * chunk : c.points.size();
}

// Reads the file back, `way` as readScratch takes it, with what holds for any file written.
ReaderRun readBack(const RoundTripCase& c, size_t written, int way) {
    const ReaderRun run = readScratch(way);
    FUZZ_CHECK(run.opened == zul_STATUS_OK);
    FUZZ_CHECK(std::memcmp(&run.type, &c.dataType, sizeof run.type) == 0);
    const bool enabled = c.passHeader && c.header.enabled;
    FUZZ_CHECK(run.header.enabled == enabled);
    if (enabled) FUZZ_CHECK(std::memcmp(&run.header, &c.header, sizeof run.header) == 0);
    // The count comes from the chunk headers, which are right even for a chunk whose contents
    // are not representable.
    FUZZ_CHECK(run.counted == zul_STATUS_OK && run.count == static_cast<int64_t>(written));
    FUZZ_CHECK(run.read && run.points.size() <= written);
    return run;
}

void checkRoundTrip(const uint8_t* data, size_t size) {
    RoundTripCase c;
    if (!parseRoundTripCase(data, size, c)) return;
    const size_t written = writeCase(c);
    if (written == SIZE_MAX) return;
    const ReaderRun stored = readBack(c, written, 0);
    // Chunk by chunk, the points read are the points written, quantised, in some order. A chunk
    // that is not representable may read as anything, or be refused, which ends the reading.
    const size_t chunk = static_cast<size_t>(c.chunkSize);
    for (size_t begin = 0; begin < written; begin += chunk) {
        const size_t end = std::min(written, begin + chunk);
        const bool defined =
            !spanIsUnrepresentable(&c.points[begin], end - begin, c.dataType.quantizationStep);
        if (stored.points.size() < end) {
            FUZZ_CHECK(!defined && stored.points.size() == begin);
            FUZZ_CHECK(stored.end == zul_STATUS_CORRUPT_DATA);
            break;
        }
        if (!defined) continue;
        std::vector<PointKey> expected, actual;
        for (size_t i = begin; i < end; ++i) {
            expected.push_back(keyOf(storedPoint(c.points[i], c.dataType)));
            actual.push_back(keyOf(stored.points[i]));
        }
        std::sort(expected.begin(), expected.end());
        std::sort(actual.begin(), actual.end());
        FUZZ_CHECK(expected == actual);
    }
    if (stored.points.size() == written) FUZZ_CHECK(stored.end == zul_STATUS_END_OF_FILE);
    // Through the matrix, each point is its stored self transformed.
    if (!c.passHeader || !c.header.enabled) return;
    const ReaderRun moved = readBack(c, written, 1);
    FUZZ_CHECK(moved.end == stored.end);
    checkSamePoints(stored.points, moved.points, c.header, c.dataType);
}

}  // namespace

FUZZ_TARGET(checkRoundTrip)

// Round trip through the file layer: points drawn from the input (any doubles, NaN and infinities
// included) are written with zul_out_ and read back with zul_in_, and every point read must be
// exactly what its input quantises to, in the stored frame and through the sensor header's
// matrix. The writer's statuses are checked as well: a chunk with a normal too short is refused,
// and nothing after it is written.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "fuzz_check.h"
#include "handles.h"
#include "point_oracle.h"
#include "round_trip_case.h"
#include "temp_file.h"

using namespace zulfuzz;

namespace {

using PointKey = std::array<uint64_t, 8>;

// The bits of a point, for sorting and comparing; a chunk's points come back in the encoder's
// order, not in the order they were written.
PointKey keyOf(const zul_Point& p) {
    PointKey key{};
    for (int a = 0; a < 3; ++a) {
        std::memcpy(&key[a], &p.position[a], sizeof(double));
        uint32_t n = 0;
        std::memcpy(&n, &p.normal[a], sizeof(float));
        key[4 + a] = n;
    }
    key[3] = uint64_t{p.color[0]} << 16 | uint64_t{p.color[1]} << 8 | p.color[2];
    key[7] = static_cast<uint32_t>(p.reflection);
    return key;
}

// For the report of a finding: the first point that differs, as bits.
void printDifference(const std::vector<PointKey>& expected, const std::vector<PointKey>& actual) {
    for (size_t i = 0; i < expected.size() && i < actual.size(); ++i) {
        if (expected[i] == actual[i]) continue;
        std::fprintf(stderr, "point %zu differs:\n", i);
        for (size_t k = 0; k < expected[i].size(); ++k) {
            std::fprintf(stderr, "  %016llx %016llx\n",
                         static_cast<unsigned long long>(expected[i][k]),
                         static_cast<unsigned long long>(actual[i][k]));
        }
        return;
    }
}

bool isValidType(const zul_DataType& t) {
    const float step = t.quantizationStep;
    const bool reflectionOk = t.reflectionMode ? t.maxReflection >= 1 : t.maxReflection == 0;
    return step >= 9.9e-10f && step <= 10.0f && static_cast<uint32_t>(t.colorMode) <= 2 &&
           static_cast<uint32_t>(t.reflectionMode) <= 1 && reflectionOk &&
           static_cast<uint32_t>(t.normalMode) <= 1;
}

// Writes the case; returns the number of points in the chunks that reached the file.
size_t writeCase(const RoundTripCase& c) {
    zul_out_Context writer = nullptr;
    const zul_Status opened = zul_out_open2(&writer, scratchPath().c_str(), &c.dataType,
                                            c.passHeader ? &c.header : nullptr);
    if (!isValidType(c.dataType)) FUZZ_CHECK(opened == zul_STATUS_INVALID_ARGUMENT);
    if (opened != zul_STATUS_OK) {
        // A refused open leaves no handle behind.
        FUZZ_CHECK(writer == nullptr);
        return SIZE_MAX;
    }
    FUZZ_CHECK(zul_out_setChunkSize(writer, c.chunkSize) == zul_STATUS_OK);
    const size_t n = c.points.size();
    const size_t chunk = static_cast<size_t>(c.chunkSize);
    const bool normals = c.dataType.normalMode != zul_NORMAL_NONE;
    size_t written = 0;  // points in chunks that reached the file
    bool failed = false;
    bool refusedChunk = false;
    for (size_t i = 0; i < n && !failed; ++i) {
        const zul_Status status = zul_out_writePoint(writer, &c.points[i]);
        if (i == 0) FUZZ_CHECK(zul_out_setChunkSize(writer, 7) == zul_STATUS_INVALID_STATE);
        refusedChunk = refusedChunk || (normals && isTooShort(c.points[i].normal));
        if ((i + 1) % chunk != 0) {
            FUZZ_CHECK(status == zul_STATUS_OK);
            continue;
        }
        if (refusedChunk) {
            FUZZ_CHECK(status == zul_STATUS_INVALID_ARGUMENT);
            FUZZ_CHECK(zul_out_writePoint(writer, &c.points[i]) == zul_STATUS_INVALID_STATE);
            failed = true;
        } else {
            FUZZ_CHECK(status == zul_STATUS_OK);
            written = i + 1;
        }
    }
    const zul_Status closed = zul_out_close(&writer);
    FUZZ_CHECK(writer == nullptr);
    if (!failed) {
        if (refusedChunk) {
            FUZZ_CHECK(closed == zul_STATUS_INVALID_ARGUMENT);
        } else {
            FUZZ_CHECK(closed == zul_STATUS_OK);
            written = n;
        }
    }
    return written;
}

// The points read back, and the status that ended the reading.
struct ReadBack {
    std::vector<zul_Point> points;
    zul_Status end = zul_STATUS_OK;
};

// Reads the file back; `applyTransformation` as the decoder's parameter.
ReadBack readBack(const RoundTripCase& c, size_t written, int applyTransformation) {
    ReaderHandle reader;
    zul_DataType type{};
    zul_Header2 header{};
    zul_dec_Params params{};
    params.applyTransformation = applyTransformation;
    FUZZ_CHECK(zul_in_open2(&reader.context, &type, &header, scratchPath().c_str(), &params) ==
               zul_STATUS_OK);
    FUZZ_CHECK(type.quantizationStep == c.dataType.quantizationStep);
    FUZZ_CHECK(type.colorMode == c.dataType.colorMode);
    FUZZ_CHECK(type.reflectionMode == c.dataType.reflectionMode);
    FUZZ_CHECK(type.maxReflection == c.dataType.maxReflection);
    FUZZ_CHECK(type.normalMode == c.dataType.normalMode);
    const bool enabled = c.passHeader && c.header.enabled;
    FUZZ_CHECK(header.enabled == enabled);
    if (enabled) {
        FUZZ_CHECK(header.sensorMount == c.header.sensorMount);
        FUZZ_CHECK(header.sensorType == c.header.sensorType);
        FUZZ_CHECK(header.hasScaling == c.header.hasScaling);
        FUZZ_CHECK(header.hasRotation == c.header.hasRotation);
        FUZZ_CHECK(header.hasTranslation == c.header.hasTranslation);
        FUZZ_CHECK(std::memcmp(header.transformation, c.header.transformation,
                               sizeof header.transformation) == 0);
    }
    // The count comes from the chunk headers, which are right even for a chunk whose contents
    // are not representable.
    int64_t total = -1;
    FUZZ_CHECK(zul_in_getNumPoints(reader.context, &total) == zul_STATUS_OK);
    FUZZ_CHECK(total == static_cast<int64_t>(written));
    ReadBack result;
    zul_Point point{};
    while ((result.end = zul_in_readNextPoint(reader.context, &point)) == zul_STATUS_OK) {
        FUZZ_CHECK(result.points.size() < written);
        result.points.push_back(point);
    }
    FUZZ_CHECK(zul_in_readNextPoint(reader.context, &point) == zul_STATUS_INVALID_STATE);
    return result;
}

void checkRoundTrip(const RoundTripCase& c) {
    const size_t written = writeCase(c);
    if (written == SIZE_MAX) return;
    const ReadBack stored = readBack(c, written, 0);
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
        if (expected != actual) printDifference(expected, actual);
        FUZZ_CHECK(expected == actual);
    }
    if (stored.points.size() == written) FUZZ_CHECK(stored.end == zul_STATUS_END_OF_FILE);
    // Through the matrix, each point is its stored self transformed.
    if (!c.passHeader || !c.header.enabled) return;
    const Transforms transforms = transformsOf(c.header, c.dataType, 1);
    const ReadBack moved = readBack(c, written, 1);
    FUZZ_CHECK(moved.points.size() == stored.points.size() && moved.end == stored.end);
    for (size_t i = 0; i < moved.points.size(); ++i) {
        const zul_Point expected = transformedPoint(stored.points[i], c.header, transforms);
        FUZZ_CHECK(keyOf(moved.points[i]) == keyOf(expected));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RoundTripCase c;
    if (!parseRoundTripCase(data, size, c)) return 0;
    try {
        checkRoundTrip(c);
    } catch (const std::bad_alloc&) {
        // Running out of memory is the one way the library may leave a call other than by a
        // status.
    }
    return 0;
}

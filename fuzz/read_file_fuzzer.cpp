// The file reader on any bytes: the input becomes a file, which is counted with
// zul_in_getNumPoints and read with zul_in_readNextPoint to the end. The reader must give the
// points and the final status that the in-memory decoder gives for the same bytes.
#include <cstring>
#include <new>
#include <string>

#include "fuzz_check.h"
#include "handles.h"
#include "memory_stream.h"
#include "temp_file.h"

using namespace zulfuzz;

namespace {

void checkReader(const uint8_t* data, size_t size) {
    // How the file is opened comes from the input's size, so that every way is explored: with
    // each value of the parameter, without parameters (which transforms), and by a wide path.
    const int way = static_cast<int>(size % 4);
    const int applyTransformation = way == 0 ? 0 : 1;
    const DecodedStream reference = decodeInMemory(data, size, applyTransformation);
    writeScratch(data, size);

    ReaderHandle reader;
    zul_DataType type{};
    zul_Header2 header{};
    zul_dec_Params params{};
    params.applyTransformation = applyTransformation;
    const std::string& path = scratchPath();
    const std::wstring widePath(path.begin(), path.end());
    zul_Status opened;
    switch (way) {
        case 0:
        case 1:
            opened = zul_in_open2(&reader.context, &type, &header, path.c_str(), &params);
            break;
        case 2:
            opened = zul_in_open(&reader.context, &type, path.c_str());
            break;
        default:
            opened = zul_in_open2_w(&reader.context, &type, nullptr, widePath.c_str(), nullptr);
    }
    FUZZ_CHECK(reader.context != nullptr);
    FUZZ_CHECK(opened == reference.openStatus);
    int64_t count = -1;
    zul_Point point{};
    if (opened != zul_STATUS_OK) {
        FUZZ_CHECK(zul_in_getNumPoints(reader.context, &count) == zul_STATUS_INVALID_STATE);
        FUZZ_CHECK(zul_in_readNextPoint(reader.context, &point) == zul_STATUS_INVALID_STATE);
        return;
    }
    FUZZ_CHECK(std::memcmp(&type, &reference.dataType, sizeof type) == 0);
    if (way <= 1) {
        FUZZ_CHECK(header.enabled == reference.header2.enabled);
        FUZZ_CHECK(header.sensorMount == reference.header2.sensorMount);
        FUZZ_CHECK(std::memcmp(header.transformation, reference.header2.transformation,
                               sizeof header.transformation) == 0);
    }

    // The count reads chunk headers only: it fails where a marker or a header is missing or
    // refused, with the same status, and not for a body, even one cut short. Behind a body the
    // decoder refused, the headers are unknown.
    const zul_Status counted = zul_in_getNumPoints(reader.context, &count);
    if (reference.endStatus == zul_STATUS_END_OF_FILE ||
        (reference.endedInBody && reference.endStatus == zul_STATUS_TRUNCATED)) {
        FUZZ_CHECK(counted == zul_STATUS_OK);
    } else if (!reference.endedInBody) {
        FUZZ_CHECK(counted == reference.endStatus);
    }
    if (counted != zul_STATUS_OK) {
        FUZZ_CHECK(zul_in_readNextPoint(reader.context, &point) == zul_STATUS_INVALID_STATE);
        return;
    }
    if (reference.endStatus == zul_STATUS_END_OF_FILE)
        FUZZ_CHECK(count == reference.pointsDeclared);
    // Over the budget, a caller would not read on.
    if (count > kMaxPointsDecoded || reference.skippedChunk) return;

    size_t read = 0;
    zul_Status status;
    while ((status = zul_in_readNextPoint(reader.context, &point)) == zul_STATUS_OK) {
        FUZZ_CHECK(read < reference.points.size());
        const zul_Point& expected = reference.points[read++];
        FUZZ_CHECK(std::memcmp(point.position, expected.position, sizeof point.position) == 0);
        if (type.colorMode != zul_COLOR_NONE) {
            FUZZ_CHECK(std::memcmp(point.color, expected.color, sizeof point.color) == 0);
        }
        if (type.reflectionMode != zul_REFLECTION_NONE) {
            FUZZ_CHECK(point.reflection == expected.reflection);
        }
        if (type.normalMode != zul_NORMAL_NONE) {
            FUZZ_CHECK(std::memcmp(point.normal, expected.normal, sizeof point.normal) == 0);
        }
        // A second count in the middle of the reading answers the same without a scan.
        if (read == 1) {
            int64_t again = -1;
            FUZZ_CHECK(zul_in_getNumPoints(reader.context, &again) == zul_STATUS_OK);
            FUZZ_CHECK(again == count);
        }
    }
    FUZZ_CHECK(read == reference.points.size());
    FUZZ_CHECK(status == reference.endStatus);
    FUZZ_CHECK(zul_in_readNextPoint(reader.context, &point) == zul_STATUS_INVALID_STATE);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        checkReader(data, size);
    } catch (const std::bad_alloc&) {
        // Running out of memory is the one way the library may leave a call other than by a
        // status.
    }
    return 0;
}

// The in-memory decoder on any bytes, split as a caller splits a stream, once with the sensor
// header's matrix applied and once without. Both runs must refuse the same thing at the same
// place, and the transformed points must be the stored ones through the matrix.
#include <cstring>
#include <new>

#include "fuzz_check.h"
#include "memory_stream.h"
#include "point_oracle.h"

using namespace zulfuzz;

namespace {

void checkSameBits(const zul_Point& a, const zul_Point& b) {
    FUZZ_CHECK(std::memcmp(a.position, b.position, sizeof a.position) == 0);
    FUZZ_CHECK(std::memcmp(a.color, b.color, sizeof a.color) == 0);
    FUZZ_CHECK(a.reflection == b.reflection);
    FUZZ_CHECK(std::memcmp(a.normal, b.normal, sizeof a.normal) == 0);
}

void checkBothWays(const uint8_t* data, size_t size) {
    const DecodedStream stored = decodeInMemory(data, size, 0);
    const DecodedStream moved = decodeInMemory(data, size, 1);
    FUZZ_CHECK(stored.openStatus == moved.openStatus);
    FUZZ_CHECK(stored.endStatus == moved.endStatus);
    FUZZ_CHECK(stored.points.size() == moved.points.size());
    FUZZ_CHECK(stored.pointsDeclared == moved.pointsDeclared);
    if (stored.openStatus != zul_STATUS_OK) return;
    const Transforms transforms = transformsOf(moved.header2, moved.dataType, 1);
    for (size_t i = 0; i < stored.points.size(); ++i) {
        checkSameBits(moved.points[i],
                      transformedPoint(stored.points[i], moved.header2, transforms));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        checkBothWays(data, size);
    } catch (const std::bad_alloc&) {
        // Running out of memory is the one way the library may leave a call other than by a
        // status.
    }
    return 0;
}

// The in-memory decoder on any bytes, split as a caller splits a stream, once with the sensor
// header's matrix applied and once without. Both runs must refuse the same thing at the same
// place, and the transformed points must be the stored ones through the matrix.
#include "fuzz_support.h"

namespace {

void checkBothWays(const uint8_t* data, size_t size) {
    const zulfuzz::DecodedStream stored = zulfuzz::decodeInMemory(data, size, 0);
    const zulfuzz::DecodedStream moved = zulfuzz::decodeInMemory(data, size, 1);
    FUZZ_CHECK(stored.openStatus == moved.openStatus);
    FUZZ_CHECK(stored.endStatus == moved.endStatus);
    FUZZ_CHECK(stored.pointsDeclared == moved.pointsDeclared);
    zulfuzz::checkSamePoints(stored.points, moved.points, moved.header2, moved.dataType);
}

}  // namespace

FUZZ_TARGET(checkBothWays)

// The file reader on any bytes: the input becomes a file, which is counted with
// zul_in_getNumPoints and read with zul_in_readNextPoint to the end. The reader must give the
// points and the final status that the in-memory decoder gives for the same bytes.
#include <cstring>

#include "fuzz_support.h"

using namespace zulfuzz;

namespace {

void checkReader(const uint8_t* data, size_t size) {
    // How the file is opened comes from the input's size, so that every way is explored.
    const int way = static_cast<int>(size % 4);
    const DecodedStream reference = decodeInMemory(data, size, way == 0 ? 0 : 1);
    writeScratch(data, size);
    const ReaderRun run = readScratch(way);
    FUZZ_CHECK(run.opened == reference.openStatus);
    if (run.opened != zul_STATUS_OK) return;
    FUZZ_CHECK(std::memcmp(&run.type, &reference.dataType, sizeof run.type) == 0);
    if (way <= 1) FUZZ_CHECK(std::memcmp(&run.header, &reference.header2, sizeof run.header) == 0);
    // The count reads chunk headers only: it fails where a marker or a header is missing or
    // refused, with the same status, and not for a body, even one cut short. Behind a body the
    // decoder refused, the headers are unknown.
    if (reference.endStatus == zul_STATUS_END_OF_FILE ||
        (reference.endedInBody && reference.endStatus == zul_STATUS_TRUNCATED)) {
        FUZZ_CHECK(run.counted == zul_STATUS_OK);
    } else if (!reference.endedInBody) {
        FUZZ_CHECK(run.counted == reference.endStatus);
    }
    if (run.counted == zul_STATUS_OK && reference.endStatus == zul_STATUS_END_OF_FILE)
        FUZZ_CHECK(run.count == reference.pointsDeclared);
    if (!run.read || reference.skippedChunk) return;
    checkSamePoints(reference.points, run.points);
    FUZZ_CHECK(run.end == reference.endStatus);
}

}  // namespace

FUZZ_TARGET(checkReader)

// The point cloud file readers on any bytes: the first byte picks the format (its place in the
// format table), the rest is the file. A reader hands out points or throws FormatError; anything
// else escaping, a crash, a sanitizer report, or an allocation beyond what the input's size can
// justify (the fuzzer's memory limit) is a finding.
#include <vector>

#include "formats/cloud.h"
#include "fuzz_support.h"

using namespace zulfuzz;

namespace {

// Points read from one input at most: enough to reach every branch of a reader, few enough that
// a header announcing billions of points costs no time.
const int64_t kMaxPointsRead = 1 << 16;

void readCloud(const uint8_t* data, size_t size) {
    if (size == 0) return;
    const std::vector<zulformats::Format>& formats = zulformats::cloudFormats();
    const zulformats::Format format = formats[data[0] % formats.size()];
    writeScratch(data + 1, size - 1);
    try {
        const auto reader = zulformats::openCloudReader(scratchPath(), format);
        const zulformats::CloudLayout& layout = reader->layout();
        zul_Point point{};
        int64_t read = 0;
        while (read < kMaxPointsRead && reader->read(point)) {
            ++read;
            FUZZ_CHECK(reader->bytesRead() <= reader->fileSize());
        }
        if (layout.pointCount >= 0 && read < kMaxPointsRead) FUZZ_CHECK(read <= layout.pointCount);
        reader->dropped();
    } catch (const zulformats::FormatError&) {
        // Refused, with a message naming the file: what a damaged file should get.
    }
}

}  // namespace

FUZZ_TARGET(readCloud)

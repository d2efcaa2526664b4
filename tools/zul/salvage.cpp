#include "salvage.h"

#include <cinttypes>
#include <cstdio>

#include "formats/cloud.h"

namespace zultool {

WalkEnd findIntactPoints(const DecompressOptions& options) {
    ZulFileHead head;
    const WalkEnd end = walkChunks(options.input, true, head, [](const ChunkEntry&) {});
    if (end.status != zul_STATUS_OK && end.stage == ZulStage::Open) {
        throw FormatError(options.input + ": " + damageText(end) + "; nothing can be salvaged");
    }
    return end;
}

int reportSalvage(const DecompressOptions& options, const WalkEnd& end, int64_t saved) {
    if (end.status == zul_STATUS_OK) return 0;
    std::fflush(stdout);
    std::fprintf(stderr, "zul: %s: %s\nzul: salvaged %" PRId64 " points into %s\n",
                 options.input.c_str(), damageText(end).c_str(), saved, options.output.c_str());
    return 1;
}

}  // namespace zultool

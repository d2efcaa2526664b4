#include "commands/salvage.h"

#include <cinttypes>
#include <cstdio>

#include "formats/cloud.h"

namespace zulconvert {

using namespace zulformats;

WalkEnd findIntactPoints(const DecompressOptions& options, zul_idx_Index index,
                         const ZulFileHead& head) {
    return walkIndex(options.input, index, head, true, options.threads, [](const ChunkEntry&) {});
}

WalkEnd findIntactPoints(const DecompressOptions& options, StreamMembers& members) {
    return walkMembers(options.input, members, true, options.threads,
                       [](size_t, const ChunkEntry&) {});
}

void throwNothingSalvaged(const DecompressOptions& options, zul_Status status) {
    WalkEnd end;
    end.status = status;
    throw FormatError(options.input + ": " + damageText(end) + "; nothing can be salvaged");
}

int reportSalvage(const DecompressOptions& options, const WalkEnd& end, int64_t saved) {
    if (end.status == zul_STATUS_OK) return 0;
    std::fflush(stdout);
    std::fprintf(stderr, "zul: %s: %s\nzul: salvaged %" PRId64 " points into %s\n",
                 options.input.c_str(), damageText(end).c_str(), saved, options.output.c_str());
    return 1;
}

}  // namespace zulconvert

#include "commands/salvage.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>

#include "commands/status_text.h"
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

int64_t openForRestore(const DecompressOptions& options, IndexGuard& index, ZulFileHead& head,
                       WalkEnd& intact) {
    errno = 0;
    const zul_Status opened =
        openIndex(options.input, false, options.chunkBudgetMiB, options.pointDensity, index, head);
    if (opened != zul_STATUS_OK && options.salvage) throwNothingSalvaged(options, opened);
    checkStatus(opened, options.input, ZulStage::Open);
    if (options.salvage) {
        intact = findIntactPoints(options, index.index, head);
        return static_cast<int64_t>(intact.intactChunks);
    }
    zul_Status damage = zul_STATUS_OK;
    zul_idx_getDamage(index.index, &damage, nullptr, nullptr);
    checkStatus(damage, options.input, ZulStage::Read);
    int64_t usable = 0;
    zul_idx_getCounts(index.index, &usable, nullptr);
    return usable;
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

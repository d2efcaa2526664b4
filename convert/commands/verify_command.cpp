// zul verify: decodes every chunk of every file and says, per file, that it is intact or where
// the first damage lies and how much before it is intact. The check to run before deleting
// originals. The stream alone proves that every chunk decodes and that its points lie in the box
// its header declares; it holds no checksum, so verify says what it cannot see.
#include <cinttypes>
#include <cstdio>

#include "commands/chunk_walk.h"
#include "commands/commands.h"
#include "commands/companion_report.h"
#include "commands/status_text.h"

namespace zulconvert {

namespace {

// What an OK of the stream alone means.
constexpr const char* kStreamAloneProves =
    "  (stream only: every chunk decodes and its points lie in its box; a flipped bit that keeps "
    "a point in its box, or a file cut at a chunk boundary, cannot be seen)\n";

}  // namespace

int runVerify(const VerifyOptions& options) {
    int damaged = 0;
    for (const std::string& path : options.inputs) {
        ZulFileHead head;
        const WalkEnd end =
            walkChunks(path, true, 0, options.chunkBudgetMiB, head, [](const ChunkEntry&) {});
        const std::string companion = verifyCompanion(path);
        if (!companion.empty()) {
            ++damaged;
            std::fflush(stdout);
            std::fprintf(stderr, "%s\n", companion.c_str());
            if (end.status != zul_STATUS_OK)
                std::fprintf(stderr, "%s: %s\n", path.c_str(), damageText(end).c_str());
        } else if (end.status == zul_STATUS_OK) {
            if (!options.quiet) {
                std::printf("%s: OK, %" PRIu64 " chunk%s, %" PRId64 " points\n%s", path.c_str(),
                            end.intactChunks, end.intactChunks == 1 ? "" : "s", end.intactPoints,
                            kStreamAloneProves);
            }
        } else {
            ++damaged;
            std::fflush(stdout);
            std::fprintf(stderr, "%s: %s\n", path.c_str(), damageText(end).c_str());
        }
    }
    std::fflush(stdout);
    if (damaged > 0 && options.inputs.size() > 1) {
        std::fprintf(stderr, "zul: %d of %zu files damaged\n", damaged, options.inputs.size());
    }
    return damaged > 0 ? 1 : 0;
}

}  // namespace zulconvert

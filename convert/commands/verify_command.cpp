// zul verify: decodes every chunk of every file and says, per file, that it is intact or where
// the first damage lies and how much before it is intact. The check to run before deleting
// originals. The stream alone proves that every chunk decodes and that its points lie in the box
// its header declares; it holds no checksum, so verify says what it cannot see. A companion
// beside it holds a checksum of every chunk, and verify says so when it checked them.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

#include "commands/chunk_walk.h"
#include "commands/commands.h"
#include "commands/companion_report.h"
#include "commands/companion_write.h"
#include "commands/input_spool.h"
#include "commands/status_text.h"
#include "commands/stream_members.h"
#include "formats/cloud.h"

namespace zulconvert {

namespace {

// What an OK of the stream alone means.
constexpr const char* kStreamAloneProves =
    "  (stream only: every chunk decodes and its points lie in its box; a flipped bit that keeps "
    "a point in its box, or a file cut at a chunk boundary, cannot be seen)\n";

// What an OK with the companion's checksums means: `companion` is its name.
std::string companionProves(const std::string& companion) {
    return "  (with " + companion +
           ": every chunk's bytes match the checksum the companion holds, and its fields read)\n";
}

}  // namespace

int runVerify(const VerifyOptions& options) {
    int damaged = 0;
    for (const std::string& name : options.inputs) {
        std::unique_ptr<InputSpool> spool;
        try {
            spool = std::make_unique<InputSpool>(name);
        } catch (const zulformats::FormatError& error) {
            ++damaged;
            std::fflush(stdout);
            std::fprintf(stderr, "%s\n", error.what());
            continue;
        }
        const std::string& path = spool->name();
        // A file that cannot be opened says why (no such file, no permission).
        const int probe = ::open(spool->path().c_str(), O_RDONLY | O_CLOEXEC);
        if (probe < 0) {
            ++damaged;
            std::fflush(stdout);
            std::fprintf(stderr, "%s: the file cannot be opened (%s)\n", path.c_str(),
                         std::strerror(errno));
            continue;
        }
        ::close(probe);
        StreamMembers members;
        WalkEnd end;
        end.status =
            members.open(spool->path(), true, options.chunkBudgetMiB, options.pointDensity);
        if (end.status == zul_STATUS_OK)
            end = walkMembers(spool->path(), members, true, 0, [](size_t, const ChunkEntry&) {});
        const std::string unused = unusedCompanionNote(spool->path(), path, members);
        const std::string companion = unused.empty() ? verifyCompanion(spool->path()) : "";
        const bool checked =
            unused.empty() && std::filesystem::exists(companionPath(spool->path()));
        if (!unused.empty()) {
            std::fflush(stdout);
            std::fprintf(stderr, "zul: %s\n", unused.c_str());
        }
        char streams[64] = "";
        if (members.size() > 1)
            std::snprintf(streams, sizeof streams, "%zu streams one after another, ",
                          members.size());
        if (!companion.empty()) {
            ++damaged;
            std::fflush(stdout);
            std::fprintf(stderr, "%s\n", companion.c_str());
            if (end.status != zul_STATUS_OK)
                std::fprintf(stderr, "%s: %s\n", path.c_str(), damageText(end).c_str());
        } else if (end.status == zul_STATUS_OK) {
            if (!options.quiet) {
                std::printf(
                    "%s: OK, %s%" PRIu64 " chunk%s, %" PRId64 " points\n%s", path.c_str(), streams,
                    end.intactChunks, end.intactChunks == 1 ? "" : "s", end.intactPoints,
                    checked ? companionProves(companionPath(path)).c_str() : kStreamAloneProves);
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

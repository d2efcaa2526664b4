// decompress --salvage: the points of every intact chunk before the first damage of a cut or
// damaged file are written, and the run says how many were saved and where the damage starts.
#pragma once

#include <cstdint>

#include "commands/chunk_walk.h"
#include "commands/commands.h"
#include "commands/stream_members.h"

namespace zulconvert {

// Decodes the chunks of the opened input's streams until the first damage; intactChunks and
// intactPoints are what can be saved.
WalkEnd findIntactPoints(const DecompressOptions& options, zul_idx_Index index,
                         const ZulFileHead& head);
// The same over every stream of a file of several one after another.
WalkEnd findIntactPoints(const DecompressOptions& options, StreamMembers& members);

// Opens the input's chunk index for a restore from its companion, in the stored frame (no
// matrix), and returns the number of chunks to write: every listed one, or with --salvage those
// before the first damage (`intact` says where it is); without --salvage, damage is refused.
int64_t openForRestore(const DecompressOptions& options, IndexGuard& index, ZulFileHead& head,
                       WalkEnd& intact);

// The FormatError for an input whose head cannot be read, so that nothing can be salvaged.
[[noreturn]] void throwNothingSalvaged(const DecompressOptions& options, zul_Status status);

// Tells what was saved of a damaged input on stderr; the exit code: 0 for an intact file, 1 for
// a damaged one.
int reportSalvage(const DecompressOptions& options, const WalkEnd& end, int64_t saved);

}  // namespace zulconvert

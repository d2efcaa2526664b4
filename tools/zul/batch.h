// Many inputs in one run, as gzip and zstd take them: each file in turn, named beside its input
// or in an output folder, never replacing an existing file without --force; a failed file is
// reported and the run goes on; the run fails if any file failed.
#pragma once

#include <string>
#include <vector>

#include "commands/commands.h"

namespace zultool {

// The names of the command line: the positional files and -o ("" if not given).
struct BatchNames {
    std::vector<std::string> files;
    std::string output;
};

// Compresses each input; `names` may also be "IN OUT.zul" (or "IN OUT" for an OUT that does not
// exist yet). Throws UsageError for names that do
// not say what to write.
int runCompressBatch(const zulconvert::CompressOptions& options, const BatchNames& names);
// Decompresses each input; `names` may also be "IN OUT" (an OUT that is no zul file, or does not
// exist yet). The format is --format or the
// output's extension; without either there is nothing to name the output by (UsageError).
int runDecompressBatch(const zulconvert::DecompressOptions& options, const BatchNames& names);

}  // namespace zultool

// decompress with a companion: the companion NAME.zulx beside the input is opened and bound to the
// stream (refused, naming both files, when it belongs to another stream or is damaged); a LAS
// output of a LAS input is then written from the source's own header, VLRs and EVLRs and its
// records rebuilt from the stream and the columns, in the input's order when the companion keeps
// it.
#pragma once

#include <string>

#include "commands/commands.h"
#include "formats/cloud.h"

namespace zulconvert {

// Writes the output from the stream and its companion when the output is LAS and the companion
// holds a LAS source: returns true and sets `exitCode`. Returns false for the plain path (no
// companion, --no-companion, another output format), having said on stderr what the output lacks.
// Throws FormatError for a companion it refuses.
bool restoreFromCompanion(const DecompressOptions& options, zulformats::Format format,
                          int& exitCode);

// The file name (no folder) a companion gives the output of `input`: the input file's own name
// when the companion keeps it and it has the format's extension, else the stream's name with the
// source format's extension ("scan.las" for scan.zul of a LAS file); empty without a companion.
std::string companionOutputName(const std::string& input);

}  // namespace zulconvert

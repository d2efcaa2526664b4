// decompress of a file of several streams one after another: one output holds them all. Its
// attributes are those any stream has; a stream without one of them is written with zeros there
// (colour 0 0 0, intensity 0, normal 0 0 0), and the run says so, stream by stream. Its grid is
// the finest stream's: every other step a whole multiple of it and, for streams on an exact
// grid, offsets a whole number of its steps apart (0.01 and 0.001 mix; 0.002 and 0.003 do not).
// Streams on other grids are refused, naming the first that does not fit.
#pragma once

#include <string>

#include "commands/stream_members.h"
#include "formats/cloud.h"

namespace zulconvert {

// Sets the attributes, the largest intensity and the grid of `write` for the streams of
// `members`, read with the sensor header's matrix if `applied`; notes on standard error what
// each stream lacks unless `quiet`. Throws FormatError naming `input` and the stream whose grid
// differs.
void mergeStreams(const StreamMembers& members, const std::string& input, bool applied,
                  zulformats::Format format, bool quiet, zulformats::WriteOptions& write);

}  // namespace zulconvert

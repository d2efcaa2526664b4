// compress's companion: NAME.zulx beside NAME.zul, for what the stream cannot hold. While the
// points go into the stream, the recorder keeps each one's grid point and the stream's writer
// records which input points each chunk holds (order()); once the stream is complete, the recorder
// decodes it chunk by chunk, finds which of its chunk's input points each stored point is (the
// encoder orders a chunk's points its own way), and writes that point's fields (from the input
// file) as the chunk's columns, bound to the stream's final bytes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "commands/chunk_walk.h"
#include "commands/commands.h"
#include "commands/output_file.h"
#include "commands/point_plan.h"
#include "formats/cloud.h"

namespace zulconvert {

// NAME.zulx for NAME.zul (or NAME + ".zulx" for any other name).
std::string companionPath(const std::string& streamPath);

// The companion's output beside the stream's, when one is written; the pair is one: without one, a
// companion left beside the output from before is removed with -f and refused without.
std::unique_ptr<OutputFile> openCompanionOutput(const CompressOptions& options, bool active);

// Throws FormatError "COMPANION: the companion cannot be written (REASON)" for a failed status.
void checkCompanion(zul_Status status, const std::string& companion);

// Opens the index of the stream just written at `streamPath` (the tool's own: the stored frame,
// no budget or density limit) and returns every chunk's number; a failure names `shown`.
std::vector<int64_t> openWrittenStream(const std::string& streamPath, const std::string& shown,
                                       IndexGuard& index, ZulFileHead& head);

class CompanionRecorder {
public:
    // Active when the options and the input call for a companion: --companion always, LAS, PCD
    // and PLY files by default (their header and the fields of their records), --no-companion
    // never. `reader` hands out the records of a PCD or PLY file; `intensityFactor` is what the
    // stream's reflection is the input's intensity times.
    CompanionRecorder(const CompressOptions& options, zulformats::Format format,
                      const zulformats::CloudReader& reader, double intensityFactor);
    ~CompanionRecorder();
    bool active() const { return active_; }
    // Whether the companion keeps the input's header and fields (a LAS file), not only the
    // stream's checksums and index.
    bool keepsFields() const { return active_ && (lasFields_ || recordFields_); }
    // Whether the companion keeps the input's order (--keep-order, or an organised PCD).
    bool keepsOrder() const { return active_ && keepOrder_; }

    // The next point read from the input, as it went into the stream (`kept`), or dropped.
    // Inline: it runs once a point, and for a LAS file on a whole-step grid it only counts.
    void add(const zul_Point& prepared, bool kept) {
        ++read_;
        dropped_ += kept ? 0 : 1;
        if (active_ && (recordFields_ || (lasFields_ && !recordKeys()))) keep(prepared, kept);
    }
    // The grid's whole steps in a unit of the LAS file's grid, axis by axis (GridPlan::ratio):
    // where none is 0, a point's grid point is its record's X, Y and Z times these, and the
    // recorder need not keep them. Given before the first point.
    void gridRatios(const int64_t ratio[3]);
    // Where the stream's writer records the number of the input point of every stored point, in
    // the stream's order (PlannedWriter::recordOrder); null when no fields are kept.
    std::vector<uint64_t>* order() { return active_ && lasFields_ ? &inputOf_ : nullptr; }

    // Writes the companion of the complete stream at `streamPath` to `companionPath` (a
    // temporary name). Returns a short account of what it holds ("12 fields, the order and the
    // LAS header"). Throws FormatError naming the input when the fields cannot be kept.
    std::string finish(const std::string& streamPath, const std::string& companionPath,
                       int threads);

private:
    // What add keeps of a point: a PCD or PLY file's record, or the grid point.
    void keep(const zul_Point& prepared, bool kept);
    std::string writeRecords(const std::string& streamPath, const std::string& companionPath,
                             int threads);
    // Reserves room for the points of the LAS file `input`.
    void reserveFor(const std::string& input);
    std::string writeLas(const std::string& streamPath, const std::string& companionPath,
                         int threads);

    const CompressOptions& options_;
    zulformats::Format format_;
    bool active_ = false;
    bool keepOrder_ = false;
    bool lasFields_ = false;     // a LAS file that can be read again
    bool recordFields_ = false;  // a PCD or PLY file whose reader hands out its records
    bool recordKeys() const { return ratio_[0] != 0 && ratio_[1] != 0 && ratio_[2] != 0; }

    const zulformats::CloudReader& reader_;
    double intensityFactor_ = 1;
    int64_t ratio_[3] = {0, 0, 0};
    uint64_t read_ = 0, dropped_ = 0;
    std::vector<unsigned char> records_;  // a PCD or PLY file's records read, in the input's order
    std::vector<int64_t> keys_;           // three grid coordinates a point read
    std::vector<uint8_t> kept_;           // of a PCD or PLY file: whether a point went in
    std::vector<uint64_t> inputOf_;       // of a LAS file: the input point of each stored point
};

}  // namespace zulconvert

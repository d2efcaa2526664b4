// compress's companion: NAME.zulx beside NAME.zul, for what the stream cannot hold. While the
// points go into the stream, the stream's writer hands the recorder each chunk as it stores it
// (chunkRecorder()): for a LAS file, which input point each stored point is and what the stream
// gives of its values, against its record (LasStoredPoints). Once the stream is complete, the
// recorder writes the records' fields (from the input file) as the chunks' columns, bound to the
// stream's final bytes.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "commands/chunk_walk.h"
#include "commands/commands.h"
#include "commands/companion_las_stored.h"
#include "commands/output_file.h"
#include "commands/point_plan.h"
#include "formats/cloud.h"
#include "zul_companion.h"

namespace zulconvert {

class MappedFile;

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

// A companion writer opened on `path` (a failure names `shown`), closed when it goes.
class CompanionWriter {
public:
    CompanionWriter(const std::string& path, const std::string& shown);
    ~CompanionWriter() { zul_xout_close(&writer_); }
    CompanionWriter(const CompanionWriter&) = delete;
    CompanionWriter& operator=(const CompanionWriter&) = delete;
    zul_xout_Writer get() const { return writer_; }

private:
    zul_xout_Writer writer_ = nullptr;
};

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
        if (active_ && recordFields_) keep(prepared, kept);
    }
    // Whether add() takes each point's record from the reader (a PCD or PLY file's fields): the
    // points must then be read and added one by one.
    bool takesRecords() const { return active_ && recordFields_; }
    // `read` points read, `dropped` of them dropped, for a recorder that takes no records.
    void addCounted(uint64_t read, uint64_t dropped) {
        read_ += read;
        dropped_ += dropped;
    }
    // The grid's whole steps in a unit of the LAS file's grid, axis by axis (GridPlan::ratio):
    // where none is 0, a point's grid point is its record's X, Y and Z times these. Given before
    // the first point.
    void gridRatios(const int64_t ratio[3]);
    // What the stream's writer hands each chunk to as it stores it (PlannedWriter::recordChunks),
    // on the writer's thread; empty when no LAS fields are kept.
    std::function<void(const std::vector<zulplan::StoredChunk>&)> chunkRecorder();

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
    // Maps the LAS file `input` and readies stored_ for its records, where it is one.
    void mapLas(const std::string& input);
    std::string writeLas(const std::string& streamPath, const std::string& companionPath,
                         int threads);

    const CompressOptions& options_;
    zulformats::Format format_;
    bool active_ = false;
    bool keepOrder_ = false;
    bool lasFields_ = false;     // a LAS file that can be read again
    bool recordFields_ = false;  // a PCD or PLY file whose reader hands out its records

    const zulformats::CloudReader& reader_;
    double intensityFactor_ = 1;
    int64_t ratio_[3] = {0, 0, 0};
    uint64_t read_ = 0, dropped_ = 0;
    std::vector<unsigned char> records_;  // a PCD or PLY file's records read, in the input's order
    std::vector<int64_t> keys_;           // three grid coordinates a point read
    std::vector<uint8_t> kept_;           // of a PCD or PLY file: whether a point went in
    std::unique_ptr<MappedFile> lasInput_;  // a LAS file, mapped while it is compressed
    bool lasMapped_ = false;                // stored_ has its records
    LasStoredPoints stored_;                // of a LAS file: its stored points
};

}  // namespace zulconvert

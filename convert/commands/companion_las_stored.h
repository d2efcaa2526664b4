// What the stream holds of each stored point of a LAS file, against the point's record, gathered
// chunk by chunk as the stream's writer stores the chunks (PlannedWriter::recordChunks): the
// companion then never reads the stream back. Each stored point takes the first record, in the
// input's order, of the chunk's points on its grid point not yet taken (points on one grid point
// are interchangeable: each keeps its own fields, and the differences make its X, Y, Z,
// intensity and colour exact).
#pragma once

#include <cstdint>
#include <vector>

#include "commands/companion_las.h"
#include "planner/large_pages.h"
#include "planner/planned_writer.h"

namespace zulconvert {

class LasStoredPoints {
public:
    // The LAS file's header and its `las.count` records from `records`; `ratio` as
    // CompanionRecorder::gridRatios gives it (without a zero, a point's own grid point is its
    // record's X, Y and Z times these).
    void start(const LasHead& las, const unsigned char* records, const int64_t ratio[3]);
    // The next chunks of the stream, in its order, on `threads` threads (threadsFor).
    void add(const std::vector<zulplan::StoredChunk>& chunks, int threads);

    // Whether a stored point lay past the file's records: the file changed while it was read.
    bool changed() const { return changed_; }

    // The differences of X, Y and Z, of the points that have any (few, as a rule).
    struct XyzResidual {
        uint64_t at;
        int32_t value[3];
    };
    // Filled chunk by chunk as they come: the arrays a point grow without being zeroed first.
    zulplan::LargeVector<uint64_t> inputOf;  // the input point of each stored point
    std::vector<int64_t> chunkStart{0};      // each chunk's first stored point, and the end
    std::vector<XyzResidual> xyzResidual;
    zulplan::LargeVector<uint16_t> intensityResidual;  // a stored point's
    zulplan::LargeVector<uint8_t> color8;  // three a stored point, as the stream gives them
    // The record's columns (lasColumns) of each stored point, gathered while the record is at
    // hand, chunk by chunk: column j of the chunk of n points from stored point `begin` is its n
    // values side by side, at columnValues(begin, n, j).
    const uint8_t* columnValues(size_t begin, size_t n, size_t j) const {
        return fields_.data() + begin * rowWidth_ + columnAt_[j] * n;
    }
    const std::vector<LasColumn>& columns() const { return columns_; }
    bool anyResidual[4] = {};  // X, Y, Z, intensity
    // The colour scales tried, 256, 257 and 1, and how many values each gives back as they were.
    static constexpr int64_t kScales[3] = {256, 257, 1};
    int64_t same[3] = {};

private:
    // What a worker uses for one chunk after another.
    struct Scratch {
        std::vector<double> stored;  // the chunk's positions as the stream gives them
        std::vector<int64_t> keys;   // the chunk's grid points: stored, then its points' own
    };
    // What a chunk adds to the members that sum over the chunks.
    struct ChunkTally {
        bool changed = false;  // a stored point past the file's records
        std::vector<XyzResidual> xyz;
        bool any[4] = {};
        int64_t same[3] = {};
    };
    // The chunk's stored points from `base`, into the arrays' ranges of its own.
    void addChunk(const zulplan::StoredChunk& chunk, size_t base, Scratch& scratch,
                  ChunkTally& tally);
    // Each stored point's input point, into inputOf from `base`; false when the file changed.
    // `whole`: the chunk is stored as it was given (its positions are the stream's).
    bool match(const zulplan::StoredChunk& chunk, size_t base, Scratch& scratch, bool& whole);
    // The same for the usual chunk, false for any other: on a step of 1, every position a whole
    // number below 2^52, stored as it is and its own grid point (checked point by point unless
    // `fromRecords`: the positions are the records' grid points). A grid point's stored points
    // are next to each other. `last` gets the largest input point.
    bool matchWhole(const zulplan::StoredChunk& chunk, bool fromRecords, uint64_t* inputs,
                    uint64_t& last);

    // Gathers the chunk's columns into fields_ (sized for them) from `base`.
    void gatherColumns(size_t base, size_t n);

    LasHead las_;
    std::vector<LasColumn> columns_;
    std::vector<size_t> columnAt_;  // the bytes a point of the columns before each
    size_t rowWidth_ = 0;           // the bytes a point of all columns
    zulplan::LargeVector<uint8_t> fields_;
    const unsigned char* records_ = nullptr;
    int64_t ratio_[3] = {0, 0, 0};
    bool changed_ = false;
};

}  // namespace zulconvert

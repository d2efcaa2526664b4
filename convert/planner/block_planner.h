// The choice of a cutting for one block of points. The candidates: the input's order, k-d cells,
// and strips across either horizontal axis of widths from half to sixteen times the block's mean
// point spacing (and, for a block measured whole, widths at quarter octaves around the best). Each
// is weighed by the bytes the encoder really makes of it: of the whole block when it is small, else
// of a sample of whole chunks that the full cutting would make alike (every so many runs of the
// input, every so many strips, eight whole subtrees of the cells), scaled up by the number of
// points.
// On a long input the blocks between two full searches weigh only the input's order and the last
// choice, and every few blocks the strips of half and twice its width.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/limits.h"
#include "planner/chunk_encoding.h"
#include "planner/cutting.h"
#include "planner/kd_cells.h"
#include "planner/strip_cells.h"
#include "zul.h"

namespace zulplan {

struct Candidate {
    enum Kind { Input, Kd, Strips } kind = Input;
    StripShape strips;    // for Strips
    double multiple = 0;  // for Strips: the width in mean point spacings
    int shift = 0;        // for Strips: the width is 2^shift of the finest
    std::string describe() const;
};

struct Estimate {
    uint64_t bytes = 0;  // of the whole block, chunk framing included
    bool exact = false;  // measured on the whole block, not a sample
};

struct BlockPlannerOptions {
    int chunk = zulbase::kDefaultChunkSize;  // most points a chunk
    size_t exactLimit = 300000;              // blocks up to this size are measured whole
    size_t sampleTarget = 15000;             // points a sample of strips holds, about
    int searchEvery = 16;                    // sampled blocks: a full search every so many
};

class BlockPlanner {
public:
    // `encoder` is used to measure; its stream's bytes are never kept.
    BlockPlanner(ChunkEncoder& encoder, const BlockPlannerOptions& options);
    // One more encoder to measure with: the candidates of a block are then weighed side by side,
    // on a thread an encoder. The choice is the same with any number of them.
    void addEncoder(ChunkEncoder& encoder);

    // Every candidate for this block, the input's order first.
    std::vector<Candidate> candidates(PointSpan block) const;
    // What a candidate would cost the block.
    zul_Status estimate(PointSpan block, const Candidate& candidate, Estimate& estimate);
    // The candidate's cutting of the whole block, into `cutting` (whose memory is reused).
    void cut(PointSpan block, const Candidate& candidate, Cutting& cutting);

    // Weighs the candidates and hands back the cheapest, the input's order on ties, with its
    // estimate and that of the input's order.
    zul_Status choose(PointSpan block, Candidate& chosen, Estimate& cost, Estimate& inputCost);

private:
    // What one thread weighs with.
    struct Workspace {
        explicit Workspace(ChunkEncoder& e) : encoder(e) {}
        ChunkEncoder& encoder;
        StripScratch scratch;
        KdScratch cells;
        IndexVector sample;
        std::vector<uint8_t> taken;  // of stripSample: whether each cluster of strips is taken
        Cutting cutting;             // of a sample, or of the block measured whole
    };

    // With a `bound`, a candidate sure to cost more than it holds is given up: its estimate is
    // UINT64_MAX bytes.
    zul_Status estimate(PointSpan block, const Candidate& candidate, Estimate& estimate,
                        Workspace& work, const std::atomic<uint64_t>* bound = nullptr);
    void cut(PointSpan block, const Candidate& candidate, Cutting& cutting, Workspace& work);
    // The cutting a candidate is weighed on, into `cutting`: the whole block's if it is measured
    // whole, else a sample's; returns the points it holds.
    size_t sampleOf(PointSpan block, const Candidate& candidate, Workspace& work, Cutting& cutting);
    // Weighs `list` (on as many threads as there are encoders) and takes the cheapest into
    // `chosen` and `cost`: the earlier on ties, and any of them over what `chosen` holds unless
    // `inputCost` is given, which then gets the first one's estimate.
    zul_Status weigh(PointSpan block, const std::vector<Candidate>& list, Candidate& chosen,
                     Estimate& cost, Estimate* inputCost);
    // The finest band of every point of the block across the strips' axis, for the samples.
    void prepareUnits(PointSpan block, const Candidate& candidate);
    // The points of every so many strips of `shape`, into work.sample.
    const IndexVector& stripSample(PointSpan block, const Candidate& candidate, Workspace& work);
    const IndexVector& allIndices(size_t n);
    // The finest bands of the block's points for the strips of `candidate`, if made; else null.
    const uint64_t* finestOf(PointSpan block, const Candidate& candidate) const;

    // A candidate's sample, the points of its chunks weighed first and their bytes.
    struct Sample {
        Cutting cutting;
        size_t sampled = 0, weighed = 0;
        size_t every = 1;  // the chunks weighed first: every so many
        uint64_t bytes = 0;
    };

    std::vector<std::unique_ptr<Workspace>> workspaces_;
    std::vector<Sample>
        samples_;  // of the candidates of a sampled block  // the first for one thread's calls
    BlockPlannerOptions options_;
    IndexVector all_;
    // The finest band of each point along either axis, and the block they belong to.
    LargeVector<uint64_t> units_[2];
    // Along either axis, where there are no more pairs of the finest bands than points: the
    // points of each pair in their order, pair after pair, and where each pair's points begin.
    IndexVector byPair_[2], pairStarts_[2];
    bool paired_[2] = {false, false};
    const zul_Point* unitsOf_[2] = {nullptr, nullptr};
    // The finite points of the block whose geometry choose() found last.
    const zul_Point* finiteOf_ = nullptr;
    size_t finite_ = 0;
    // The last choice of a sampled block, and sampled blocks since the last full search.
    Candidate last_;
    int sinceSearch_ = -1;
    bool searched_ = false;  // a sampled block has had a full search
};

}  // namespace zulplan

#include "planner/block_planner.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <numeric>
#include <type_traits>

#include "base/worker_threads.h"
#include "planner/kd_cells.h"

namespace zulplan {

namespace {

// Widths of the strips weighed: kFinest mean point spacings times 2^shift, shift 0 to kShifts - 1.
const double kFinest = 0.5;
const int kShifts = 6;
// What a sample says is good to this ratio.
const double kSampleMargin = 0.99;
// A sample takes at least this many strips or runs of the input, spread over the block.
const size_t kStrata = 8;
// A sample of strips takes at most about this many times the sample target for the sake of
// strata.
const size_t kLargestSample = 4;
// A sample of k-d cells takes this many subtrees, each at least a chunk.
const size_t kKdParts = 8;
// Between full searches, the strips next to the last choice in width are weighed every so many
// blocks.
const int kNeighboursEvery = 4;
// A sampled block's candidates are weighed on every kRounds-th chunk of their samples first, and
// only those within kFirstRoundMargin of the cheapest so weighed on the rest.
const size_t kRounds = 3;
// ... unless their cuttings have fewer chunks than this: those are weighed whole at once.
const size_t kFewestChunks = 6;
const double kFirstRoundMargin = 0.025;
// A strip's chunk may be this many times longer than the side of a square chunk.
const double kLengthRatio = 16;

struct Geometry {
    double low[3] = {INFINITY, INFINITY, INFINITY}, high[3] = {-INFINITY, -INFINITY, -INFINITY};
    size_t finite = 0;
    double spacing = 0;  // mean distance of neighbours across the horizontal axes; 0 if none
};

Geometry geometryOf(PointSpan block) {
    Geometry g;
    // Every point taken as finite first: (v - v) is 0 for a finite v and not a number else, so
    // the sum of them is 0 only if they all were. Else again, point by point. x and y side by
    // side.
    using Pair = double __attribute__((vector_size(16)));
    Pair lowXY = {INFINITY, INFINITY}, highXY = {-INFINITY, -INFINITY}, sumXY = {0, 0};
    double lowZ = INFINITY, highZ = -INFINITY, sumZ = 0;
    for (const zul_Point& p : block) {
        Pair xy;
        std::memcpy(&xy, p.position, sizeof xy);
        const double z = p.position[2];
        sumXY += xy - xy;
        sumZ += z - z;
        lowXY = xy < lowXY ? xy : lowXY;
        highXY = xy > highXY ? xy : highXY;
        lowZ = z < lowZ ? z : lowZ;
        highZ = z > highZ ? z : highZ;
    }
    double low[3] = {lowXY[0], lowXY[1], lowZ}, high[3] = {highXY[0], highXY[1], highZ};
    const double sum = sumXY[0] + sumXY[1] + sumZ;
    size_t finite = block.size();
    if (!(sum == 0)) {
        finite = 0;
        for (int k = 0; k < 3; ++k) {
            low[k] = INFINITY;
            high[k] = -INFINITY;
        }
        for (const zul_Point& p : block) {
            const double x = p.position[0], y = p.position[1], z = p.position[2];
            if (!((x - x) + (y - y) + (z - z) == 0)) continue;
            ++finite;
            for (int k = 0; k < 3; ++k) {
                low[k] = std::min(low[k], p.position[k]);
                high[k] = std::max(high[k], p.position[k]);
            }
        }
    }
    g.finite = finite;
    for (int k = 0; k < 3; ++k) {
        g.low[k] = low[k];
        g.high[k] = high[k];
    }
    if (g.finite == 0) return g;
    const double ex = g.high[0] - g.low[0], ey = g.high[1] - g.low[1];
    const double n = static_cast<double>(g.finite);
    if (ex > 0 && ey > 0)
        g.spacing = std::sqrt(ex / n * ey);
    else
        g.spacing = std::max(ex, ey) / n;
    if (!std::isfinite(g.spacing)) g.spacing = 0;
    return g;
}

// Strips across `axis`, 2^(shift + step) of the finest width wide; false where they would not be
// strips (one band, or more bands than points). With no step every width's bands fall on those of
// the finest, and samples can be taken; a width between (a step within +-1) is for blocks measured
// whole only.
bool stripCandidate(const Geometry& g, int axis, int shift, int chunk, Candidate& c,
                    double step = 0) {
    if (g.spacing <= 0 || shift < 0 || shift >= kShifts) return false;
    c = Candidate();
    c.kind = Candidate::Strips;
    c.shift = step == 0 ? shift : -1;
    c.multiple = kFinest * std::exp2(shift + step);
    c.strips.axis = axis;
    c.strips.origin = g.low[axis];
    c.strips.width = c.multiple * g.spacing;
    // With no step, a power of two apart from the finest, exactly.
    c.strips.inverse =
        step == 0 ? std::ldexp(1 / (kFinest * g.spacing), -shift) : 1 / c.strips.width;
    c.strips.chunk = chunk;
    c.strips.maxLength = kLengthRatio * g.spacing * std::sqrt(static_cast<double>(chunk));
    const double bands = std::floor((g.high[axis] - g.low[axis]) * c.strips.inverse) + 1;
    if (!(bands >= 2) || bands > static_cast<double>(g.finite)) return false;
    c.strips.count = static_cast<size_t>(bands);
    return true;
}

// The strip a sample takes out of the stretch of strips `stretch`: one that looks drawn at
// random, so that the sample does not follow a period of the cloud.
uint64_t phaseOf(uint64_t stretch, uint64_t mask) {
    uint64_t h = (stretch + 1) * 0x9E3779B97F4A7C15ull;
    h ^= h >> 31;
    return h & mask;
}

// Every candidate for a block of geometry `g`, the input's order first.
std::vector<Candidate> candidatesOf(const Geometry& g, int chunk) {
    std::vector<Candidate> list(2);
    list[0].kind = Candidate::Input;
    list[1].kind = Candidate::Kd;
    for (int axis = 0; axis < 2; ++axis) {
        for (int shift = 0; shift < kShifts; ++shift) {
            Candidate c;
            if (stripCandidate(g, axis, shift, chunk, c)) list.push_back(c);
        }
    }
    return list;
}

uint64_t scaled(uint64_t bytes, size_t sampled, size_t total) {
    if (sampled == 0) return 0;
    return static_cast<uint64_t>(std::llround(
        static_cast<double>(bytes) * static_cast<double>(total) / static_cast<double>(sampled)));
}

}  // namespace

std::string Candidate::describe() const {
    if (kind == Input) return "input order";
    if (kind == Kd) return "k-d cells";
    char text[96];
    std::snprintf(text, sizeof text, "strips across %c, %g spacings wide", "xyz"[strips.axis],
                  multiple);
    return text;
}

BlockPlanner::BlockPlanner(ChunkEncoder& encoder, const BlockPlannerOptions& options)
    : options_(options) {
    addEncoder(encoder);
}

void BlockPlanner::addEncoder(ChunkEncoder& encoder) {
    workspaces_.push_back(std::make_unique<Workspace>(encoder));
}

const IndexVector& BlockPlanner::allIndices(size_t n) {
    if (all_.size() != n) {
        all_.resize(n);
        for (size_t i = 0; i < n; ++i) all_[i] = static_cast<uint32_t>(i);
    }
    return all_;
}

std::vector<Candidate> BlockPlanner::candidates(PointSpan block) const {
    return candidatesOf(geometryOf(block), options_.chunk);
}

void BlockPlanner::cut(PointSpan block, const Candidate& candidate, Cutting& cutting) {
    cut(block, candidate, cutting, *workspaces_[0]);
}

void BlockPlanner::cut(PointSpan block, const Candidate& candidate, Cutting& cutting,
                       Workspace& work) {
    cutting.order.clear();
    cutting.ends.clear();
    cutting.order.reserve(block.size());
    const IndexVector& all = allIndices(block.size());
    if (candidate.kind == Candidate::Input)
        cutInRuns(all, options_.chunk, cutting);
    else if (candidate.kind == Candidate::Kd)
        cutKdCells(block.data(), all, options_.chunk, cutting, work.cells);
    else
        cutStrips(block.data(), all, candidate.strips, cutting, work.scratch,
                  finestOf(block, candidate), candidate.shift);
}

const uint64_t* BlockPlanner::finestOf(PointSpan block, const Candidate& candidate) const {
    const int axis = candidate.strips.axis;
    // Paired: there are fewer bands than points, none beyond what a shift of them reaches.
    if (candidate.kind != Candidate::Strips || candidate.shift < 0 || !paired_[axis] ||
        unitsOf_[axis] != block.data() || units_[axis].size() != block.size())
        return nullptr;
    return units_[axis].data();
}

void BlockPlanner::prepareUnits(PointSpan block, const Candidate& candidate) {
    const StripShape& shape = candidate.strips;
    LargeVector<uint64_t>& units = units_[shape.axis];
    if (unitsOf_[shape.axis] == block.data() && units.size() == block.size()) return;
    // The finest band of every point, once a block and axis: a sample of any width is then
    // runs of these rather than a pass over the points.
    unitsOf_[shape.axis] = block.data();
    units.resize(block.size());
    StripShape finest = shape;
    finest.inverse = std::ldexp(shape.inverse, candidate.shift);
    finest.count = static_cast<size_t>(
        std::min(static_cast<double>(UINT64_MAX >> 1),
                 static_cast<double>(shape.count) * std::ldexp(1.0, candidate.shift)));
    // A counting sort by pair of bands, which keeps the points' order within each pair; its
    // counts are taken with the bands.
    const uint64_t pairs = finest.count / 2 + 1;
    paired_[shape.axis] = pairs <= block.size();
    IndexVector& starts = pairStarts_[shape.axis];
    IndexVector& byPair = byPair_[shape.axis];
    starts.assign(paired_[shape.axis] ? static_cast<size_t>(pairs) + 1 : 0, 0);
    if (finiteOf_ == block.data() && finite_ == block.size()) {
        // Every point finite: stripOf without its tests, and the counts in a loop of their own
        // kind.
        const double origin = finest.origin, inverse = finest.inverse;
        const double count = static_cast<double>(finest.count);
        const size_t top = finest.count - 1;
        const int axis = shape.axis;
        const auto bands = [&](auto paired) {
            for (size_t i = 0; i < block.size(); ++i) {
                const double band = (block[i].position[axis] - origin) * inverse;
                const size_t b = !(band >= 1) ? 0 : band >= count ? top : static_cast<size_t>(band);
                units[i] = b;
                if constexpr (decltype(paired)::value) ++starts[(b >> 1) + 1];
            }
        };
        if (paired_[shape.axis])
            bands(std::true_type());
        else
            bands(std::false_type());
    } else {
        for (size_t i = 0; i < block.size(); ++i) {
            const size_t band = stripOf(finest, block[i]);
            units[i] = band == finest.count ? UINT64_MAX : band;
            if (band != finest.count && !starts.empty()) ++starts[(band >> 1) + 1];
        }
    }
    if (!paired_[shape.axis]) return;
    for (size_t p = 1; p < starts.size(); ++p) starts[p] += starts[p - 1];
    byPair.resize(starts.back());
    // Each start moves on to the next pair's as its points are placed, then back.
    for (size_t i = 0; i < units.size(); ++i)
        if (units[i] != UINT64_MAX)
            byPair[starts[static_cast<size_t>(units[i] >> 1)]++] = static_cast<uint32_t>(i);
    std::copy_backward(starts.begin(), starts.end() - 2, starts.end() - 1);
    starts[0] = 0;
}

const IndexVector& BlockPlanner::stripSample(PointSpan block, const Candidate& candidate,
                                             Workspace& work) {
    const StripShape& shape = candidate.strips;
    const LargeVector<uint64_t>& units = units_[shape.axis];
    IndexVector& sample = work.sample;
    sample.clear();
    // One cluster of strips out of every so many (a power of two); never the points that are not
    // finite. A cluster is a strip, or two of the finest (a mean spacing wide), so that strips
    // narrower than the spacing between scan lines are sampled together with their neighbours.
    const int cluster = std::max(candidate.shift, 1);
    const uint64_t clusters = (shape.count >> (cluster - candidate.shift)) + 1;
    uint64_t every = 1;
    // At least kStrata clusters, unless that would take more than kLargestSample samples' worth.
    while (2 * every * options_.sampleTarget <= block.size() &&
           (2 * every * kStrata <= clusters ||
            2 * every * kLargestSample * options_.sampleTarget <= block.size()))
        every *= 2;
    const uint64_t mask = every - 1;
    int everyBits = 0;
    while ((uint64_t{1} << everyBits) < every) ++everyBits;
    const auto takes = [mask, everyBits](uint64_t band) {
        return (band & mask) == phaseOf(band >> everyBits, mask);
    };
    // Whether each cluster is taken, worked out once a cluster rather than once a point.
    std::vector<uint8_t>& taken = work.taken;
    taken.resize(static_cast<size_t>(clusters));
    for (uint64_t band = 0; band < clusters; ++band) taken[band] = takes(band);
    if (paired_[shape.axis]) {
        // The runs of the pairs of the clusters taken, every finite point being in one.
        const IndexVector& starts = pairStarts_[shape.axis];
        const IndexVector& byPair = byPair_[shape.axis];
        const uint64_t pairs = starts.size() - 1;
        for (uint64_t band = 0; band < clusters && (band << (cluster - 1)) < pairs; ++band) {
            if (taken[band] == 0) continue;
            const uint64_t first = band << (cluster - 1);
            const uint64_t last = std::min(pairs, (band + 1) << (cluster - 1));
            sample.insert(sample.end(), byPair.begin() + starts[first],
                          byPair.begin() + starts[last]);
        }
        return sample;
    }
    for (size_t i = 0; i < units.size(); ++i) {
        if (units[i] == UINT64_MAX) continue;
        const uint64_t band = units[i] >> cluster;
        if (band < clusters ? taken[band] != 0 : takes(band))
            sample.push_back(static_cast<uint32_t>(i));
    }
    return sample;
}

zul_Status BlockPlanner::estimate(PointSpan block, const Candidate& candidate, Estimate& estimate) {
    finiteOf_ = nullptr;  // not known here
    if (candidate.kind == Candidate::Strips && candidate.shift >= 0 &&
        block.size() > options_.exactLimit)
        prepareUnits(block, candidate);
    return this->estimate(block, candidate, estimate, *workspaces_[0]);
}

size_t BlockPlanner::sampleOf(PointSpan block, const Candidate& candidate, Workspace& work,
                              Cutting& cutting) {
    const size_t n = block.size();
    cutting.order.clear();
    cutting.ends.clear();
    if (n <= options_.exactLimit) {
        cut(block, candidate, cutting, work);
        return n;
    }
    if (candidate.kind == Candidate::Input) {
        // Every so many runs of the input.
        const size_t chunk = static_cast<size_t>(options_.chunk);
        const size_t runs = (n + chunk - 1) / chunk;
        const size_t every =
            std::max<size_t>(1, std::min(runs * chunk / options_.sampleTarget, runs / kStrata));
        size_t sampled = 0;
        for (size_t r = every / 2; r < runs; r += every) {
            const size_t begin = r * chunk, end = std::min(n, begin + chunk);
            for (size_t i = begin; i < end; ++i) cutting.order.push_back(static_cast<uint32_t>(i));
            cutting.closeChunk();
            sampled += end - begin;
        }
        return sampled;
    }
    if (candidate.kind == Candidate::Kd)
        return kdSample(
            block.data(), allIndices(n), options_.chunk,
            std::max(options_.sampleTarget / kKdParts, static_cast<size_t>(options_.chunk)),
            kKdParts, cutting, work.cells);
    const IndexVector& part = stripSample(block, candidate, work);
    cutStrips(block.data(), part, candidate.strips, cutting, work.scratch,
              finestOf(block, candidate), candidate.shift);
    return part.size();
}

zul_Status BlockPlanner::estimate(PointSpan block, const Candidate& candidate, Estimate& estimate,
                                  Workspace& work, const std::atomic<uint64_t>* bound) {
    estimate = Estimate();
    const size_t n = block.size();
    Cutting& cutting = work.cutting;
    const size_t sampled = sampleOf(block, candidate, work, cutting);
    estimate.exact = n <= options_.exactLimit;
    if (bound != nullptr && sampled > 0) {
        bool over = false;
        const zul_Status status =
            work.encoder.measure(block.data(), cutting, estimate.bytes, *bound,
                                 static_cast<double>(n) / static_cast<double>(sampled), over);
        if (status != zul_STATUS_OK) return status;
        if (over) {
            estimate.bytes = UINT64_MAX;
            return zul_STATUS_OK;
        }
    } else {
        const zul_Status status = work.encoder.measure(block.data(), cutting, estimate.bytes);
        if (status != zul_STATUS_OK) return status;
    }
    if (!estimate.exact) estimate.bytes = scaled(estimate.bytes, sampled, n);
    return zul_STATUS_OK;
}

zul_Status BlockPlanner::weigh(PointSpan block, const std::vector<Candidate>& list,
                               Candidate& chosen, Estimate& cost, Estimate* inputCost) {
    // What the threads share is made before they start: the indices of the block and the bands of
    // the points for the samples of strips.
    allIndices(block.size());
    // The bands along either axis, the two side by side.
    const Candidate* axes[2] = {nullptr, nullptr};
    for (const Candidate& candidate : list)
        if (candidate.kind == Candidate::Strips && candidate.shift >= 0 &&
            block.size() > options_.exactLimit && axes[candidate.strips.axis] == nullptr)
            axes[candidate.strips.axis] = &candidate;
    std::vector<const Candidate*> unitsToMake;
    for (const Candidate* first : axes)
        if (first != nullptr) unitsToMake.push_back(first);
    std::atomic<size_t> nextAxis{0};
    zulbase::runWorkers(
        zulbase::threadsFor(static_cast<int>(workspaces_.size()), unitsToMake.size()), [&](int) {
            for (size_t i; (i = nextAxis++) < unitsToMake.size();)
                prepareUnits(block, *unitsToMake[i]);
        });
    std::vector<Estimate> estimates(list.size());
    std::vector<zul_Status> statuses(list.size(), zul_STATUS_OK);
    // The least any candidate measured so far costs: one sure to cost more is never chosen, so it
    // is given up as soon as it does (the input's order, whose estimate is handed back, never).
    std::atomic<uint64_t> best{inputCost != nullptr ? UINT64_MAX : cost.bytes};
    const auto lower = [&best](uint64_t bytes) {
        uint64_t now = best.load();
        while (bytes < now && !best.compare_exchange_weak(now, bytes)) {
        }
    };
    // Runs `step(i, workspace)` for each i of `which` on as many threads as there are encoders.
    const auto each = [&](const std::vector<size_t>& which, const auto& step) {
        std::atomic<size_t> next{0};
        zulbase::runWorkers(
            zulbase::threadsFor(static_cast<int>(workspaces_.size()), which.size()), [&](int w) {
                try {
                    for (size_t k; (k = next++) < which.size();)
                        statuses[which[k]] = step(which[k], *workspaces_[static_cast<size_t>(w)]);
                } catch (...) {
                    next = which.size();  // the others stop too
                    throw;
                }
            });
    };
    std::vector<size_t> all(list.size());
    std::iota(all.begin(), all.end(), size_t{0});
    const size_t n = block.size();
    {
        // Every candidate is weighed on the first of every kRounds chunks of its sample, and only
        // those close to the cheapest so weighed on the rest: their estimates are those of the
        // whole samples. The others cost so much more that the rest could hardly turn it; the
        // input's order, if given up, has the estimate of the chunks weighed.
        if (samples_.size() < list.size()) samples_.resize(list.size());
        each(all, [&](size_t i, Workspace& work) {
            Sample& sample = samples_[i];
            sample.sampled = sampleOf(block, list[i], work, sample.cutting);
            sample.bytes = 0;
            sample.weighed = 0;
            const Cutting& cutting = sample.cutting;
            // A cutting of few chunks is weighed whole at once.
            sample.every = cutting.chunks() >= kFewestChunks ? kRounds : 1;
            for (size_t c = 0; c < cutting.chunks(); c += sample.every)
                sample.weighed += cutting.ends[c] - cutting.begin(c);
            return work.encoder.measure(block.data(), cutting, sample.bytes,
                                        ChunkSubset{sample.every, true});
        });
        for (const zul_Status status : statuses)
            if (status != zul_STATUS_OK) return status;
        std::vector<double> guesses(list.size(), 0);
        double least = INFINITY;
        for (size_t i = 0; i < list.size(); ++i) {
            const Sample& sample = samples_[i];
            if (sample.weighed > 0)
                guesses[i] = static_cast<double>(sample.bytes) * static_cast<double>(n) /
                             static_cast<double>(sample.weighed);
            least = std::min(least, guesses[i]);
        }
        std::vector<size_t> close;
        for (size_t i = 0; i < list.size(); ++i) {
            if (guesses[i] <= least * (1 + kFirstRoundMargin)) {
                close.push_back(i);
                continue;
            }
            const bool whole = inputCost != nullptr && i == 0;
            estimates[i].bytes =
                whole ? scaled(samples_[i].bytes, samples_[i].weighed, n) : UINT64_MAX;
        }
        each(close, [&](size_t i, Workspace& work) {
            const Sample& sample = samples_[i];
            Estimate& estimate = estimates[i];
            estimate.bytes = sample.bytes;
            estimate.exact = n <= options_.exactLimit;
            if (sample.sampled == 0 || sample.every == 1) {
                estimate.bytes = scaled(estimate.bytes, sample.sampled, n);
                lower(estimate.bytes);
                return zul_STATUS_OK;
            }
            const ChunkSubset rest{sample.every, false};
            const bool whole = inputCost != nullptr && i == 0;
            bool over = false;
            const zul_Status status =
                whole
                    ? work.encoder.measure(block.data(), sample.cutting, estimate.bytes, rest)
                    : work.encoder.measure(
                          block.data(), sample.cutting, estimate.bytes, best,
                          static_cast<double>(n) / static_cast<double>(sample.sampled), over, rest);
            if (status != zul_STATUS_OK) return status;
            estimate.bytes = over ? UINT64_MAX : scaled(estimate.bytes, sample.sampled, n);
            lower(estimate.bytes);
            return zul_STATUS_OK;
        });
    }
    for (size_t i = 0; i < list.size(); ++i) {
        if (statuses[i] != zul_STATUS_OK) return statuses[i];
        const bool first = inputCost != nullptr && i == 0;
        if (first) *inputCost = estimates[i];
        if (first || estimates[i].bytes < cost.bytes) {
            chosen = list[i];
            cost = estimates[i];
        }
    }
    return zul_STATUS_OK;
}

zul_Status BlockPlanner::choose(PointSpan block, Candidate& chosen, Estimate& cost,
                                Estimate& inputCost) {
    unitsOf_[0] = unitsOf_[1] = nullptr;
    const bool sampled = block.size() > options_.exactLimit;
    const bool search = !sampled || sinceSearch_ < 0 || sinceSearch_ + 1 >= options_.searchEvery;
    // The input's order first.
    std::vector<Candidate> list(1);
    const Geometry g = geometryOf(block);
    finiteOf_ = block.data();
    finite_ = g.finite;
    if (search) {
        sinceSearch_ = sampled ? 0 : -1;
        // k-d cells cost a large block several passes: weighed at its first search only.
        const std::vector<Candidate> all = candidatesOf(g, options_.chunk);
        for (size_t i = 1; i < all.size(); ++i)
            if (all[i].kind != Candidate::Kd || !searched_) list.push_back(all[i]);
        searched_ = sampled;
    } else {
        // Between full searches: the input's order, the last choice and the strips next to it.
        ++sinceSearch_;
        if (last_.kind == Candidate::Kd) list.push_back(last_);
        if (last_.kind == Candidate::Strips) {
            // The neighbours in width every few blocks only.
            const bool neighbours = sinceSearch_ % kNeighboursEvery == 0;
            for (int shift : {last_.shift, last_.shift - 1, last_.shift + 1}) {
                Candidate c;
                if ((neighbours || shift == last_.shift) &&
                    stripCandidate(g, last_.strips.axis, shift, options_.chunk, c))
                    list.push_back(c);
            }
        }
    }
    zul_Status status = weigh(block, list, chosen, cost, &inputCost);
    if (status != zul_STATUS_OK) return status;
    if (search && !sampled && chosen.kind == Candidate::Strips) {
        // Measured whole: the widths between the best and its neighbours too.
        const Candidate best = chosen;
        std::vector<Candidate> between;
        for (double step : {-0.5, -0.25, 0.25, 0.5}) {
            Candidate c;
            if (stripCandidate(g, best.strips.axis, best.shift, options_.chunk, c, step))
                between.push_back(c);
        }
        status = weigh(block, between, chosen, cost, nullptr);
        if (status != zul_STATUS_OK) return status;
    }
    if (sampled) {
        last_ = chosen;
        // A sample's word is good to 1%: less than that is no gain worth the reordering.
        if (chosen.kind != Candidate::Input &&
            static_cast<double>(cost.bytes) >
                kSampleMargin * static_cast<double>(inputCost.bytes)) {
            chosen = list[0];
            cost = inputCost;
        }
    }
    return zul_STATUS_OK;
}

}  // namespace zulplan

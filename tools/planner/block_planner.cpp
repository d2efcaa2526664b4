#include "block_planner.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "kd_cells.h"

namespace zulplan {

namespace {

// Widths of the strips weighed, in mean point spacings; the largest is the band of a sample.
const double kWidths[] = {0.5, 1, 2, 4, 8, 16};
const double kSlab = 16;
// A strip's chunk may be this many times longer than the side of a square chunk.
const double kLengthRatio = 16;

struct Geometry {
    double low[3] = {INFINITY, INFINITY, INFINITY}, high[3] = {-INFINITY, -INFINITY, -INFINITY};
    size_t finite = 0;
    double spacing = 0;  // mean distance of neighbours across the horizontal axes; 0 if none
};

Geometry geometryOf(const std::vector<zul_Point>& block) {
    Geometry g;
    for (const zul_Point& p : block) {
        if (!std::isfinite(p.position[0]) || !std::isfinite(p.position[1]) ||
            !std::isfinite(p.position[2]))
            continue;
        ++g.finite;
        for (int k = 0; k < 3; ++k) {
            g.low[k] = std::min(g.low[k], p.position[k]);
            g.high[k] = std::max(g.high[k], p.position[k]);
        }
    }
    if (g.finite == 0) return g;
    const double ex = g.high[0] - g.low[0], ey = g.high[1] - g.low[1];
    const double n = static_cast<double>(g.finite);
    if (ex > 0 && ey > 0) g.spacing = std::sqrt(ex / n * ey);
    else g.spacing = std::max(ex, ey) / n;
    if (!std::isfinite(g.spacing)) g.spacing = 0;
    return g;
}

// Strips across `axis`, `multiple` spacings wide; false where they would not be strips (one band,
// or more bands than points).
bool stripCandidate(const Geometry& g, int axis, double multiple, int chunk, Candidate& c) {
    if (g.spacing <= 0) return false;
    c = Candidate();
    c.kind = Candidate::Strips;
    c.multiple = multiple;
    c.sampleBand = kSlab * g.spacing;
    c.strips.axis = axis;
    c.strips.origin = g.low[axis];
    c.strips.width = multiple * g.spacing;
    c.strips.chunk = chunk;
    c.strips.maxLength = kLengthRatio * g.spacing * std::sqrt(static_cast<double>(chunk));
    const double bands = std::floor((g.high[axis] - g.low[axis]) / c.strips.width) + 1;
    if (!(bands >= 2) || bands > static_cast<double>(g.finite)) return false;
    c.strips.count = static_cast<size_t>(bands);
    return true;
}

uint64_t scaled(uint64_t bytes, size_t sampled, size_t total) {
    if (sampled == 0) return 0;
    return static_cast<uint64_t>(std::llround(static_cast<double>(bytes) *
                                              static_cast<double>(total) /
                                              static_cast<double>(sampled)));
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
    : encoder_(encoder), options_(options) {}

const std::vector<uint32_t>& BlockPlanner::allIndices(size_t n) {
    if (all_.size() != n) {
        all_.resize(n);
        for (size_t i = 0; i < n; ++i) all_[i] = static_cast<uint32_t>(i);
    }
    return all_;
}

std::vector<Candidate> BlockPlanner::candidates(const std::vector<zul_Point>& block) const {
    std::vector<Candidate> list(2);
    list[0].kind = Candidate::Input;
    list[1].kind = Candidate::Kd;
    const Geometry g = geometryOf(block);
    for (int axis = 0; axis < 2; ++axis) {
        for (double multiple : kWidths) {
            Candidate c;
            if (stripCandidate(g, axis, multiple, options_.chunk, c)) list.push_back(c);
        }
    }
    return list;
}

Cutting BlockPlanner::cut(const std::vector<zul_Point>& block, const Candidate& candidate) {
    Cutting cutting;
    cutting.order.reserve(block.size());
    const std::vector<uint32_t>& all = allIndices(block.size());
    if (candidate.kind == Candidate::Input)
        cutInRuns(all, options_.chunk, cutting);
    else if (candidate.kind == Candidate::Kd)
        cutKdCells(block.data(), all, options_.chunk, cutting);
    else
        cutStrips(block.data(), all, candidate.strips, cutting, scratch_);
    return cutting;
}

const std::vector<uint32_t>& BlockPlanner::bandSample(const std::vector<zul_Point>& block,
                                                      int axis, double origin, double slab) {
    if (sampledAxis_ == axis && sampledSlab_ == slab) return sample_;
    sampledAxis_ = axis;
    sampledSlab_ = slab;
    sample_.clear();
    const size_t every =
        std::max<size_t>(1, (block.size() + options_.sampleTarget / 2) / options_.sampleTarget);
    const double inverse = 1 / slab;
    const double bands = static_cast<double>(every);
    for (size_t i = 0; i < block.size(); ++i) {
        const double band = std::floor((block[i].position[axis] - origin) * inverse);
        // Not finite: no band.
        if (!(band >= 0 && band < 1e15)) continue;
        if (band - bands * std::floor(band / bands) == static_cast<double>(every / 2))
            sample_.push_back(static_cast<uint32_t>(i));
    }
    return sample_;
}

zul_Status BlockPlanner::estimate(const std::vector<zul_Point>& block, const Candidate& candidate,
                                  Estimate& estimate) {
    estimate = Estimate();
    const size_t n = block.size();
    Cutting cutting;
    size_t sampled = n;
    if (n <= options_.exactLimit) {
        cutting = cut(block, candidate);
        estimate.exact = true;
    } else if (candidate.kind == Candidate::Input) {
        // Every so many runs of the input.
        const size_t chunk = static_cast<size_t>(options_.chunk);
        const size_t runs = (n + chunk - 1) / chunk;
        const size_t every = std::max<size_t>(1, runs * chunk / options_.sampleTarget);
        sampled = 0;
        for (size_t r = every / 2; r < runs; r += every) {
            const size_t begin = r * chunk, end = std::min(n, begin + chunk);
            for (size_t i = begin; i < end; ++i) cutting.order.push_back(static_cast<uint32_t>(i));
            cutting.closeChunk();
            sampled += end - begin;
        }
    } else if (candidate.kind == Candidate::Kd) {
        const std::vector<uint32_t> part =
            kdSubtree(block.data(), allIndices(n), options_.chunk, options_.sampleTarget);
        sampled = part.size();
        cutKdCells(block.data(), part, options_.chunk, cutting);
    } else {
        const StripShape& shape = candidate.strips;
        const std::vector<uint32_t>& part =
            bandSample(block, shape.axis, shape.origin, candidate.sampleBand);
        sampled = part.size();
        cutStrips(block.data(), part, shape, cutting, scratch_);
    }
    const zul_Status status = encoder_.measure(block.data(), cutting, estimate.bytes);
    if (status != zul_STATUS_OK) return status;
    if (!estimate.exact) estimate.bytes = scaled(estimate.bytes, sampled, n);
    return zul_STATUS_OK;
}

zul_Status BlockPlanner::choose(const std::vector<zul_Point>& block, Candidate& chosen,
                                Estimate& cost, Estimate& inputCost) {
    sampledAxis_ = -1;
    std::vector<Candidate> list;
    const bool sampled = block.size() > options_.exactLimit;
    if (!sampled || sinceSearch_ < 0 || sinceSearch_ + 1 >= options_.searchEvery) {
        list = candidates(block);
        sinceSearch_ = sampled ? 0 : -1;
    } else {
        // Between full searches: the input's order, the last choice and its neighbours.
        ++sinceSearch_;
        list.resize(1);
        if (last_.kind == Candidate::Kd) list.push_back(last_);
        if (last_.kind == Candidate::Strips) {
            const Geometry g = geometryOf(block);
            for (double multiple : {last_.multiple, last_.multiple / 2, last_.multiple * 2}) {
                Candidate c;
                if (multiple >= kWidths[0] && multiple <= kSlab &&
                    stripCandidate(g, last_.strips.axis, multiple, options_.chunk, c))
                    list.push_back(c);
            }
        }
    }
    for (size_t i = 0; i < list.size(); ++i) {
        Estimate e;
        const zul_Status status = estimate(block, list[i], e);
        if (status != zul_STATUS_OK) return status;
        if (i == 0) inputCost = e;
        if (i == 0 || e.bytes < cost.bytes) {
            chosen = list[i];
            cost = e;
        }
    }
    if (sampled) last_ = chosen;
    return zul_STATUS_OK;
}

}  // namespace zulplan

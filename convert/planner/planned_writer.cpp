#include "planner/planned_writer.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

namespace zulplan {

namespace {

// Memory a point of a planned block takes: the point, the indices of a cutting and of the
// planner's sorts and samples (24 bytes), and then either the encoded chunks held until the block
// is decided (never more than a point) or the copy of positions for k-d cells (32 bytes).
const size_t kPlannedPointBytes = 2 * sizeof(zul_Point) + 24;
// k-d cells alone: the point, its copy for the splits and two indices.
const size_t kKdPointBytes = sizeof(zul_Point) + 32 + 8;

// Chunks measured on a sample are kept and checked against the input's order whenever they are
// not at least this much smaller than the sample said the input's order would be.
const double kSureRatio = 0.99;

// Chunks a thread of the input's order in a block, with more than one thread.
const int kInputChunksPerThread = 8;

}  // namespace

bool parseOrder(const std::string& name, Order& order) {
    if (name == "input")
        order = Order::Input;
    else if (name == "kd")
        order = Order::Kd;
    else if (name == "plan")
        order = Order::Plan;
    else
        return false;
    return true;
}

namespace {

// Reserves room for up to `points` points, address space only, and no more than the machine's
// memory holds (a budget near the largest asks for more); where the system refuses even that, as
// much as it grants down to a floor, beyond which the block grows as points come. A small input
// never touches the rest.
void reserveRoom(LargeVector<zul_Point>& block, size_t points) {
    constexpr size_t kFloor = size_t{1} << 16;
    const long pages = ::sysconf(_SC_PHYS_PAGES), pageSize = ::sysconf(_SC_PAGE_SIZE);
    if (pages > 0 && pageSize > 0) {
        const size_t memory = static_cast<size_t>(pages) * static_cast<size_t>(pageSize);
        points = std::max(std::min(points, memory / 2 / sizeof(zul_Point)), kFloor);
    }
    for (;;) {
        try {
            block.reserve(points);
            return;
        } catch (const std::bad_alloc&) {
            if (points <= kFloor) throw;
            points = std::max(points / 2, kFloor);
        }
    }
}

}  // namespace

size_t blockCapacity(size_t budgetBytes, int chunk, Order order) {
    const size_t size = static_cast<size_t>(std::max(chunk, 1));
    if (order == Order::Input) return size;
    const size_t perPoint = order == Order::Kd ? kKdPointBytes : kPlannedPointBytes;
    // Cuttings index a block with 32 bits.
    const size_t points = std::min<size_t>(budgetBytes / perPoint, UINT32_MAX);
    return std::max<size_t>(points / size, 1) * size;
}

PlannedWriter::~PlannedWriter() {
    try {
        job_.join();
    } catch (...) {  // a writer not closed reports nothing
    }
    zul_bulk_abortWriter(&file_);
}

zul_Status PlannedWriter::open(const std::string& path, const zul_DataType& type,
                               const zul_Header2* header, const PlanOptions& options) {
    if (file_ != nullptr || measure_) return zul_STATUS_INVALID_STATE;
    if (!chunkValid(options.chunk) || options.threads < 1) return zul_STATUS_INVALID_ARGUMENT;
    options_ = options;
    options_.planner.chunk = options.chunk;
    path_ = path;
    type_ = type;
    header_ = header != nullptr ? *header : zul_Header2{};
    {
        // The type and the header are checked here, before any point is read.
        const ChunkEncoder check(type, header);
        if (check.status() != zul_STATUS_OK) return check.status();
    }
    measure_ = std::make_unique<ChunkEncoder>(type, nullptr);
    if (measure_->status() != zul_STATUS_OK) return measure_->status();
    measures_.push_back(measure_.get());
    planner_ = std::make_unique<BlockPlanner>(*measure_, options_.planner);
    for (int t = 1; t < options.threads; ++t) {
        moreMeasures_.push_back(std::make_unique<ChunkEncoder>(type, nullptr));
        if (moreMeasures_.back()->status() != zul_STATUS_OK) return moreMeasures_.back()->status();
        planner_->addEncoder(*moreMeasures_.back());
        measures_.push_back(moreMeasures_.back().get());
    }
    capacity_ = blockCapacity(options.budgetBytes, options.chunk, options.order);
    // The marker takes points that every thread count holds before the first block is written.
    marker_ = std::make_unique<StreamMarker>(type, header);
    marker_->limit(std::min(capacity_, kMarkerPoints));
    // With more threads, a block is cut and encoded while the next one is read, and the input's
    // order takes a few chunks a thread at once.
    background_ = options.threads > 1;
    if (background_ && options.order == Order::Input) {
        capacity_ *= static_cast<size_t>(kInputChunksPerThread * options.threads);
    }
    // Address space only: a page is taken when a point first reaches it, so a small input costs
    // little.
    // A chunk larger than the budget (the input's order with a large --chunk) grows as points
    // come instead.
    const size_t reserve =
        std::min(capacity_, std::max<size_t>(options.budgetBytes / sizeof(zul_Point), 1));
    reserveRoom(block_, reserve);
    if (background_) reserveRoom(work_, block_.capacity());
    failed_ = zul_STATUS_OK;
    return zul_STATUS_OK;
}

zul_Status PlannedWriter::openFile() {
    if (file_ != nullptr) return zul_STATUS_OK;
    char marker[ZUL_SYNC_MARKER_SIZE];
    marker_->finish(marker);
    errno = 0;
    const zul_Status status =
        zul_bulk_openWriter(&file_, path_.c_str(), &type_, header_.enabled ? &header_ : nullptr,
                            options_.randomMarker ? nullptr : marker, options_.threads,
                            options_.publish ? ZUL_BULK_WRITE_PUBLISH : ZUL_BULK_WRITE_REPLACE);
    if (status != zul_STATUS_OK) fileErrno_ = errno;
    return status;
}

zul_Status PlannedWriter::writeMany(const zul_Point* points, size_t count) {
    if (failed_ != zul_STATUS_OK) return zul_STATUS_INVALID_STATE;
    while (count > 0) {
        const size_t n = std::min(count, capacity_ - block_.size());
        block_.insert(block_.end(), points, points + n);
        if (file_ == nullptr)
            for (size_t i = 0; i < n && !marker_->full(); ++i) marker_->add(points[i]);
        points += n;
        count -= n;
        if (block_.size() < capacity_) break;
        failed_ = flush();
        if (failed_ != zul_STATUS_OK) {
            errno = fileErrno_;
            return failed_;
        }
    }
    return zul_STATUS_OK;
}

zul_Status PlannedWriter::close() {
    zul_Status status = failed_;
    if (status == zul_STATUS_OK) status = flush();
    joinJob();
    if (status == zul_STATUS_OK) status = jobStatus_;
    if (status == zul_STATUS_OK) status = openFile();  // an empty stream
    if (status == zul_STATUS_OK) {
        errno = 0;
        status = zul_bulk_closeWriter(&file_);
        if (status != zul_STATUS_OK) fileErrno_ = errno;
    }
    zul_bulk_abortWriter(&file_);
    failed_ = zul_STATUS_INVALID_STATE;
    if (status != zul_STATUS_OK) errno = fileErrno_;
    return status;
}

bool PlannedWriter::recording() const { return order_ != nullptr || static_cast<bool>(recorder_); }

zul_PointData PlannedWriter::columnsAt(size_t first, size_t count) {
    const auto at = [&](auto* values, size_t width) {
        return values ? values + width * first : nullptr;
    };
    return {static_cast<int32_t>(count), at(columns_.positionData(), 3),
            at(columns_.colorData(), 3), at(columns_.reflectionData(), 1),
            at(columns_.normalData(), 3)};
}

zul_Status PlannedWriter::writeCutting(const Cutting& cutting, bool kept) {
    const size_t count = cutting.order.size();
    const bool recorded = recording();
    zul_Status status = zul_STATUS_OK;
    if (kept) {
        // Measured whole: the chunks go as they are, and measureCutting gathered their points
        // and found their order when it is asked for.
        status = writeKept();
    } else {
        columns_.resize(type_, count);
        double* positions = columns_.positionData();
        uint8_t* colors = columns_.colorData();
        int32_t* reflections = columns_.reflectionData();
        float* normals = columns_.normalData();
        // Gathered in parts of their own on the workers.
        const size_t part = size_t{1} << 16, parts = (count + part - 1) / part;
        std::atomic<size_t> next{0};
        zulbase::runWorkers(
            zulbase::threadsFor(static_cast<int>(measures_.size()), parts), [&](int) {
                for (size_t at; (at = next++) < parts;) {
                    for (size_t i = at * part; i < std::min(count, at * part + part); ++i) {
                        const zul_Point& p = work_[cutting.order[i]];
                        std::copy(p.position, p.position + 3, positions + 3 * i);
                        if (colors) std::copy(p.color, p.color + 3, colors + 3 * i);
                        if (reflections) reflections[i] = p.reflection;
                        if (normals) std::copy(p.normal, p.normal + 3, normals + 3 * i);
                    }
                }
            });
        chunkSizes_.resize(cutting.chunks());
        for (size_t c = 0; c < cutting.chunks(); ++c) {
            chunkSizes_[c] = static_cast<int32_t>(cutting.ends[c] - cutting.begin(c));
        }
        const zul_bulk_Points points = {static_cast<int64_t>(count), positions, colors, reflections,
                                        normals};
        if (recorded) storedOrder_.resize(count);
        errno = 0;
        status = zul_bulk_writeChunksOrdered(file_, &points, chunkSizes_.data(),
                                             static_cast<int64_t>(chunkSizes_.size()),
                                             recorded ? storedOrder_.data() : nullptr, nullptr);
    }
    if (status != zul_STATUS_OK || !recorded) return status;
    // Each chunk's order becomes where its stored points lie in columns_, in place.
    storedInputs_.resize(count);
    for (size_t c = 0; c < cutting.chunks(); ++c) {
        const size_t begin = cutting.begin(c);
        for (size_t k = begin; k < cutting.ends[c]; ++k) {
            storedOrder_[k] += static_cast<uint32_t>(begin);
            storedInputs_[k] = workStart_ + cutting.order[storedOrder_[k]];
        }
    }
    if (order_ != nullptr)
        order_->insert(order_->end(), storedInputs_.begin(), storedInputs_.end());
    if (!recorder_) return status;
    const zul_bulk_Points points = {static_cast<int64_t>(count), columns_.positionData(),
                                    columns_.colorData(), columns_.reflectionData(),
                                    columns_.normalData()};
    std::vector<StoredChunk> chunks(cutting.chunks());
    for (size_t c = 0; c < cutting.chunks(); ++c) {
        const size_t begin = cutting.begin(c);
        StoredChunk& chunk = chunks[c];
        chunk.count = cutting.ends[c] - begin;
        chunk.inputs = storedInputs_.data() + begin;
        chunk.at = storedOrder_.data() + begin;
        chunk.points = points;
        chunk.type = &type_;
        chunk.header = header_.enabled ? &header_ : nullptr;
    }
    recorder_(chunks);
    return status;
}

zul_Status PlannedWriter::measureCutting(const Cutting& cutting, uint64_t& total, bool keep) {
    // Each chunk has its own buffer: the threads never share one.
    if (keep && kept_.size() < cutting.chunks()) kept_.resize(cutting.chunks());
    // Chunks kept are the stream's: where the stream's order is asked for, their points are
    // gathered and each chunk's order is found before it is encoded, which spares the encoder
    // its sort (ChunkEncoder::encodeStored). Without it, finding the order would cost more than
    // the sort it spares.
    const bool ordering = keep && recording();
    if (ordering) {
        columns_.resize(type_, cutting.order.size());
        storedOrder_.resize(cutting.order.size());
    }
    std::atomic<size_t> next{0};
    std::vector<uint64_t> totals(measures_.size(), 0);
    std::vector<zul_Status> statuses(measures_.size(), zul_STATUS_OK);
    zulbase::runWorkers(
        zulbase::threadsFor(static_cast<int>(measures_.size()), cutting.chunks()), [&](int w) {
            ChunkEncoder& encoder = *measures_[static_cast<size_t>(w)];
            for (size_t c = next++; c < cutting.chunks(); c = next++) {
                const char* bytes = nullptr;
                int size = 0;
                const size_t begin = cutting.begin(c), n = cutting.ends[c] - begin;
                const uint32_t* indices = cutting.order.data() + begin;
                zul_Status status = zul_STATUS_OK;
                if (ordering) {
                    const zul_PointData out = columnsAt(begin, n);
                    status = encoder.encodeStored(work_.data(), indices, n, out,
                                                  storedOrder_.data() + begin, &bytes, &size);
                } else {
                    status = encoder.encode(work_.data(), indices, n, &bytes, &size);
                }
                if (status != zul_STATUS_OK) {
                    statuses[static_cast<size_t>(w)] = status;
                    next = cutting.chunks();
                    return;
                }
                totals[static_cast<size_t>(w)] += static_cast<uint64_t>(size);
                if (keep) kept_[c].assign(bytes, bytes + size);
            }
        });
    for (size_t w = 0; w < measures_.size(); ++w) {
        if (statuses[w] != zul_STATUS_OK) return statuses[w];
        total += totals[w];
    }
    return zul_STATUS_OK;
}

zul_Status PlannedWriter::writeKept() {
    const size_t chunks = cutting_.chunks();
    keptBytes_.resize(chunks);
    keptSizes_.resize(chunks);
    for (size_t c = 0; c < chunks; ++c) {
        keptBytes_[c] = kept_[c].data();
        keptSizes_[c] = static_cast<int64_t>(kept_[c].size());
    }
    errno = 0;
    return zul_bulk_writeEncodedChunks(file_, keptBytes_.data(), keptSizes_.data(),
                                       static_cast<int64_t>(chunks), nullptr);
}

zul_Status PlannedWriter::flush() {
    if (block_.empty()) return zul_STATUS_OK;
    if (const zul_Status opened = openFile(); opened != zul_STATUS_OK) return opened;
    if (!background_) {
        block_.swap(work_);
        const zul_Status status = flushWork();
        block_.swap(work_);
        return status;
    }
    // The block before is encoded and written by now, and the planner is free again.
    joinJob();
    if (jobStatus_ != zul_STATUS_OK) return jobStatus_;
    block_.swap(work_);
    const auto job = [this](int) {
        try {
            jobStatus_ = flushWork();
        } catch (...) {
            jobStatus_ = zul_STATUS_INVALID_STATE;
            throw;  // thrown again by the next call
        }
    };
    // Without a thread to spare, the block is cut and written here and now.
    if (job_.start(0, 1, job) == 0) job(0);
    return zul_STATUS_OK;
}

void PlannedWriter::joinJob() { job_.join(); }

zul_Status PlannedWriter::flushWork() {
    if (work_.empty()) return zul_STATUS_OK;
    Candidate candidate;
    zul_Status status = cutWork(candidate);
    if (status != zul_STATUS_OK) return status;
    status = writeCutting(cutting_, keptWhole_);
    if (status == zul_STATUS_WRITE_ERROR) fileErrno_ = errno;
    chosen_[candidate.describe()].blocks++;
    chosen_[candidate.describe()].points += work_.size();
    workStart_ += work_.size();
    work_.clear();
    return status;
}

zul_Status PlannedWriter::cutWork(Candidate& candidate) {
    zul_Status status = zul_STATUS_OK;
    keptWhole_ = false;
    if (options_.order == Order::Kd) {
        candidate.kind = Candidate::Kd;
    } else if (options_.order == Order::Plan) {
        const auto start = std::chrono::steady_clock::now();
        Estimate cost, inputCost;
        status = planner_->choose(work_, candidate, cost, inputCost);
        planning_ += std::chrono::steady_clock::now() - start;
        if (status != zul_STATUS_OK) return status;
        if (!cost.exact && candidate.kind != Candidate::Input) {
            // Weighed on samples: the candidate is measured whole, and the input's order too
            // unless the candidate is sure to be the smaller.
            planner_->cut(work_, candidate, cutting_);
            uint64_t candidateBytes = 0;
            status = measureCutting(cutting_, candidateBytes, true);
            if (status != zul_STATUS_OK) return status;
            keptWhole_ = true;
            if (static_cast<double>(candidateBytes) >
                kSureRatio * static_cast<double>(inputCost.bytes)) {
                Candidate input;
                Cutting runs;
                planner_->cut(work_, input, runs);
                uint64_t inputBytes = 0;
                ++checks_;
                status = measureCutting(runs, inputBytes, false);
                if (status != zul_STATUS_OK) return status;
                if (inputBytes < candidateBytes) {
                    ++fallbacks_;
                    keptWhole_ = false;
                    candidate = input;
                    cutting_ = std::move(runs);
                }
            }
            return zul_STATUS_OK;
        }
    }
    planner_->cut(work_, candidate, cutting_);
    return zul_STATUS_OK;
}

std::string PlannedWriter::summary() const {
    std::string text;
    char line[160];
    for (const auto& [name, tally] : chosen_) {
        std::snprintf(line, sizeof line, "  %s: %zu block%s, %zu points\n", name.c_str(),
                      tally.blocks, tally.blocks == 1 ? "" : "s", tally.points);
        text += line;
    }
    std::snprintf(line, sizeof line,
                  "  planning: %.2f s; %zu sampled block%s measured whole against the input's "
                  "order, %zu kept it\n",
                  std::chrono::duration<double>(planning_).count(), checks_,
                  checks_ == 1 ? "" : "s", fallbacks_);
    text += line;
    return text;
}

}  // namespace zulplan

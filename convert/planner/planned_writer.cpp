#include "planner/planned_writer.h"

#include <unistd.h>

#include <algorithm>
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
    if (file_ != nullptr) std::fclose(file_);
}

zul_Status PlannedWriter::open(const std::string& path, const zul_DataType& type,
                               const zul_Header2* header, const PlanOptions& options) {
    if (file_ != nullptr || stream_) return zul_STATUS_INVALID_STATE;
    if (!chunkValid(options.chunk) || options.threads < 1) return zul_STATUS_INVALID_ARGUMENT;
    options_ = options;
    options_.planner.chunk = options.chunk;
    stream_ = std::make_unique<ChunkEncoder>(type, header);
    if (stream_->status() != zul_STATUS_OK) return stream_->status();
    if (options.threads > 1) {
        // The stream's sync marker opens every chunk, an empty one too.
        const char* bytes = nullptr;
        int size = 0;
        const zul_Status status = stream_->encode(nullptr, nullptr, 0, &bytes, &size);
        if (status != zul_STATUS_OK) return status;
        if (static_cast<size_t>(size) < kSyncMarkerBytes) return zul_STATUS_INVALID_STATE;
        parallel_ = std::make_unique<ParallelChunks>(type, header, options.threads, bytes);
        if (parallel_->status() != zul_STATUS_OK) return parallel_->status();
    }
    measure_ = std::make_unique<ChunkEncoder>(type, nullptr);
    if (measure_->status() != zul_STATUS_OK) return measure_->status();
    planner_ = std::make_unique<BlockPlanner>(*measure_, options_.planner);
    for (int t = 1; t < options.threads; ++t) {
        moreMeasures_.push_back(std::make_unique<ChunkEncoder>(type, nullptr));
        if (moreMeasures_.back()->status() != zul_STATUS_OK) return moreMeasures_.back()->status();
        planner_->addEncoder(*moreMeasures_.back());
    }
    capacity_ = blockCapacity(options.budgetBytes, options.chunk, options.order);
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
    file_ = std::fopen(path.c_str(), "wb");
    if (file_ == nullptr) return zul_STATUS_WRITE_ERROR;
    failed_ = zul_STATUS_OK;
    const char* signature = nullptr;
    const char* bytes = nullptr;
    int size = 0;
    zul_Status status = zul_enc_createFileSignature(stream_->context(), &signature);
    if (status == zul_STATUS_OK) status = writeBytes(signature, 8);
    if (status == zul_STATUS_OK)
        status = zul_enc_encodeFileHeader(stream_->context(), &bytes, &size);
    if (status == zul_STATUS_OK) status = writeBytes(bytes, static_cast<size_t>(size));
    failed_ = status;
    return status;
}

zul_Status PlannedWriter::write(const zul_Point& point) {
    if (failed_ != zul_STATUS_OK) return zul_STATUS_INVALID_STATE;
    block_.push_back(point);
    if (block_.size() < capacity_) return zul_STATUS_OK;
    failed_ = flush();
    return failed_;
}

zul_Status PlannedWriter::close() {
    zul_Status status = failed_;
    if (status == zul_STATUS_OK) status = flush();
    joinJob();
    if (status == zul_STATUS_OK) status = jobStatus_;
    if (file_ != nullptr && std::fclose(file_) != 0 && status == zul_STATUS_OK)
        status = zul_STATUS_WRITE_ERROR;
    file_ = nullptr;
    failed_ = zul_STATUS_INVALID_STATE;
    return status;
}

zul_Status PlannedWriter::writeBytes(const char* bytes, size_t size) {
    return std::fwrite(bytes, 1, size, file_) == size ? zul_STATUS_OK : zul_STATUS_WRITE_ERROR;
}

zul_Status PlannedWriter::encodeChunks(const Cutting& cutting, const ParallelChunks::Sink& sink) {
    if (parallel_) return parallel_->encode(work_.data(), cutting, sink);
    for (size_t c = 0; c < cutting.chunks(); ++c) {
        const char* bytes = nullptr;
        int size = 0;
        const size_t begin = cutting.begin(c);
        zul_Status status = stream_->encode(work_.data(), cutting.order.data() + begin,
                                            cutting.ends[c] - begin, &bytes, &size);
        if (status == zul_STATUS_OK) status = sink(bytes, static_cast<size_t>(size));
        if (status != zul_STATUS_OK) return status;
    }
    return zul_STATUS_OK;
}

zul_Status PlannedWriter::writeCutting(const Cutting& cutting) {
    return encodeChunks(cutting,
                        [&](const char* bytes, size_t size) { return writeBytes(bytes, size); });
}

zul_Status PlannedWriter::flush() {
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
    zul_Status status = zul_STATUS_OK;
    if (options_.order == Order::Kd) {
        candidate.kind = Candidate::Kd;
    } else if (options_.order == Order::Plan) {
        const auto start = std::chrono::steady_clock::now();
        Estimate cost, inputCost;
        status = planner_->choose(work_, candidate, cost, inputCost);
        planning_ += std::chrono::steady_clock::now() - start;
        if (status != zul_STATUS_OK) return status;
        if (!cost.exact && candidate.kind != Candidate::Input) {
            // Weighed on samples: hold the chunks until they are sure to be the smaller.
            Cutting& cutting = cutting_;
            planner_->cut(work_, candidate, cutting);
            buffer_.clear();
            status = encodeChunks(cutting, [&](const char* bytes, size_t size) {
                buffer_.insert(buffer_.end(), bytes, bytes + size);
                return zul_STATUS_OK;
            });
            if (status != zul_STATUS_OK) return status;
            if (static_cast<double>(buffer_.size()) >
                kSureRatio * static_cast<double>(inputCost.bytes)) {
                Candidate input;
                Cutting& runs = cutting_;
                planner_->cut(work_, input, runs);
                uint64_t inputBytes = 0;
                ++checks_;
                status = measure_->measure(work_.data(), runs, inputBytes);
                if (status != zul_STATUS_OK) return status;
                if (inputBytes < buffer_.size()) {
                    ++fallbacks_;
                    chosen_[input.describe()].blocks++;
                    chosen_[input.describe()].points += work_.size();
                    status = writeCutting(runs);
                    work_.clear();
                    return status;
                }
            }
            status = writeBytes(buffer_.data(), buffer_.size());
            chosen_[candidate.describe()].blocks++;
            chosen_[candidate.describe()].points += work_.size();
            work_.clear();
            return status;
        }
    }
    planner_->cut(work_, candidate, cutting_);
    status = writeCutting(cutting_);
    chosen_[candidate.describe()].blocks++;
    chosen_[candidate.describe()].points += work_.size();
    work_.clear();
    return status;
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

#include "commands/companion_restore_runs.h"

#include <algorithm>
#include <new>

#include "base/point_columns.h"
#include "zul_bulk.h"

namespace zulconvert {

namespace {

// The points of a run (beyond its first chunk), the points the workers may hold made or in the
// making ahead of the caller (beyond the run the caller waits for), and the runs ahead a worker.
constexpr int64_t kRunPoints = int64_t{1} << 15;
constexpr int64_t kAheadPoints = int64_t{1} << 21;
constexpr size_t kRunsAheadPerWorker = 2;

}  // namespace

// What a worker keeps from run to run: the decoded points and the columns of one chunk.
struct RestoreRuns::Scratch {
    zulbase::PointColumns points;
    std::vector<Room<unsigned char>> values;
    std::vector<void*> rooms;
};

RestoreRuns::RestoreRuns(zul_idx_Index index, zul_xin_Reader reader, const std::string& path,
                         const std::string& input, const LasRecordFill& fill, size_t recordLength,
                         bool withOrder, std::vector<int64_t> chunks, int threads)
    : index_(index),
      reader_(reader),
      path_(path),
      input_(input),
      fill_(fill),
      length_(recordLength),
      withOrder_(withOrder),
      chunks_(std::move(chunks)) {
    zul_idx_getDataType(index_, &type_, nullptr);
    zul_CompanionInfo info = {};
    zul_xin_getInfo(reader_, &info);
    for (int32_t f = 0; f < info.numFields; ++f) {
        zul_FieldInfo field = {};
        zul_xin_getField(reader_, f, &field);
        widths_.push_back(static_cast<size_t>(field.width));
    }
    counts_.resize(chunks_.size());
    for (size_t at = 0; at < chunks_.size(); ++at) {
        zul_idx_Chunk chunk = {};
        zul_idx_getChunk(index_, chunks_[at], &chunk);
        counts_[at] = chunk.numPoints;
    }
    for (size_t at = 0; at < chunks_.size();) {
        Plan plan{at, at, 0};
        while (plan.end < chunks_.size() &&
               (plan.end == at || plan.points + counts_[plan.end] <= kRunPoints)) {
            plan.points += counts_[plan.end++];
        }
        plans_.push_back(plan);
        runRoom_ = std::max(runRoom_, static_cast<size_t>(std::min(plan.points, kRunPoints)));
        at = plan.end;
    }
    workers_ = zulbase::threadsFor(threads, plans_.size());
    slots_.resize(std::max<size_t>(2, kRunsAheadPerWorker * static_cast<size_t>(workers_)));
    if (plans_.empty()) return;
    try {
        workers_ = threads_.start(0, workers_, [this](int) { work(); });
        if (workers_ == 0) own_ = std::make_unique<Scratch>();
    } catch (...) {
        stop();
        throw;
    }
}

RestoreRuns::~RestoreRuns() {
    stop();
    try {
        threads_.join();
    } catch (...) {  // the caller is leaving already
    }
}

void RestoreRuns::stop() {
    std::lock_guard<std::mutex> hold(lock_);
    stopped_ = true;
    roomChanged_.notify_all();
}

bool RestoreRuns::mayStart(size_t run) const {
    return run == consumed_ ||
           (run < consumed_ + slots_.size() && pointsAhead_ + plans_[run].points <= kAheadPoints);
}

void RestoreRuns::work() {
    Scratch scratch;
    std::unique_lock<std::mutex> hold(lock_);
    for (;;) {
        roomChanged_.wait(
            hold, [&] { return stopped_ || claimed_ == plans_.size() || mayStart(claimed_); });
        if (stopped_ || claimed_ == plans_.size()) return;
        const size_t run = claimed_++;
        pointsAhead_ += plans_[run].points;
        Slot& slot = slots_[run % slots_.size()];
        hold.unlock();
        try {
            make(run, slot, scratch);
        } catch (...) {
            slot.error = std::current_exception();
        }
        hold.lock();
        slot.ready = true;
        readyChanged_.notify_all();
    }
}

void RestoreRuns::make(size_t run, Slot& slot, Scratch& scratch) const {
    const Plan& plan = plans_[run];
    slot.made = 0;
    slot.status = zul_STATUS_OK;
    slot.problem.clear();
    slot.error = nullptr;
    // The run's points, decoded on this thread.
    const size_t total = static_cast<size_t>(plan.points);
    if (scratch.points.size() < total) scratch.points.resize(type_, std::max(total, runRoom_));
    zul_bulk_Points points = {};
    points.numPoints = plan.points;
    points.positions = scratch.points.positionData();
    points.colors = scratch.points.colorData();
    points.reflections = scratch.points.reflectionData();
    points.normals = scratch.points.normalData();
    int64_t failed = -1;
    const zul_Status decoded =
        zul_bulk_decodeChunks(index_, chunks_.data() + plan.begin,
                              static_cast<int64_t>(plan.end - plan.begin), 1, &points, &failed);
    size_t intact = plan.end - plan.begin;
    if (decoded != zul_STATUS_OK) {
        const auto first = chunks_.begin() + static_cast<std::ptrdiff_t>(plan.begin);
        intact = static_cast<size_t>(
            std::find(first, chunks_.begin() + static_cast<std::ptrdiff_t>(plan.end), failed) -
            first);
    }
    int64_t intactPoints = 0;
    for (size_t k = 0; k < intact; ++k) intactPoints += counts_[plan.begin + k];
    unsigned char* records =
        slot.records.take(static_cast<size_t>(intactPoints) * length_, runRoom_ * length_);
    uint64_t* order =
        withOrder_ ? slot.order.take(static_cast<size_t>(intactPoints), runRoom_) : nullptr;
    scratch.values.resize(widths_.size());
    scratch.rooms.resize(scratch.values.size());
    int64_t at = 0;
    for (size_t k = 0; k < intact; ++k) {
        const int64_t number = chunks_[plan.begin + k];
        zul_idx_Chunk chunk = {};
        zul_idx_getChunk(index_, number, &chunk);
        const int64_t n = chunk.numPoints;
        zul_CompanionChunk bound = {};
        if (zul_xin_getChunk(reader_, number, &bound) != zul_STATUS_OK ||
            bound.chunk.offset != chunk.offset || bound.chunk.size != chunk.size ||
            bound.chunk.numPoints != chunk.numPoints) {
            slot.problem = path_ + " does not belong to " + input_ + " (chunk " +
                           std::to_string(number) + " is another)";
            return;
        }
        // Every column and the order with one read of the chunk's block.
        for (size_t f = 0; f < scratch.values.size(); ++f) {
            scratch.rooms[f] = scratch.values[f].take(static_cast<size_t>(n) * widths_[f]);
        }
        const zul_Status read = zul_xin_readChunk(reader_, number, scratch.rooms.data(),
                                                  static_cast<int32_t>(widths_.size()),
                                                  order ? order + at : nullptr, n);
        if (read != zul_STATUS_OK) {
            slot.problem = path_ + ": chunk " + std::to_string(number) +
                           "'s fields cannot be read (" + zul_x_statusText(read) +
                           "); decompress with --no-companion to write the stream alone";
            return;
        }
        fill_.fill(points, at, n, scratch.rooms.data(),
                   records + static_cast<size_t>(at) * length_);
        at += n;
        slot.made = k + 1;
    }
    slot.status = decoded;
}

bool RestoreRuns::next(RestoredRun& run) {
    std::unique_lock<std::mutex> hold(lock_);
    if (handedOut_) {
        // The run handed out last time is done with: its slot is free again.
        slots_[consumed_ % slots_.size()].ready = false;
        pointsAhead_ -= plans_[consumed_].points;
        ++consumed_;
        handedOut_ = false;
        roomChanged_.notify_all();
    }
    if (consumed_ == plans_.size()) return false;
    const size_t due = consumed_;
    Slot& slot = slots_[due % slots_.size()];
    if (workers_ == 0 && claimed_ == due) {
        // No thread could be started: made here.
        ++claimed_;
        pointsAhead_ += plans_[due].points;
        hold.unlock();
        try {
            make(due, slot, *own_);
        } catch (...) {
            slot.error = std::current_exception();
        }
        hold.lock();
        slot.ready = true;
    }
    readyChanged_.wait(hold, [&] { return slot.ready; });
    handedOut_ = true;
    if (slot.error) std::rethrow_exception(slot.error);
    const Plan& plan = plans_[due];
    run.chunks = chunks_.data() + plan.begin;
    run.counts = counts_.data() + plan.begin;
    run.size = plan.end - plan.begin;
    run.made = slot.made;
    run.records = slot.records.data();
    run.order = withOrder_ ? slot.order.data() : nullptr;
    run.status = slot.status;
    run.problem = slot.problem;
    return true;
}

}  // namespace zulconvert

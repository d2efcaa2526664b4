// A zul file whose chunks a planner cuts: points go in one at a time, are held in blocks of
// consecutive points within a memory budget, and each block is cut into chunks in the order
// asked for. The file is an ordinary stream of the format, its chunks of any size up to the
// chunk size, written by the library's bulk writer (zul_bulk.h) on the threads asked for. Its
// sync marker is drawn from the stream's first points (StreamMarker) unless a random one is
// asked for, so the same points and options give the same bytes at any thread count. Used by
// `zul compress` and Python; depends on the public headers only.
#pragma once

#include <chrono>
#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/limits.h"
#include "base/point_columns.h"
#include "base/worker_threads.h"
#include "planner/block_planner.h"
#include "planner/chunk_encoding.h"
#include "planner/large_pages.h"
#include "planner/stream_marker.h"
#include "zul.h"
#include "zul_bulk.h"

namespace zulplan {

enum class Order {
    Input,  // the input's order, in runs of the chunk size
    Kd,     // k-d cells
    Plan    // whichever candidate costs the fewest bytes, block by block
};

// "input", "kd" or "plan"; false for anything else.
bool parseOrder(const std::string& name, Order& order);

struct PlanOptions {
    Order order = Order::Plan;
    int chunk = zulbase::kDefaultChunkSize;  // most points a chunk, 1 to zulbase::kMaxChunkSize
    size_t budgetBytes = size_t{zulbase::kDefaultOrderBudgetMiB}
                         << 20;   // memory for a block and its planning
    BlockPlannerOptions planner;  // its chunk is set from `chunk`
    int threads = 1;              // encoding threads, 1 or more
    bool randomMarker = false;    // a sync marker from the device's randomness, not the points
    // Written under a unique temporary name beside the path and renamed over it when whole
    // (ZUL_BULK_WRITE_PUBLISH), rather than into the path itself.
    bool publish = false;
};

// One chunk as the stream stores it: the encoder sorts a chunk's points by position, and the
// order is found once for the encoder and the recorder.
struct StoredChunk {
    size_t count = 0;
    const uint64_t* inputs = nullptr;  // each stored point's number (0: the first point written)
    const uint32_t* at = nullptr;      // where each stored point lies in `points`
    zul_bulk_Points points = {};       // the values of the cutting's points, in its order
    const zul_DataType* type = nullptr;
    const zul_Header2* header = nullptr;  // the sensor header, null without one
};

// Points a block holds within `budgetBytes` when cut in `order`: a whole number of chunks, at
// least one; one chunk for the input's order, which needs no more.
size_t blockCapacity(size_t budgetBytes, int chunk, Order order);

class PlannedWriter {
public:
    PlannedWriter() = default;
    ~PlannedWriter();
    PlannedWriter(const PlannedWriter&) = delete;
    PlannedWriter& operator=(const PlannedWriter&) = delete;

    static bool chunkValid(int chunk) { return zulbase::chunkSizeValid(chunk); }

    // Prepares a stream of `type` with the optional sensor `header` at `path`, which is created
    // (or emptied) when the first block is written, or by close(): the marker is drawn from the
    // first points. zul_STATUS_INVALID_ARGUMENT for a refused type or header or an invalid chunk
    // size.
    zul_Status open(const std::string& path, const zul_DataType& type, const zul_Header2* header,
                    const PlanOptions& options);
    // Takes one point; a full block is cut and written. A failure fails the writer: later calls
    // return zul_STATUS_INVALID_STATE.
    zul_Status write(const zul_Point& point) { return writeMany(&point, 1); }
    // Takes `count` points in their order, as write() takes each.
    zul_Status writeMany(const zul_Point* points, size_t count);
    // Writes the last block and closes the file. zul_STATUS_WRITE_ERROR if the file cannot be
    // created or written (errno tells why, on the calling thread).
    zul_Status close();

    // From now on, appends to `order` the number of each point written (0 for the first point
    // given to write()), in the stream's order: which input point each stored point is. Read it
    // after close(). Null stops it.
    void recordOrder(std::vector<uint64_t>* order) { order_ = order; }
    // From now on, hands every chunk, as it is written and in the stream's order, to `recorder`:
    // on the thread that writes it (a background one with more than one thread), the chunks of a
    // cutting at once, once they are written. An empty function stops it.
    void recordChunks(std::function<void(const std::vector<StoredChunk>&)> recorder) {
        recorder_ = std::move(recorder);
    }

    // What was chosen for the blocks so far, one line a choice, and the time spent choosing.
    std::string summary() const;
    // Seconds spent choosing so far.
    double planningSeconds() const { return std::chrono::duration<double>(planning_).count(); }

private:
    // Hands the full block to be cut and written: at once with one thread, else in the
    // background while the next block is read.
    zul_Status flush();
    // Cuts and writes work_.
    zul_Status flushWork();
    // Chooses how work_ is cut (in `candidate`) and cuts it into cutting_.
    zul_Status cutWork(Candidate& candidate);
    // Waits for the job of the block before, and throws again what it threw (a failed
    // allocation), on the caller's thread.
    void joinJob();
    // Opens the bulk writer once the marker is known.
    zul_Status openFile();
    // Writes the chunks of `cutting` of the block: those kept by measureCutting when `kept`,
    // else its points gathered in its order and encoded; then hands on the stored order when it
    // is asked for.
    zul_Status writeCutting(const Cutting& cutting, bool kept);
    // The bytes the chunks of `cutting` of the block take, measured on every measuring encoder;
    // with `keep`, the chunks are the stream's: kept in kept_ for writeKept(), their order in
    // storedOrder_ and, when the order is asked for, their points in columns_.
    zul_Status measureCutting(const Cutting& cutting, uint64_t& total, bool keep);
    // Appends the chunks kept by measureCutting as they are.
    zul_Status writeKept();
    // Whether the stored order is asked for (recordOrder, recordChunks).
    bool recording() const;
    // columns_'s arrays from point `first`, for `count` points.
    zul_PointData columnsAt(size_t first, size_t count);

    PlanOptions options_;
    size_t capacity_ = 0;
    std::string path_;
    zul_DataType type_ = {};
    zul_Header2 header_ = {};
    zul_bulk_Writer file_ = nullptr;  // opened by the first block written
    int fileErrno_ = 0;               // errno of the failed write, for the caller's thread
    zul_Status failed_ = zul_STATUS_INVALID_STATE;  // until opened
    std::unique_ptr<StreamMarker> marker_;
    std::unique_ptr<ChunkEncoder> measure_;
    std::vector<ChunkEncoder*> measures_;                      // measure_ and the ones below
    std::vector<std::unique_ptr<ChunkEncoder>> moreMeasures_;  // one more a further thread
    std::unique_ptr<BlockPlanner> planner_;
    LargeVector<zul_Point> block_;  // the block being read
    LargeVector<zul_Point> work_;   // the block being cut and written
    bool background_ = false;
    zulbase::WorkerThreads job_;  // cuts and writes work_ (with more than one thread)
    zul_Status jobStatus_ = zul_STATUS_OK;
    Cutting cutting_;
    // The chunks of cutting_ as measured, when they were (keptWhole_): written as they are.
    // Their memory is reused from block to block.
    std::vector<std::vector<char>> kept_;
    bool keptWhole_ = false;
    std::vector<const char*> keptBytes_;
    std::vector<int64_t> keptSizes_;
    // A cutting's points in its order, for the bulk writer and the stored order.
    zulbase::BasicPointColumns<LargePageAllocator> columns_;
    std::vector<int32_t> chunkSizes_;
    std::vector<uint64_t>* order_ = nullptr;  // recordOrder's
    std::function<void(const std::vector<StoredChunk>&)> recorder_;
    // Of a cutting: each chunk's order in the stream, then where its stored points lie in
    // columns_.
    LargeVector<uint32_t> storedOrder_;
    LargeVector<uint64_t> storedInputs_;  // of a cutting: its stored points' numbers
    uint64_t workStart_ = 0;              // the number of work_'s first point

    struct Tally {
        size_t blocks = 0, points = 0;
    };
    std::map<std::string, Tally> chosen_;
    std::chrono::steady_clock::duration planning_{};
    size_t checks_ = 0, fallbacks_ = 0;
};

}  // namespace zulplan

// Workers take chunks of the plan in order through one counter and encode each with their own
// encoder. The worker whose chunk is the next due writes it straight from its encoder, then the
// finished chunks that wait behind it; any other copies its chunk aside and goes on. A worker
// waits before it copies while its chunk is too far ahead of the file, so that at most two chunks
// a thread wait in memory.
#include "bulk/bulk_encode.h"

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>

#include "bulk/stored_order.h"
#include "bulk/worker_threads.h"
#include "encoder/enc_context.h"

namespace zulbulk {

namespace {

// A chunk's points gathered in an order, in arrays kept from chunk to chunk.
class InOrder {
public:
    zul_PointData gather(const zul_PointData& from, const uint32_t* order) {
        const size_t n = static_cast<size_t>(from.numPoints);
        zul_PointData to = {from.numPoints, grown(positions_, 3 * n), nullptr, nullptr, nullptr};
        if (from.colors) to.colors = grown(colors_, 3 * n);
        if (from.reflections) to.reflections = grown(reflections_, n);
        if (from.normals) to.normals = grown(normals_, 3 * n);
        // An array at a time: the chunk's arrays stay in the cache, and no point asks which
        // attributes there are.
        inOrder<3>(from.positions, order, n, to.positions);
        if (to.colors) inOrder<3>(from.colors, order, n, to.colors);
        if (to.reflections) inOrder<1>(from.reflections, order, n, to.reflections);
        if (to.normals) inOrder<3>(from.normals, order, n, to.normals);
        return to;
    }

private:
    template <size_t width, class T>
    static void inOrder(const T* from, const uint32_t* order, size_t n, T* to) {
        for (size_t k = 0; k < n; ++k)
            for (size_t c = 0; c < width; ++c) to[width * k + c] = from[width * order[k] + c];
    }

    template <class T>
    static T* grown(std::vector<T>& values, size_t n) {
        if (values.size() < n) values.resize(n);
        return values.data();
    }

    std::vector<double> positions_;
    std::vector<uint8_t> colors_;
    std::vector<int32_t> reflections_;
    std::vector<float> normals_;
};

class EncodeRun {
public:
    EncodeRun(const zul_bulk_Points& points, const std::vector<PlannedChunk>& plan, int window,
              const std::function<bool(const char*, size_t)>& write, uint32_t* storedOrder)
        : write_(write),
          storedOrder_(storedOrder),
          points_(points),
          plan_(plan),
          window_(window),
          failedAt_(static_cast<int64_t>(plan.size())) {}

    void work(zul_enc_Context encoder) {
        const int64_t count = static_cast<int64_t>(plan_.size());
        std::vector<zullib::zul_QuantizedPoint> records;
        std::vector<unsigned char> scratch;
        InOrder sorted;
        for (;;) {
            const int64_t k = next_.fetch_add(1);
            if (k >= count || k > failedAt_.load()) return;
            const PlannedChunk& chunk = plan_[static_cast<size_t>(k)];
            const size_t first = static_cast<size_t>(chunk.first);
            zul_PointData slice = {chunk.count, points_.positions + 3 * first,
                                   points_.colors ? points_.colors + 3 * first : nullptr,
                                   points_.reflections ? points_.reflections + first : nullptr,
                                   points_.normals ? points_.normals + 3 * first : nullptr};
            const char* bytes = nullptr;
            int size = 0;
            // With the order asked for, it is found first, on the chunk's own worker, and where
            // it is the only sorted one the encoder is given the points in it and does not sort.
            zul_PointData given = slice;
            if (storedOrder_ &&
                storedOrder(encoder->dataType, slice, storedOrder_ + first, records, scratch)) {
                given = sorted.gather(slice, storedOrder_ + first);
            }
            const zul_Status status = zul_enc_encodeChunk(encoder, &bytes, &size, &given);
            if (status != zul_STATUS_OK) {
                fail(k, status);
                return;
            }
            deliver(k, bytes, static_cast<size_t>(size));
        }
    }

    void stop() { fail(0, zul_STATUS_WRITE_ERROR); }

    zul_Status failure() const { return failure_; }
    int64_t failedAt() const { return failedAt_.load(); }

private:
    void fail(int64_t k, zul_Status status) {
        std::lock_guard<std::mutex> lock(lock_);
        if (k < failedAt_.load()) {
            failedAt_ = k;
            failure_ = status;
        }
        ready_.notify_all();
    }

    // Hands chunk k to the file: written now if it is due, else kept until it is.
    void deliver(int64_t k, const char* bytes, size_t size) {
        std::unique_lock<std::mutex> lock(lock_);
        if (k > failedAt_.load()) return;
        if (k != nextToWrite_) {
            ready_.wait(lock, [&] { return k < nextToWrite_ + window_ || k > failedAt_.load(); });
            if (k > failedAt_.load()) return;
            if (k != nextToWrite_) {
                waiting_.emplace(k, std::vector<char>(bytes, bytes + size));
                return;
            }
        }
        // This thread owns the file until it has written every chunk that is due.
        std::vector<char> kept;
        for (;;) {
            lock.unlock();
            const bool written = write_(bytes, size);
            lock.lock();
            if (!written) {
                const int64_t failed = nextToWrite_;
                lock.unlock();
                fail(failed, zul_STATUS_WRITE_ERROR);
                return;
            }
            ++nextToWrite_;
            ready_.notify_all();
            const auto found = waiting_.find(nextToWrite_);
            if (found == waiting_.end() || nextToWrite_ >= failedAt_.load()) return;
            kept = std::move(found->second);
            waiting_.erase(found);
            bytes = kept.data();
            size = kept.size();
        }
    }

    const std::function<bool(const char*, size_t)>& write_;
    uint32_t* storedOrder_;
    zul_bulk_Points points_;
    const std::vector<PlannedChunk>& plan_;
    int64_t window_;
    std::atomic<int64_t> next_{0};
    std::atomic<int64_t> failedAt_;
    zul_Status failure_ = zul_STATUS_OK;
    std::mutex lock_;
    std::condition_variable ready_;
    int64_t nextToWrite_ = 0;
    std::map<int64_t, std::vector<char>> waiting_;
};

}  // namespace

zul_Status encodeChunks(const std::vector<zul_enc_Context>& encoders, const zul_bulk_Points& points,
                        const std::vector<PlannedChunk>& plan,
                        const std::function<bool(const char*, size_t)>& write,
                        uint32_t* storedOrder, int64_t* failedAt) {
    *failedAt = -1;
    const int workers = static_cast<int>(encoders.size());
    EncodeRun run(points, plan, 2 * workers, write, storedOrder);
    runWorkers(
        workers, [&](int worker) { run.work(encoders[static_cast<size_t>(worker)]); },
        [&] { run.stop(); });
    if (run.failure() == zul_STATUS_OK) return zul_STATUS_OK;
    *failedAt = run.failedAt();
    return run.failure();
}

}  // namespace zulbulk

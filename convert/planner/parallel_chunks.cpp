// Workers take chunks in order through one counter; a worker does not start a chunk more than a
// window of chunks ahead of the one due, and copies each finished chunk into its slot of the
// window. The calling thread hands the slots on in order as they fill.
#include "planner/parallel_chunks.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <mutex>

#include "base/worker_threads.h"

namespace zulplan {

namespace {

struct Slot {
    std::vector<char> bytes;
    bool ready = false;
};

}  // namespace

ParallelChunks::ParallelChunks(const zul_DataType& type, const zul_Header2* header, int threads,
                               const char* marker)
    : marker_(marker, marker + kSyncMarkerBytes) {
    for (int t = 0; t < threads; ++t) {
        encoders_.push_back(std::make_unique<ChunkEncoder>(type, header));
        if (encoders_.back()->status() != zul_STATUS_OK) opened_ = encoders_.back()->status();
    }
}

ParallelChunks::~ParallelChunks() = default;

zul_Status ParallelChunks::encode(const zul_Point* points, const Cutting& cutting,
                                  const Sink& sink) {
    if (opened_ != zul_STATUS_OK) return opened_;
    const size_t count = cutting.chunks();
    const size_t window = 2 * encoders_.size();
    std::vector<Slot> slots(window);
    std::mutex lock;
    std::condition_variable changed;
    size_t due = 0;         // the next chunk to hand on
    size_t stopAt = count;  // chunks from here on are not wanted (a failure)
    zul_Status failure = zul_STATUS_OK;
    std::atomic<size_t> next{0};

    const auto fail = [&](size_t chunk, zul_Status status) {
        std::lock_guard<std::mutex> hold(lock);
        if (chunk < stopAt) {
            stopAt = chunk;
            failure = status;
        }
        changed.notify_all();
    };
    const auto work = [&](ChunkEncoder& encoder) {
        for (;;) {
            const size_t k = next.fetch_add(1);
            {
                std::unique_lock<std::mutex> hold(lock);
                changed.wait(hold, [&] { return k < due + window || k >= stopAt; });
                if (k >= stopAt) return;
            }
            const char* bytes = nullptr;
            int size = 0;
            const size_t begin = cutting.begin(k);
            Slot& slot = slots[k % window];
            try {
                const zul_Status status = encoder.encode(points, cutting.order.data() + begin,
                                                         cutting.ends[k] - begin, &bytes, &size);
                if (status != zul_STATUS_OK || static_cast<size_t>(size) < kSyncMarkerBytes) {
                    fail(k, status != zul_STATUS_OK ? status : zul_STATUS_INVALID_STATE);
                    return;
                }
                slot.bytes.assign(bytes, bytes + size);
            } catch (...) {
                // Carried to the caller by the workers' join; no chunk from here on is handed on.
                fail(k, zul_STATUS_INVALID_STATE);
                throw;
            }
            std::memcpy(slot.bytes.data(), marker_.data(), kSyncMarkerBytes);
            std::lock_guard<std::mutex> hold(lock);
            slot.ready = true;
            changed.notify_all();
        }
    };

    // As many workers as start (at least one); each takes the next chunk when it is free.
    zulbase::WorkerThreads workers;
    try {
        workers.start(
            0, zulbase::threadsFor(static_cast<int>(encoders_.size()), count),
            [&](int w) { work(*encoders_[static_cast<size_t>(w)]); }, true);
    } catch (...) {
        fail(0, zul_STATUS_INVALID_STATE);  // the workers that started end at once
        throw;
    }
    std::vector<char> bytes;
    for (;;) {
        {
            std::unique_lock<std::mutex> hold(lock);
            Slot& slot = slots[due % window];
            changed.wait(hold, [&] { return due >= stopAt || slot.ready; });
            if (due >= stopAt) break;
            bytes.swap(slot.bytes);
            slot.ready = false;
        }
        const zul_Status status = sink(bytes.data(), bytes.size());
        std::lock_guard<std::mutex> hold(lock);
        if (status != zul_STATUS_OK) {
            stopAt = std::min(stopAt, due);
            failure = status;
        } else {
            ++due;
        }
        changed.notify_all();
    }
    workers.join();  // throws again what a worker threw
    return failure;
}

}  // namespace zulplan

// Workers take chunks in order through one counter; a worker does not start a chunk more than a
// window of chunks ahead of the one due, and copies each finished chunk into its slot of the
// window. The calling thread hands the slots on in order as they fill.
#include "planner/parallel_chunks.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

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
            const zul_Status status = encoder.encode(points, cutting.order.data() + begin,
                                                     cutting.ends[k] - begin, &bytes, &size);
            if (status != zul_STATUS_OK || static_cast<size_t>(size) < kSyncMarkerBytes) {
                fail(k, status != zul_STATUS_OK ? status : zul_STATUS_INVALID_STATE);
                return;
            }
            Slot& slot = slots[k % window];
            slot.bytes.assign(bytes, bytes + size);
            std::memcpy(slot.bytes.data(), marker_.data(), kSyncMarkerBytes);
            std::lock_guard<std::mutex> hold(lock);
            slot.ready = true;
            changed.notify_all();
        }
    };

    std::vector<std::thread> workers;
    for (auto& encoder : encoders_) workers.emplace_back(work, std::ref(*encoder));
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
    for (std::thread& worker : workers) worker.join();
    return failure;
}

}  // namespace zulplan

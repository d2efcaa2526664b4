// The LAS records of a list of chunks made on worker threads a run of neighbouring chunks at a
// time (each run's points decoded, its columns read from the companion and its records built by
// one worker alone) and handed to the caller in chunk order. Workers run ahead of the caller by a
// few runs and a bounded number of points, so that memory stays bounded whatever the file's size;
// the caller writes one run while the workers make the next ones.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/worker_threads.h"
#include "commands/companion_restore_fill.h"
#include "zul_companion.h"

namespace zulconvert {

// A run as the caller gets it: the records of its first `made` chunks, and why it stops there
// when that is not all of them.
struct RestoredRun {
    const int64_t* chunks = nullptr;         // the run's chunk numbers
    const int64_t* counts = nullptr;         // and their points
    size_t size = 0;                         // chunks in the run
    size_t made = 0;                         // chunks whose records follow, from the first
    const unsigned char* records = nullptr;  // theirs, chunk after chunk
    // Each record's place in the input, when the companion keeps the order; else null.
    const uint64_t* order = nullptr;
    // Why chunk `made` has no records: the stream's failure there, or, when `problem` is not
    // empty, the companion's (the message to throw).
    zul_Status status = zul_STATUS_OK;
    std::string problem;
};

class RestoreRuns {
public:
    // Makes the records of `chunks` (numbers in `index`, in order) on `threads` workers (0: one
    // a core) from `index` (opened without the stream's matrix, which `fill` applies) and the
    // companion `reader` (bound to the stream, named `path` in messages).
    RestoreRuns(zul_idx_Index index, zul_xin_Reader reader, const std::string& path,
                const std::string& input, const LasRecordFill& fill, size_t recordLength,
                bool withOrder, std::vector<int64_t> chunks, int threads);
    ~RestoreRuns();
    RestoreRuns(const RestoreRuns&) = delete;
    RestoreRuns& operator=(const RestoreRuns&) = delete;

    // Waits for the next run in order and points `run` at it (valid until the next call); false
    // after the last. Rethrows a worker's exception.
    bool next(RestoredRun& run);

private:
    struct Plan {
        size_t begin, end;  // in chunks_
        int64_t points;
    };
    // An array that grows, never cleared: each element used is written before it is read. It
    // takes `atLeast` at once when it grows, so that runs of slightly different sizes do not
    // each fault in fresh pages.
    template <typename T>
    class Room {
    public:
        T* take(size_t n, size_t atLeast = 0) {
            if (n > size_) size_ = std::max(n, atLeast), data_.reset(new T[size_]);
            return data_.get();
        }
        T* data() const { return data_.get(); }

    private:
        std::unique_ptr<T[]> data_;
        size_t size_ = 0;
    };
    struct Slot {
        Room<unsigned char> records;
        Room<uint64_t> order;
        size_t made = 0;
        zul_Status status = zul_STATUS_OK;
        std::string problem;
        std::exception_ptr error;
        bool ready = false;
    };
    struct Scratch;

    void work();
    void make(size_t run, Slot& slot, Scratch& scratch) const;
    bool mayStart(size_t run) const;  // with the lock held
    void stop();

    zul_idx_Index index_;
    zul_xin_Reader reader_;
    std::string path_, input_;
    const LasRecordFill& fill_;
    size_t length_;
    bool withOrder_;
    zul_DataType type_ = {};
    std::vector<size_t> widths_;  // of each field's values
    std::vector<int64_t> chunks_, counts_;
    std::vector<Plan> plans_;
    size_t runRoom_ = 0;  // the points a run's arrays take at once: the largest run, within reason
    std::vector<Slot> slots_;  // run r is made in slots_[r % size]

    std::mutex lock_;
    std::condition_variable readyChanged_, roomChanged_;
    size_t claimed_ = 0;   // runs taken by a worker
    size_t consumed_ = 0;  // runs handed to the caller and done with
    int64_t pointsAhead_ = 0;
    bool stopped_ = false;
    bool handedOut_ = false;        // the caller holds run consumed_
    std::unique_ptr<Scratch> own_;  // the caller's, when no worker could be started
    int workers_ = 0;
    zulbase::WorkerThreads threads_;
};

}  // namespace zulconvert

// Reading one batch of points ahead: a thread of its own fills the next batch while the caller
// works on the one it took, in the same order, so that what follows sees the same batches as
// without the thread. Two batches at most are held.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <vector>

#include "base/worker_threads.h"
#include "zul.h"

namespace zulconvert {

// A batch read: its points with their intensities and grid points, as CloudReader::readMany
// gives them, and where the reading was after it.
struct ReadBatch {
    std::vector<zul_Point> points;
    std::vector<double> intensities;
    std::vector<int64_t> grids;
    size_t read = 0;
    uint64_t bytesRead = 0;
};

class ReadAhead {
public:
    // `fill` reads the next batch into the one it is given and returns false at the end (no
    // point read). With `threaded` (and a thread to spare), it runs on a thread of its own, one
    // batch ahead; else next() calls it.
    ReadAhead(std::function<bool(ReadBatch&)> fill, size_t batch, bool threaded);
    ~ReadAhead();  // stops the reading and waits for it
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    // The next batch (the one taken before is given back), or null at the end. What `fill` threw
    // is thrown here, after the batches read before it.
    ReadBatch* next();

private:
    void readAhead();

    std::function<bool(ReadBatch&)> fill_;
    ReadBatch batches_[2];
    bool full_[2] = {false, false};  // filled and not given back
    bool end_[2] = {false, false};   // the end (or a failure) instead of points
    std::exception_ptr error_;
    size_t taken_ = 0;  // batches handed out
    bool stop_ = false;
    bool threaded_ = false;
    std::mutex lock_;
    std::condition_variable changed_;
    zulbase::WorkerThreads thread_;  // last: it goes (waiting for the thread) before the rest
};

}  // namespace zulconvert

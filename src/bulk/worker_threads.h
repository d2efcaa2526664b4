// The threads of one bulk call: how many, and running them. The calling thread is worker 0; the
// others are started for the call and joined before it returns. An exception in any worker
// (std::bad_alloc) calls `stop`, so that the others finish early, and leaves the call after all
// are joined. A thread the system will not start (std::system_error: a process limit) leaves its
// work to the workers that did start; any other failure to start one ends the call the same way
// as an exception in a worker.
#pragma once

#include <algorithm>
#include <cstdint>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace zulbulk {

// Points a thread is started for, at least, when the caller leaves the count to the library: on
// a busy machine a new thread may wait milliseconds for a core, longer than a small cloud takes.
const int64_t kPointsPerAutomaticThread = 65536;

// `requested` (not negative) threads for `jobs` chunks of `points` points in all: 0 means one a
// core, but no more than one for each kPointsPerAutomaticThread points; never more than `jobs`,
// never fewer than 1.
inline int resolveThreads(int requested, int64_t jobs, int64_t points) {
    int64_t count = requested;
    if (count == 0) {
        count = std::max(1u, std::thread::hardware_concurrency());
        count = std::min(count, points / kPointsPerAutomaticThread);
    }
    return static_cast<int>(std::max<int64_t>(1, std::min(count, jobs)));
}

// Starts the thread of a worker. Tests give one that fails as a system out of threads does.
struct StartThread {
    template <class Body>
    std::thread operator()(Body& body, int worker) const {
        return std::thread(body, worker);
    }
};

// Runs work(worker) on `threads` workers (at least the calling thread), joins them and rethrows
// the first exception any of them, or the starting of one, raised. Returns the number of workers
// that ran.
template <class Work, class Stop, class Start = StartThread>
int runWorkers(int threads, Work work, Stop stop, Start start = Start()) {
    std::exception_ptr failure;
    std::mutex failureLock;
    const auto keep = [&](std::exception_ptr caught) {
        {
            std::lock_guard<std::mutex> lock(failureLock);
            if (!failure) failure = caught;
        }
        stop();
    };
    auto guarded = [&](int worker) {
        try {
            work(worker);
        } catch (...) {
            keep(std::current_exception());
        }
    };
    std::vector<std::thread> started;
    try {
        started.reserve(static_cast<size_t>(std::max(threads, 1) - 1));
        for (int worker = 1; worker < threads; ++worker) started.push_back(start(guarded, worker));
    } catch (const std::system_error&) {
        // Fewer threads do the same work.
    } catch (...) {
        keep(std::current_exception());
    }
    guarded(0);
    for (std::thread& thread : started) thread.join();
    if (failure) std::rethrow_exception(failure);
    return static_cast<int>(started.size()) + 1;
}

}  // namespace zulbulk

#include "base/worker_threads.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace zulbase {

int threadsFor(int threads, size_t work) {
    size_t count = threads > 0 ? static_cast<size_t>(threads)
                               : std::max(1u, std::thread::hardware_concurrency());
    count = std::max<size_t>(1, std::min(count, work));
    return static_cast<int>(count);
}

WorkerThreads::WorkerThreads(Starter starter) : starter_(std::move(starter)) {
    if (!starter_) starter_ = [](std::function<void()> body) { return std::thread(body); };
}

WorkerThreads::~WorkerThreads() {
    for (std::thread& thread : threads_)
        if (thread.joinable()) thread.join();
}

void WorkerThreads::record(std::exception_ptr error) {
    std::lock_guard<std::mutex> hold(lock_);
    if (!error_) error_ = std::move(error);
}

int WorkerThreads::start(int first, int count, const std::function<void(int)>& work, bool needOne) {
    int started = 0;
    threads_.reserve(threads_.size() + static_cast<size_t>(std::max(count, 0)));
    for (int w = first; w < first + count; ++w) {
        try {
            threads_.push_back(starter_([this, work, w] {
                try {
                    work(w);
                } catch (...) {
                    record(std::current_exception());
                }
            }));
            ++started;
        } catch (const std::system_error&) {
            // The system has no thread to spare: the workers that run share this one's work.
            if (started == 0 && needOne && w + 1 == first + count) throw;
        }
    }
    return started;
}

void WorkerThreads::join() {
    for (std::thread& thread : threads_)
        if (thread.joinable()) thread.join();
    threads_.clear();
    if (error_) std::rethrow_exception(std::exchange(error_, nullptr));
}

void runWorkers(int count, const std::function<void(int)>& work, WorkerThreads::Starter starter) {
    WorkerThreads workers(std::move(starter));
    workers.start(1, count - 1, work);
    std::exception_ptr own;
    try {
        work(0);
    } catch (...) {
        own = std::current_exception();
    }
    try {
        workers.join();
    } catch (...) {
        if (!own) throw;
    }
    if (own) std::rethrow_exception(own);
}

}  // namespace zulbase

// Threads of the conversions and the planner, started and waited for in one place. A worker's
// exception (a failed allocation, say) reaches the caller instead of ending the process; a
// thread the system cannot start leaves fewer workers, never none's work undone. Workers share
// their work dynamically (a shared counter, a queue), so that any number of them finishes it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace zulbase {

// The number of threads for a count given by the user, everywhere in convert/, the tool and
// Python: `threads` if positive, and 0 (or less) means one a core, as the library's bulk calls
// count it. Never more than `work`, the items there are to share (no thread without work), never
// fewer than 1.
int threadsFor(int threads, size_t work = SIZE_MAX);

// Workers on threads of their own, waited for together.
class WorkerThreads {
public:
    // How a thread is started; the default is std::thread. Tests give one that fails.
    using Starter = std::function<std::thread(std::function<void()>)>;

    explicit WorkerThreads(Starter starter = {});
    WorkerThreads(const WorkerThreads&) = delete;
    WorkerThreads& operator=(const WorkerThreads&) = delete;
    ~WorkerThreads();  // waits for the workers; an exception not collected by join() is dropped

    // Starts work(first) .. work(first + count - 1), each on a thread. A thread the system cannot
    // start (std::system_error) is left out; returns how many started. If none starts and
    // `needOne` is set, throws the system's error.
    int start(int first, int count, const std::function<void(int worker)>& work,
              bool needOne = false);
    // Waits for every worker, then rethrows the first exception one of them threw.
    void join();

private:
    void record(std::exception_ptr error);

    Starter starter_;
    std::vector<std::thread> threads_;
    std::mutex lock_;
    std::exception_ptr error_;
};

// Runs work(0) .. work(count - 1), worker 0 on the calling thread and the others on threads of
// their own (as many as start); returns once all have ended, rethrowing the first exception (the
// caller's own first). The workers share the work, so fewer threads finish it too.
void runWorkers(int count, const std::function<void(int worker)>& work,
                WorkerThreads::Starter starter = {});

}  // namespace zulbase

#include "base/worker_threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <set>
#include <stdexcept>
#include <system_error>

namespace {

using zulbase::WorkerThreads;

// A starter that refuses the starts numbered in `refused` (from 0), as a system out of threads.
WorkerThreads::Starter refusing(std::set<int> refused) {
    auto calls = std::make_shared<std::atomic<int>>(0);
    return [calls, refused](std::function<void()> body) {
        if (refused.count((*calls)++) > 0)
            throw std::system_error(
                std::make_error_code(std::errc::resource_unavailable_try_again));
        return std::thread(body);
    };
}

TEST(WorkerThreads, AWorkersExceptionReachesTheCaller) {
    for (int thrower : {0, 2}) {
        std::atomic<int> ended{0};
        EXPECT_THROW(zulbase::runWorkers(3,
                                         [&](int w) {
                                             ++ended;
                                             if (w == thrower) throw std::bad_alloc();
                                         }),
                     std::bad_alloc)
            << thrower;
        EXPECT_EQ(ended, 3) << "every worker ended before the caller went on";
    }
}

TEST(WorkerThreads, AThreadThatCannotStartLeavesItsWorkToTheOthers) {
    std::atomic<int> next{0}, done{0};
    std::mutex lock;
    std::set<int> ran;
    zulbase::runWorkers(
        4,
        [&](int w) {
            {
                std::lock_guard<std::mutex> hold(lock);
                ran.insert(w);
            }
            while (next++ < 1000) ++done;
        },
        refusing({1}));  // the thread of worker 2
    EXPECT_EQ(done, 1000);
    EXPECT_EQ(ran, (std::set<int>{0, 1, 3}));
}

TEST(WorkerThreads, NoThreadAtAllIsTheCallersErrorWhenOneIsNeeded) {
    WorkerThreads none(refusing({0, 1}));
    EXPECT_THROW(none.start(
                     0, 2, [](int) {}, true),
                 std::system_error);
    WorkerThreads optional(refusing({0}));
    EXPECT_EQ(optional.start(0, 1, [](int) {}), 0);
    optional.join();
}

TEST(WorkerThreads, TheCountIsOneACoreAndNoMoreThanTheWork) {
    EXPECT_EQ(zulbase::threadsFor(3), 3);
    EXPECT_EQ(zulbase::threadsFor(8, 3), 3);
    EXPECT_EQ(zulbase::threadsFor(2, 0), 1);
    EXPECT_EQ(zulbase::threadsFor(0),
              static_cast<int>(std::max(1u, std::thread::hardware_concurrency())));
    EXPECT_EQ(zulbase::threadsFor(0, 1), 1);
}

}  // namespace

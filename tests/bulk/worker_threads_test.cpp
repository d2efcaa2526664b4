// The bulk layer's thread helper: how many threads a call gets, and an exception of any worker
// reaching the caller after every worker has stopped.
#include "bulk/worker_threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <stdexcept>

namespace {

TEST(ResolveThreads, NeverMoreThanTheWorkNorFewerThanOne) {
    const struct {
        int requested;
        int64_t jobs, points;
        int expected;
    } cases[] = {{4, 10, 100, 4},       {100000, 3, 1000000, 3}, {4, 0, 0, 1},
                 {1, 1000, 1 << 30, 1}, {0, 1000, 1000, 1},      {0, 1, 1 << 30, 1}};
    for (const auto& c : cases)
        EXPECT_EQ(zulbulk::resolveThreads(c.requested, c.jobs, c.points), c.expected)
            << c.requested << " " << c.jobs << " " << c.points;
}

TEST(RunWorkers, CarriesAWorkersExceptionToTheCaller) {
    for (int thrower : {0, 2}) {
        std::atomic<int> ran{0}, stops{0};
        const auto work = [&](int worker) {
            ++ran;
            if (worker == thrower) throw std::bad_alloc();
        };
        EXPECT_THROW(zulbulk::runWorkers(3, work, [&] { ++stops; }), std::bad_alloc);
        EXPECT_EQ(ran.load(), 3);
        EXPECT_EQ(stops.load(), 1);
    }
}

TEST(RunWorkers, RunsEveryWorkerOnce) {
    std::atomic<int> mask{0};
    EXPECT_EQ(zulbulk::runWorkers(
                  4, [&](int worker) { mask |= 1 << worker; }, [] {}),
              4);
    EXPECT_EQ(mask.load(), 15);
}

}  // namespace

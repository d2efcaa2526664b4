// The bulk layer's thread helper: how many threads a call gets, an exception of any worker
// reaching the caller after every worker has stopped, and a thread the system will not start
// leaving its work to the others (through a starter that fails as such a system does).
#include "bulk/worker_threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <stdexcept>
#include <system_error>

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

struct StartCase {
    const char* name;
    int refused;       // the worker whose thread does not start
    bool systemError;  // refused as a process limit does; otherwise as a failed allocation
    int workers;       // that ran, when the call returns
};

// The workers share 1000 items through a counter; worker 0 is the calling thread.
TEST(RunWorkers, AThreadThatCannotStartLeavesItsWorkToTheOthers) {
    const StartCase cases[] = {{"limit at the first thread", 1, true, 1},
                               {"limit at the third thread", 3, true, 3},
                               {"allocation at the second thread", 2, false, -1}};
    for (const StartCase& c : cases) {
        std::atomic<int> next{0}, done{0}, stops{0};
        const auto work = [&](int) {
            while (next++ < 1000) ++done;
        };
        const auto start = [&](auto& body, int worker) {
            if (worker >= c.refused) {
                if (c.systemError)
                    throw std::system_error(
                        std::make_error_code(std::errc::resource_unavailable_try_again));
                throw std::bad_alloc();
            }
            return std::thread(body, worker);
        };
        if (c.workers > 0) {
            EXPECT_EQ(zulbulk::runWorkers(
                          4, work, [&] { ++stops; }, start),
                      c.workers)
                << c.name;
            EXPECT_EQ(stops.load(), 0) << c.name;
        } else {
            EXPECT_THROW(zulbulk::runWorkers(
                             4, work, [&] { ++stops; }, start),
                         std::bad_alloc)
                << c.name;
            EXPECT_EQ(stops.load(), 1) << c.name;
        }
        EXPECT_EQ(done.load(), 1000) << c.name;
    }
}

}  // namespace

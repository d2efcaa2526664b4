#include "planner/large_pages.h"

#include <cstdlib>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace zulplan {

namespace {

const size_t kLargePage = size_t{2} << 20;

}  // namespace

void* allocateLarge(size_t bytes) {
    if (bytes < kLargePage) {
        void* memory = std::malloc(bytes == 0 ? 1 : bytes);
        if (memory == nullptr) throw std::bad_alloc();
        return memory;
    }
    const size_t rounded = (bytes + kLargePage - 1) / kLargePage * kLargePage;
    void* memory = std::aligned_alloc(kLargePage, rounded);
    if (memory == nullptr) throw std::bad_alloc();
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    // Advice only: without large pages the memory works all the same.
    madvise(memory, rounded, MADV_HUGEPAGE);
#endif
    return memory;
}

void freeLarge(void* memory) noexcept { std::free(memory); }

}  // namespace zulplan

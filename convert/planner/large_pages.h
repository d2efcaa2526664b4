// Memory for the large arrays of a block: taken in whole 2 MiB pages where the system offers them
// on request, so that filling a block of hundreds of megabytes costs a few hundred page faults
// rather than tens of thousands. Elements added without a value (resize) are not zeroed.
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace zulplan {

void* allocateLarge(size_t bytes);
void freeLarge(void* memory) noexcept;

template <class T>
struct LargePageAllocator {
    using value_type = T;
    LargePageAllocator() = default;
    template <class U>
    LargePageAllocator(const LargePageAllocator<U>&) {}
    T* allocate(size_t n) {
        if (n > static_cast<size_t>(-1) / sizeof(T)) throw std::bad_alloc();
        return static_cast<T*>(allocateLarge(n * sizeof(T)));
    }
    void deallocate(T* p, size_t) noexcept { freeLarge(p); }
    // An element made without a value is left as it comes (default-initialised), not zeroed: the
    // arrays are written before they are read, and zeroing hundreds of megabytes only to
    // overwrite them costs a pass over memory.
    template <class U>
    void construct(U* p) noexcept(std::is_nothrow_default_constructible<U>::value) {
        ::new (static_cast<void*>(p)) U;
    }
    template <class U, class... Args>
    void construct(U* p, Args&&... args) {
        ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
    }
    template <class U>
    bool operator==(const LargePageAllocator<U>&) const {
        return true;
    }
    template <class U>
    bool operator!=(const LargePageAllocator<U>&) const {
        return false;
    }
};

template <class T>
using LargeVector = std::vector<T, LargePageAllocator<T>>;

}  // namespace zulplan

// Buffers of the calling thread kept from one message to the next: a message's scratch arrays are
// then not allocated, and their pages not faulted in, afresh for every message. A buffer above
// 64 MiB is given back after use.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace zul::ros {

// A vector whose added elements are left as they are, not zeroed: for arrays filled at once.
template <typename T>
struct Unset : std::allocator<T> {
    template <typename U>
    struct rebind {
        using other = Unset<U>;
    };
    Unset() = default;
    template <typename U>
    Unset(const Unset<U>&) {}
    template <typename U>
    void construct(U* p) {
        ::new (static_cast<void*>(p)) U;
    }
    template <typename U, typename... A>
    void construct(U* p, A&&... a) {
        ::new (static_cast<void*>(p)) U(std::forward<A>(a)...);
    }
};
template <typename T>
using UnsetVector = std::vector<T, Unset<T>>;

inline constexpr size_t kScratchKeptBytes = size_t{64} << 20;

// Empties a thread's buffer (a std::vector of any allocator) for one use, and gives its memory
// back afterwards if it grew above kScratchKeptBytes. One lease of a buffer at a time.
template <typename Vector>
class ScratchLease {
public:
    explicit ScratchLease(Vector& buffer) : buffer_(buffer) { buffer_.clear(); }
    ~ScratchLease() {
        if (buffer_.capacity() * sizeof(typename Vector::value_type) > kScratchKeptBytes)
            Vector().swap(buffer_);
    }
    ScratchLease(const ScratchLease&) = delete;
    ScratchLease& operator=(const ScratchLease&) = delete;
    Vector& operator*() const { return buffer_; }

private:
    Vector& buffer_;
};

}  // namespace zul::ros

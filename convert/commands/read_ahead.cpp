#include "commands/read_ahead.h"

#include <utility>

namespace zulconvert {

ReadAhead::ReadAhead(std::function<bool(ReadBatch&)> fill, size_t batch, bool threaded)
    : fill_(std::move(fill)) {
    for (ReadBatch& b : batches_) {
        b.points.assign(batch, zul_Point{});
        b.intensities.resize(batch);
        b.grids.resize(3 * batch);
    }
    threaded_ = threaded && thread_.start(0, 1, [this](int) { readAhead(); }) == 1;
}

ReadAhead::~ReadAhead() {
    {
        std::lock_guard<std::mutex> hold(lock_);
        stop_ = true;
    }
    changed_.notify_all();
    try {
        thread_.join();
    } catch (...) {
        // readAhead() keeps what fill_ throws for next(); nothing else is thrown there.
    }
}

void ReadAhead::readAhead() {
    for (size_t i = 0;; ++i) {
        const size_t slot = i % 2;
        {
            std::unique_lock<std::mutex> hold(lock_);
            changed_.wait(hold, [&] { return stop_ || !full_[slot]; });
            if (stop_) return;
        }
        bool more = false;
        std::exception_ptr error;
        try {
            more = fill_(batches_[slot]);
        } catch (...) {
            error = std::current_exception();
        }
        {
            std::lock_guard<std::mutex> hold(lock_);
            full_[slot] = true;
            end_[slot] = !more;
            if (error) error_ = error;
        }
        changed_.notify_all();
        if (!more) return;
    }
}

ReadBatch* ReadAhead::next() {
    if (!threaded_) return fill_(batches_[0]) ? &batches_[0] : nullptr;
    const size_t slot = taken_ % 2;
    std::unique_lock<std::mutex> hold(lock_);
    if (taken_ > 0) full_[1 - slot] = false;  // the batch taken before is given back
    changed_.notify_all();
    changed_.wait(hold, [&] { return full_[slot]; });
    if (end_[slot]) {
        if (error_) std::rethrow_exception(error_);
        return nullptr;
    }
    ++taken_;
    return &batches_[slot];
}

}  // namespace zulconvert

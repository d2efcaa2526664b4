// The one place where the bulk layer's C functions turn an exception into a status: nothing
// thrown inside (a failed allocation, a thread or lock the system refuses) crosses `extern "C"`.
#pragma once

#include <exception>

#include "zul_bulk.h"

namespace zulbulk {

// Runs call() and returns its status, or zul_STATUS_OUT_OF_MEMORY if it throws.
template <class Call>
zul_Status guardStatus(Call call) noexcept {
    try {
        return call();
    } catch (const std::exception&) {
        // std::bad_alloc, std::length_error of a vector, std::system_error of a thread or lock.
        return zul_STATUS_OUT_OF_MEMORY;
    }
}

}  // namespace zulbulk

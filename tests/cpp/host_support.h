// Statuses for the tests of the C++ classes, which see zul.hpp and libzul.so only.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "support/host_files.h"
#include "zul.hpp"

// The status of the zul::Error that `call` throws, or zul_STATUS_OK if it throws none.
template <typename Call>
zul_Status statusOf(Call call) {
    try {
        call();
    } catch (const zul::Error& e) {
        return e.status();
    }
    return zul_STATUS_OK;
}

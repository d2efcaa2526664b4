// What the fuzz targets share: a check that stops the run with a message, and the budget of
// points a target decodes from one input.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>

// A failed check is a finding: the process aborts, which libFuzzer reports with the input, and
// which fails the replay of a corpus.
#define FUZZ_CHECK(condition)                                                                  \
    do {                                                                                       \
        if (!(condition)) {                                                                    \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                      \
        }                                                                                      \
    } while (0)

namespace zulfuzz {

// A chunk may hold a billion identical points in a few bytes, all of them valid, so the targets
// behave as a caller with a memory budget would: chunks of more points are skipped, not decoded.
// Under AddressSanitizer a failed allocation aborts instead of throwing, so this budget, not
// std::bad_alloc, is what keeps a run inside its memory limit.
constexpr int64_t kMaxPointsDecoded = int64_t{1} << 20;

}  // namespace zulfuzz

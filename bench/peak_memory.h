// The process's resident memory, for benchmarks that show what a phase costs in memory.
#pragma once

#include <cstdint>

// Resident set size now, and the highest it has been since the last reset, in bytes (0 where the
// system does not tell).
int64_t residentBytes();
int64_t peakResidentBytes();
// Lowers the recorded peak to the current size; false where the system does not allow it, and
// then the peak is that of the whole process.
bool resetPeakResidentBytes();

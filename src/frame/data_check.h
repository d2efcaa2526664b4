// Every check on bytes that come from outside (a file, a caller's buffer) goes through this one
// macro, so that a grep for ZUL_REFUSE_UNLESS finds every validation of untrusted input. Debug
// and fuzz builds record, per thread, which check refused the input first, so that tests of
// damaged input can name the check they expect; release builds record nothing and pay nothing.
#pragma once

#include "zul.h"

#if !defined(NDEBUG) || defined(ZUL_RECORD_REFUSALS)
#define ZUL_REFUSALS_RECORDED 1
#else
#define ZUL_REFUSALS_RECORDED 0
#endif

namespace zullib {

// Where input was refused: the source file, its line, and the check as written.
struct Refusal {
    const char* file = nullptr;  // null: nothing refused since the last clearRefusal()
    int line = 0;
    const char* check = "";
};

constexpr bool kRefusalsRecorded = ZUL_REFUSALS_RECORDED != 0;

// The first refusal on this thread since the last clearRefusal(): the innermost check, where a
// refusal passes through others on its way out. Always empty where refusals are not recorded.
Refusal firstRefusal();
void clearRefusal();
void recordRefusal(const char* file, int line, const char* check);

}  // namespace zullib

// zul_STATUS_CORRUPT_DATA, for a refusal named by `check` (the condition that failed, as text).
#if ZUL_REFUSALS_RECORDED
#define ZUL_REFUSE(check) \
    (::zullib::recordRefusal(__FILE__, __LINE__, check), zul_STATUS_CORRUPT_DATA)
#else
#define ZUL_REFUSE(check) zul_STATUS_CORRUPT_DATA
#endif

// Returns zul_STATUS_CORRUPT_DATA from the enclosing function unless `condition` holds.
#define ZUL_REFUSE_UNLESS(condition)                     \
    do {                                                 \
        if (!(condition)) return ZUL_REFUSE(#condition); \
    } while (0)

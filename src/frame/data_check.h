// Every check on bytes that come from outside (a file, a caller's buffer) goes through this one
// macro, so that a grep for ZUL_REFUSE_UNLESS finds every validation of untrusted input.
#pragma once

#include "zul.h"

// Returns zul_STATUS_CORRUPT_DATA from the enclosing function unless `condition` holds.
#define ZUL_REFUSE_UNLESS(condition)                      \
    do {                                                  \
        if (!(condition)) return zul_STATUS_CORRUPT_DATA; \
    } while (0)

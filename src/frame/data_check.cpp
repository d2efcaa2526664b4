#include "frame/data_check.h"

namespace zullib {

namespace {
thread_local Refusal first;
}  // namespace

Refusal firstRefusal() { return first; }

void clearRefusal() { first = Refusal(); }

void recordRefusal(const char* file, int line, const char* check) {
    if (!kRefusalsRecorded || first.file != nullptr) return;
    first.file = file;
    first.line = line;
    first.check = check;
}

}  // namespace zullib

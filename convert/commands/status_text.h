// Library statuses in words, for the tool's messages: the library itself has no texts.
#pragma once

#include <string>

#include "zul.h"

namespace zulconvert {

// What a status means where it happened: opening a zul file, reading its chunks, or writing one.
enum class ZulStage { Open, Read, Write };

// For example "the file ends inside a chunk (truncated)".
std::string statusText(zul_Status status, ZulStage stage);

// Throws FormatError "<path>: <statusText>" unless `status` is zul_STATUS_OK; a read or write
// error adds the system's reason (errno), so the caller clears errno before the library call.
void checkStatus(zul_Status status, const std::string& path, ZulStage stage);

}  // namespace zulconvert

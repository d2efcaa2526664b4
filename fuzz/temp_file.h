// One scratch file a process, for the targets that go through the file layer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zulfuzz {

// The path of this process's scratch file, in TMPDIR or /tmp; removed when the process exits.
const std::string& scratchPath();

// Replaces the scratch file's contents with the bytes.
void writeScratch(const uint8_t* data, size_t size);

}  // namespace zulfuzz

// What info and verify say of the companion NAME.zulx beside a zul file.
#pragma once

#include <string>

#include "zul_companion.h"

namespace zulconvert {

// Owns a companion reader and closes it.
struct CompanionReader {
    zul_xin_Reader reader = nullptr;
    CompanionReader() = default;
    CompanionReader(const CompanionReader&) = delete;
    CompanionReader& operator=(const CompanionReader&) = delete;
    ~CompanionReader() { zul_xin_close(&reader); }
};

// The value of the convention `key`, or empty.
std::string conventionOf(zul_xin_Reader reader, const char* key);

// For info's text: lines naming the companion, its source, conventions and fields with their
// types, or nothing when there is none; a damaged one is said to be so.
std::string companionInfoText(const std::string& streamPath);

// For info --json: the companion as a JSON object - its file, whether it is bound to the stream
// ("refused" saying why not), its size, the input's format, whether it keeps the order, its
// conventions and its fields with their types and widths - or null when there is none.
std::string companionInfoJson(const std::string& streamPath);

// For verify: checks the companion beside `streamPath` against the stream's bytes. Returns
// empty when there is none or all matches, else what is wrong, naming every changed chunk.
std::string verifyCompanion(const std::string& streamPath);

}  // namespace zulconvert

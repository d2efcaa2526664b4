// A text as a JSON string, for the commands that print JSON (info, bags).
#pragma once

#include <string>

namespace zulconvert {

// `text` quoted, with quotes and backslashes escaped and control characters as \u00XX.
std::string jsonString(const std::string& text);

}  // namespace zulconvert

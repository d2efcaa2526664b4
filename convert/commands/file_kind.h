// Which format a file is: chosen by --format, recognised by its first bytes, or told by its
// extension, in that order (the formats' table is formats/format_table.cpp).
#pragma once

#include <optional>
#include <string>

#include "formats/cloud.h"

namespace zulconvert {

// The format a --format value names (formatOfWord); throws UsageError for any other word.
zulformats::Format formatOfName(const std::string& name);

// The format of an input: `forced` (a --format value) if not empty, else its content, else its
// extension. Throws FormatError for an unknown extension.
zulformats::Format formatOfInput(const std::string& path, const std::string& forced);

}  // namespace zulconvert

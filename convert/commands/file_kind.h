// Which format a file is: chosen by --format, recognised by its first bytes, or told by its
// extension, in that order.
#pragma once

#include <optional>
#include <string>

#include "formats/cloud.h"

namespace zulconvert {

// The format a --format value names (las, pcd, ply, xyz, csv, bin or kitti, zul; case ignored);
// throws UsageError for any other word.
zulformats::Format formatOfName(const std::string& name);

// The extension of a file of the format, with its dot: ".las", ".bin", ...
const char* extensionOfFormat(zulformats::Format format);

// The format the first bytes of the file show (LAS, PLY, PCD and zul files start with a
// signature or header word); nothing for a file that cannot be read or shows none of them.
std::optional<zulformats::Format> formatOfContent(const std::string& path);

// The format of an input: `forced` (a --format value) if not empty, else its content, else its
// extension. Throws FormatError for an unknown extension.
zulformats::Format formatOfInput(const std::string& path, const std::string& forced);

}  // namespace zulconvert

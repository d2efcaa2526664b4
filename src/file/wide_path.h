// Wide-character paths: the file streams of this platform open narrow paths, which are UTF-8.
#pragma once

#include <string>

namespace zullib {

// The UTF-8 form of a wide path (UTF-32, or UTF-16 where wchar_t has 16 bits). A path holding
// something that is not a character (a lone surrogate, a value above U+10FFFF) becomes the empty
// path, which names no file: opening it fails as opening any missing file does, and no shortened
// path can ever name a file that exists.
std::string utf8Path(const wchar_t* path);

}  // namespace zullib

// Wide-character paths: the file streams of this platform open narrow paths, which are UTF-8.
#pragma once

#include <string>

namespace zullib {

// The UTF-8 form of a wide path, whose characters are UTF-32 code points. A path holding
// something that is not a character (a surrogate, a value above U+10FFFF) becomes the empty
// path, which names no file: opening it fails as opening any missing file does, and no shortened
// path can ever name a file that exists.
std::string utf8Path(const wchar_t* path);

}  // namespace zullib

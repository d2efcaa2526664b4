#include "commands/file_kind.h"

#include "commands/usage_error.h"

namespace zulconvert {

using namespace zulformats;

Format formatOfName(const std::string& name) {
    if (const std::optional<Format> format = formatOfWord(name)) return *format;
    throw UsageError("--format \"" + name + "\" is not a format the tool knows (" + formatWords() +
                     ")");
}

Format formatOfInput(const std::string& path, const std::string& forced) {
    if (!forced.empty()) return formatOfName(forced);
    if (const std::optional<Format> content = formatOfContent(path)) return *content;
    return formatOfPath(path);
}

}  // namespace zulconvert

#include "commands/file_kind.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>

#include "commands/usage_error.h"

namespace zulconvert {

using namespace zulformats;

namespace {

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool startsWith(const std::string& text, const char* prefix) {
    return text.compare(0, std::strlen(prefix), prefix) == 0;
}

// A PCD file opens with comment lines and then VERSION or FIELDS.
bool looksLikePcd(const std::string& head) {
    size_t line = 0;
    while (line < head.size() && head[line] == '#') {
        if (head.compare(line, 6, "# .PCD") == 0) return true;
        line = head.find('\n', line);
        if (line == std::string::npos) return false;
        ++line;
    }
    return head.compare(line, 8, "VERSION ") == 0 || head.compare(line, 7, "FIELDS ") == 0;
}

}  // namespace

Format formatOfName(const std::string& name) {
    const std::string word = lowered(name);
    if (word == "las") return Format::Las;
    if (word == "pcd") return Format::Pcd;
    if (word == "ply") return Format::Ply;
    if (word == "xyz" || word == "txt" || word == "pts") return Format::Xyz;
    if (word == "csv") return Format::Csv;
    if (word == "bin" || word == "kitti") return Format::Kitti;
    if (word == "zul") return Format::Zul;
    throw UsageError("--format \"" + name +
                     "\" is not a format the tool knows (las, pcd, ply, xyz, csv, bin, zul)");
}

const char* extensionOfFormat(Format format) {
    switch (format) {
        case Format::Las:
            return ".las";
        case Format::Pcd:
            return ".pcd";
        case Format::Ply:
            return ".ply";
        case Format::Xyz:
            return ".xyz";
        case Format::Csv:
            return ".csv";
        case Format::Kitti:
            return ".bin";
        case Format::Zul:
            return ".zul";
    }
    return "";
}

std::optional<Format> formatOfContent(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    char bytes[64] = {};
    in.read(bytes, sizeof bytes);
    const std::string head(bytes, static_cast<size_t>(in.gcount()));
    if (startsWith(head, "LASF")) return Format::Las;
    if (startsWith(head, "ZUL")) return Format::Zul;
    if (startsWith(head, "ply\n") || startsWith(head, "ply\r\n")) return Format::Ply;
    if (looksLikePcd(head)) return Format::Pcd;
    return std::nullopt;
}

Format formatOfInput(const std::string& path, const std::string& forced) {
    if (!forced.empty()) return formatOfName(forced);
    if (const std::optional<Format> content = formatOfContent(path)) return *content;
    return formatOfPath(path);
}

}  // namespace zulconvert

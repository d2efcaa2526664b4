// The formats, one table: the names, the extensions, the signature, the reader and the writer of
// each.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
#include <iterator>

#include "formats/cloud.h"

namespace zulformats {

std::unique_ptr<CloudReader> openLasReader(const std::string& path);
std::unique_ptr<CloudReader> openPcdReader(const std::string& path);
std::unique_ptr<CloudReader> openPlyReader(const std::string& path);
std::unique_ptr<CloudReader> openTextReader(const std::string& path);
std::unique_ptr<CloudReader> openKittiReader(const std::string& path);
std::unique_ptr<CloudWriter> openLasWriter(const std::string& path, const WriteOptions& options);
std::unique_ptr<CloudWriter> openPcdWriter(const std::string& path, const WriteOptions& options);
std::unique_ptr<CloudWriter> openPlyWriter(const std::string& path, const WriteOptions& options);
std::unique_ptr<CloudWriter> openTextWriter(const std::string& path, const WriteOptions& options,
                                            char separator);
std::unique_ptr<CloudWriter> openKittiWriter(const std::string& path, const WriteOptions& options);

namespace {

bool startsWith(const std::string& text, const char* prefix) {
    return text.compare(0, std::strlen(prefix), prefix) == 0;
}

bool isLas(const std::string& head) { return startsWith(head, "LASF"); }
bool isZul(const std::string& head) { return startsWith(head, "ZUL"); }
bool isPly(const std::string& head) {
    return startsWith(head, "ply\n") || startsWith(head, "ply\r\n");
}
// A PCD file opens with comment lines and then VERSION or FIELDS.
bool isPcd(const std::string& head) {
    size_t line = 0;
    while (line < head.size() && head[line] == '#') {
        if (head.compare(line, 6, "# .PCD") == 0) return true;
        line = head.find('\n', line);
        if (line == std::string::npos) return false;
        ++line;
    }
    return head.compare(line, 8, "VERSION ") == 0 || head.compare(line, 7, "FIELDS ") == 0;
}

std::unique_ptr<CloudWriter> openXyzWriter(const std::string& path, const WriteOptions& options) {
    return openTextWriter(path, options, ' ');
}
std::unique_ptr<CloudWriter> openCsvWriter(const std::string& path, const WriteOptions& options) {
    return openTextWriter(path, options, ',');
}

struct FormatEntry {
    Format format;
    const char* name;
    const char* words[3];                        // --format words, the first the one said in lists
    const char* extensions[3];                   // with the dot; the first the one an output gets
    bool (*signature)(const std::string& head);  // the first bytes, if the format has any
    std::unique_ptr<CloudReader> (*reader)(const std::string& path);
    std::unique_ptr<CloudWriter> (*writer)(const std::string& path, const WriteOptions& options);
    bool countFirst;  // the writer's header holds the count (WriteOptions::pointCount)
};

// Signatures are tried in this order; zul files are read and written by the library, not here.
// clang-format off
const FormatEntry kFormats[] = {
    // format      name            --format words          extensions                 signature
    //             reader          writer          count first
    {Format::Las,   "LAS",          {"las"},                {".las"},                  isLas,
                    openLasReader,  openLasWriter,  false},
    {Format::Zul,   "zul",          {"zul"},                {".zul"},                  isZul,
                    nullptr,        nullptr,        false},
    {Format::Ply,   "PLY",          {"ply"},                {".ply"},                  isPly,
                    openPlyReader,  openPlyWriter,  true},
    {Format::Pcd,   "PCD",          {"pcd"},                {".pcd"},                  isPcd,
                    openPcdReader,  openPcdWriter,  true},
    {Format::Xyz,   "XYZ text",     {"xyz", "txt", "pts"},  {".xyz", ".txt", ".pts"},  nullptr,
                    openTextReader, openXyzWriter,  false},
    {Format::Csv,   "CSV text",     {"csv"},                {".csv"},                  nullptr,
                    openTextReader, openCsvWriter,  false},
    {Format::Kitti, "KITTI binary", {"bin", "kitti"},       {".bin"},                  nullptr,
                    openKittiReader, openKittiWriter, false},
};
// clang-format on

const FormatEntry& entryOf(Format format) {
    for (const FormatEntry& entry : kFormats)
        if (entry.format == format) return entry;
    return kFormats[0];  // every Format has its row
}

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool listed(const char* const (&list)[3], const std::string& word) {
    for (const char* item : list)
        if (item != nullptr && word == item) return true;
    return false;
}

std::string extensionOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    return lowered(path.substr(dot + 1));
}

// Formats in the order lists name them.
const Format kListed[] = {Format::Las, Format::Pcd,   Format::Ply, Format::Xyz,
                          Format::Csv, Format::Kitti, Format::Zul};

}  // namespace

Format formatOfPath(const std::string& path) {
    const std::string extension = extensionOf(path);
    for (const FormatEntry& entry : kFormats)
        if (listed(entry.extensions, "." + extension)) return entry.format;
    if (extension == "laz") throw FormatError(path + ": compressed LAS (.laz) is not supported");
    std::string known;
    for (Format format : kListed)
        for (const char* item : entryOf(format).extensions)
            if (item != nullptr) known += (known.empty() ? "" : " ") + std::string(item);
    throw FormatError(path + ": the extension \"." + extension +
                      "\" is not a format the tool knows (" + known + ")");
}

const char* formatName(Format format) { return entryOf(format).name; }

bool writerNeedsCount(Format format) { return entryOf(format).countFirst; }

std::optional<Format> formatOfWord(const std::string& word) {
    const std::string lower = lowered(word);
    for (const FormatEntry& entry : kFormats)
        if (listed(entry.words, lower)) return entry.format;
    return std::nullopt;
}

std::string formatWords(bool withZul) {
    std::string words;
    for (Format format : kListed) {
        if (format == Format::Zul && !withZul) continue;
        words += (words.empty() ? "" : ", ") + std::string(entryOf(format).words[0]);
    }
    return words;
}

const std::vector<Format>& cloudFormats() {
    static const std::vector<Format> formats(std::begin(kListed), std::end(kListed) - 1);
    return formats;
}

const char* extensionOfFormat(Format format) { return entryOf(format).extensions[0]; }

std::optional<Format> formatOfContent(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    char bytes[64] = {};
    in.read(bytes, sizeof bytes);
    const std::string head(bytes, static_cast<size_t>(in.gcount()));
    for (const FormatEntry& entry : kFormats)
        if (entry.signature != nullptr && entry.signature(head)) return entry.format;
    return std::nullopt;
}

std::unique_ptr<CloudReader> openCloudReader(const std::string& path, Format format) {
    const FormatEntry& entry = entryOf(format);
    if (entry.reader == nullptr)
        throw FormatError(path + ": is a zul file already; use decompress");
    return entry.reader(path);
}

std::unique_ptr<CloudWriter> openCloudWriter(const std::string& path, Format format,
                                             const WriteOptions& options) {
    const FormatEntry& entry = entryOf(format);
    if (entry.writer == nullptr) throw FormatError(path + ": a zul file is written by compress");
    return entry.writer(path, options);
}

}  // namespace zulformats

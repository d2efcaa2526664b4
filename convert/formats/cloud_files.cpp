// The formats by file name, and the reader and writer of each.
#include <algorithm>
#include <cctype>

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

std::string extensionOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string extension = path.substr(dot + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

}  // namespace

Format formatOfPath(const std::string& path) {
    const std::string extension = extensionOf(path);
    if (extension == "las") return Format::Las;
    if (extension == "pcd") return Format::Pcd;
    if (extension == "ply") return Format::Ply;
    if (extension == "xyz" || extension == "txt" || extension == "pts") return Format::Xyz;
    if (extension == "csv") return Format::Csv;
    if (extension == "bin") return Format::Kitti;
    if (extension == "zul") return Format::Zul;
    if (extension == "laz") throw FormatError(path + ": compressed LAS (.laz) is not supported");
    throw FormatError(path + ": the extension \"." + extension +
                      "\" is not a format the tool knows (.las .pcd .ply .xyz .txt .csv .pts "
                      ".bin .zul)");
}

const char* formatName(Format format) {
    switch (format) {
        case Format::Las:
            return "LAS";
        case Format::Pcd:
            return "PCD";
        case Format::Ply:
            return "PLY";
        case Format::Xyz:
            return "XYZ text";
        case Format::Csv:
            return "CSV text";
        case Format::Kitti:
            return "KITTI binary";
        case Format::Zul:
            return "zul";
    }
    return "?";
}

std::unique_ptr<CloudReader> openCloudReader(const std::string& path, Format format) {
    switch (format) {
        case Format::Las:
            return openLasReader(path);
        case Format::Pcd:
            return openPcdReader(path);
        case Format::Ply:
            return openPlyReader(path);
        case Format::Xyz:
        case Format::Csv:
            return openTextReader(path);
        case Format::Kitti:
            return openKittiReader(path);
        case Format::Zul:
            break;
    }
    throw FormatError(path + ": is a zul file already; use decompress");
}

std::unique_ptr<CloudWriter> openCloudWriter(const std::string& path, Format format,
                                             const WriteOptions& options) {
    switch (format) {
        case Format::Las:
            return openLasWriter(path, options);
        case Format::Pcd:
            return openPcdWriter(path, options);
        case Format::Ply:
            return openPlyWriter(path, options);
        case Format::Xyz:
            return openTextWriter(path, options, ' ');
        case Format::Csv:
            return openTextWriter(path, options, ',');
        case Format::Kitti:
            return openKittiWriter(path, options);
        case Format::Zul:
            break;
    }
    throw FormatError(path + ": a zul file is written by compress");
}

}  // namespace zulformats

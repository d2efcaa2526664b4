// Writes the seed corpus of the format readers' fuzz target into a folder: a small cloud written
// by every writer in every encoding it has, each file behind the byte that picks its format.
// Everything is computed here; nothing comes from elsewhere.
//
//   make_format_seeds <folder>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "formats/cloud.h"

namespace fs = std::filesystem;
using zulformats::Format;

namespace {

struct SeedKind {
    const char* name;
    Format format;
    const char* encoding;
    const char* lasVersion;
    bool attributes;
};

const SeedKind kKinds[] = {
    {"las12", Format::Las, "", "1.2", true},
    {"las14", Format::Las, "", "1.4", true},
    {"las12_xyz", Format::Las, "", "1.2", false},
    {"pcd_ascii", Format::Pcd, "ascii", "1.2", true},
    {"pcd_binary", Format::Pcd, "binary", "1.2", true},
    {"pcd_compressed", Format::Pcd, "binary_compressed", "1.2", true},
    {"ply_ascii", Format::Ply, "ascii", "1.2", true},
    {"ply_little", Format::Ply, "binary_little_endian", "1.2", true},
    {"ply_big", Format::Ply, "binary_big_endian", "1.2", false},
    {"xyz", Format::Xyz, "", "1.2", true},
    {"csv", Format::Csv, "", "1.2", true},
    {"kitti", Format::Kitti, "", "1.2", true},
};

const int kPoints = 24;

void writeSeed(const SeedKind& kind, const fs::path& folder) {
    const fs::path file = folder / (std::string(kind.name) + ".cloud");
    zulformats::WriteOptions options;
    options.color = kind.attributes && kind.format != Format::Kitti;
    options.normals = options.color && kind.format != Format::Las;
    options.intensity = kind.attributes;
    options.maxIntensity = 1000;
    options.pointCount = kPoints;
    options.encoding = kind.encoding;
    options.lasVersion = kind.lasVersion;
    {
        const auto writer = zulformats::openCloudWriter(file.string(), kind.format, options);
        for (int i = 0; i < kPoints; ++i) {
            zul_Point point{};
            point.position[0] = 0.25 * i;
            point.position[1] = std::sin(i) * 3;
            point.position[2] = -1.5 + 0.125 * (i % 5);
            for (int c = 0; c < 3; ++c) point.color[c] = static_cast<uint8_t>(40 * c + 9 * i);
            point.reflection = 37 * i;
            point.normal[2] = 1;
            writer->write(point);
        }
        writer->finish();
    }
    std::ifstream in(file, std::ios::binary);
    std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
    // The fuzz target's first byte: the format's place in the table.
    const std::vector<Format>& formats = zulformats::cloudFormats();
    const auto place = std::find(formats.begin(), formats.end(), kind.format) - formats.begin();
    bytes.insert(bytes.begin(), static_cast<char>(place));
    std::ofstream(file, std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_format_seeds <folder>\n");
        return 2;
    }
    try {
        fs::create_directories(argv[1]);
        for (const SeedKind& kind : kKinds) writeSeed(kind, argv[1]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_format_seeds: %s\n", error.what());
        return 1;
    }
    return 0;
}

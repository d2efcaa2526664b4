// The clouds every benchmark runs over: the real clouds of the shared data folder, stored as
// `zul compress` would store them (the file's grid or 1 mm, every attribute the file has), and
// the synthetic street scan of `zul demo` (convert/synthetic, the same seed) with all four
// attributes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/limits.h"
#include "zul.h"

struct BenchCloud {
    std::string name;
    zul_DataType dataType;
    // Parallel arrays as zul_PointData holds them; those of attributes the type lacks are empty.
    std::vector<double> positions;
    std::vector<uint8_t> colors;
    std::vector<int32_t> reflections;
    std::vector<float> normals;

    int size() const { return static_cast<int>(positions.size() / 3); }
    // The points [first, first + count) as a zul_PointData over these arrays.
    zul_PointData slice(int first, int count) const;
    // Bytes a point takes in these arrays: the raw size that MB/s figures count.
    int rawBytesPerPoint() const;
};

// The same cloud with its points in the order `zul compress` writes them by default: cut into
// spatially compact runs of kBenchChunk points.
// The cloud's points as the file layer's records.
std::vector<zul_Point> pointsOf(const BenchCloud& cloud);

BenchCloud kdOrdered(const BenchCloud& cloud);

// Loaded once: the shared clouds found (a missing file is left out with a note on stderr), then
// the synthetic scan of kScanPoints points.
const std::vector<BenchCloud>& benchClouds();

const int kScanPoints = 1000000;
// The file writer's default chunk size, used by every in-memory benchmark too.
const int kBenchChunk = zulbase::kDefaultChunkSize;

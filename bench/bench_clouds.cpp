#include "bench_clouds.h"

#include <cstdio>
#include <filesystem>
#include <memory>

#include "commands/commands.h"
#include "commands/point_plan.h"
#include "formats/cloud.h"
#include "planner/kd_cells.h"
#include "synthetic/street_scan.h"

namespace {

const char* const kSharedClouds[] = {"cturtle.pcd",       "table_scene_mug_stereo_textured.pcd",
                                     "bun0.pcd",          "colored_cloud.pcd",
                                     "4_6_crop.las",      "sample_c.las",
                                     "1.2-with-color.las"};

// Reads a file through the tool's reader and the compress command's plan, keeping the points
// that the command would write.
bool loadShared(const std::string& path, BenchCloud& cloud) {
    using namespace zulconvert;
    using namespace zulformats;
    CompressOptions options;
    options.input = path;
    options.quiet = true;
    const Format format = formatOfPath(path);
    std::unique_ptr<CloudReader> reader = openCloudReader(path, format);
    const PointPlan plan = planPoints(options, reader->layout(), format);
    cloud.dataType = plan.dataType;
    const zul_DataType& type = plan.dataType;
    PointTally tally;
    zul_Point p = {};
    while (reader->read(p)) {
        if (!preparePoint(plan, *reader, p, tally)) continue;
        cloud.positions.insert(cloud.positions.end(), p.position, p.position + 3);
        if (type.colorMode != zul_COLOR_NONE)
            cloud.colors.insert(cloud.colors.end(), p.color, p.color + 3);
        if (type.reflectionMode != zul_REFLECTION_NONE) cloud.reflections.push_back(p.reflection);
        if (type.normalMode != zul_NORMAL_NONE)
            cloud.normals.insert(cloud.normals.end(), p.normal, p.normal + 3);
    }
    return cloud.size() > 0;
}

BenchCloud syntheticCloud() {
    BenchCloud cloud;
    cloud.name = "synthetic scan";
    zul_init_headers(&cloud.dataType, nullptr);
    cloud.dataType.quantizationStep = 0.001f;
    cloud.dataType.colorMode = zul_COLOR_RGB888;
    cloud.dataType.reflectionMode = zul_REFLECTION_CLAMPED;
    cloud.dataType.maxReflection = 255;
    cloud.dataType.normalMode = zul_NORMAL_SPHERICAL;
    const size_t n = kScanPoints;
    cloud.positions.reserve(3 * n);
    cloud.colors.reserve(3 * n);
    cloud.reflections.reserve(n);
    cloud.normals.reserve(3 * n);
    zulsynth::traceStreetScan(kScanPoints, zulsynth::kStreetSeed, [&](const zul_Point& p) {
        cloud.positions.insert(cloud.positions.end(), p.position, p.position + 3);
        cloud.colors.insert(cloud.colors.end(), p.color, p.color + 3);
        cloud.reflections.push_back(p.reflection);
        cloud.normals.insert(cloud.normals.end(), p.normal, p.normal + 3);
    });
    return cloud;
}

std::vector<BenchCloud> loadClouds() {
    std::vector<BenchCloud> clouds;
    for (const char* name : kSharedClouds) {
        const std::string path = std::string(ZUL_DATA_DIR) + "/" + name;
        BenchCloud cloud;
        cloud.name = name;
        try {
            if (loadShared(path, cloud)) clouds.push_back(std::move(cloud));
        } catch (const std::exception& error) {
            std::fprintf(stderr, "left out %s: %s\n", name, error.what());
        }
    }
    clouds.push_back(syntheticCloud());
    return clouds;
}

}  // namespace

zul_PointData BenchCloud::slice(int first, int count) const {
    const size_t i = static_cast<size_t>(first);
    zul_PointData data;
    data.numPoints = count;
    data.positions = const_cast<double*>(positions.data()) + 3 * i;
    data.colors = colors.empty() ? nullptr : const_cast<uint8_t*>(colors.data()) + 3 * i;
    data.reflections = reflections.empty() ? nullptr : const_cast<int32_t*>(reflections.data()) + i;
    data.normals = normals.empty() ? nullptr : const_cast<float*>(normals.data()) + 3 * i;
    return data;
}

int BenchCloud::rawBytesPerPoint() const {
    return 24 + (colors.empty() ? 0 : 3) + (reflections.empty() ? 0 : 4) +
           (normals.empty() ? 0 : 12);
}

std::vector<zul_Point> pointsOf(const BenchCloud& cloud) {
    std::vector<zul_Point> points(static_cast<size_t>(cloud.size()));
    for (size_t i = 0; i < points.size(); ++i) {
        zul_Point& p = points[i];
        p = {};
        for (int k = 0; k < 3; ++k) {
            p.position[k] = cloud.positions[3 * i + k];
            if (!cloud.colors.empty()) p.color[k] = cloud.colors[3 * i + k];
            if (!cloud.normals.empty()) p.normal[k] = cloud.normals[3 * i + k];
        }
        if (!cloud.reflections.empty()) p.reflection = cloud.reflections[i];
    }
    return points;
}

BenchCloud kdOrdered(const BenchCloud& cloud) {
    std::vector<zul_Point> points = pointsOf(cloud);
    zulplan::orderForChunks(points, kBenchChunk);
    BenchCloud ordered = cloud;
    for (size_t i = 0; i < points.size(); ++i) {
        const zul_Point& p = points[i];
        for (int k = 0; k < 3; ++k) {
            ordered.positions[3 * i + k] = p.position[k];
            if (!cloud.colors.empty()) ordered.colors[3 * i + k] = p.color[k];
            if (!cloud.normals.empty()) ordered.normals[3 * i + k] = p.normal[k];
        }
        if (!cloud.reflections.empty()) ordered.reflections[i] = p.reflection;
    }
    return ordered;
}

const std::vector<BenchCloud>& benchClouds() {
    static const std::vector<BenchCloud> clouds = loadClouds();
    return clouds;
}

// The seed corpus of the ROS message target, in FOLDER/ros: small sensor-shaped messages in each
// serialisation, as PointCloud2 and as CompressedPointCloud2 (with a companion and with the
// message's own columns), each behind the mode byte the target reads first.
//
//   make_ros_seeds FOLDER
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "ros/sample/sensor_messages.h"
#include "ros/zul_ros.h"

using namespace zul::ros;
namespace fs = std::filesystem;

namespace {

void save(const fs::path& path, uint8_t mode, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.put(char(mode));
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_ros_seeds FOLDER\n");
        return 2;
    }
    const fs::path folder = fs::path(argv[1]) / "ros";
    fs::create_directories(folder);
    const testing::SensorShape shapes[3] = {{testing::Sensor::OrganisedLidar, 4, 16},
                                            {testing::Sensor::FlatLidar, 1, 40},
                                            {testing::Sensor::RgbCamera, 5, 6}};
    const char* wires[3] = {"ros1", "cdr_le", "cdr_be"};
    for (const testing::SensorShape& shape : shapes) {
        for (int w = 0; w < 3; ++w) {
            const Wire wire = Wire(w);
            const uint8_t family = wire == Wire::Ros1 ? 0 : 1;
            const PointCloud2 cloud = testing::makeSensorMessage(shape, wire, w == 2, 5);
            const std::string name =
                std::string(testing::sensorName(shape.sensor)) + "_" + wires[w];
            save(folder / (name + "_cloud.in"), uint8_t(family | 2), writePointCloud2(cloud));
            EncodeOptions options;
            options.chunkPoints = 16;
            save(folder / (name + "_compressed.in"), family,
                 writeCompressedPointCloud2(compressCloud(cloud, options)));
            options.companion = false;
            save(folder / (name + "_compressed_own_columns.in"), family,
                 writeCompressedPointCloud2(compressCloud(cloud, options)));
        }
    }
    return 0;
}

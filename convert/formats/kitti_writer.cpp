// Writes KITTI-style .bin scans: float32 x y z and the reflection brought into 0 .. 1 as in the
// scans of that kind: divided by the stream's maximum where it is a decimal scale (10, 100, 1000,
// 10000: compress of reflectances within 0 .. 1 stores that maximum, the factor it found, so
// 0.99 stored as 99 of 100 comes back 0.99), else by 255 where the maximum allows, else by 65535,
// else by the maximum; 0 without reflection. Compress finds that factor again in the values, so
// the integers come back.
#include <cmath>

#include "formats/byte_output.h"
#include "formats/cloud.h"

namespace zulformats {

namespace {

bool decimalScale(int32_t max) { return max == 10 || max == 100 || max == 1000 || max == 10000; }

class KittiWriter : public CloudWriter {
public:
    KittiWriter(const std::string& path, const WriteOptions& options)
        : out_(path),
          halfStep_(options.gridStep / 2),
          intensityScale_(!options.intensity                   ? 0.0
                          : decimalScale(options.maxIntensity) ? 1.0 / options.maxIntensity
                          : options.maxIntensity <= 255        ? 1.0 / 255
                          : options.maxIntensity <= 65535      ? 1.0 / 65535
                                                               : 1.0 / options.maxIntensity) {}

    void write(const zul_Point& point) override {
        const float record[4] = {static_cast<float>(point.position[0]),
                                 static_cast<float>(point.position[1]),
                                 static_cast<float>(point.position[2]),
                                 static_cast<float>(point.reflection * intensityScale_)};
        for (int axis = 0; axis < 3; ++axis) {
            if (std::fabs(record[axis] - point.position[axis]) > halfStep_) {
                count("coordinates moved by more than half a step to fit KITTI's 32-bit floats");
            }
        }
        out_.write(record, sizeof record);
    }

    void finish() override { out_.close(); }

private:
    ByteOutput out_;
    double halfStep_;
    double intensityScale_;
};

}  // namespace

std::unique_ptr<CloudWriter> openKittiWriter(const std::string& path, const WriteOptions& options) {
    return std::make_unique<KittiWriter>(path, options);
}

}  // namespace zulformats

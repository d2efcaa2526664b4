// Draco's run of the comparison. Draco quantises a position attribute of 32-bit floats inside an
// explicit box: with b bits over a range r, its grid step is r / (2^b - 1). The box is made so
// that this step is the cloud's own, and the positions are handed over relative to the cloud's
// lowest corner (in double precision), so that 32-bit floats lose nothing that matters even for
// airborne lidar far from the origin. Colour (8 bits a channel) and reflection (32-bit integers)
// are lossless attributes; normals take Draco's usual 8 bits of octahedral quantisation. The
// encoder runs at its default speed (5), which picks its kd-tree coding for the positions.
#include <draco/compression/decode.h>
#include <draco/compression/encode.h>
#include <draco/point_cloud/point_cloud_builder.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "codec_runs.h"

namespace {

const int kNormalBits = 8;

std::unique_ptr<draco::PointCloud> buildPointCloud(const BenchCloud& cloud, float& range,
                                                   int& bits) {
    const size_t n = static_cast<size_t>(cloud.size());
    double low[3] = {1e300, 1e300, 1e300}, high[3] = {-1e300, -1e300, -1e300};
    for (size_t i = 0; i < n; ++i) {
        for (int k = 0; k < 3; ++k) {
            low[k] = std::min(low[k], cloud.positions[3 * i + k]);
            high[k] = std::max(high[k], cloud.positions[3 * i + k]);
        }
    }
    std::vector<float> relative(3 * n);
    for (size_t i = 0; i < n; ++i) {
        for (int k = 0; k < 3; ++k)
            relative[3 * i + k] = static_cast<float>(cloud.positions[3 * i + k] - low[k]);
    }
    const double step = cloud.dataType.quantizationStep;
    const double extent = std::max({high[0] - low[0], high[1] - low[1], high[2] - low[2]});
    bits = 1;
    while (bits < 30 && (std::ldexp(1.0, bits) - 1) * step < extent) ++bits;
    range = static_cast<float>((std::ldexp(1.0, bits) - 1) * step);

    draco::PointCloudBuilder builder;
    builder.Start(static_cast<draco::PointIndex::ValueType>(n));
    const int position =
        builder.AddAttribute(draco::GeometryAttribute::POSITION, 3, draco::DT_FLOAT32);
    builder.SetAttributeValuesForAllPoints(position, relative.data(), 0);
    if (!cloud.colors.empty()) {
        const int color = builder.AddAttribute(draco::GeometryAttribute::COLOR, 3, draco::DT_UINT8);
        builder.SetAttributeValuesForAllPoints(color, cloud.colors.data(), 0);
    }
    if (!cloud.reflections.empty()) {
        const int reflection =
            builder.AddAttribute(draco::GeometryAttribute::GENERIC, 1, draco::DT_INT32);
        builder.SetAttributeValuesForAllPoints(reflection, cloud.reflections.data(), 0);
    }
    if (!cloud.normals.empty()) {
        const int normal =
            builder.AddAttribute(draco::GeometryAttribute::NORMAL, 3, draco::DT_FLOAT32);
        builder.SetAttributeValuesForAllPoints(normal, cloud.normals.data(), 0);
    }
    return builder.Finalize(false);
}

}  // namespace

CodecRun runDraco(const BenchCloud& cloud) {
    CodecRun run;
    run.codec = "draco";
    float range = 0;
    int bits = 0;
    const std::unique_ptr<draco::PointCloud> pointCloud = buildPointCloud(cloud, range, bits);
    if (!pointCloud) {
        run.error = "building the point cloud failed";
        return run;
    }
    draco::Encoder encoder;
    const float origin[3] = {0, 0, 0};
    encoder.SetAttributeExplicitQuantization(draco::GeometryAttribute::POSITION, bits, 3, origin,
                                             range);
    encoder.SetAttributeQuantization(draco::GeometryAttribute::NORMAL, kNormalBits);
    draco::EncoderBuffer buffer;
    run.encodeSeconds = bestSeconds([&] {
        buffer.Clear();
        const draco::Status status = encoder.EncodePointCloudToBuffer(*pointCloud, &buffer);
        if (!status.ok()) run.error = status.error_msg_string();
    });
    run.bytes = buffer.size();
    run.decodeSeconds = bestSeconds([&] {
        draco::DecoderBuffer input;
        input.Init(buffer.data(), buffer.size());
        draco::Decoder decoder;
        auto decoded = decoder.DecodePointCloudFromBuffer(&input);
        if (!decoded.ok()) {
            run.error = decoded.status().error_msg_string();
        } else if (static_cast<int>(decoded.value()->num_points()) != cloud.size()) {
            run.error = "Draco gave back a different number of points";
        }
    });
    return run;
}

#include "ros_draco_run.h"

#include <draco/compression/decode.h>
#include <draco/compression/encode.h>
#include <draco/point_cloud/point_cloud_builder.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>

#include "ros/cloud_layout.h"
#include "ros/point_access.h"

using namespace zul::ros;

namespace {

draco::DataType dracoType(uint8_t datatype) {
    switch (datatype) {
        case kInt8:
            return draco::DT_INT8;
        case kUint8:
            return draco::DT_UINT8;
        case kInt16:
            return draco::DT_INT16;
        case kUint16:
            return draco::DT_UINT16;
        case kInt32:
            return draco::DT_INT32;
        case kUint32:
            return draco::DT_UINT32;
        case kFloat32:
            return draco::DT_FLOAT32;
        default:
            return draco::DT_FLOAT64;
    }
}

template <typename F>
double bestSeconds(int repeats, F&& run) {
    double best = 1e30;
    for (int r = 0; r < repeats; ++r) {
        const auto start = std::chrono::steady_clock::now();
        run();
        best = std::min(
            best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

}  // namespace

DracoFigures runDraco(const PointCloud2& message, double step, bool withFields, int repeats) {
    DracoFigures figures;
    const CloudLayout layout = layOutCloud(message.cloud, message.data.size(), false);
    const CloudDescription& c = message.cloud;
    std::vector<uint64_t> kept;
    std::vector<float> xyz;
    double low[3] = {1e300, 1e300, 1e300}, high[3] = {-1e300, -1e300, -1e300};
    for (uint64_t i = 0; i < layout.points; ++i) {
        const uint8_t* at =
            message.data.data() + (i / c.width) * c.rowStep + (i % c.width) * c.pointStep;
        double v[3];
        for (int k = 0; k < 3; ++k)
            v[k] = loadReal(at + layout.position[k].offset, layout.position[k].datatype,
                            layout.bigEndian);
        if (!std::isfinite(v[0]) || !std::isfinite(v[1]) || !std::isfinite(v[2])) continue;
        kept.push_back(i);
        for (int k = 0; k < 3; ++k) {
            xyz.push_back(float(v[k]));
            low[k] = std::min(low[k], v[k]);
            high[k] = std::max(high[k], v[k]);
        }
    }
    const size_t n = kept.size();
    figures.points = n;
    for (size_t i = 0; i < n; ++i)
        for (int k = 0; k < 3; ++k) xyz[3 * i + k] = float(xyz[3 * i + k] - low[k]);
    const double extent = std::max({high[0] - low[0], high[1] - low[1], high[2] - low[2]});
    int bits = 1;
    while (bits < 30 && (std::ldexp(1.0, bits) - 1) * step < extent) ++bits;
    const float range = float((std::ldexp(1.0, bits) - 1) * step);

    draco::PointCloudBuilder builder;
    builder.Start(draco::PointIndex::ValueType(n));
    const int position =
        builder.AddAttribute(draco::GeometryAttribute::POSITION, 3, draco::DT_FLOAT32);
    builder.SetAttributeValuesForAllPoints(position, xyz.data(), 0);
    std::vector<uint8_t> values;
    for (const PointField& field : withFields ? c.fields : std::vector<PointField>()) {
        if (field.name == "x" || field.name == "y" || field.name == "z" || field.count == 0)
            continue;
        const uint32_t size = uint32_t(datatypeSize(field.datatype)) * field.count;
        values.resize(n * size);
        for (size_t i = 0; i < n; ++i) {
            const uint64_t p = kept[i];
            const uint8_t* at = message.data.data() + (p / c.width) * c.rowStep +
                                (p % c.width) * c.pointStep + field.offset;
            for (uint32_t v = 0; v < field.count; ++v)
                copyToLittle(at + v * datatypeSize(field.datatype), datatypeSize(field.datatype),
                             layout.bigEndian,
                             &values[i * size + v * datatypeSize(field.datatype)]);
        }
        const int attribute = builder.AddAttribute(draco::GeometryAttribute::GENERIC,
                                                   int8_t(field.count), dracoType(field.datatype));
        builder.SetAttributeValuesForAllPoints(attribute, values.data(), 0);
    }
    std::unique_ptr<draco::PointCloud> cloud = builder.Finalize(false);
    draco::Encoder encoder;
    const float origin[3] = {0, 0, 0};
    encoder.SetAttributeExplicitQuantization(draco::GeometryAttribute::POSITION, bits, 3, origin,
                                             range);
    draco::EncoderBuffer buffer;
    figures.encodeSeconds = bestSeconds(repeats, [&] {
        buffer.Clear();
        encoder.EncodePointCloudToBuffer(*cloud, &buffer);
    });
    figures.bytes = buffer.size();
    figures.decodeSeconds = bestSeconds(repeats, [&] {
        draco::DecoderBuffer input;
        input.Init(buffer.data(), buffer.size());
        draco::Decoder decoder;
        auto decoded = decoder.DecodePointCloudFromBuffer(&input);
        if (!decoded.ok() || decoded.value()->num_points() != n) figures.bytes = 0;
    });
    return figures;
}

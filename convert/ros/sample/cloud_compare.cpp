#include "cloud_compare.h"

#include <cmath>
#include <cstring>

#include "ros/cloud_layout.h"
#include "ros/point_access.h"

namespace zul::ros::testing {

std::string differenceOf(const PointCloud2& original, const PointCloud2& restored, double step) {
    PointCloud2 framing = restored;
    framing.data = original.data;
    if (writePointCloud2(framing) != writePointCloud2(original))
        return "the message's fields around its data differ";
    if (restored.data.size() != original.data.size())
        return "data of " + std::to_string(restored.data.size()) + " bytes, not " +
               std::to_string(original.data.size());
    const CloudLayout layout = layOutCloud(original.cloud, original.data.size(), false);
    std::vector<uint8_t> expected = original.data, got = restored.data;
    const double half = double(float(step)) * 0.5;
    const CloudDescription& c = original.cloud;
    for (uint64_t i = 0; i < layout.points && layout.hasPositions; ++i) {
        const uint64_t at = (i / c.width) * c.rowStep + (i % c.width) * c.pointStep;
        for (const StreamField& axis : layout.position) {
            const int size = datatypeSize(axis.datatype);
            const double a = loadReal(&expected[at + axis.offset], axis.datatype, layout.bigEndian);
            const double b = loadReal(&got[at + axis.offset], axis.datatype, layout.bigEndian);
            if (!std::isfinite(a)) continue;
            if (!(std::fabs(a - b) <= half))
                return "point " + std::to_string(i) + " " + axis.role + ": " + std::to_string(a) +
                       " came back " + std::to_string(b);
            std::memset(&got[at + axis.offset], 0, size);
            std::memset(&expected[at + axis.offset], 0, size);
        }
    }
    for (size_t b = 0; b < expected.size(); ++b) {
        if (expected[b] != got[b])
            return "data byte " + std::to_string(b) + ": " + std::to_string(expected[b]) +
                   " came back " + std::to_string(got[b]);
    }
    return "";
}

}  // namespace zul::ros::testing

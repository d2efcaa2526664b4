#include "cloud_layout.h"

#include <algorithm>

#include "ros_error.h"

namespace zul::ros {

int datatypeSize(uint8_t datatype) {
    static const int sizes[9] = {0, 1, 1, 2, 2, 4, 4, 4, 8};
    return datatype <= 8 ? sizes[datatype] : 0;
}

namespace {

std::string quoted(const PointField& field) { return "field '" + field.name + "'"; }

int findField(const std::vector<PointField>& fields, const char* name) {
    for (size_t i = 0; i < fields.size(); ++i)
        if (fields[i].name == name) return int(i);
    return -1;
}

void checkFields(const CloudDescription& cloud) {
    struct Span {
        uint64_t begin, end;
        size_t field;
    };
    std::vector<Span> spans;
    for (size_t i = 0; i < cloud.fields.size(); ++i) {
        const PointField& field = cloud.fields[i];
        const int size = datatypeSize(field.datatype);
        if (size == 0)
            throw Error(quoted(field) + " has the unknown datatype " +
                        std::to_string(field.datatype) + " (known: 1 to 8)");
        const uint64_t end = uint64_t(field.offset) + uint64_t(size) * field.count;
        if (end > cloud.pointStep)
            throw Error(quoted(field) + " (offset " + std::to_string(field.offset) + ", " +
                        std::to_string(field.count) + " x " + std::to_string(size) +
                        " bytes) runs past point_step " + std::to_string(cloud.pointStep));
        if (field.count > 0) spans.push_back({field.offset, end, i});
    }
    std::sort(spans.begin(), spans.end(),
              [](const Span& a, const Span& b) { return a.begin < b.begin; });
    for (size_t i = 1; i < spans.size(); ++i) {
        if (spans[i].begin < spans[i - 1].end)
            throw Error(quoted(cloud.fields[spans[i - 1].field]) + " and " +
                        quoted(cloud.fields[spans[i].field]) + " overlap (bytes " +
                        std::to_string(spans[i].begin) + " to " +
                        std::to_string(std::min(spans[i].end, spans[i - 1].end) - 1) + ")");
    }
}

void checkSizes(const CloudDescription& cloud, uint64_t dataSize, CloudLayout& layout) {
    layout.points = uint64_t(cloud.height) * cloud.width;
    layout.recordBytes = uint64_t(cloud.width) * cloud.pointStep;
    if (layout.points == 0) return;
    if (layout.points >= (uint64_t(1) << 32))
        throw Error("height x width is " + std::to_string(layout.points) +
                    " points, more than 2^32 - 1");
    if (cloud.pointStep == 0) throw Error("point_step is 0 in a cloud of points");
    if (layout.recordBytes > cloud.rowStep)
        throw Error("row_step " + std::to_string(cloud.rowStep) + " is less than width " +
                    std::to_string(cloud.width) + " x point_step " +
                    std::to_string(cloud.pointStep));
    const uint64_t needed = uint64_t(cloud.height) * cloud.rowStep;
    if (dataSize < needed)
        throw Error("data holds " + std::to_string(dataSize) + " bytes, less than height " +
                    std::to_string(cloud.height) + " x row_step " + std::to_string(cloud.rowStep) +
                    " = " + std::to_string(needed));
}

bool isFloat(uint8_t datatype) { return datatype == kFloat32 || datatype == kFloat64; }

}  // namespace

CloudLayout layOutCloud(const CloudDescription& cloud, uint64_t dataSize, bool intensityCandidate) {
    checkFields(cloud);
    CloudLayout layout;
    checkSizes(cloud, dataSize, layout);
    layout.bigEndian = cloud.isBigendian != 0;
    // Without points nothing is stored, and point_step is not bounded by the data.
    if (layout.points == 0) return layout;
    const auto& fields = cloud.fields;

    const char* axes[3] = {"x", "y", "z"};
    layout.hasPositions = true;
    for (int k = 0; k < 3; ++k) {
        const int i = findField(fields, axes[k]);
        layout.hasPositions =
            layout.hasPositions && i >= 0 && isFloat(fields[i].datatype) && fields[i].count == 1;
        if (i >= 0) layout.position[k] = {i, fields[i].offset, fields[i].datatype, axes[k]};
    }
    if (!layout.hasPositions) {
        for (StreamField& axis : layout.position) axis = StreamField();
    } else {
        int i = findField(fields, "rgb");
        if (i < 0) i = findField(fields, "rgba");
        if (i >= 0 && fields[i].count == 1 && datatypeSize(fields[i].datatype) == 4)
            layout.color = {i, fields[i].offset, fields[i].datatype, "colour"};
        i = findField(fields, "intensity");
        if (intensityCandidate && i >= 0 && fields[i].count == 1)
            layout.intensity = {i, fields[i].offset, fields[i].datatype, "intensity"};
    }

    // Every byte of the record not in the stream goes into a column, in record order.
    std::vector<ColumnRange> ranges;
    for (size_t i = 0; i < fields.size(); ++i) {
        const PointField& field = fields[i];
        if (field.count == 0) continue;
        const int at = int(i);
        if (at == layout.position[0].field || at == layout.position[1].field ||
            at == layout.position[2].field || at == layout.intensity.field)
            continue;
        if (at == layout.color.field) {
            ColumnRange alpha;
            alpha.name = field.name + ".alpha";
            alpha.offset = field.offset + (layout.bigEndian ? 0 : 3);
            ranges.push_back(alpha);
            continue;
        }
        ColumnRange range;
        range.name = field.name;
        range.offset = field.offset;
        range.valueSize = uint32_t(datatypeSize(field.datatype));
        range.count = field.count;
        range.datatype = field.datatype;
        ranges.push_back(range);
    }
    // The bytes no field covers, as runs.
    std::vector<bool> covered(cloud.pointStep, false);
    for (const PointField& field : fields) {
        const uint64_t end = field.offset + uint64_t(datatypeSize(field.datatype)) * field.count;
        for (uint64_t b = field.offset; b < end; ++b) covered[b] = true;
    }
    for (uint32_t b = 0; b < cloud.pointStep;) {
        if (covered[b]) {
            ++b;
            continue;
        }
        uint32_t end = b;
        while (end < cloud.pointStep && !covered[end]) ++end;
        ColumnRange gap;
        gap.name = "padding@" + std::to_string(b);
        gap.offset = b;
        gap.count = end - b;
        gap.padding = true;
        ranges.push_back(gap);
        b = end;
    }
    std::sort(ranges.begin(), ranges.end(),
              [](const ColumnRange& a, const ColumnRange& b) { return a.offset < b.offset; });
    layout.columns = std::move(ranges);
    return layout;
}

}  // namespace zul::ros

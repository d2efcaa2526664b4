#include "commands/stream_merge.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <vector>

#include "formats/output_grid.h"

namespace zulconvert {

using namespace zulformats;

namespace {

// Whether `a` and `b` lie a whole number of steps apart, as doubles can tell.
bool wholeStepsApart(double a, double b, double step) {
    const double steps = (a - b) / step;
    return std::fabs(steps - std::round(steps)) <= 1e-6;
}

std::string streamName(const StreamMember& member, size_t number) {
    char name[80];
    std::snprintf(name, sizeof name, "stream %zu (byte %" PRIu64 ")", number, member.head.start);
    return name;
}

}  // namespace

void mergeStreams(const StreamMembers& members, const std::string& input, bool applied,
                  Format format, bool quiet, WriteOptions& write) {
    // The finest step; the grid of a stream on it, exact where every stream's is.
    size_t finest = 0;
    std::vector<OutputGrid> grids;
    for (size_t i = 0; i < members.size(); ++i) {
        const ZulFileHead& head = members[i].head;
        grids.push_back(outputGrid(head.dataType, head.header, applied));
        if (grids[i].step < grids[finest].step) finest = i;
        write.color = write.color || head.present[1];
        write.intensity = write.intensity || head.present[2];
        write.normals = write.normals || head.present[3];
        if (head.present[2])
            write.maxIntensity = std::max(write.maxIntensity, head.dataType.maxReflection);
    }
    const OutputGrid& grid = grids[finest];
    write.gridStep = grid.step;
    write.gridExact = grid.exact;
    std::copy(grid.offset, grid.offset + 3, write.gridOffset);
    for (size_t i = 0; i < members.size(); ++i) {
        const OutputGrid& own = grids[i];
        bool on = wholeStepsApart(own.step, 0, grid.step);
        for (int axis = 0; axis < 3 && on && own.exact && grid.exact; ++axis)
            on = wholeStepsApart(own.offset[axis], grid.offset[axis], grid.step);
        // Formats of coordinates as numbers hold every grid: their digits are the finest step's.
        if (!on && format != Format::Las) {
            write.gridExact = false;
            continue;
        }
        if (!on) {
            const ZulFileHead& head = members[i].head;
            const ZulFileHead& fine = members[finest].head;
            throw FormatError(input + ": " + streamName(members[i], i + 1) + ", of step " +
                              stepText(head.dataType, head.header) +
                              ", does not lie on the grid of " +
                              streamName(members[finest], finest + 1) + ", of step " +
                              stepText(fine.dataType, fine.header) +
                              "; one output holds one grid: cut the file into its streams (zul "
                              "info shows where each begins) and decompress each");
        }
        write.gridExact = write.gridExact && own.exact;
    }
    if (quiet || members.size() < 2) return;
    const bool present[3] = {write.color, write.intensity, write.normals && format != Format::Las};
    const char* const absent[3] = {"colour, written as 0 0 0", "intensity, written as 0",
                                   "normals, written as 0 0 0"};
    for (size_t i = 0; i < members.size(); ++i) {
        for (int a = 0; a < 3; ++a) {
            if (present[a] && !members[i].head.present[a + 1])
                std::cerr << "zul: " << input << ": " << streamName(members[i], i + 1) << " has no "
                          << absent[a] << "\n";
        }
    }
}

}  // namespace zulconvert

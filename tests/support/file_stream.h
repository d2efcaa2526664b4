// Files for the file layer's tests: a private folder per test, whole-file reads and writes, a
// stream as the bytes of one file, and a seeded cloud with every attribute.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/host_files.h"
#include "support/point_cloud.h"
#include "support/stream_codec.h"
#include "support/temp_folder.h"
#include "zul.h"

// The file layer's tests each get a folder of their own.
using FileTest = TempFolderTest;

// The stream as one file holds it: signature, file header, then the first `numChunks` chunks
// (all of them for -1).
inline Bytes fileBytes(const EncodedStream& stream, int numChunks = -1) {
    Bytes bytes = stream.signature + stream.fileHeader;
    const size_t n = numChunks < 0 ? stream.bodies.size() : static_cast<size_t>(numChunks);
    for (size_t i = 0; i < n; ++i) {
        bytes += stream.markers[i] + stream.chunkHeaders[i] + stream.bodies[i];
    }
    return bytes;
}

// samplePoints as a cloud.
inline PointCloud randomCloud(int numPoints, uint32_t seed) {
    PointCloud cloud;
    for (const zul_Point& p : samplePoints(numPoints, seed)) cloud.add(p);
    return cloud;
}

// Point i of a cloud as the writer takes it.
inline zul_Point pointOf(const PointCloud& cloud, int i) {
    zul_Point p;
    for (int k = 0; k < 3; ++k) {
        p.position[k] = cloud.positions[3 * i + k];
        p.color[k] = cloud.colors[3 * i + k];
        p.normal[k] = cloud.normals[3 * i + k];
    }
    p.reflection = cloud.reflections[i];
    return p;
}

// The points [first, first + count) of a cloud as a cloud of their own.
inline PointCloud sliceOf(const PointCloud& cloud, int first, int count) {
    PointCloud part;
    for (int i = first; i < first + count; ++i) part.add(pointOf(cloud, i));
    return part;
}

// The cloud cut into chunks of `chunkSize`, the last one shorter.
inline std::vector<PointCloud> chunksOf(const PointCloud& cloud, int chunkSize) {
    std::vector<PointCloud> chunks;
    for (int first = 0; first < cloud.size(); first += chunkSize) {
        chunks.push_back(sliceOf(cloud, first, std::min(chunkSize, cloud.size() - first)));
    }
    return chunks;
}

// Writes the cloud through the file writer with the sync marker of encodeStream's seed.
inline void writeCloud(const std::string& path, const zul_DataType& dataType,
                       const zul_Header2* header, int chunkSize, const PointCloud& cloud) {
    std::vector<zul_Point> points;
    for (int i = 0; i < cloud.size(); ++i) points.push_back(pointOf(cloud, i));
    zul_test_useFixedRandomSeed(true, 5489);
    writePoints(path, dataType, header, chunkSize, points);
    zul_test_useFixedRandomSeed(false, 0);
}

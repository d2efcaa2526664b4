// Files for the file layer's tests: a private folder per test, whole-file reads and writes, a
// stream as the bytes of one file, and a seeded cloud with every attribute.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <random>
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

// Points spread over a box of 40 m with every attribute; reflections run past 255 so that a
// maximum of 255 clamps some.
inline PointCloud randomCloud(int numPoints, uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> coordinate(-20.0, 20.0);
    std::uniform_int_distribution<int> byte(0, 255), reflection(0, 300);
    std::normal_distribution<float> direction(0.0f, 1.0f);
    PointCloud cloud;
    for (int i = 0; i < numPoints; ++i) {
        const uint8_t rgb[3] = {static_cast<uint8_t>(byte(random)),
                                static_cast<uint8_t>(byte(random)),
                                static_cast<uint8_t>(byte(random))};
        float normal[3] = {direction(random), direction(random), direction(random) + 0.1f};
        const float length =
            std::sqrt(normal[0] * normal[0] + normal[1] * normal[1] + normal[2] * normal[2]);
        for (float& n : normal) n /= length;
        cloud.add(coordinate(random), coordinate(random), coordinate(random) * 0.1, rgb,
                  reflection(random), normal);
    }
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
    for (int i = first; i < first + count; ++i) {
        const zul_Point p = pointOf(cloud, i);
        part.add(p.position[0], p.position[1], p.position[2], {p.color[0], p.color[1], p.color[2]},
                 p.reflection, {p.normal[0], p.normal[1], p.normal[2]});
    }
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

// Writes the cloud through the file writer with the sync marker of encodeStream's seed; 0 keeps
// the default chunk size. Fails the test on any refusal.
inline void writeCloud(const std::string& path, const zul_DataType& dataType,
                       const zul_Header2* header, int chunkSize, const PointCloud& cloud) {
    zul_out_Context writer = nullptr;
    zul_test_useFixedRandomSeed(true, 5489);
    const zul_Status opened = zul_out_open2(&writer, path.c_str(), &dataType, header);
    zul_test_useFixedRandomSeed(false, 0);
    ASSERT_EQ(opened, zul_STATUS_OK);
    if (chunkSize > 0) {
        ASSERT_EQ(zul_out_setChunkSize(writer, chunkSize), zul_STATUS_OK);
    }
    for (int i = 0; i < cloud.size(); ++i) {
        const zul_Point p = pointOf(cloud, i);
        ASSERT_EQ(zul_out_writePoint(writer, &p), zul_STATUS_OK) << "point " << i;
    }
    ASSERT_EQ(zul_out_close(&writer), zul_STATUS_OK);
}

// The exact bytes the encoder writes and the exact points the decoder returns, pinned by SHA-256
// for fixed-seed clouds over every attribute combination, both versions and several chunk sizes.
// The hashes were recorded from the straightforward first implementation; any faster code must
// reproduce them bit for bit. A mismatch prints the new hash, never update it without knowing why.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "support/file_stream.h"
#include "support/sha256.h"
#include "support/stream_codec.h"

namespace {

// A small generator whose sequence is the same on every platform (the standard distributions are
// not).
struct SplitMix {
    uint64_t state;
    uint64_t next() {
        uint64_t z = (state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    double unit() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }  // [0, 1)
    double between(double low, double high) { return low + (high - low) * unit(); }
    int below(int n) { return static_cast<int>(next() % static_cast<uint64_t>(n)); }
};

const int kPoints = 20000;
const int kMaxReflection = 1000;

// Attributes common to every kind of cloud: random colours, reflections that leave the range now
// and then, unit normals with the axes among them.
void addPoint(PointCloud& cloud, SplitMix& random, double x, double y, double z) {
    const uint8_t rgb[3] = {static_cast<uint8_t>(random.next()),
                            static_cast<uint8_t>(random.next()),
                            static_cast<uint8_t>(random.next())};
    const int i = cloud.size();
    const int32_t reflection =
        i % 11 == 0 ? random.below(4) : random.below(kMaxReflection + 11) - 5;
    float normal[3];
    if (i % 17 == 0) {
        normal[0] = normal[1] = normal[2] = 0;
        normal[(i / 17) % 3] = (i / 51) % 2 ? -1.0f : 1.0f;
    } else {
        double v[3], length = 0;
        do {
            for (double& c : v) c = random.between(-1, 1);
            length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
        } while (length < 0.01 || length > 1);
        for (int k = 0; k < 3; ++k) normal[k] = static_cast<float>(v[k] / length);
    }
    cloud.add(x, y, z, rgb, reflection, normal);
}

// Uniform over a box 80 m wide around the origin.
PointCloud box(SplitMix& random) {
    PointCloud cloud;
    for (int i = 0; i < kPoints; ++i)
        addPoint(cloud, random, random.between(-40, 40), random.between(-40, 40),
                 random.between(-5, 35));
    return cloud;
}

// A dense random walk far from the origin, as a scanner sweeping a surface.
PointCloud walk(SplitMix& random) {
    PointCloud cloud;
    double p[3] = {123456.789, -98765.4321, 250.0};
    for (int i = 0; i < kPoints; ++i) {
        for (double& c : p) c += random.between(-0.05, 0.05);
        addPoint(cloud, random, p[0], p[1], p[2]);
    }
    return cloud;
}

// Tight clumps around a few centres, a quarter of the points exact repeats of the one before.
PointCloud clumps(SplitMix& random) {
    PointCloud cloud;
    double centres[20][3];
    for (auto& centre : centres)
        for (double& c : centre) c = random.between(-500, 500);
    for (int i = 0; i < kPoints; ++i) {
        if (i > 0 && random.below(4) == 0) {
            const double* q = &cloud.positions[3 * static_cast<size_t>(i - 1)];
            addPoint(cloud, random, q[0], q[1], q[2]);
            continue;
        }
        const double* c = centres[random.below(20)];
        addPoint(cloud, random, c[0] + random.between(-0.3, 0.3), c[1] + random.between(-0.3, 0.3),
                 c[2] + random.between(-0.3, 0.3));
    }
    return cloud;
}

// A small cube at a coarse step, so that a chunk's key is short, with three points in ten
// exact repeats of an earlier one: many positions hold several points of different attributes.
PointCloud denseRepeats(SplitMix& random) {
    PointCloud cloud;
    for (int i = 0; i < kPoints; ++i) {
        if (i > 0 && random.below(10) < 3) {
            const double* q = &cloud.positions[3 * static_cast<size_t>(random.below(i))];
            addPoint(cloud, random, q[0], q[1], q[2]);
            continue;
        }
        addPoint(cloud, random, random.between(0, 1.5), random.between(0, 1.5),
                 random.between(0, 1.5));
    }
    return cloud;
}

// The first `count` points of a cloud cut into chunks of `size` points.
std::vector<PointCloud> cut(const PointCloud& cloud, int count, int size) {
    return chunksOf(sliceOf(cloud, 0, count), size);
}

void hashPoints(Sha256& hash, const zul_PointData& points) {
    const size_t n = static_cast<size_t>(points.numPoints);
    hash.add(&points.numPoints, sizeof points.numPoints);
    hash.add(points.positions, 3 * n * sizeof(double));
    if (points.colors) hash.add(points.colors, 3 * n);
    if (points.reflections) hash.add(points.reflections, n * sizeof(int32_t));
    if (points.normals) hash.add(points.normals, 3 * n * sizeof(float));
}

struct Case {
    zul_ColorMode color;
    bool reflection, normals, version2;
};

class ByteIdentity : public ::testing::TestWithParam<int> {};

struct Source {
    PointCloud (*make)(SplitMix&);
    float step;
};

// Encodes every source cut three ways (single points, a size that leaves a short last chunk,
// the whole cloud at once) and hashes the streams and the points decoded from them.
void hashStreams(const Case& c, const std::vector<Source>& sources, std::string& streamHex,
                 std::string& pointsHex) {
    // A version 2 frame: a 30 degree turn about z, scaled by 2 and moved.
    zul_Header2 header;
    zul_init_headers(nullptr, &header);
    header.hasScaling = header.hasRotation = header.hasTranslation = true;
    const double cosine = 2 * std::sqrt(3.0) / 2, sine = 2 * 0.5;
    const double matrix[16] = {cosine, sine, 0, 0, -sine, cosine, 0,   0,
                               0,      0,    2, 0, 10.5,  -3.25,  100, 1};
    std::copy(matrix, matrix + 16, header.transformation);

    Sha256 streamHash, pointsHash;
    SplitMix random{20261123};
    for (const Source& source : sources) {
        const PointCloud cloud = source.make(random);
        const zul_DataType type =
            makeDataType(source.step, c.color, c.reflection ? kMaxReflection : 0, c.normals);
        const std::vector<std::vector<PointCloud>> cuttings = {
            cut(cloud, 40, 1), cut(cloud, 3000, 97), cut(cloud, kPoints, kPoints)};
        for (std::vector<PointCloud> chunks : cuttings) {
            const EncodedStream stream = encodeStream(type, c.version2 ? &header : nullptr, chunks);
            ASSERT_EQ(stream.bodies.size(), chunks.size());
            streamHash.add(stream.signature);
            streamHash.add(stream.fileHeader);
            for (size_t i = 0; i < chunks.size(); ++i) {
                streamHash.add(stream.markers[i]);
                streamHash.add(stream.chunkHeaders[i]);
                streamHash.add(stream.bodies[i]);
            }
            for (int apply = 0; apply <= (c.version2 ? 1 : 0); ++apply) {
                Decoder decoder;
                decoder.start(stream, apply);
                for (size_t i = 0; i < chunks.size(); ++i) {
                    ASSERT_EQ(decoder.chunk(stream, i), zul_STATUS_OK);
                    hashPoints(pointsHash, decoder.points);
                }
            }
        }
    }
    streamHex = streamHash.hex();
    pointsHex = pointsHash.hex();
}

// The hashes of the stream bytes and of the decoded points of combination i: version 1 then 2,
// colour none, RGB565, RGB888, each without and with normals, each without and with reflection.
// clang-format off
const char* const kHashes[24][2] = {
    {"5c596ed042e734ba7c85ef08f8eb40742c5c8a75db41289ae1548248a0875f14", "884d44a1bdb466d76558960cfd6a5f97c17b5911c22573e62fb94961afc80a6e"},  // v1_none
    {"afdfa27f489c6ebf4cb36b6dd9a01a1ce8f502b1edb0ebf822a7c55723316ae7", "d85dbe6d2c90fb086e96d51307695ff2c8d7ea9718e35a5e7964e6a56ff87f6f"},  // v1_refl
    {"32e0fbaee32d5df568b6cfd2ecd625230cbab2d4f86c758036d1f69e3072e510", "4a9a3a923dccd7355be90448ec9eb57f8d7c99b368ed96f1798ba7baaba77b18"},  // v1_norm
    {"28996e5fb242fae147292830dc1f92699f355540b9dede436ce80064a2cc6abb", "56d004f0fce5ca79f6440f24b9ae5cca9a7be371b50d15685cd3579b82491ee7"},  // v1_refl_norm
    {"29497ffa4e270707be959dc3dcbea5ad00ae64e717a2721bc34e3f956018f243", "ce610f19f24c336c7c65b777d9babe6134ef6d390677df27f73b1e51d748d414"},  // v1_rgb565
    {"c7a7f7c86ab278bf17d4e120eecc60482716cf7bcca2f93b9129cc98044f33fa", "2062b8949a7c1ef03bb3c18ec83a372205dac2cd11ef3413ea76786472e1cca6"},  // v1_rgb565_refl
    {"e13848d5d6ccccf14e64156850861679b9eb4e2e8a86043f8f391c5cf6b83ff8", "d81d1e588e7f498a4c20ac42feaba87f8b4d95c2c6d8a45a9f532b83f8dd4b1f"},  // v1_rgb565_norm
    {"63e02bb6f58ece4a172733c67d2db0ca6e2cefa4c5a1f44e2dc4c825b66cc640", "c8001246da5f9e347185c03f342f64ed4fe58c902b6fba006665038d3137bf99"},  // v1_rgb565_refl_norm
    {"0abdbbd504fb51915f2620a2ff75ed20eb864c61d3b6f0d60e67d770fcf36642", "7d099ab02c61b167099b97933cd314e3d6a6c08f80a35ea1b385dced15a7e6f3"},  // v1_rgb888
    {"5ff313f13b62c2ec6f6aacab6d84f0823038422f79a3d03cc8ace848af75639d", "5b6aa521d8aaa45b6cbe168c0962645acf4a1bada1d0ee4be27a60425736a472"},  // v1_rgb888_refl
    {"0d1ed624f44269211ad00cbc6ae15336ea55cd1bea95f862da1c9a27ba16db89", "90b693d8f6e3b51395a69a5cc26f139cc78a9b4bf372f742a35b98104d529589"},  // v1_rgb888_norm
    {"fec1dae5b2d19fba6399623c17a69d77c9afba833ab4ee0c026668c28ca185ef", "fb7b7f5635a0a074fcff2a66eeecb4a858f6d7b010ae213730fbcf46e530a39b"},  // v1_rgb888_refl_norm
    {"1b941220bbf3e02d5da42c1985ea6aa253af927cd3a2bcea161ee57b6e6a0943", "b89fbaa101836f9703e2892507119ed34fdf9d5d50ccde9b1e31a72afb2b0cb7"},  // v2_none
    {"13f1808470f65f30e55b3ca372b261760e2bbf9109e908ecfcbdf593af6d6d6c", "942305b72ab247bfefd99f1b090fccf657cf1c6a173e29d822bac247f021f31f"},  // v2_refl
    {"ee8482c3c9bc4ba75a9a44dc76dc7681c857e3ee9d81739d26467b204d4645ff", "7976a7474c7195101279b14883cfba3b43e56007dff792b5e6f9874d1e483060"},  // v2_norm
    {"5aefb4328bb9cc23f9069236175ee7c4e4a815b04ae4fbebc4587e96bd697480", "899aa4816cc12649baf3ac1b11442bd1fffce6b0e8ef69fa37f5fbc9846254d3"},  // v2_refl_norm
    {"999e189e602c4d635d48b8795480ffb89a54aa5499765b43142ae3c4f647a55b", "f19180dc4509f7971ffd4e493021dd0e453d87c7e2ed7a55e583c4c41ddc9e5f"},  // v2_rgb565
    {"68c70b011eadbc444a93c20ed83be7d24afad158c997728c95d0b2ad5a52ecb7", "b8d1ede8628d4c7e5c108e2c3db09756304c7a5934659fd52486f3900cfb9e1f"},  // v2_rgb565_refl
    {"463c3981080302b8ec19ef45cdf456eb2aa22466571ada8e435843d2be72cebd", "8eb4e40c07727d668c58a0c32813f7b946199ed3c7d7b6c4439969d51fda9b72"},  // v2_rgb565_norm
    {"0df3924eabe0cc57b23acb4ed1217751c0cd8127e113adebd4c763beff5dc689", "aac2865b1f21120cd04c5c0e9db0e2b27e308dd732f326b3e52b8d705599721c"},  // v2_rgb565_refl_norm
    {"bc6a84faeba5dd1675c6a06166d479b1f3687409bc9ff277aa8d0fb332815437", "87d9f221de5b0d6b6cf09ded9ce164414099c6312ce2c18dd97fe23f098ff7cd"},  // v2_rgb888
    {"d269924f5309c3908161de5920db1202bbbb4e25d1ba6a470ca85f5153de4075", "85276a4813b9d756c4993a18c75de79cbe2ac2974b38dfece16ba0ce7a515d90"},  // v2_rgb888_refl
    {"f00399ee1df83fc8929fad05a8696c231a901e7d17e31bcb8dac60ef3379dd33", "ae28199cd587d32e04ced7d69066b3b2b3e9865b6a5d1b8a3d9e6b7a8acdcab1"},  // v2_rgb888_norm
    {"e75406b92073d6d913ce69453d92b58c5e000a7f80285171360caa9e310331c1", "8b47168df014cc59e324e794ec9a74647600b8e8eb9342b8d9535f3c10bddaa3"},  // v2_rgb888_refl_norm
};
// clang-format on

TEST_P(ByteIdentity, EncoderAndDecoderOutputIsUnchanged) {
    const int i = GetParam();
    const Case c = {static_cast<zul_ColorMode>(i / 4 % 3), i % 2 == 1, i / 2 % 2 == 1, i >= 12};
    std::string streamHex, pointsHex;
    hashStreams(c, {{box, 0.001f}, {walk, 0.0001f}, {clumps, 0.01f}}, streamHex, pointsHex);
    EXPECT_EQ(streamHex, kHashes[i][0]) << "stream bytes changed";
    EXPECT_EQ(pointsHex, kHashes[i][1]) << "decoded points changed";
}

INSTANTIATE_TEST_SUITE_P(AllAttributes, ByteIdentity, ::testing::Range(0, 24));

// Where points share a position, their order in the chunk is whatever the sort makes of the
// input; it must stay what it was, with every attribute riding on it.
TEST(ByteIdentity, RepeatedPositionsKeepTheirOrder) {
    const Case cases[] = {{zul_COLOR_RGB888, true, true, false},
                          {zul_COLOR_RGB565, true, true, true}};
    const char* const hashes[2][2] = {
        {"1428105742d1f2db470ca6fa9911827b93342a6b83e4e32193df578ee1e0a5bb",
         "8d3cc10671c0512b022507f05465320c592b83e828e20a20867c9d81926cc5ea"},
        {"e8dc02b75dca08907c8b6c511411f7b926deebdbcf65198ffee6e60c081990f3",
         "c42bac9eb7dbcebfe912896c607e02df1a007600bd45d9f78a7dd8d917eb9dd2"}};
    for (int v = 0; v < 2; ++v) {
        std::string streamHex, pointsHex;
        hashStreams(cases[v], {{denseRepeats, 0.01f}}, streamHex, pointsHex);
        EXPECT_EQ(streamHex, hashes[v][0]) << "version " << v + 1 << ": stream bytes changed";
        EXPECT_EQ(pointsHex, hashes[v][1]) << "version " << v + 1 << ": decoded points changed";
    }
}

}  // namespace

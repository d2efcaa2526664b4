// A C++ host: writes a ring of 10,000 points with colour and intensity to a file point by point,
// reads the file back and checks every point against what was written.
//
//   write_and_read_cpp [path]      (default: ring.zul)
//
// Points come back sorted, not in the order written; each one's height tells its index.
#include <cmath>
#include <cstdio>
#include <string>

#include "zul.hpp"

namespace {

const int kNumPoints = 10000;

zul_Point makePoint(int i) {
    const double angle = 0.0006283 * i;
    zul_Point p{};
    p.position[0] = 5.0 * std::cos(angle);
    p.position[1] = 5.0 * std::sin(angle);
    p.position[2] = 0.01 * i;
    p.color[0] = static_cast<uint8_t>(i), p.color[1] = static_cast<uint8_t>(i >> 8);
    p.color[2] = 200;
    p.reflection = i % 256;
    return p;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string path = argc > 1 ? argv[1] : "ring.zul";
    try {
        zul::Writer writer(path,
                           zul::DataType{}.step(0.001f).color(zul_COLOR_RGB888).reflection(255));
        for (int i = 0; i < kNumPoints; ++i) writer.write(makePoint(i));
        writer.close();  // the destructor would close too, but could not report a failure

        zul::Reader reader(path);
        int read = 0, wrong = 0;
        for (const zul_Point& point : reader) {
            const zul_Point expected =
                makePoint(static_cast<int>(std::lround(point.position[2] / 0.01)));
            wrong += std::fabs(point.position[0] - expected.position[0]) > 0.0005001 ||
                     std::fabs(point.position[1] - expected.position[1]) > 0.0005001 ||
                     point.color[0] != expected.color[0] || point.color[1] != expected.color[1] ||
                     point.reflection != expected.reflection;
            ++read;
        }
        std::printf("%s: %lld points in the file, %d read, %d wrong\n", path.c_str(),
                    static_cast<long long>(reader.numPoints()), read, wrong);
        return read == kNumPoints && wrong == 0 ? 0 : 1;
    } catch (const zul::Error& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
}

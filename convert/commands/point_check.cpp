#include "commands/point_check.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <tuple>

namespace zulconvert {

namespace {

struct Key {
    int64_t q[3];
    uint8_t color[3];
    int32_t reflection;
    bool operator<(const Key& o) const {
        return std::tie(q[0], q[1], q[2], color[0], color[1], color[2], reflection) <
               std::tie(o.q[0], o.q[1], o.q[2], o.color[0], o.color[1], o.color[2], o.reflection);
    }
    bool operator==(const Key& o) const { return !(*this < o) && !(o < *this); }
};

}  // namespace

int64_t gridCell(double value, double step) {
    return static_cast<int64_t>(std::floor((step * 0.5 + value) / step));
}

double angleDegrees(const float a[3], const float b[3]) {
    double dot = 0, la = 0, lb = 0;
    for (int i = 0; i < 3; ++i) {
        dot += double{a[i]} * b[i];
        la += double{a[i]} * a[i];
        lb += double{b[i]} * b[i];
    }
    return std::acos(std::clamp(dot / std::sqrt(la * lb), -1.0, 1.0)) * 180.0 / 3.141592653589793;
}

void checkChunk(const zul_Point* original, const std::vector<zul_Point>& decoded, double step,
                PointErrors& errors) {
    const size_t n = decoded.size();
    std::vector<Key> expected(n), got(n);
    for (size_t i = 0; i < n; ++i) {
        for (int a = 0; a < 3; ++a) {
            expected[i].q[a] = gridCell(original[i].position[a], step);
            got[i].q[a] = std::llround(decoded[i].position[a] / step);
        }
        std::copy(original[i].color, original[i].color + 3, expected[i].color);
        std::copy(decoded[i].color, decoded[i].color + 3, got[i].color);
        expected[i].reflection = original[i].reflection;
        got[i].reflection = decoded[i].reflection;
    }
    std::vector<size_t> e(n), g(n);
    std::iota(e.begin(), e.end(), 0);
    std::iota(g.begin(), g.end(), 0);
    std::sort(e.begin(), e.end(), [&](size_t a, size_t b) { return expected[a] < expected[b]; });
    std::sort(g.begin(), g.end(), [&](size_t a, size_t b) { return got[a] < got[b]; });
    for (size_t i = 0; i < n;) {
        // A run of equal keys: pair each decoded normal with the closest original one left.
        size_t end = i + 1;
        while (end < n && expected[e[end]] == expected[e[i]]) ++end;
        for (size_t k = i; k < end; ++k) {
            if (!(got[g[k]] == expected[e[i]])) {
                ++errors.mismatches;
                continue;
            }
            const zul_Point& d = decoded[g[k]];
            size_t best = k;
            double bestAngle = 1e9;
            for (size_t m = k; m < end; ++m) {
                const double angle = angleDegrees(original[e[m]].normal, d.normal);
                if (angle < bestAngle) {
                    bestAngle = angle;
                    best = m;
                }
            }
            std::swap(e[k], e[best]);
            const zul_Point& o = original[e[k]];
            for (int a = 0; a < 3; ++a) {
                errors.position =
                    std::max(errors.position, std::fabs(d.position[a] - o.position[a]) / step);
            }
            errors.normal = std::max(errors.normal, bestAngle);
        }
        i = end;
    }
}

}  // namespace zulconvert

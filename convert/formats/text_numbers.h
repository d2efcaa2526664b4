// Numbers in text formats: as many decimals as keep a position well inside its step.
#pragma once

#include <cmath>
#include <cstdio>
#include <string>

namespace zulformats {

// Decimals that put the printed value within a tenth of `step` of the exact one.
inline int decimalsFor(double step) {
    if (!(step > 0)) return 6;
    const int d = static_cast<int>(std::ceil(-std::log10(step))) + 1;
    return d < 0 ? 0 : d > 17 ? 17 : d;
}

// Appends `value` with `decimals` decimals ("nan" and "inf" as such).
inline void appendFixed(std::string& out, double value, int decimals) {
    char text[64];
    const int n = std::snprintf(text, sizeof text, "%.*f", decimals, value);
    out.append(text, n > 0 && n < static_cast<int>(sizeof text) ? n : 0);
}

// Appends a float with the shortest digits that read back as the same float.
inline void appendFloat(std::string& out, float value) {
    char text[32];
    const int n = std::snprintf(text, sizeof text, "%.9g", value);
    out.append(text, n > 0 && n < static_cast<int>(sizeof text) ? n : 0);
}

}  // namespace zulformats

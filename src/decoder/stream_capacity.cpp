#include "decoder/stream_capacity.h"

namespace zullib {

int64_t fewestBitsPerValue(const std::vector<int>& table, int absoluteBits) {
    const int64_t entries = static_cast<int64_t>(table.size());
    int64_t fewest = INT64_MAX;
    for (int64_t i = 0; i < entries; ++i) {
        // Truncated unary: the last prefix has no closing zero bit.
        const int64_t prefixBits = i < entries - 1 ? i + 1 : i;
        const int64_t payloadBits = table[i] == 255 ? absoluteBits : table[i];
        if (prefixBits + payloadBits < fewest) fewest = prefixBits + payloadBits;
    }
    return fewest;
}

}  // namespace zullib

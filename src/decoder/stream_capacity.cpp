#include "decoder/stream_capacity.h"

namespace zullib {

CodeLengths codeLengths(const std::vector<int>& table, int absoluteBits) {
    const int64_t entries = static_cast<int64_t>(table.size());
    CodeLengths lengths = {INT64_MAX, 0};
    for (int64_t i = 0; i < entries; ++i) {
        // Truncated unary: the last prefix has no closing zero bit.
        const int64_t prefixBits = i < entries - 1 ? i + 1 : i;
        const int64_t bits = prefixBits + (table[i] == 255 ? absoluteBits : table[i]);
        if (bits < lengths.fewest) lengths.fewest = bits;
        if (bits > lengths.most) lengths.most = bits;
    }
    return lengths;
}

}  // namespace zullib

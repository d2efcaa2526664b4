#include "entropy/data_stream_writer.h"

namespace zullib {

void writeStreamTables(BitStreamOut& out, const std::vector<int>* tables, int numTables) {
    for (int t = 0; t < numTables; ++t) {
        out.writeByteAlignedUInt8(static_cast<uint8_t>(tables[t].size()));
        for (int entry : tables[t]) out.writeByteAlignedUInt8(static_cast<uint8_t>(entry));
    }
}

}  // namespace zullib

// The sixteen random bytes that stand in the file header and in front of every chunk of a stream.
#pragma once

#include "zul.h"

namespace zullib {

class ZUL_API zul_SyncMarker {
public:
    static const int kSize = ZUL_SYNC_MARKER_SIZE;

    // Not set; the bytes are not initialised.
    zul_SyncMarker();
    // Draws a new value from a fresh RandomGenerator (its first four outputs) and sets isSet.
    void randomize();
    // Copies sixteen bytes and sets isSet.
    void setBytes(const char* source);
    // True exactly if all sixteen bytes equal those given; isSet plays no part.
    bool equals(const char* other) const;

    bool isSet;
    char bytes[kSize];
};

}  // namespace zullib

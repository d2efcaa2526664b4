// The eight bytes that open a stream: "ZUL", the format version, 0x0D 0x0A 0x1A 0x0A.
#pragma once

#include "zul.h"

namespace zullib {

class ZUL_API zul_FileSignature {
public:
    static const int kSize = 8;

    // Version byte 1 if `version` is 1, and 2 for every other value.
    explicit zul_FileSignature(int version);
    // Copies eight bytes as they are.
    explicit zul_FileSignature(const char* source);

    char bytes[kSize];
};

// The version a signature announces: byte 3 as a signed 8-bit number if the other seven bytes are
// this format's, else -1. A byte 3 of 0x80 or above is negative, so it too reads as a foreign
// signature rather than as a bad version.
int signatureVersion(const char* signature);

}  // namespace zullib

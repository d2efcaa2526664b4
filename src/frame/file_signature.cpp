#include "frame/file_signature.h"

#include <cstdint>
#include <cstring>

namespace zullib {

namespace {
const char kFrame[zul_FileSignature::kSize] = {'Z', 'U', 'L', 0, 0x0D, 0x0A, 0x1A, 0x0A};
}

zul_FileSignature::zul_FileSignature(int version) {
    std::memcpy(bytes, kFrame, kSize);
    bytes[3] = static_cast<char>(version == 1 ? 1 : 2);
}

zul_FileSignature::zul_FileSignature(const char* source) { std::memcpy(bytes, source, kSize); }

int signatureVersion(const char* signature) {
    if (std::memcmp(signature, kFrame, 3) != 0 || std::memcmp(signature + 4, kFrame + 4, 4) != 0)
        return -1;
    const int version = static_cast<int8_t>(signature[3]);
    return version < 0 ? -1 : version;
}

}  // namespace zullib

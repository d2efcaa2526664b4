#include "frame/sync_marker.h"

#include <cstring>

#include "frame/random_generator.h"

namespace zullib {

zul_SyncMarker::zul_SyncMarker() : isSet(false) {}

void zul_SyncMarker::randomize() {
    RandomGenerator generator;
    generator.getRandomBytes(bytes, kSize);
    isSet = true;
}

void zul_SyncMarker::setBytes(const char* source) {
    std::memcpy(bytes, source, kSize);
    isSet = true;
}

bool zul_SyncMarker::equals(const char* other) const {
    return std::memcmp(bytes, other, kSize) == 0;
}

}  // namespace zullib

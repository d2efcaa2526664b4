#include "planner/stream_marker.h"

#include <xxhash.h>

#include <cstring>

namespace zulplan {

struct StreamMarker::State {
    XXH3_state_t* hash = XXH3_createState();
    ~State() { XXH3_freeState(hash); }
};

namespace {

// A fixed tag first, so that the marker of an empty stream is not a hash of nothing.
const char kTag[] = "zul stream marker 1";

template <class T>
void put(XXH3_state_t* hash, const T& value) {
    XXH3_128bits_update(hash, &value, sizeof value);
}

}  // namespace

StreamMarker::StreamMarker(const zul_DataType& type, const zul_Header2* header)
    : state_(std::make_unique<State>()), type_(type) {
    if (state_->hash == nullptr) throw std::bad_alloc();
    XXH3_128bits_reset(state_->hash);
    XXH3_128bits_update(state_->hash, kTag, sizeof kTag);
    // Field by field: the records' padding holds nothing to hash.
    put(state_->hash, type.quantizationStep);
    put(state_->hash, static_cast<int32_t>(type.colorMode));
    put(state_->hash, static_cast<int32_t>(type.reflectionMode));
    put(state_->hash, type.maxReflection);
    put(state_->hash, static_cast<int32_t>(type.normalMode));
    const bool enabled = header != nullptr && header->enabled;
    put(state_->hash, static_cast<uint8_t>(enabled));
    if (enabled) {
        put(state_->hash, static_cast<int32_t>(header->sensorMount));
        put(state_->hash, static_cast<int32_t>(header->sensorType));
        const uint8_t flags[4] = {header->hasScaling, header->hasUnsupportedScaling,
                                  header->hasRotation, header->hasTranslation};
        put(state_->hash, flags);
        put(state_->hash, header->transformation);
    }
}

StreamMarker::~StreamMarker() = default;

void StreamMarker::add(const zul_Point& point) {
    if (full()) return;
    ++taken_;
    put(state_->hash, point.position);
    if (type_.colorMode != zul_COLOR_NONE) put(state_->hash, point.color);
    if (type_.reflectionMode != zul_REFLECTION_NONE) put(state_->hash, point.reflection);
    if (type_.normalMode != zul_NORMAL_NONE) put(state_->hash, point.normal);
}

void StreamMarker::add(const double* positions, const uint8_t* colors, const int32_t* reflections,
                       const float* normals, size_t count) {
    for (size_t i = 0; i < count && !full(); ++i) {
        zul_Point point = {};
        std::memcpy(point.position, positions + 3 * i, sizeof point.position);
        if (colors != nullptr) std::memcpy(point.color, colors + 3 * i, sizeof point.color);
        if (reflections != nullptr) point.reflection = reflections[i];
        if (normals != nullptr) std::memcpy(point.normal, normals + 3 * i, sizeof point.normal);
        add(point);
    }
}

void StreamMarker::finish(char marker[ZUL_SYNC_MARKER_SIZE]) const {
    static_assert(sizeof(XXH128_canonical_t) == ZUL_SYNC_MARKER_SIZE, "a marker is 128 bits");
    XXH128_canonical_t bytes;
    XXH128_canonicalFromHash(&bytes, XXH3_128bits_digest(state_->hash));
    std::memcpy(marker, bytes.digest, ZUL_SYNC_MARKER_SIZE);
}

}  // namespace zulplan

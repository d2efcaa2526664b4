// The sync marker of a stream drawn from what the stream holds, so that the same points, data type
// and sensor header give the same file on every run and at every thread count: a 128-bit hash
// (XXH3) of the data type, the sensor header and the first points, which looks as random as a
// marker drawn from the device does, and is drawn once a stream.
#pragma once

#include <cstddef>
#include <memory>

#include "zul.h"

namespace zulplan {

// Points whose values go into the marker at most: the start of a stream, enough to tell clouds
// apart, and never more than a writer holds before its first chunk.
constexpr size_t kMarkerPoints = 65536;

class StreamMarker {
public:
    // A marker for a stream of `type` with the optional sensor `header`.
    StreamMarker(const zul_DataType& type, const zul_Header2* header);
    ~StreamMarker();
    StreamMarker(const StreamMarker&) = delete;
    StreamMarker& operator=(const StreamMarker&) = delete;

    // Takes the values of the next point that the type holds; after `limit` points, nothing.
    void add(const zul_Point& point);
    // Positions (3 a point) and the attributes the type has (null for the others), `count` points.
    void add(const double* positions, const uint8_t* colors, const int32_t* reflections,
             const float* normals, size_t count);
    // Sets the limit of points taken (kMarkerPoints unless told).
    void limit(size_t points) { limit_ = points; }
    bool full() const { return taken_ >= limit_; }
    // The marker, ZUL_SYNC_MARKER_SIZE bytes.
    void finish(char marker[ZUL_SYNC_MARKER_SIZE]) const;

private:
    struct State;
    std::unique_ptr<State> state_;
    zul_DataType type_;
    size_t taken_ = 0, limit_ = kMarkerPoints;
};

}  // namespace zulplan

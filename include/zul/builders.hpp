/* Part of zul.hpp: builders of the records zul_DataType and zul_Header2. */
#ifndef ZUL_BUILDERS_HPP
#define ZUL_BUILDERS_HPP

#include <array>
#include <cstddef>
#include <cstdint>

#include "zul.h"

namespace zul {

/* Builds a zul_DataType. It starts as the library's default (step 0.0001, no attributes); each
 * call sets one thing and returns the builder. Nothing is checked until the record is used:
 * opening an Encoder or a Writer with an invalid one throws zul_STATUS_INVALID_ARGUMENT. */
class DataType {
public:
    DataType() noexcept { zul_init_headers(&value_, nullptr); }
    DataType(const zul_DataType& value) noexcept : value_(value) {}

    DataType& step(float quantizationStep) noexcept {
        value_.quantizationStep = quantizationStep;
        return *this;
    }
    DataType& color(zul_ColorMode mode) noexcept {
        value_.colorMode = mode;
        return *this;
    }
    /* Stores a reflection value a point, clamped to 0 .. maxReflection (at least 1). */
    DataType& reflection(std::int32_t maxReflection) noexcept {
        value_.reflectionMode = zul_REFLECTION_CLAMPED;
        value_.maxReflection = maxReflection;
        return *this;
    }
    DataType& noReflection() noexcept {
        value_.reflectionMode = zul_REFLECTION_NONE;
        value_.maxReflection = 0;
        return *this;
    }
    DataType& normals(bool stored = true) noexcept {
        value_.normalMode = stored ? zul_NORMAL_SPHERICAL : zul_NORMAL_NONE;
        return *this;
    }

    const zul_DataType& get() const noexcept { return value_; }
    operator zul_DataType() const noexcept { return value_; }

private:
    zul_DataType value_;
};

/* Builds an enabled zul_Header2, which makes a version 2 stream whose reader brings the points
 * through  x' = scale * R x + t. It starts as the identity with sensor mount and type 0. Each
 * setter also sets the flag that permits it; scale and rotation may come in either order. */
class Header2 {
public:
    Header2() noexcept { zul_init_headers(nullptr, &value_); }

    /* A uniform scale greater than 0. */
    Header2& scale(double factor) noexcept {
        value_.hasScaling = true;
        scale_ = factor;
        setLinearPart();
        return *this;
    }
    /* A proper rotation (orthonormal, determinant 1), given row after row. */
    Header2& rotation(const std::array<double, 9>& rowAfterRow) noexcept {
        value_.hasRotation = true;
        rotation_ = rowAfterRow;
        setLinearPart();
        return *this;
    }
    Header2& translation(double x, double y, double z) noexcept {
        value_.hasTranslation = true;
        value_.transformation[12] = x;
        value_.transformation[13] = y;
        value_.transformation[14] = z;
        return *this;
    }
    Header2& mount(zul_SensorMount sensorMount) noexcept {
        value_.sensorMount = sensorMount;
        return *this;
    }
    Header2& type(zul_SensorType sensorType) noexcept {
        value_.sensorType = sensorType;
        return *this;
    }

    const zul_Header2& get() const noexcept { return value_; }
    operator zul_Header2() const noexcept { return value_; }

private:
    // The matrix is stored column after column: element (row r, column c) is at 4c + r.
    void setLinearPart() noexcept {
        for (std::size_t r = 0; r < 3; ++r) {
            for (std::size_t c = 0; c < 3; ++c)
                value_.transformation[4 * c + r] = scale_ * rotation_[3 * r + c];
        }
    }

    zul_Header2 value_;
    double scale_ = 1.0;
    std::array<double, 9> rotation_ = {1, 0, 0, 0, 1, 0, 0, 0, 1};
};

}  // namespace zul

#endif /* ZUL_BUILDERS_HPP */

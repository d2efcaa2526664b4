// KITTI-style .bin scans: records of four little-endian float32, x y z and an intensity
// (usually 0 .. 1), and nothing else in the file.
#include "formats/byte_input.h"
#include "formats/cloud.h"

namespace zulformats {

namespace {

constexpr size_t kRecordSize = 16;

class KittiReader : public CloudReader {
public:
    explicit KittiReader(const std::string& path) : in_(path) {
        if (in_.size() % kRecordSize != 0) {
            in_.fail(
                "the file is not a whole number of 16-byte points (truncated, or not a "
                "KITTI scan)");
        }
        layout_.hasIntensity = true;
        layout_.floatIntensity = true;
        layout_.pointCount = static_cast<int64_t>(in_.size() / kRecordSize);
    }

    bool read(zul_Point& point) override {
        unsigned char record[kRecordSize];
        if (in_.readSome(record, kRecordSize) == 0) return false;
        for (int axis = 0; axis < 3; ++axis)
            point.position[axis] = loadLittle<float>(record + 4 * axis);
        intensity_ = loadLittle<float>(record + 12);
        return true;
    }

    uint64_t bytesRead() const override { return in_.position(); }
    uint64_t fileSize() const override { return in_.size(); }

private:
    ByteInput in_;
};

}  // namespace

std::unique_ptr<CloudReader> openKittiReader(const std::string& path) {
    return std::make_unique<KittiReader>(path);
}

}  // namespace zulformats

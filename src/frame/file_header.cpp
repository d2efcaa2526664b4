#include "frame/file_header.h"

#include <cstdint>
#include <cstring>

#include "frame/data_check.h"
#include "frame/data_type.h"
#include "frame/header2.h"
#include "frame/stored_bytes.h"

namespace zullib {

namespace {
// Offsets shared by both versions.
const int kColorModeAt = 0;
const int kReflectionModeAt = 1;
const int kNormalModeAt = 2;
const int kStepAt = 4;
const int kMaxReflectionAt = 8;
const int kMarkerAtV1 = 12;
// Offsets of the sensor header in version 2.
const int kSensorMountAt = 12;
const int kSensorTypeAt = 13;
const int kFlagsAt = 14;  // scaling, unsupported scaling, rotation, translation
const int kMatrixAt = 20;
const int kMarkerAtV2 = 148;

// Mode and sensor bytes are read as signed 8-bit numbers and widened, so a stored 0xFF arrives as
// -1 (and fails the unsigned comparisons of DataType::isValid).
int32_t signedByte(unsigned char byte) { return static_cast<int8_t>(byte); }
}  // namespace

int fileHeaderSize(int version) {
    if (version == 1) return kFileHeaderSizeV1;
    if (version == 2) return kFileHeaderSizeV2;
    return 0;
}

int writeFileHeader(unsigned char* out, const zul_DataType& dataType, const zul_Header2& header,
                    const zul_SyncMarker& marker) {
    const bool version2 = storedFlag(header.enabled);
    const int size = version2 ? kFileHeaderSizeV2 : kFileHeaderSizeV1;
    std::memset(out, 0, size);
    out[kColorModeAt] = static_cast<unsigned char>(dataType.colorMode);
    out[kReflectionModeAt] = static_cast<unsigned char>(dataType.reflectionMode);
    out[kNormalModeAt] = static_cast<unsigned char>(dataType.normalMode);
    storeValueLE(out + kStepAt, dataType.quantizationStep);
    storeLE(out + kMaxReflectionAt, static_cast<uint32_t>(dataType.maxReflection), 4);
    if (!version2) {
        std::memcpy(out + kMarkerAtV1, marker.bytes, zul_SyncMarker::kSize);
        return size;
    }
    out[kSensorMountAt] = static_cast<unsigned char>(header.sensorMount);
    out[kSensorTypeAt] = static_cast<unsigned char>(header.sensorType);
    out[kFlagsAt + 0] = storedByte(header.hasScaling);
    out[kFlagsAt + 1] = storedByte(header.hasUnsupportedScaling);
    out[kFlagsAt + 2] = storedByte(header.hasRotation);
    out[kFlagsAt + 3] = storedByte(header.hasTranslation);
    for (int i = 0; i < 16; ++i) storeValueLE(out + kMatrixAt + 8 * i, header.transformation[i]);
    std::memcpy(out + kMarkerAtV2, marker.bytes, zul_SyncMarker::kSize);
    return size;
}

zul_Status readFileHeader(const unsigned char* in, int version, zul_DataType& dataType,
                          zul_Header2& header, zul_SyncMarker& marker) {
    const bool version2 = version == 2;
    DataType::init(dataType, loadValueLE<float>(in + kStepAt),
                   static_cast<zul_ColorMode>(signedByte(in[kColorModeAt])),
                   static_cast<zul_ReflectionMode>(signedByte(in[kReflectionModeAt])),
                   static_cast<int32_t>(loadLE(in + kMaxReflectionAt, 4)),
                   static_cast<zul_NormalMode>(signedByte(in[kNormalModeAt])));
    marker.setBytes(reinterpret_cast<const char*>(in + (version2 ? kMarkerAtV2 : kMarkerAtV1)));
    header = Header2::disabled();
    if (version2) {
        header.enabled = true;
        header.sensorMount = static_cast<zul_SensorMount>(signedByte(in[kSensorMountAt]));
        header.sensorType = static_cast<zul_SensorType>(signedByte(in[kSensorTypeAt]));
        // Any flag byte but 0 counts as true.
        header.hasScaling = in[kFlagsAt + 0] != 0;
        header.hasUnsupportedScaling = in[kFlagsAt + 1] != 0;
        header.hasRotation = in[kFlagsAt + 2] != 0;
        header.hasTranslation = in[kFlagsAt + 3] != 0;
        for (int i = 0; i < 16; ++i)
            header.transformation[i] = loadValueLE<double>(in + kMatrixAt + 8 * i);
    }
    ZUL_REFUSE_UNLESS(DataType::isValid(dataType));
    // Version 1 has the disabled header, which passes; the sensor pair is not a reader's concern.
    ZUL_REFUSE_UNLESS(Header2::isValid(header, false));
    return zul_STATUS_OK;
}

}  // namespace zullib

#include "scan_streams.h"

SyntheticScan& benchScan() {
    static SyntheticScan scan = makeSyntheticScan(kScanPoints);
    return scan;
}

zul_DataType benchDataType(bool colorAndReflection, bool normals) {
    zul_DataType dataType;
    zul_init_headers(&dataType, nullptr);
    dataType.quantizationStep = 0.001f;
    if (colorAndReflection) {
        dataType.colorMode = zul_COLOR_RGB888;
        dataType.reflectionMode = zul_REFLECTION_CLAMPED;
        dataType.maxReflection = 255;
    }
    if (normals) dataType.normalMode = zul_NORMAL_SPHERICAL;
    return dataType;
}

size_t EncodedScan::bytes() const {
    size_t total = head.size();
    for (const std::string& chunk : chunks) total += chunk.size();
    return total;
}

EncodedScan encodeScanInChunks(SyntheticScan& scan, const zul_DataType& dataType) {
    EncodedScan encoded;
    zul_enc_Context encoder = nullptr;
    const char* bytes = nullptr;
    int size = 0;
    if (zul_enc_open(&encoder, &dataType) != zul_STATUS_OK) return EncodedScan();
    bool ok = zul_enc_createFileSignature(encoder, &bytes) == zul_STATUS_OK;
    if (ok) encoded.head.assign(bytes, 8);
    ok = ok && zul_enc_encodeFileHeader(encoder, &bytes, &size) == zul_STATUS_OK;
    if (ok) encoded.head.append(bytes, static_cast<size_t>(size));
    for (int first = 0; ok && first < scan.size(); first += kScanChunk) {
        const zul_PointData chunk = scan.slice(first, kScanChunk);
        ok = zul_enc_encodeChunk(encoder, &bytes, &size, &chunk) == zul_STATUS_OK;
        if (ok) encoded.chunks.emplace_back(bytes, static_cast<size_t>(size));
    }
    zul_enc_close(&encoder);
    return ok ? encoded : EncodedScan();
}

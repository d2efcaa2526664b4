#include "encoder/enc_context.h"

#include "frame/stored_bytes.h"

zul_enc_ContextStruct::zul_enc_ContextStruct(const zul_DataType& dataType,
                                             const zul_Header2& header)
    : dataType(dataType),
      header(header),
      fileSignature(zullib::storedFlag(header.enabled) ? 2 : 1) {
    // The marker is drawn once, here, so every chunk of the stream carries the same bytes.
    syncMarker.randomize();
}

zul_enc_ContextStruct::zul_enc_ContextStruct(const zul_DataType& dataType,
                                             const zul_Header2& header,
                                             const zullib::zul_SyncMarker& syncMarker)
    : dataType(dataType),
      header(header),
      fileSignature(zullib::storedFlag(header.enabled) ? 2 : 1),
      syncMarker(syncMarker) {}

zul_enc_ContextStruct::~zul_enc_ContextStruct() = default;

const char* zul_enc_ContextStruct::getFileSignature() const { return fileSignature.bytes; }

void zul_enc_ContextStruct::encodeFileHeader(const char** bytes, int* size) {
    unsigned char* out = zullib::storedFlag(header.enabled) ? fileHeaderV2 : fileHeaderV1;
    *size = zullib::writeFileHeader(out, dataType, header, syncMarker);
    *bytes = reinterpret_cast<const char*>(out);
}

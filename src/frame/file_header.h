// The file header, the one place where the two format versions differ. Version 1 (28 bytes) holds
// the data type and the sync marker; version 2 (164 bytes) adds the sensor header between them.
// Everything past the file header is the same in both versions.
#pragma once

#include "frame/sync_marker.h"
#include "zul.h"

namespace zullib {

const int kFileHeaderSizeV1 = ZUL_FILE_HEADER_SIZE_V1;
const int kFileHeaderSizeV2 = ZUL_FILE_HEADER_SIZE_V2;
const int kMaxFileHeaderSize = kFileHeaderSizeV2;

// 28 for version 1, 164 for version 2, 0 for any other version.
int fileHeaderSize(int version);

// Writes the header of the version that `header.enabled` selects into `out` (room for
// kMaxFileHeaderSize bytes) and returns its size. Reserved bytes are written as 0; reserved words
// and the enabled byte are not stored.
int writeFileHeader(unsigned char* out, const zul_DataType& dataType, const zul_Header2& header,
                    const zul_SyncMarker& marker);

// Reads a header of `version` (1 or 2): the data type, the sensor header (Header2::disabled() for
// version 1) and the marker are written whatever the outcome. Returns zul_STATUS_CORRUPT_DATA if
// the data type is invalid or, in version 2, the matrix does not pass its flags; the sensor
// mount and type are not checked. Else zul_STATUS_OK.
zul_Status readFileHeader(const unsigned char* in, int version, zul_DataType& dataType,
                          zul_Header2& header, zul_SyncMarker& marker);

}  // namespace zullib

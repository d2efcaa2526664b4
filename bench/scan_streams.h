// What the encode and decode benchmarks share: the scan, the three attribute sets they time, and
// the scan encoded in chunks.
#pragma once

#include <string>
#include <vector>

#include "synthetic_scan.h"
#include "zul.h"

const int kScanPoints = 1000000;
const int kScanChunk = 10000;

// The scan of kScanPoints points, made once.
SyntheticScan& benchScan();

// Step 1 mm; RGB888 and a reflection of at most 255 if asked; spherical normals if asked.
zul_DataType benchDataType(bool colorAndReflection, bool normals);

// A whole stream: signature, file header, then one chunk of kScanChunk points after another.
struct EncodedScan {
    std::string head;  // signature and file header
    std::vector<std::string> chunks;
    size_t bytes() const;
};

// Empty on any failure.
EncodedScan encodeScanInChunks(SyntheticScan& scan, const zul_DataType& dataType);

// The coordinate system functions of crs_text.h that need PROJ live in a module of their
// own, libzul_crs.so, which the formats load on first use: PROJ and what it loads in turn (TIFF,
// network and TLS libraries) then cost a program nothing until it reads or writes a system.
#pragma once

#include <string>

#include "formats/crs_text.h"

namespace zulcrs {

constexpr int kVersion = 1;

// What the module hands out: its version (kVersion) and the functions of crs_text.h.
struct Functions {
    int version;
    std::string (*crsWkt)(const std::string& crs, zulformats::WktDialect dialect,
                          std::string& problem);
    bool (*epsgCodes)(const std::string& crs, zulformats::EpsgCodes& codes, std::string& problem);
    std::string (*crsOfGeoKeys)(const zulformats::GeoKeyCodes& keys, std::string& problem);
};

std::string crsWkt(const std::string& crs, zulformats::WktDialect dialect, std::string& problem);
bool epsgCodes(const std::string& crs, zulformats::EpsgCodes& codes, std::string& problem);
std::string crsOfGeoKeys(const zulformats::GeoKeyCodes& keys, std::string& problem);

}  // namespace zulcrs

// The module's one exported symbol.
extern "C" const zulcrs::Functions* zul_crs_functions();

// Its file name.
#define ZUL_CRS_MODULE_NAME "libzul_crs.so"

// Coordinate reference systems through PROJ: the text of a .prj file beside a point cloud (the
// convention GIS tools read), and the forms LAS needs.
#pragma once

#include <string>

namespace zulformats {

enum class WktDialect { Esri, Ogc };

// `crs` (any text PROJ reads: "EPSG:2903", WKT) as WKT of `dialect` on one line; empty, with
// `problem` set, if PROJ cannot read it.
std::string crsWkt(const std::string& crs, WktDialect dialect, std::string& problem);

struct EpsgCodes {
    int horizontal = 0;  // a projected or geographic system
    bool geographic = false;
    int vertical = 0;  // 0: none
    // The EPSG code of the linear unit the system has where its code's own is another (GeoTIFF's
    // ProjLinearUnitsGeoKey and VerticalUnitsGeoKey), else 0.
    int linearUnit = 0, verticalUnit = 0;
};

// The EPSG codes of `crs`, as PROJ identifies them, or as codes of systems that differ from it
// in their linear unit alone, with that unit; false, with `problem` set, if it cannot.
bool epsgCodes(const std::string& crs, EpsgCodes& codes, std::string& problem);

// What a LAS file's GeoTIFF keys say of its system by codes (0: the key is absent).
struct GeoKeyCodes {
    int horizontal = 0;     // ProjectedCSTypeGeoKey, else GeographicTypeGeoKey
    int linearUnit = 0;     // ProjLinearUnitsGeoKey: 9001 metre, 9002 foot, 9003 US survey foot
    int vertical = 0;       // VerticalCSTypeGeoKey
    int verticalDatum = 0;  // VerticalDatumGeoKey
    int verticalUnit = 0;   // VerticalUnitsGeoKey
};

// The system the keys give, as text PROJ reads: "EPSG:2903+6360" when the codes say it all, else
// WKT of the system the codes name in the units the unit keys set (a projected system in US
// survey feet over a code in metres). A vertical key that names a datum (as many files do) gives
// way to a vertical system the datum key names. Empty without a horizontal code. `problem` says
// what is left out (a vertical system PROJ does not know).
std::string crsOfGeoKeys(const GeoKeyCodes& keys, std::string& problem);

// The .prj file beside a point cloud file: its name with the extension replaced.
std::string sidecarPath(const std::string& cloudPath);

}  // namespace zulformats

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
};

// The EPSG codes of `crs`, as PROJ identifies them; false, with `problem` set, if it cannot.
bool epsgCodes(const std::string& crs, EpsgCodes& codes, std::string& problem);

// The .prj file beside a point cloud file: its name with the extension replaced.
std::string sidecarPath(const std::string& cloudPath);

}  // namespace zulformats

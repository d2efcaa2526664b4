#include "formats/las_crs.h"

#include "formats/cloud.h"
#include "formats/crs_text.h"

namespace zulformats {

namespace {

const char kProjection[] = "LASF_Projection";
constexpr uint16_t kWktRecord = 2112;
constexpr uint16_t kGeoKeysRecord = 34735;
constexpr uint16_t kGeoDoublesRecord = 34736;
constexpr uint16_t kGeoAsciiRecord = 34737;

// GeoTIFF keys that name a system by code, and the code that says "defined by other keys".
constexpr uint16_t kModelTypeKey = 1024, kRasterTypeKey = 1025, kGeographicKey = 2048,
                   kProjectedKey = 3072, kLinearUnitsKey = 3076, kVerticalKey = 4096,
                   kVerticalDatumKey = 4098, kVerticalUnitsKey = 4099;
constexpr uint16_t kUserDefined = 32767;

std::string fixedText(const unsigned char* bytes, size_t n) {
    size_t length = 0;
    while (length < n && bytes[length] != 0) ++length;
    return std::string(reinterpret_cast<const char*>(bytes), length);
}

}  // namespace

std::vector<LasVlr> readLasVlrs(ByteInput& in, uint32_t count, uint64_t end) {
    std::vector<LasVlr> vlrs;
    for (uint32_t i = 0; i < count; ++i) {
        unsigned char header[kLasVlrHeaderSize];
        if (in.position() + kLasVlrHeaderSize > end) {
            in.fail("variable-length record " + std::to_string(i) + " runs into the points");
        }
        in.read(header, kLasVlrHeaderSize, "a variable-length record");
        LasVlr vlr;
        vlr.user = fixedText(header + 2, 16);
        vlr.record = loadLittle<uint16_t>(header + 18);
        vlr.description = fixedText(header + 22, 32);
        const uint16_t length = loadLittle<uint16_t>(header + 20);
        if (in.position() + length > end) {
            in.fail("variable-length record " + std::to_string(i) + " runs into the points");
        }
        vlr.data.resize(length);
        in.read(vlr.data.data(), length, "a variable-length record");
        vlrs.push_back(std::move(vlr));
    }
    return vlrs;
}

void writeLasVlr(ByteOutput& out, const LasVlr& vlr) {
    unsigned char header[kLasVlrHeaderSize] = {};
    std::memcpy(header + 2, vlr.user.data(), std::min<size_t>(vlr.user.size(), 16));
    std::memcpy(header + 18, &vlr.record, 2);
    const uint16_t length = static_cast<uint16_t>(vlr.data.size());
    std::memcpy(header + 20, &length, 2);
    std::memcpy(header + 22, vlr.description.data(), std::min<size_t>(vlr.description.size(), 32));
    out.write(header, sizeof header);
    out.write(vlr.data.data(), vlr.data.size());
}

bool isCrsVlr(const LasVlr& vlr) {
    return vlr.user == kProjection &&
           (vlr.record == kWktRecord || vlr.record == kGeoKeysRecord ||
            vlr.record == kGeoDoublesRecord || vlr.record == kGeoAsciiRecord);
}

std::string crsOfVlrs(const std::vector<LasVlr>& vlrs, std::string& problem) {
    for (const LasVlr& vlr : vlrs) {
        if (vlr.user == kProjection && vlr.record == kWktRecord) {
            return fixedText(vlr.data.data(), vlr.data.size());
        }
    }
    for (const LasVlr& vlr : vlrs) {
        if (vlr.user != kProjection || vlr.record != kGeoKeysRecord) continue;
        const size_t keys = vlr.data.size() / 8;
        GeoKeyCodes codes;
        bool userDefined = false;
        // The first entry is the directory's header; each key: id, location, count, value.
        for (size_t k = 1; k < keys; ++k) {
            const unsigned char* key = vlr.data.data() + 8 * k;
            const uint16_t id = loadLittle<uint16_t>(key);
            const uint16_t location = loadLittle<uint16_t>(key + 2);
            const uint16_t value = loadLittle<uint16_t>(key + 6);
            if (location != 0) continue;
            if (id == kProjectedKey || (id == kGeographicKey && codes.horizontal == 0)) {
                userDefined = userDefined || value == kUserDefined;
                if (value != kUserDefined) codes.horizontal = value;
            } else if (id == kVerticalKey && value != kUserDefined) {
                codes.vertical = value;
            } else if (id == kLinearUnitsKey) {
                codes.linearUnit = value;
            } else if (id == kVerticalDatumKey && value != kUserDefined) {
                codes.verticalDatum = value;
            } else if (id == kVerticalUnitsKey) {
                codes.verticalUnit = value;
            }
        }
        if (codes.horizontal == 0) {
            problem = userDefined ? "its GeoTIFF keys define the system by parameters, not by an "
                                    "EPSG code"
                                  : "its GeoTIFF keys name no system";
            return "";
        }
        return crsOfGeoKeys(codes, problem);
    }
    return "";
}

std::vector<LasVlr> crsVlrs(const std::string& crs, bool wkt, const std::string& path) {
    std::string problem;
    LasVlr vlr;
    vlr.user = kProjection;
    if (wkt) {
        const std::string text = crsWkt(crs, WktDialect::Ogc, problem);
        if (text.empty()) throw FormatError(path + ": the coordinate system: " + problem);
        vlr.record = kWktRecord;
        vlr.description = "OGC coordinate system WKT";
        vlr.data.assign(text.begin(), text.end());
        vlr.data.push_back(0);
        return {vlr};
    }
    EpsgCodes codes;
    if (!epsgCodes(crs, codes, problem)) {
        throw FormatError(path +
                          ": the coordinate system cannot be written as LAS 1.2 GeoTIFF "
                          "keys: " +
                          problem + " (write LAS 1.4, which takes WKT)");
    }
    std::vector<uint16_t> keys = {1, 1, 0, 0};
    const auto add = [&](uint16_t id, uint16_t value) {
        keys.insert(keys.end(), {id, 0, 1, value});
        ++keys[3];
    };
    add(kModelTypeKey, codes.geographic ? 2 : 1);
    add(kRasterTypeKey, 1);
    add(codes.geographic ? kGeographicKey : kProjectedKey, static_cast<uint16_t>(codes.horizontal));
    if (codes.linearUnit != 0) add(kLinearUnitsKey, static_cast<uint16_t>(codes.linearUnit));
    if (codes.vertical != 0) add(kVerticalKey, static_cast<uint16_t>(codes.vertical));
    if (codes.verticalUnit != 0) add(kVerticalUnitsKey, static_cast<uint16_t>(codes.verticalUnit));
    vlr.record = kGeoKeysRecord;
    vlr.description = "GeoTiff GeoKeyDirectoryTag";
    vlr.data.resize(2 * keys.size());
    std::memcpy(vlr.data.data(), keys.data(), vlr.data.size());
    return {vlr};
}

}  // namespace zulformats

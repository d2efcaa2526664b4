// The coordinate system work PROJ does, in the module libzul_crs.so (formats/crs_module.h).
#include <proj.h>
#include <proj_experimental.h>

#include <cmath>
#include <memory>

#include "formats/crs_module.h"

namespace zulcrs {

using namespace zulformats;

namespace {

struct Context {
    PJ_CONTEXT* context = proj_context_create();
    Context() { proj_log_level(context, PJ_LOG_NONE); }
    ~Context() { proj_context_destroy(context); }
};

struct Object {
    PJ* object;
    ~Object() {
        if (object != nullptr) proj_destroy(object);
    }
};

std::string lastError(PJ_CONTEXT* context) {
    const int error = proj_context_errno(context);
    return error != 0 ? proj_context_errno_string(context, error) : "not a coordinate system";
}

int codeOf(PJ* object) {
    const char* authority = proj_get_id_auth_name(object, 0);
    const char* code = proj_get_id_code(object, 0);
    if (authority == nullptr || code == nullptr || std::string(authority) != "EPSG") return 0;
    return std::atoi(code);
}

// The EPSG code of `object`, directly or as PROJ identifies it with full confidence.
int identify(PJ_CONTEXT* context, PJ* object) {
    if (const int code = codeOf(object)) return code;
    int* confidence = nullptr;
    PJ_OBJ_LIST* list = proj_identify(context, object, "EPSG", nullptr, &confidence);
    int code = 0;
    if (list != nullptr && proj_list_get_count(list) > 0 && confidence[0] >= 90) {
        Object best{proj_list_get(context, list, 0)};
        code = codeOf(best.object);
    }
    proj_int_list_destroy(confidence);
    proj_list_destroy(list);
    return code;
}

PJ* withLinearUnit(PJ_CONTEXT* context, PJ* crs, int unit);
int axisUnit(PJ_CONTEXT* context, PJ* crs);

// As identify, or else the code of a system PROJ proposes that, in `object`'s linear unit, is
// `object`: `unit` then gets that unit's code.
int identifyInUnits(PJ_CONTEXT* context, PJ* object, int& unit) {
    unit = 0;
    if (const int code = identify(context, object)) return code;
    const int own = axisUnit(context, object);
    PJ_OBJ_LIST* list = proj_identify(context, object, "EPSG", nullptr, nullptr);
    int code = 0;
    for (int i = 0; list != nullptr && i < proj_list_get_count(list) && code == 0; ++i) {
        Object candidate{proj_list_get(context, list, i)};
        Object altered{withLinearUnit(context, candidate.object, own)};
        if (altered.object != nullptr &&
            proj_is_equivalent_to_with_ctx(context, altered.object, object, PJ_COMP_EQUIVALENT)) {
            code = codeOf(candidate.object);
            unit = own;
        }
    }
    proj_list_destroy(list);
    return code;
}

// The EPSG code of the unit of `crs`'s first axis, 0 when it has none; a unit without a code
// (ESRI WKT gives none) is known by its factor among metre, foot and US survey foot.
int axisUnit(PJ_CONTEXT* context, PJ* crs) {
    Object cs{proj_crs_get_coordinate_system(context, crs)};
    double factor = 0;
    const char* code = nullptr;
    if (cs.object == nullptr || !proj_cs_get_axis_info(context, cs.object, 0, nullptr, nullptr,
                                                       nullptr, &factor, nullptr, nullptr, &code)) {
        return 0;
    }
    if (code != nullptr && code[0] != 0) return std::atoi(code);
    const struct {
        int code;
        double factor;
    } units[] = {{9001, 1.0}, {9002, 0.3048}, {9003, 1200.0 / 3937.0}};
    for (const auto& unit : units)
        if (std::abs(factor - unit.factor) < 1e-12) return unit.code;
    return 0;
}

// `crs` with its axes (and, for a projected system, its conversion's lengths) in the linear
// unit of EPSG code `unit`: null when PROJ cannot, or `crs` already has it.
PJ* withLinearUnit(PJ_CONTEXT* context, PJ* crs, int unit) {
    if (unit == 0 || crs == nullptr || axisUnit(context, crs) == unit) return nullptr;
    const std::string code = std::to_string(unit);
    const char* name = nullptr;
    double factor = 0;
    const char* category = nullptr;
    if (!proj_uom_get_info_from_database(context, "EPSG", code.c_str(), &name, &factor,
                                         &category) ||
        std::string(category) != "linear") {
        return nullptr;
    }
    Object parameters{proj_get_type(crs) == PJ_TYPE_PROJECTED_CRS
                          ? proj_crs_alter_parameters_linear_unit(context, crs, name, factor,
                                                                  "EPSG", code.c_str(), 1)
                          : nullptr};
    return proj_crs_alter_cs_linear_unit(context, parameters.object ? parameters.object : crs, name,
                                         factor, "EPSG", code.c_str());
}

bool isVertical(PJ* object) {
    return object != nullptr && proj_get_type(object) == PJ_TYPE_VERTICAL_CRS;
}

}  // namespace

std::string crsWkt(const std::string& crs, WktDialect dialect, std::string& problem) {
    Context c;
    Object object{proj_create(c.context, crs.c_str())};
    const size_t plus = crs.find('+');
    if (object.object == nullptr && crs.compare(0, 5, "EPSG:") == 0 && plus != std::string::npos) {
        // Many LAS files name a vertical datum where a vertical system belongs: keep the
        // horizontal system, and say what is lost.
        object.object = proj_create(c.context, crs.substr(0, plus).c_str());
        if (object.object != nullptr) {
            problem = "its vertical system EPSG:" + crs.substr(plus + 1) +
                      " is not one PROJ knows; only the horizontal one is kept";
        }
    }
    if (object.object == nullptr) {
        problem = "PROJ cannot read it (" + lastError(c.context) + ")";
        return "";
    }
    const char* options[] = {"MULTILINE=NO", nullptr};
    const char* text =
        proj_as_wkt(c.context, object.object,
                    dialect == WktDialect::Esri ? PJ_WKT1_ESRI : PJ_WKT1_GDAL, options);
    if (text == nullptr) {
        problem = "PROJ cannot write it as WKT (" + lastError(c.context) + ")";
        return "";
    }
    return text;
}

bool epsgCodes(const std::string& crs, EpsgCodes& codes, std::string& problem) {
    Context c;
    Object object{proj_create(c.context, crs.c_str())};
    if (object.object == nullptr) {
        problem = "PROJ cannot read it (" + lastError(c.context) + ")";
        return false;
    }
    PJ* horizontal = object.object;
    Object parts[2] = {{nullptr}, {nullptr}};
    if (proj_get_type(object.object) == PJ_TYPE_COMPOUND_CRS) {
        parts[0].object = proj_crs_get_sub_crs(c.context, object.object, 0);
        parts[1].object = proj_crs_get_sub_crs(c.context, object.object, 1);
        horizontal = parts[0].object;
        if (parts[1].object != nullptr) {
            codes.vertical = identifyInUnits(c.context, parts[1].object, codes.verticalUnit);
            if (codes.vertical == 0) {
                problem = "its vertical system has no EPSG code, which GeoTIFF keys need";
                return false;
            }
        }
    }
    if (horizontal == nullptr) {
        problem = "it has no horizontal system";
        return false;
    }
    const PJ_TYPE type = proj_get_type(horizontal);
    codes.geographic = type == PJ_TYPE_GEOGRAPHIC_2D_CRS || type == PJ_TYPE_GEOGRAPHIC_3D_CRS;
    codes.horizontal = identifyInUnits(c.context, horizontal, codes.linearUnit);
    if (codes.horizontal == 0) {
        problem = "it has no EPSG code, which GeoTIFF keys need";
        return false;
    }
    return true;
}

std::string crsOfGeoKeys(const GeoKeyCodes& keys, std::string& problem) {
    if (keys.horizontal == 0) return "";
    const std::string horizontalCode = "EPSG:" + std::to_string(keys.horizontal);
    Context c;
    Object horizontal{proj_create(c.context, horizontalCode.c_str())};
    if (horizontal.object == nullptr) return horizontalCode;  // crsWkt says why
    Object vertical{nullptr};
    bool byCodes = true;
    if (keys.vertical != 0) {
        vertical.object = proj_create(c.context, ("EPSG:" + std::to_string(keys.vertical)).c_str());
        if (!isVertical(vertical.object) && keys.verticalDatum != 0) {
            if (vertical.object != nullptr) proj_destroy(vertical.object);
            vertical.object =
                proj_create(c.context, ("EPSG:" + std::to_string(keys.verticalDatum)).c_str());
            byCodes = false;
        }
        if (!isVertical(vertical.object)) {
            if (vertical.object != nullptr) proj_destroy(vertical.object);
            vertical.object = nullptr;
            problem = "its vertical system EPSG:" + std::to_string(keys.vertical) +
                      " is not one PROJ knows; only the horizontal one is kept";
        }
    }
    Object inUnits{withLinearUnit(c.context, horizontal.object, keys.linearUnit)};
    Object verticalInUnits{withLinearUnit(c.context, vertical.object, keys.verticalUnit)};
    if (byCodes && inUnits.object == nullptr && verticalInUnits.object == nullptr) {
        return horizontalCode + (vertical.object ? "+" + std::to_string(keys.vertical) : "");
    }
    PJ* h = inUnits.object ? inUnits.object : horizontal.object;
    PJ* v = verticalInUnits.object ? verticalInUnits.object : vertical.object;
    Object compound{nullptr};
    if (v != nullptr) {
        const std::string name =
            std::string(proj_get_name(h)) + " + " + std::string(proj_get_name(v));
        compound.object = proj_create_compound_crs(c.context, name.c_str(), h, v);
    }
    const char* options[] = {"MULTILINE=NO", nullptr};
    const char* text =
        proj_as_wkt(c.context, compound.object ? compound.object : h, PJ_WKT2_2019, options);
    if (text == nullptr) return horizontalCode;
    return text;
}

}  // namespace zulcrs

extern "C" __attribute__((visibility("default"))) const zulcrs::Functions* zul_crs_functions() {
    static const zulcrs::Functions table = {zulcrs::kVersion, zulcrs::crsWkt, zulcrs::epsgCodes,
                                            zulcrs::crsOfGeoKeys};
    return &table;
}

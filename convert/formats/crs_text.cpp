#include "formats/crs_text.h"

#include <proj.h>

#include <memory>

namespace zulformats {

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
        if (parts[1].object != nullptr) codes.vertical = identify(c.context, parts[1].object);
    }
    if (horizontal == nullptr) {
        problem = "it has no horizontal system";
        return false;
    }
    const PJ_TYPE type = proj_get_type(horizontal);
    codes.geographic = type == PJ_TYPE_GEOGRAPHIC_2D_CRS || type == PJ_TYPE_GEOGRAPHIC_3D_CRS;
    codes.horizontal = identify(c.context, horizontal);
    if (codes.horizontal == 0) {
        problem = "it has no EPSG code, which GeoTIFF keys need";
        return false;
    }
    return true;
}

std::string sidecarPath(const std::string& cloudPath) {
    const size_t slash = cloudPath.find_last_of('/');
    const size_t dot = cloudPath.find_last_of('.');
    const bool extension = dot != std::string::npos && (slash == std::string::npos || dot > slash);
    return (extension ? cloudPath.substr(0, dot) : cloudPath) + ".prj";
}

}  // namespace zulformats

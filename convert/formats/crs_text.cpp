// The functions of crs_text.h: those that need PROJ call into the module libzul_crs.so
// (formats/crs_module.h), loaded once, on first use.
#include "formats/crs_text.h"

#include <dlfcn.h>

#include <memory>
#include <mutex>
#include <vector>

#include "formats/crs_module.h"

namespace zulformats {

namespace {

// The folder of the program or library this code was linked into.
std::string ownFolder() {
    Dl_info info = {};
    if (::dladdr(reinterpret_cast<void*>(&ownFolder), &info) == 0 || info.dli_fname == nullptr)
        return "";
    const std::string path = info.dli_fname;
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

struct Module {
    const zulcrs::Functions* functions = nullptr;
    std::string failure;
};

// Beside the program or library (the Python package), in the library folder of an installed
// program (bin/../lib), where the build made it.
const Module& module() {
    static Module loaded;
    static std::once_flag once;
    std::call_once(once, [] {
        const std::string folder = ownFolder();
        const std::vector<std::string> places = {
            folder + "/" ZUL_CRS_MODULE_NAME,
            folder + "/../" ZUL_CRS_INSTALLED_LIBDIR "/" ZUL_CRS_MODULE_NAME, ZUL_CRS_BUILT_PATH};
        std::string failures;
        for (const std::string& place : places) {
            void* handle = ::dlopen(place.c_str(), RTLD_NOW | RTLD_LOCAL);
            if (handle == nullptr) {
                const char* why = ::dlerror();
                failures += std::string(failures.empty() ? "" : "; ") + (why ? why : place);
                continue;
            }
            using Entry = const zulcrs::Functions* (*)();
            const auto entry = reinterpret_cast<Entry>(::dlsym(handle, "zul_crs_functions"));
            const zulcrs::Functions* functions = entry ? entry() : nullptr;
            if (functions != nullptr && functions->version == zulcrs::kVersion) {
                loaded.functions = functions;
                return;
            }
            failures += (failures.empty() ? "" : "; ") + place + " is of another version";
            ::dlclose(handle);
        }
        loaded.failure = "the coordinate system module " ZUL_CRS_MODULE_NAME " cannot be loaded (" +
                         failures + ")";
    });
    return loaded;
}

}  // namespace

std::string crsWkt(const std::string& crs, WktDialect dialect, std::string& problem) {
    const Module& m = module();
    if (m.functions == nullptr) return problem = m.failure, "";
    return m.functions->crsWkt(crs, dialect, problem);
}

bool epsgCodes(const std::string& crs, EpsgCodes& codes, std::string& problem) {
    const Module& m = module();
    if (m.functions == nullptr) return problem = m.failure, false;
    // The last answer kept: identifying a system searches PROJ's database, and a command asks of
    // the same system more than once (whether a LAS 1.2 output can hold it, then its keys).
    struct Answer {
        std::string crs;
        EpsgCodes codes;
        std::string problem;
        bool found = false;
    };
    static std::mutex mutex;
    static std::unique_ptr<Answer> last;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (last && last->crs == crs) {
            codes = last->codes;
            if (!last->found) problem = last->problem;
            return last->found;
        }
    }
    Answer answer;
    answer.crs = crs;
    answer.found = m.functions->epsgCodes(crs, answer.codes, answer.problem);
    std::lock_guard<std::mutex> lock(mutex);
    last = std::make_unique<Answer>(answer);
    codes = answer.codes;
    if (!answer.found) problem = answer.problem;
    return answer.found;
}

std::string crsOfGeoKeys(const GeoKeyCodes& keys, std::string& problem) {
    if (keys.horizontal == 0) return "";
    const Module& m = module();
    if (m.functions == nullptr)
        return problem = m.failure, "EPSG:" + std::to_string(keys.horizontal);
    return m.functions->crsOfGeoKeys(keys, problem);
}

std::string sidecarPath(const std::string& cloudPath) {
    const size_t slash = cloudPath.find_last_of('/');
    const size_t dot = cloudPath.find_last_of('.');
    const bool extension = dot != std::string::npos && (slash == std::string::npos || dot > slash);
    return (extension ? cloudPath.substr(0, dot) : cloudPath) + ".prj";
}

}  // namespace zulformats

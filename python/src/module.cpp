// _zul: the compiled half of the zul package, over libzul's bulk calls and the conversions of
// convert/.
#include <pybind11/pybind11.h>

#include "base/limits.h"
#include "bindings.h"
#include "py_errors.h"
#include "zul.h"

PYBIND11_MODULE(_zul, m) {
    m.doc() = "zul's compiled core: chunk index, bulk decode and encode, file conversions";
    zulpy::registerErrors(m);
    zulpy::bindIndex(m);
    zulpy::bindWrite(m);
    zulpy::bindConvert(m);
    zulpy::bindCompanion(m);
    zulpy::bindRos(m);
    m.attr("DEFAULT_CHUNK_SIZE") = zulbase::kDefaultChunkSize;
    m.attr("MAX_CHUNK_SIZE") = zulbase::kMaxChunkSize;
    m.attr("library_version") = std::to_string(zul_libversion_major()) + "." +
                                std::to_string(zul_libversion_minor()) + "." +
                                std::to_string(zul_libversion_patch());
}

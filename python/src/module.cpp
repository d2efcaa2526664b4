// _zul: the compiled half of the zul package, over libzul's bulk calls and the tool's conversions.
#include <pybind11/pybind11.h>

#include "bindings.h"
#include "py_errors.h"
#include "zul.h"

PYBIND11_MODULE(_zul, m) {
    m.doc() = "zul's compiled core: chunk index, bulk decode and encode, file conversions";
    zulpy::registerErrors(m);
    zulpy::bindIndex(m);
    zulpy::bindWrite(m);
    zulpy::bindConvert(m);
    zulpy::bindRos(m);
    m.attr("library_version") = std::to_string(zul_libversion_major()) + "." +
                                std::to_string(zul_libversion_minor()) + "." +
                                std::to_string(zul_libversion_patch());
}

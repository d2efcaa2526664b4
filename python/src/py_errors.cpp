#include "py_errors.h"

#include "commands/status_text.h"
#include "formats/cloud.h"
#include "zul/error.hpp"

namespace py = pybind11;

namespace zulpy {

void check(zul_Status status, const std::string& path, int64_t chunk, int64_t offset) {
    if (status == zul_STATUS_OK) return;
    const zulconvert::ZulStage stage =
        chunk >= 0 ? zulconvert::ZulStage::Read : zulconvert::ZulStage::Open;
    std::string message = path + ": " + zulconvert::statusText(status, stage);
    if (chunk >= 0) {
        message += " (chunk " + std::to_string(chunk) +
                   (offset >= 0 ? " at byte " + std::to_string(offset) : "") + ")";
    }
    throw Failure(message, status, chunk);
}

void registerErrors(py::module_& module) {
    // The class is plain Python (zul/_errors.py), so that it pickles across Dask's workers; it
    // lives as long as the interpreter.
    static py::object* errorClass =
        new py::object(py::module_::import("zul._errors").attr("Error"));
    module.attr("Error") = *errorClass;
    py::register_exception_translator([](std::exception_ptr pointer) {
        try {
            if (pointer) std::rethrow_exception(pointer);
        } catch (const Failure& failure) {
            py::object error = (*errorClass)(failure.what(), static_cast<int>(failure.status),
                                             zul::statusName(failure.status), failure.chunk);
            PyErr_SetObject(errorClass->ptr(), error.ptr());
        } catch (const zulformats::FormatError& error) {
            py::object instance = (*errorClass)(error.what(), 0, "refused", -1);
            PyErr_SetObject(errorClass->ptr(), instance.ptr());
        }
    });
}

}  // namespace zulpy

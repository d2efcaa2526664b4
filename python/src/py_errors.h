// Failures of the library and of the tool's conversions, raised in Python as zul.Error with the
// status, a sentence naming the file, and the chunk where the damage starts.
#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "zul.h"

namespace zulpy {

class Failure : public std::runtime_error {
public:
    Failure(const std::string& message, zul_Status status, int64_t chunk = -1)
        : std::runtime_error(message), status(status), chunk(chunk) {}
    zul_Status status;
    int64_t chunk;
};

// Throws Failure "<path>: <status in words>[ (chunk N at byte B)]" unless `status` is OK.
void check(zul_Status status, const std::string& path, int64_t chunk = -1, int64_t offset = -1);

// Translates Failure (to zul.Error) and the tool's FormatError (to zul.Error with status 0 for
// input the tool refuses) from now on.
void registerErrors(pybind11::module_& module);

}  // namespace zulpy

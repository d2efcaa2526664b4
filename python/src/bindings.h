// The parts of the _zul module, each registering its functions.
#pragma once

#include <pybind11/pybind11.h>

namespace zulpy {

void bindIndex(pybind11::module_& module);
void bindWrite(pybind11::module_& module);
void bindConvert(pybind11::module_& module);
void bindCompanion(pybind11::module_& module);
void bindRos(pybind11::module_& module);

}  // namespace zulpy

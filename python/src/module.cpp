// SPDX-License-Identifier: MIT
// The module kelhandler._native: the client layer for the package's own Python code.
#include <pybind11/pybind11.h>

#include "Device.h"
#include "Interpreter.h"
#include "Payloads.h"
#include "kel/library.hpp"

PYBIND11_MODULE(_native, module) {
  namespace py = pybind11;
  kel::python::bindErrors();
  kel::python::bindPayloads(module);
  kel::python::bindDevice(module);
  module.def("version", [] {
    const auto version = kel::Library::version();
    return py::make_tuple(version[0], version[1], version[2], version[3], version[4]);
  });
  module.def("end", kel::python::end);
  module.def("forked", kel::python::forked);
}

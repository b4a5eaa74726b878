/* SPDX-License-Identifier: MIT */
// Payloads on their way from and to Python.
#pragma once

#include <pybind11/pybind11.h>

#include <optional>

#include "kel/client.hpp"

namespace kel::python {

namespace py = pybind11;

/// A request of Python's. It refers to what it was made of, and keeps that until it is destroyed, under the
/// interpreter's lock.
class OutgoingPayload {
 public:
  /// `payload`: None, a text or anything with a buffer. `values`: None or three numbers. Not both.
  OutgoingPayload(py::handle payload, py::handle values);
  ~OutgoingPayload();
  OutgoingPayload(const OutgoingPayload&) = delete;
  OutgoingPayload& operator=(const OutgoingPayload&) = delete;

  const Request& request() const { return mRequest; }

 private:
  Request mRequest;
  std::optional<Py_buffer> mBuffer;
};

/// Three numbers of 32 bits.
Values valuesOf(py::handle values);
/// Seconds as Python tells them.
Milliseconds millisecondsOf(double seconds);
std::optional<Milliseconds> millisecondsOf(std::optional<double> seconds);

/// "VAL" or "REF".
const char* text(Form form);

void bindPayloads(py::module_& module);

}  // namespace kel::python

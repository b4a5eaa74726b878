// SPDX-License-Identifier: MIT
#include "Payloads.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "Interpreter.h"

namespace kel::python {
namespace {

/// "VAL 7 8 9", or "REF 204 bytes: 68 65 6c ...".
std::string summaryOf(const Payload& payload) {
  std::string summary = text(payload.form());
  if (payload.form() == Form::val && payload.size() == sizeof(Values)) {
    const Values values = *payload.values();
    for (const std::uint32_t value : values) summary += " " + std::to_string(value);
    return summary;
  }
  constexpr std::size_t kShown = 16;
  summary += " " + std::to_string(payload.size()) + (payload.size() == 1 ? " byte" : " bytes");
  for (std::size_t i = 0; i < std::min(payload.size(), kShown); ++i) {
    constexpr const char* kDigits = "0123456789abcdef";
    const std::uint8_t byte = payload.bytes()[i];
    summary += i == 0 ? ": " : " ";
    summary += {kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return summary + (payload.size() > kShown ? " ..." : "");
}

}  // namespace

const char* text(Form form) { return form == Form::val ? "VAL" : "REF"; }

OutgoingPayload::OutgoingPayload(py::handle payload, py::handle values) {
  if (!values.is_none()) {
    if (!payload.is_none()) throw py::type_error("a payload and values at once");
    mRequest = valuesOf(values);
    return;
  }
  if (payload.is_none()) return;
  if (PyUnicode_Check(payload.ptr())) {
    Py_ssize_t size = 0;
    const char* const text = PyUnicode_AsUTF8AndSize(payload.ptr(), &size);
    if (text == nullptr) throw py::error_already_set();
    mRequest = Request(text, static_cast<std::size_t>(size));
    return;
  }
  Py_buffer buffer;
  if (PyObject_GetBuffer(payload.ptr(), &buffer, PyBUF_SIMPLE) != 0) throw py::error_already_set();
  mBuffer = buffer;
  if (buffer.len > UINT32_MAX) throw py::value_error("a payload has 4 GB at most");
  mRequest = Request(buffer.buf, static_cast<std::size_t>(buffer.len));
}

OutgoingPayload::~OutgoingPayload() {
  if (mBuffer) PyBuffer_Release(&*mBuffer);
}

Values valuesOf(py::handle values) {
  Values three{};
  const auto sequence = py::reinterpret_steal<py::object>(PySequence_Fast(values.ptr(), "values are three numbers"));
  if (!sequence) throw py::error_already_set();
  if (PySequence_Fast_GET_SIZE(sequence.ptr()) != 3) throw py::value_error("values are three numbers");
  for (std::size_t i = 0; i < three.size(); ++i) {
    PyObject* const item = PySequence_Fast_GET_ITEM(sequence.ptr(), static_cast<Py_ssize_t>(i));
    const auto index = py::reinterpret_steal<py::object>(PyNumber_Index(item));
    if (!index) throw py::error_already_set();
    const unsigned long value = PyLong_AsUnsignedLong(index.ptr());
    if (PyErr_Occurred() != nullptr) throw py::error_already_set();
    if (value > UINT32_MAX) {
      PyErr_SetString(PyExc_OverflowError, "a value has 32 bits");
      throw py::error_already_set();
    }
    three[i] = static_cast<std::uint32_t>(value);
  }
  return three;
}

Milliseconds millisecondsOf(double seconds) {
  if (std::isnan(seconds)) throw py::value_error("a time is a number of seconds");
  constexpr double kLongest = 1e12;  // seconds; longer than any clock here runs, and far from the largest number
  return Milliseconds(static_cast<Milliseconds::rep>(std::ceil(std::clamp(seconds, 0.0, kLongest) * 1000)));
}

std::optional<Milliseconds> millisecondsOf(std::optional<double> seconds) {
  if (!seconds) return std::nullopt;
  return millisecondsOf(*seconds);
}

void bindPayloads(py::module_& module) {
  py::class_<Payload>(module, "Payload", py::buffer_protocol())
      .def_buffer([](const Payload& payload) {
        const auto size = static_cast<py::ssize_t>(payload.size());
        return py::buffer_info(const_cast<void*>(payload.data()), 1, py::format_descriptor<std::uint8_t>::format(), 1,
                               {size}, {1}, true);
      })
      .def_property_readonly("data", [](const py::object& self) { return py::memoryview(self); })
      .def_property_readonly("values",
                             [](const Payload& payload) {
                               const Result<Values> values = payload.values();
                               if (!values) raise(values.error());
                               return py::make_tuple((*values)[0], (*values)[1], (*values)[2]);
                             })
      .def_property_readonly("text",
                             [](const Payload& payload) { return py::str(payload.text().data(), payload.size()); })
      .def_property_readonly("form", [](const Payload& payload) { return text(payload.form()); })
      .def_property_readonly("sequence_word", &Payload::sequenceWord)
      .def("__len__", &Payload::size)
      .def("__bytes__",
           [](const Payload& payload) { return py::bytes(payload.text().data(), payload.size()); })
      .def("__repr__", [](const Payload& payload) { return "<Payload " + summaryOf(payload) + ">"; });

  py::class_<Message, Payload>(module, "Message")
      .def_readonly("is_last", &Message::isLast)
      .def("__repr__", [](const Message& message) {
        return "<Message " + summaryOf(message) + (message.isLast ? ", the last>" : ">");
      });

  py::class_<Broadcast, Payload>(module, "Broadcast")
      .def_readonly("task", &Broadcast::task)
      .def("__repr__", [](const Broadcast& broadcast) {
        return "<Broadcast " + broadcast.task + " " + summaryOf(broadcast) + ">";
      });
}

}  // namespace kel::python

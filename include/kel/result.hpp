// SPDX-License-Identifier: MIT
/**
 * @file
 * A value, or an error with its cause.
 */
#pragma once

#include <cstdint>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

namespace kel {
inline namespace v1 {

/** Why a call failed. The numbers stay as they are; new causes get new ones. */
enum class Cause : std::uint8_t {
  unknownTask = 1,   ///< The task table in force does not have the name. Nothing was sent.
  wrongForm = 2,     ///< The payload does not fit the task's form, or an answer what was to be read from it.
  refused = 3,       ///< The device side did not take the request, or the library could not send it.
  noAnswer = 4,      ///< The request was sent, and no answer came until the call's deadline.
  linkLost = 5,      ///< The link went away, with the request under way or still waiting to be sent.
  noNumber = 6,      ///< As many calls as the connection takes are under way, and so many wait as may.
  notConnected = 7,  ///< There is no connection: connecting failed, or has not come to its end.
  closed = 8,        ///< The client was closed.
  cancelled = 9,     ///< The caller has given the call up.
  busy = 10,         ///< A device behind a network has as many calls under way as it takes. It got nothing.
  reserved = 11,     ///< A device behind a network is reserved for somebody else. It got nothing.
};

/** A cause in words, such as "no answer came in time". */
inline const char* text(Cause cause) {
  switch (cause) {
    case Cause::unknownTask:
      return "the task table has no task of this name";
    case Cause::wrongForm:
      return "the payload has not the form that is asked for";
    case Cause::refused:
      return "the device refused the task";
    case Cause::noAnswer:
      return "no answer came in time";
    case Cause::linkLost:
      return "the link to the device was lost";
    case Cause::noNumber:
      return "too many tasks are under way";
    case Cause::notConnected:
      return "there is no connection to the device";
    case Cause::closed:
      return "the client was closed";
    case Cause::cancelled:
      return "the call was cancelled";
    case Cause::busy:
      return "the device has too many tasks under way";
    case Cause::reserved:
      return "the device is reserved for somebody else";
  }
  return "the cause is not known";
}

/** The word of a cause for programs and logs, such as "no-answer". */
inline const char* word(Cause cause) {
  switch (cause) {
    case Cause::unknownTask:
      return "unknown-task";
    case Cause::wrongForm:
      return "wrong-form";
    case Cause::refused:
      return "refused";
    case Cause::noAnswer:
      return "no-answer";
    case Cause::linkLost:
      return "link-lost";
    case Cause::noNumber:
      return "no-number";
    case Cause::notConnected:
      return "not-connected";
    case Cause::closed:
      return "closed";
    case Cause::cancelled:
      return "cancelled";
    case Cause::busy:
      return "busy";
    case Cause::reserved:
      return "reserved";
  }
  return "unknown";
}

/** A failed call. */
struct Error {
  Cause cause;
  std::uint32_t code = 0;  ///< What the library returned, one of its KEL_E_* codes; 0 if it was not asked.
  std::string subject;     ///< What the call was about, as a rule the task's name.

  /** All of it in one line: "TASK_ID_UMAC_INIT: no answer came in time". */
  std::string text() const { return subject.empty() ? v1::text(cause) : subject + ": " + v1::text(cause); }
};

inline std::ostream& operator<<(std::ostream& out, Cause cause) { return out << text(cause); }
inline std::ostream& operator<<(std::ostream& out, const Error& error) { return out << error.text(); }

/** What Result::value() throws. */
class Exception : public std::runtime_error {
 public:
  explicit Exception(Error error) : std::runtime_error(error.text()), mError(std::move(error)) {}
  const Error& error() const noexcept { return mError; }
  Cause cause() const noexcept { return mError.cause; }

 private:
  Error mError;
};

/** A value or an error. Nothing is thrown but by value(). */
template <class T>
class [[nodiscard]] Result {
 public:
  Result(T value) : mOutcome(std::in_place_index<0>, std::move(value)) {}
  Result(Error error) : mOutcome(std::in_place_index<1>, std::move(error)) {}

  bool ok() const noexcept { return mOutcome.index() == 0; }
  explicit operator bool() const noexcept { return ok(); }

  /** The value. Throws Exception if there is none. */
  T& value() & { return checked(); }
  T&& value() && { return std::move(checked()); }
  const T& value() const& { return const_cast<Result*>(this)->checked(); }

  /** The value, to be asked for only if ok(). */
  T& operator*() & { return *std::get_if<0>(&mOutcome); }
  T&& operator*() && { return std::move(*std::get_if<0>(&mOutcome)); }
  const T& operator*() const& { return *std::get_if<0>(&mOutcome); }
  T* operator->() { return std::get_if<0>(&mOutcome); }
  const T* operator->() const { return std::get_if<0>(&mOutcome); }

  /** The error, to be asked for only if not ok(). */
  const Error& error() const { return *std::get_if<1>(&mOutcome); }
  Cause cause() const { return error().cause; }

 private:
  T& checked() {
    if (!ok()) throw Exception(error());
    return **this;
  }

  std::variant<T, Error> mOutcome;
};

/** Success, or an error. */
template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(Error error) : mOutcome(std::in_place_index<1>, std::move(error)) {}

  bool ok() const noexcept { return mOutcome.index() == 0; }
  explicit operator bool() const noexcept { return ok(); }

  /** Throws Exception if there is an error. */
  void value() const {
    if (!ok()) throw Exception(error());
  }

  const Error& error() const { return *std::get_if<1>(&mOutcome); }
  Cause cause() const { return error().cause; }

 private:
  std::variant<std::monostate, Error> mOutcome;
};

}  // namespace v1
}  // namespace kel

// SPDX-License-Identifier: MIT
/**
 * @file
 * Payloads: what is sent with a task, and what comes back.
 */
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "kel/result.hpp"
#include "kel/task.hpp"

namespace kel {
inline namespace v1 {

/** The payload of a VAL task, and as a rule of its answer. */
using Values = std::array<std::uint32_t, 3>;

/** Bytes that somebody else owns. */
class Bytes {
 public:
  Bytes() = default;
  Bytes(const void* data, std::size_t size) : mData(static_cast<const std::uint8_t*>(data)), mSize(size) {}

  const std::uint8_t* data() const { return mData; }
  std::size_t size() const { return mSize; }
  bool empty() const { return mSize == 0; }
  const std::uint8_t* begin() const { return mData; }
  const std::uint8_t* end() const { return mData + mSize; }
  std::uint8_t operator[](std::size_t i) const { return mData[i]; }

 private:
  const std::uint8_t* mData = nullptr;
  std::size_t mSize = 0;
};

namespace detail {

template <class T, class = void>
struct IsSpan : std::false_type {};
/// Anything with data() and size() over elements that may be copied as bytes: vectors, arrays, strings, spans.
template <class T>
struct IsSpan<T,
              std::void_t<decltype(std::data(std::declval<const T&>())), decltype(std::size(std::declval<const T&>()))>>
    : std::is_trivially_copyable<std::remove_pointer_t<decltype(std::data(std::declval<const T&>()))>> {};

}  // namespace detail

/**
 * A payload to send. It refers to what it was made of, which has to live until the call that it is given to returns;
 * three values it holds itself.
 */
class Request {
 public:
  /** Nothing. For a VAL task the library makes three zeros of it. */
  Request() = default;
  /** Three values. */
  Request(std::uint32_t first, std::uint32_t second, std::uint32_t third)
      : mValues{first, second, third}, mSize(sizeof mValues), mHasValues(true) {}
  Request(const Values& values) : Request(values[0], values[1], values[2]) {}
  /** A text, without an end mark. */
  Request(std::string_view text) : Request(text.data(), text.size()) {}
  Request(const std::string& text) : Request(std::string_view(text)) {}
  Request(const char* text) : Request(std::string_view(text)) {}
  /** The elements of a vector, an array or a span, as they lie in memory. */
  template <class Span, std::enable_if_t<detail::IsSpan<Span>::value, int> = 0>
  Request(const Span& span) : Request(std::data(span), std::size(span) * sizeof(*std::data(span))) {}
  Request(const void* data, std::size_t size) : mData(data), mSize(size) {}

  /** A record, as it lies in memory. */
  template <class Record>
  static Request of(const Record& record) {
    static_assert(std::is_trivially_copyable_v<Record> && !std::is_pointer_v<Record>, "a record is copied as bytes");
    return {static_cast<const void*>(&record), sizeof record};
  }

  const void* data() const { return mHasValues ? mValues.data() : mData; }
  std::size_t size() const { return mSize; }

 private:
  Values mValues{};
  const void* mData = nullptr;
  std::size_t mSize = 0;
  bool mHasValues = false;
};

/** A payload for a task whose form the compiler knows: for a VAL task three values or nothing, else anything. */
template <Form kForm>
class TypedRequest : public Request {
  using Request::Request;
};
template <>
class TypedRequest<Form::val> : public Request {
 public:
  TypedRequest() = default;
  TypedRequest(std::uint32_t first, std::uint32_t second, std::uint32_t third) : Request(first, second, third) {}
  TypedRequest(const Values& values) : Request(values) {}
};

/** A payload that came. Cheap to copy: larger ones are shared. What it shows lives as long as the last copy. */
class Payload {
 public:
  Payload() = default;

  /** Copies the bytes. Throws std::bad_alloc. */
  static Payload copied(Form form, std::uint32_t sequenceWord, const void* data, std::uint32_t size) {
    Payload payload(form, sequenceWord, size);
    if (size <= sizeof payload.mSmall) {
      if (size != 0) std::memcpy(payload.mSmall.data(), data, size);
    } else {
      const std::shared_ptr<std::uint8_t> block(new std::uint8_t[size], std::default_delete<std::uint8_t[]>());
      std::memcpy(block.get(), data, size);
      payload.mBlock = block;
    }
    return payload;
  }

  /** Shares a block. */
  static Payload shared(Form form, std::uint32_t sequenceWord, std::shared_ptr<const void> block, std::uint32_t size) {
    if (size <= sizeof mSmall) return copied(form, sequenceWord, block.get(), size);
    Payload payload(form, sequenceWord, size);
    payload.mBlock = std::move(block);
    return payload;
  }

  /** The form that the device gave it. */
  Form form() const { return mForm; }
  /** A word of the device's own, handed on as it came. */
  std::uint32_t sequenceWord() const { return mSequenceWord; }
  std::size_t size() const { return mSize; }
  const void* data() const { return mBlock ? mBlock.get() : mSmall.data(); }
  Bytes bytes() const { return {data(), mSize}; }
  /** The bytes as a text, zero bytes at its end included. */
  std::string_view text() const { return {static_cast<const char*>(data()), mSize}; }

  /** The three values of a VAL payload; an error of the cause wrongForm if it has another size. */
  Result<Values> values() const { return as<Values>(); }

  /** The bytes as a record; an error of the cause wrongForm if it has another size. */
  template <class Record>
  Result<Record> as() const {
    static_assert(std::is_trivially_copyable_v<Record>, "a record is copied as bytes");
    if (mSize != sizeof(Record)) {
      return Error{Cause::wrongForm, 0, std::to_string(mSize) + " bytes in place of " + std::to_string(sizeof(Record))};
    }
    Record record;
    std::memcpy(&record, data(), sizeof record);
    return record;
  }

 private:
  Payload(Form form, std::uint32_t sequenceWord, std::uint32_t size)
      : mForm(form), mSequenceWord(sequenceWord), mSize(size) {}

  Form mForm = Form::ref;
  std::uint32_t mSequenceWord = 0;
  std::uint32_t mSize = 0;
  alignas(8) std::array<std::uint8_t, 16> mSmall{};  // the bytes, if they fit
  std::shared_ptr<const void> mBlock;                // else
};

/** A message of a stream. */
struct Message : Payload {
  bool isLast = false;  ///< The device has marked it as the stream's last.
};

/** A broadcast. */
struct Broadcast : Payload {
  std::string task;  ///< Its name in the task table, or "UNKNOWN_TASK".
};

}  // namespace v1
}  // namespace kel

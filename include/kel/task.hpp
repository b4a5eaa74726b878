// SPDX-License-Identifier: MIT
/**
 * @file
 * Tasks whose name and form the compiler knows, and what a TUI says by itself.
 *
 * The tasks of the built-in table are in kel/tasks.hpp. A program whose device has others writes them likewise:
 *
 *     inline constexpr kel::ValTask kMyEcho{"MY_ECHO", 0x38240, kel::Target::upperDsps};
 *
 * Nothing here allocates, throws or keeps state; all of it may be used from any thread and in constant expressions.
 */
#pragma once

#include <cstdint>

namespace kel {
inline namespace v1 {

/** What a payload is: three 32-bit values, 12 bytes in all, or raw bytes. */
enum class Form : std::uint8_t { val, ref };

/** Which part of the device a task is for. */
enum class Target : std::uint8_t {
  userDriver = 2,
  firmware = 4,
  broadcast = 5,  ///< No task is for it: it marks the words of broadcasts.
  trace = 6,
  upperDsps = 8
};

/**
 * A task of a known form. Only the name goes to the library, which looks the TUI up in the table in force: `tui` and
 * `target` tell what the row said that the constant was written from.
 */
template <Form kForm>
struct TypedTask {
  const char* name;  ///< Not null; lives as long as the program does.
  std::uint32_t tui;
  Target target;

  static constexpr Form form = kForm;
};

using ValTask = TypedTask<Form::val>;
using RefTask = TypedTask<Form::ref>;

/** The form of a TUI, or of the word of an answer or broadcast: VAL if its type bits are 0, else REF. */
constexpr Form formOf(std::uint32_t tui) noexcept { return (tui & 0x180000) == 0 ? Form::val : Form::ref; }

/** The target of such a word. It need not be one of those that have a name. */
constexpr Target targetOf(std::uint32_t tui) noexcept { return static_cast<Target>((tui >> 12) & 0xF); }

/** A row of a task table: what of it counts. */
struct NamedTui {
  const char* name;  ///< Not null; lives as long as the program does.
  std::uint32_t tui;
};

}  // namespace v1
}  // namespace kel

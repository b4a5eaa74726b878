// SPDX-License-Identifier: MIT
/**
 * @file
 * Lines and rows of a task table, read as the library reads them.
 *
 *     NAME,  INDEX, ZONE, TARGET, PRIORITY, TYPE, decimal TUI, hex TUI
 *
 * Fields are found by the commas before them. Of a row only the name and the decimal TUI are kept, and of the rest only
 * TYPE is looked at.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <string>
#include <string_view>

namespace kel {
inline namespace v1 {
namespace detail {

/**
 * The lines of a table, as a text-mode stream of Windows has them: CR LF is one LF, and a byte 0x1A is the end of the
 * file. A line that is too long comes in pieces.
 */
class LineReader {
 public:
  explicit LineReader(std::istream& stream) : mStream(stream) {}

  /** Goes on to the next line. False if there is none, or if it cannot be read to its end. */
  bool next() {
    mLine.clear();
    int byte = 0;
    while (mLine.size() < kLongestPiece && byte != '\n' && (byte = nextByte()) != kEnd) {
      mLine.push_back(static_cast<char>(byte));
    }
    return !mLine.empty() && !mStream.bad();
  }

  /** The line, or its piece, up to its end or to a byte 0. Valid until the next call of next(). */
  std::string_view line() const { return std::string_view(mLine).substr(0, mLine.find_first_of({"\n\0", 2})); }

 private:
  static constexpr std::size_t kLongestPiece = 254;
  static constexpr int kEnd = std::char_traits<char>::eof();
  static constexpr int kEndOfText = 0x1A;

  int nextByte() {
    if (mStream.peek() == kEndOfText) return kEnd;
    const int byte = mStream.get();
    return byte == '\r' && mStream.peek() == '\n' ? mStream.get() : byte;
  }

  std::istream& mStream;
  std::string mLine;
};

/** One line of a table. Refers to it. */
class TableRow {
 public:
  explicit TableRow(std::string_view line) : mRest(withoutBlanks(line)), mEndsTable(mRest.empty()) {
    mIsWhole = !mEndsTable && read();
  }

  /** Nothing but white space: the table has no further rows. */
  bool endsTable() const { return mEndsTable; }
  /** It has all its fields. The name and the TUI count only then. */
  bool isWhole() const { return mIsWhole; }

  std::string_view name() const { return mName; }
  std::uint32_t tui() const { return mTui; }

 private:
  /** A token of this many bytes or more is too long for any field. */
  static constexpr std::size_t kTokenLimit = 100;
  static constexpr std::string_view kWhiteSpace = " \t\r\n";

  bool read() {
    std::string_view name, target, type, hexTui;
    if (!token(&name)) return false;
    mName = name.substr(0, name.find(','));
    return nextField() /* INDEX */ && nextField() /* ZONE */ && nextField() && token(&target) &&
           nextField() /* PRIORITY */ && nextField() && token(&type) && isType(type.substr(0, 3)) && nextField() &&
           number(&mTui) && nextField() && token(&hexTui);
  }

  static bool isType(std::string_view text) { return text == "REF" || text == "VAL"; }

  static std::string_view withoutBlanks(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(kWhiteSpace);
    return begin != text.npos ? text.substr(begin) : std::string_view();
  }

  /** Stands behind the next comma. */
  bool nextField() {
    const std::size_t comma = mRest.find(',');
    if (comma == mRest.npos) return false;
    mRest.remove_prefix(comma + 1);
    return true;
  }

  /** The text up to the next white space, which may be empty. */
  bool token(std::string_view* token) const {
    const std::string_view text = withoutBlanks(mRest);
    *token = text.substr(0, text.find_first_of(kWhiteSpace));
    return token->size() < kTokenLimit;
  }

  /** A decimal number with or without a sign. One that does not fit keeps its low 32 bits. */
  bool number(std::uint32_t* number) const {
    std::string_view text = withoutBlanks(mRest);
    const bool negative = text.substr(0, 1) == "-";
    if (negative || text.substr(0, 1) == "+") text.remove_prefix(1);
    const std::string_view digits = text.substr(0, text.find_first_not_of("0123456789"));
    std::uint32_t value = 0;
    for (const char digit : digits) value = value * 10 + static_cast<std::uint32_t>(digit - '0');
    *number = negative ? 0 - value : value;
    return !digits.empty();
  }

  std::string_view mRest;
  std::string_view mName;
  std::uint32_t mTui = 0;
  bool mEndsTable;
  bool mIsWhole;
};

}  // namespace detail
}  // namespace v1
}  // namespace kel

// SPDX-License-Identifier: MIT
// The reader of one row of the task table.
//
// A row ends at its LF, or at the end of the text. Fields are found by the commas before them, never by their contents,
// and every look stays inside the row: a row with too few commas fails at the first field that it does not have.
#include <algorithm>
#include <cstring>

#include "catalogue/BrelTUIsList.h"

namespace kel {
namespace {

/// A token of this many bytes or more is too long for any field.
constexpr std::size_t kTokenLimit = 100;

/// What a scan reports: one conversion, none, or the end of the row ahead of anything to convert.
enum class Scan { converted, none, ended };

constexpr bool IsWhiteSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

class RowScanner {
 public:
  /// Skips the white space ahead of the row, line breaks included.
  explicit RowScanner(const char* text) : mPosition(text) {
    while (IsWhiteSpace(*mPosition)) ++mPosition;
    const char* lineFeed = std::strchr(mPosition, '\n');
    mEnd = lineFeed != nullptr ? lineFeed : mPosition + std::strlen(mPosition);
  }

  /// Stands behind the next comma; false if the row has none.
  bool nextField() {
    const char* comma = std::find(mPosition, mEnd, ',');
    if (comma == mEnd) return false;
    mPosition = comma + 1;
    return true;
  }

  /// The text up to the next white space. One that is too long reads as empty.
  Scan token(std::string_view* token) const {
    const char* begin = skipWhiteSpace();
    const char* end = std::find_if(begin, mEnd, IsWhiteSpace);
    const auto size = static_cast<std::size_t>(end - begin);
    *token = std::string_view(begin, size < kTokenLimit ? size : 0);
    if (size == 0) return Scan::ended;
    return size < kTokenLimit ? Scan::converted : Scan::none;
  }

  /// The very next character, white space or not.
  Scan character(std::uint8_t* character) const {
    if (mPosition == mEnd) return Scan::ended;
    *character = static_cast<std::uint8_t>(*mPosition);
    return Scan::converted;
  }

  /// A decimal number with or without a sign. One that does not fit keeps its low 32 bits.
  Scan number(std::uint32_t* number) const {
    const char* digit = skipWhiteSpace();
    if (digit == mEnd) return Scan::ended;
    const bool negative = *digit == '-';
    if (negative || *digit == '+') ++digit;
    if (digit == mEnd || *digit < '0' || *digit > '9') return Scan::none;
    std::uint32_t value = 0;
    for (; digit != mEnd && *digit >= '0' && *digit <= '9'; ++digit) {
      value = value * 10 + static_cast<std::uint32_t>(*digit - '0');
    }
    *number = negative ? 0 - value : value;
    return Scan::converted;
  }

  /// The start of what follows the row.
  const char* behind() const { return *mEnd == '\n' ? mEnd + 1 : mEnd; }

 private:
  const char* skipWhiteSpace() const {
    return std::find_if_not(mPosition, mEnd, IsWhiteSpace);
  }

  const char* mPosition;
  const char* mEnd;
};

std::string_view UpToComma(std::string_view token) { return token.substr(0, token.find(',')); }

}  // namespace

bool BrelTUIsList::ResolveType(std::string_view typeBuf, std::uint8_t* type) {
  if (typeBuf != "REF" && typeBuf != "VAL") return false;
  *type = typeBuf == "REF" ? 1 : 0;
  return true;
}

std::int32_t BrelTUIsList::ReadOneTUI(const char** stringStream, std::string* name, std::uint8_t* index,
                                      std::uint8_t* zone, std::uint8_t* target, std::uint8_t* priority,
                                      std::uint8_t* type, std::uint32_t* decimalTUI, std::uint32_t* hexTUI,
                                      std::uint32_t* oneTUIlineLength) {
  const auto failed = [this](const char* text) {
    report(kError, "ReadOneTUI", text);
    return 0;
  };
  // Only a scan that converts nothing fails a field: the end of the row passes, and is met at the next comma.
  const auto passed = [](Scan scan) { return scan != Scan::none; };

  *oneTUIlineLength = 0;
  const char* lineEnd = std::strchr(*stringStream, '\n');
  if (lineEnd == nullptr) lineEnd = std::strchr(*stringStream, '\xFF');
  if (lineEnd != nullptr) *oneTUIlineLength = static_cast<std::uint32_t>(lineEnd - *stringStream) + 1;

  RowScanner row(*stringStream);
  std::string_view token;
  if (!passed(row.token(&token))) {
    if (mLogger != nullptr) mLogger->log(kError, "ReadOneTUI", kLogFlags) << "could not read NAME field. \n";
    debugPrint("ReadOneTUI - could not read TUI NAME field. \n");
    return 0;
  }
  if (token.empty()) return -1;
  *name = UpToComma(token);

  // The blank behind the comma is what the three one-character scans take; the columns' numbers are not read.
  if (!row.nextField() || !passed(row.character(index))) return failed("could not read INDEX field. \n");
  if (!row.nextField() || !passed(row.character(zone))) return failed("could not read ZONE field. \n");
  if (!row.nextField() || !passed(row.token(&token))) return failed("could not read TARGET field. \n");
  *target = 0;
  if (!row.nextField() || !passed(row.character(priority))) return failed("could not read PRIORITY field. \n");
  if (!row.nextField() || !passed(row.token(&token))) return failed("could not read TYPE field. \n");
  if (!ResolveType(token.substr(0, 3), type)) return failed("could not resolve TYPE field. \n");
  if (!row.nextField() || !passed(row.number(decimalTUI))) return failed("could not read decimal TUI field. \n");
  if (!row.nextField() || !passed(row.token(&token))) return failed("could not read hex TUI field. \n");
  *hexTUI = 0;
  *stringStream = row.behind();
  return 1;
}

}  // namespace kel

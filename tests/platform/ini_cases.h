/* SPDX-License-Identifier: MIT */
// What GetPrivateProfileStringA makes of ini files, in cases. They hold for every platform's iniValue().
#pragma once

#include <string>

namespace kel::platform {

struct IniCase {
  const char* name;
  std::string content;
  const char* section;
  const char* key;
  const char* defaultText;
  std::string expected;
  std::uint32_t size = 1024;
};

inline const IniCase kIniCases[] = {
    {"Plain", "[Common]\r\nKey=value\r\n", "Common", "Key", "default", "value"},
    {"UnixLineEnds", "[Common]\nOther=1\nKey=value\n", "Common", "Key", "default", "value"},
    {"OldMacLineEnds", "[Common]\rOther=1\rKey=value\r", "Common", "Key", "default", "value"},
    {"NoFinalNewline", "[Common]\r\nKey=value", "Common", "Key", "default", "value"},
    {"EmptyFile", "", "Common", "Key", "default", "default"},
    {"OnlyBlankLines", "\r\n  \r\n\t\r\n", "Common", "Key", "default", "default"},

    {"MissingSection", "[Other]\r\nKey=value\r\n", "Common", "Key", "default", "default"},
    {"MissingKey", "[Common]\r\nOther=value\r\n", "Common", "Key", "default", "default"},
    {"KeyOfAnotherSection", "[Common]\r\nOther=1\r\n[Next]\r\nKey=value\r\n", "Common", "Key", "default", "default"},
    {"DefaultWithTrailingBlanks", "[Common]\r\n", "Common", "Key", " default  ", " default"},
    {"DefaultOfBlanksKeepsOne", "[Common]\r\n", "Common", "Key", "   ", " "},
    {"DefaultWithTrailingTab", "[Common]\r\n", "Common", "Key", "default\t", "default\t"},
    {"QuotedDefault", "[Common]\r\n", "Common", "Key", "\"default\"", "default"},
    {"EmptyDefault", "[Common]\r\n", "Common", "Key", "", ""},

    {"CaseOfKey", "[Common]\r\nKEY=value\r\n", "Common", "kEy", "default", "value"},
    {"CaseOfSection", "[COMMON]\r\nKey=value\r\n", "cOMMON", "Key", "default", "value"},
    {"CaseOfValueIsKept", "[Common]\r\nKey=VaLue\r\n", "Common", "Key", "default", "VaLue"},
    {"KeyIsNoPrefix", "[Common]\r\nKeyring=1\r\nKe=2\r\nKey=3\r\n", "Common", "Key", "default", "3"},

    {"BlanksRoundEquals", "[Common]\r\nKey  =   value\r\n", "Common", "Key", "default", "value"},
    {"BlanksRoundLine", "[Common]\r\n   Key=value   \r\n", "Common", "Key", "default", "value"},
    {"TabsRoundEverything", "[Common]\r\n\tKey\t=\tvalue\t\r\n", "Common", "Key", "default", "value"},
    {"BlanksInsideValue", "[Common]\r\nKey=two  words\r\n", "Common", "Key", "default", "two  words"},
    {"BlanksInsideKey", "[Common]\r\nMy Key=value\r\n", "Common", "My Key", "default", "value"},
    {"BlanksRoundAskedNames", "[Common]\r\nKey=value\r\n", " Common ", " Key ", "default", "value"},
    {"EqualsInValue", "[Common]\r\nKey=a=b=c\r\n", "Common", "Key", "default", "a=b=c"},
    {"EmptyValue", "[Common]\r\nKey=\r\n", "Common", "Key", "default", ""},
    {"ValueOfBlanks", "[Common]\r\nKey=   \r\n", "Common", "Key", "default", ""},
    {"KeyWithoutEquals", "[Common]\r\nKey\r\n", "Common", "Key", "default", "default"},
    {"KeyWithoutEqualsHidesALaterOne", "[Common]\r\nKey\r\nKey=value\r\n", "Common", "Key", "default", "default"},

    {"DoubleQuotes", "[Common]\r\nKey=\"value\"\r\n", "Common", "Key", "default", "value"},
    {"SingleQuotes", "[Common]\r\nKey='value'\r\n", "Common", "Key", "default", "value"},
    {"QuotesKeepBlanks", "[Common]\r\nKey=\" value \"\r\n", "Common", "Key", "default", " value "},
    {"OnePairOfQuotes", "[Common]\r\nKey=\"\"value\"\"\r\n", "Common", "Key", "default", "\"value\""},
    {"MixedQuotes", "[Common]\r\nKey=\"value'\r\n", "Common", "Key", "default", "\"value'"},
    {"QuoteAtStart", "[Common]\r\nKey=\"value\r\n", "Common", "Key", "default", "\"value"},
    {"QuoteAtEnd", "[Common]\r\nKey=value\"\r\n", "Common", "Key", "default", "value\""},
    {"QuotesInside", "[Common]\r\nKey=a \"b\" c\r\n", "Common", "Key", "default", "a \"b\" c"},
    {"QuotesOfNothing", "[Common]\r\nKey=\"\"\r\n", "Common", "Key", "default", ""},
    {"LoneQuote", "[Common]\r\nKey=\"\r\n", "Common", "Key", "default", "\""},
    {"TextBehindQuotes", "[Common]\r\nKey=\"value\" ; note\r\n", "Common", "Key", "default", "\"value\" ; note"},

    {"FirstOfTwoKeys", "[Common]\r\nKey=one\r\nKey=two\r\n", "Common", "Key", "default", "one"},
    {"FirstOfTwoSections", "[Common]\r\nKey=one\r\n[Common]\r\nKey=two\r\n", "Common", "Key", "default", "one"},
    {"SecondSectionIsNotLookedAt", "[Common]\r\nA=1\r\n[Common]\r\nKey=two\r\n", "Common", "Key", "default", "default"},

    {"CommentLine", "[Common]\r\n;Key=one\r\nKey=two\r\n", "Common", "Key", "default", "two"},
    {"IndentedCommentLine", "[Common]\r\n  ; Key=one\r\nKey=two\r\n", "Common", "Key", "default", "two"},
    {"CommentedSection", ";[Common]\r\nKey=one\r\n", "Common", "Key", "default", "default"},
    {"CommentBehindValueIsKept", "[Common]\r\nKey=value ; note\r\n", "Common", "Key", "default", "value ; note"},
    {"HashIsNoComment", "[Common]\r\n#Key=value\r\n", "Common", "#Key", "default", "value"},
    {"CommentAskedForAsKey", "[Common]\r\n;Key=value\r\n", "Common", ";Key", "default", "value"},

    {"TextBehindSection", "[Common] ; note\r\nKey=value\r\n", "Common", "Key", "default", "value"},
    {"LastBracketEndsSection", "[Com]mon]\r\nKey=value\r\n", "Com]mon", "Key", "default", "value"},
    {"BlanksInsideBrackets", "[ \tCommon ]\r\nKey=value\r\n", "Common", "Key", "default", "value"},
    {"IndentedSection", "  [Common]\r\nKey=value\r\n", "Common", "Key", "default", "value"},
    {"UnclosedSection", "[Common\r\nKey=value\r\n", "Common", "Key", "default", "default"},
    {"UnclosedSectionIsALineOfTheOneBefore", "[Common]\r\n[Next\r\nKey=value\r\n", "Common", "Key", "default", "value"},
    {"BackslashInSection", "[Software\\Brel]\r\nKey=value\r\n", "Software\\Brel", "Key", "default", "value"},
    {"BlankSectionIsNotTheFirstOfThatName", "[]\r\nKey=value\r\n", "", "Key", "default", "default"},
    {"BeforeAnySection", "Key=value\r\n[Common]\r\nOther=1\r\n", "", "Key", "default", "value"},
    {"BeforeAnySectionAskedForByName", "Key=value\r\n[Common]\r\nOther=1\r\n", "Common", "Key", "default", "default"},
    {"BlankKey", "[Common]\r\n=value\r\n", "Common", "", "default", "value"},
    {"BlankKeyThatIsMissing", "[Common]\r\nKey=value\r\n", "Common", "", "default", "default"},

    {"ByteOrderMark", "\xEF\xBB\xBF[Common]\r\nKey=value\r\n", "Common", "Key", "default", "value"},
    {"NonAsciiValue",
     "[Common]\r\nKey=gr\xFC\xDF"
     "e\r\n",
     "Common", "Key", "default",
     "gr\xFC\xDF"
     "e"},
    {"EndOfFileMarkIsABlank", "[Common]\r\nKey=value\r\n\x1A", "Common", "Key", "default", "value"},
    {"EndOfFileMarkInsideValue",
     "[Common]\r\nKey=a\x1A"
     "b\r\n",
     "Common", "Key", "default",
     "a\x1A"
     "b"},
    {"ZeroByteEndsValue", std::string("[Common]\nKey=a\0b\nNext=1\n", 25), "Common", "Key", "default", "a"},
    {"VerticalBlanks", "[Common]\r\nKey=\v\fvalue\f\v\r\n", "Common", "Key", "default", "value"},
    {"EndOfFileMarkBehindValue", "[Common]\r\nKey=value\x1A", "Common", "Key", "default", "value"},

    {"LongestWhole", "[Common]\r\nKey=" + std::string(1023, 'x') + "\r\n", "Common", "Key", "", std::string(1023, 'x')},
    {"OneTooLong", "[Common]\r\nKey=" + std::string(1024, 'x') + "\r\n", "Common", "Key", "", std::string(1023, 'x')},
    {"MuchTooLong", "[Common]\r\nKey=" + std::string(2000, 'x') + "\r\n", "Common", "Key", "", std::string(1023, 'x')},
    {"DefaultTooLong", "[Common]\r\n", "Common", "Key", "abcdefgh", "abcd", 5},
    {"ValueTooLong", "[Common]\r\nKey=abcdefgh\r\n", "Common", "Key", "", "abcd", 5},
    {"QuotedFits", "[Common]\r\nKey=\"abcd\"\r\n", "Common", "Key", "", "abcd", 6},
    {"QuotedCutByTheQuoteAlone", "[Common]\r\nKey=\"abcd\"\r\n", "Common", "Key", "", "abc", 5},
    {"QuotedTooLong", "[Common]\r\nKey=\"abcdefgh\"\r\n", "Common", "Key", "", "abcd", 5},
    {"QuotedAndRoomForTheEndMarkOnly", "[Common]\r\nKey=\"\"\r\n", "Common", "Key", "default", "", 1},
    {"RoomForTheEndMarkOnly", "[Common]\r\nKey=value\r\n", "Common", "Key", "default", "", 1},
};

}  // namespace kel::platform

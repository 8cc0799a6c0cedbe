// Text that is no UTF-8: refused when it is read, replaced when it is written.
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "Cases.h"
#include "LumJson.h"

namespace {

using LumJson::Value;
using lumtest::Read;
using namespace std::string_view_literals;

struct IllFormed {
  std::string_view name;
  std::string_view text;
  int replacements;  // U+FFFD written for it, one for each maximal subpart
};

std::ostream& operator<<(std::ostream& out, const IllFormed& item) {
  return out << item.name;
}

constexpr IllFormed kIllFormed[] = {
    {"LoneContinuation", "\x80"sv, 1},
    {"LastLoneContinuation", "\xBF"sv, 1},
    {"TwoLoneContinuations", "\x80\xBF"sv, 2},
    {"TwoBytesTruncated", "\xC2"sv, 1},
    {"TwoBytesLastTruncated", "\xDF"sv, 1},
    {"ThreeBytesTruncatedToOne", "\xE2"sv, 1},
    {"ThreeBytesTruncatedToTwo", "\xE2\x82"sv, 1},
    {"FourBytesTruncatedToOne", "\xF0"sv, 1},
    {"FourBytesTruncatedToTwo", "\xF0\x9D"sv, 1},
    {"FourBytesTruncatedToThree", "\xF0\x9D\x84"sv, 1},
    {"OverlongTwoBytesOfZero", "\xC0\x80"sv, 2},
    {"OverlongTwoBytesOfSlash", "\xC0\xAF"sv, 2},
    {"OverlongTwoBytesLast", "\xC1\xBF"sv, 2},
    {"OverlongThreeBytes", "\xE0\x80\x80"sv, 3},
    {"OverlongThreeBytesLast", "\xE0\x9F\xBF"sv, 3},
    {"OverlongFourBytes", "\xF0\x80\x80\x80"sv, 4},
    {"OverlongFourBytesLast", "\xF0\x8F\xBF\xBF"sv, 4},
    {"OverlongFiveBytes", "\xF8\x80\x80\x80\x80"sv, 5},
    {"OverlongSixBytes", "\xFC\x83\xBF\xBF\xBF\xBF"sv, 6},
    {"FirstSurrogate", "\xED\xA0\x80"sv, 3},
    {"LastSurrogate", "\xED\xBF\xBF"sv, 3},
    {"PairOfSurrogates", "\xED\xA0\xB4\xED\xB4\x9E"sv, 6},
    {"Above10FFFF", "\xF4\x90\x80\x80"sv, 4},
    {"FarAbove10FFFF", "\xF7\xBF\xBF\xBF"sv, 4},
    {"F5", "\xF5\x80\x80\x80"sv, 4},
    {"FE", "\xFE"sv, 1},
    {"FF", "\xFF"sv, 1},
    {"TruncatedBeforeLead", "\xE2\x82\xC3\xA9"sv, 1},
    {"TruncatedTwice", "\xF0\x9D\xF0\x9D\x84"sv, 2},
    {"LeadBeforeAscii", "\xC3(", 1},
    {"SecondContinuationBroken", "\xE2(\xA1", 2},
    {"ThirdContinuationBroken", "\xF0\x90\x8C(", 1},
    // Just below and just above what may continue a character.
    {"LeadBeforeDelete", "\xC3\x7F", 1},
    {"LeadBeforeC0", "\xC3\xC0", 2},
    {"SecondContinuationDelete", "\xE2\x82\x7F", 1},
    {"SecondContinuationC0", "\xE2\x82\xC0", 2},
    {"LowestLeadOfThreeBeforeC0", "\xE0\xC0\xBF", 3},
    {"LeadOfSurrogatesBeforeDelete", "\xED\x7F\xBF", 2},
    {"LowestLeadOfFourBeforeC0", "\xF0\xC0\xBF\xBF", 4},
    {"HighestLeadBeforeDelete", "\xF4\x7F\xBF\xBF", 3},
};

class Utf8Test : public testing::TestWithParam<IllFormed> {
 protected:
  // The text at every place in the words of eight bytes that reading and writing go by.
  template <typename Function>
  static void AtEveryPlace(Function function) {
    for (std::size_t before = 0; before < 20; ++before) {
      for (const std::size_t behind : {0, 1, 2, 3, 5, 9, 20}) {
        function(std::string(before, 'b') + std::string(GetParam().text) +
                 std::string(behind, 'e'));
      }
    }
  }
};

TEST_P(Utf8Test, IsRefusedInAString) {
  AtEveryPlace([](const std::string& text) {
    Value value;
    EXPECT_FALSE(value.Parse("[\"" + text + "\"]"));
    EXPECT_TRUE(value.IsNull());
  });
}

TEST_P(Utf8Test, IsRefusedBehindAnEscape) {
  AtEveryPlace([](const std::string& text) {
    Value value;
    EXPECT_FALSE(value.Parse("[\"\\n" + text + "\"]"));
  });
}

TEST_P(Utf8Test, IsRefusedInAName) {
  AtEveryPlace([](const std::string& text) {
    Value value;
    EXPECT_FALSE(value.Parse("{\"" + text + "\":1}"));
  });
}

TEST_P(Utf8Test, IsWrittenAsReplacementCharacters) {
  AtEveryPlace([](const std::string& text) {
    const Value value(text);
    EXPECT_EQ(text, value.AsString());
    const std::string written = value.ToStyledString();
    Value again = Read(written);
    int replacements = 0;
    const std::string read = again.AsString();
    for (std::size_t at = read.find("\xEF\xBF\xBD"); at != std::string::npos;
         at = read.find("\xEF\xBF\xBD", at + 1)) {
      ++replacements;
    }
    EXPECT_EQ(GetParam().replacements, replacements) << written;
  });
}

INSTANTIATE_TEST_SUITE_P(IllFormed, Utf8Test, testing::ValuesIn(kIllFormed),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(Utf8ExamplesTest, TheStandardsOwnExampleIsReplacedAsItSays) {
  // The Unicode Standard, 3.9, table 3-8 and the two behind it.
  Value value;
  value.Append(std::string("\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41"));
  value.Append(std::string("\xED\xA0\x80\xED\xBF\xBF\xED\xAF\x41"));
  value.Append(std::string("\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42"));
  value.Append(std::string("\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41"));
  const std::string r = "\xEF\xBF\xBD";
  EXPECT_EQ("[\"" + r + r + r + r + r + r + r + r + "A\",\"" + r + r + r + r + r + r + r + r +
                "A\",\"" + r + r + r + r + r + "A" + r + r + "B\",\"" + r + r + r + r + "A\"]",
            value.JsonValueToString());
}

TEST(Utf8ExamplesTest, EveryCodePointIsReadAndWritten) {
  std::string text;
  for (unsigned point = 0x20; point <= 0x10FFFF; ++point) {
    if (point == '"' || point == '\\' || (point >= 0xD800 && point <= 0xDFFF)) {
      continue;
    }
    if (point < 0x80) {
      text += static_cast<char>(point);
    } else if (point < 0x800) {
      text += static_cast<char>(0xC0 | point >> 6);
    } else if (point < 0x10000) {
      text += static_cast<char>(0xE0 | point >> 12);
      text += static_cast<char>(0x80 | (point >> 6 & 0x3F));
    } else {
      text += static_cast<char>(0xF0 | point >> 18);
      text += static_cast<char>(0x80 | (point >> 12 & 0x3F));
      text += static_cast<char>(0x80 | (point >> 6 & 0x3F));
    }
    if (point >= 0x80) {
      text += static_cast<char>(0x80 | (point & 0x3F));
    }
  }
  Value value = Read('"' + text + '"');
  EXPECT_TRUE(text == value.AsString());
  EXPECT_TRUE('"' + text + "\"\n" == value.ToStyledString());
}

}  // namespace

#include "Text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string Escaped(const std::string& text, bool keepLines) {
  TerminalEscaper escaper(keepLines);
  const std::string out = escaper.Feed(text.data(), text.size());
  return out + escaper.Flush();
}

TEST(TerminalEscaper, LetsTextPass) {
  EXPECT_EQ(Escaped("plain \xC3\xA9 \xE2\x82\xAC \xC2\xA0", true),
            "plain \xC3\xA9 \xE2\x82\xAC \xC2\xA0");
}

TEST(TerminalEscaper, EscapesControlBytes) {
  EXPECT_EQ(Escaped("\x1b[31m\a\x7f\r", true), "\\x1b[31m\\x07\\x7f\\r");
  EXPECT_EQ(Escaped(std::string("a\0b", 3), true), "a\\x00b");
}

TEST(TerminalEscaper, KeepsLinesWhereAsked) {
  EXPECT_EQ(Escaped("a\n\tb", true), "a\n\tb");
  EXPECT_EQ(Escaped("a\n\tb", false), "a\\n\\tb");
}

TEST(TerminalEscaper, EscapesC1ControlsInTheirUtf8Form) {
  EXPECT_EQ(Escaped("\xC2\x9B"
                    "31m",
                    true),
            "\\xc2\\x9b31m");
  EXPECT_EQ(Escaped("\xC2\x80\xC2\x9F\xC2\xA1", true), "\\xc2\\x80\\xc2\\x9f\xC2\xA1");
}

TEST(TerminalEscaper, EscapesAcrossPieces) {
  TerminalEscaper escaper(true);
  std::string out = escaper.Feed("a\xC2", 2);
  EXPECT_EQ(out, "a");
  out += escaper.Feed("\x9B\xC2", 2);
  out += escaper.Feed("\xA1\xC2", 2);
  out += escaper.Flush();
  EXPECT_EQ(out, "a\\xc2\\x9b\xC2\xA1\xC2");
}

TEST(TerminalEscaper, KeepsALeadByteThatNothingFollows) {
  EXPECT_EQ(Escaped("\xC2\xC2\x85\xC2z", true), "\xC2\\xc2\\x85\xC2z");
}

TEST(Excerpt, SaysHowMuchThereWas) {
  EXPECT_EQ(Excerpt("abc", 3), "abc");
  EXPECT_EQ(Excerpt("abcd", 3), "abc ... (4 bytes)");
}

TEST(Quoted, CutsVeryLongPaths) {
  EXPECT_EQ(Quoted("/tmp/a b"), "'/tmp/a b'");
  EXPECT_EQ(Quoted(std::string(5000, 'x')), "'" + std::string(300, 'x') + "...'");
}

TEST(NamesSecret, KnowsTheUsualNames) {
  for (const char* name :
       {"Authorization", "X-Auth-Token", "x-zun-security-token", "Cookie", "password", "PassPhrase",
        "X-Amz-Signature", "api_key", "client_secret", "Proxy-Authorization", "sig"}) {
    EXPECT_TRUE(NamesSecret(name)) << name;
  }
  for (const char* name : {"Date", "Content-Type", "user", "accessId", "Host", "design"}) {
    EXPECT_FALSE(NamesSecret(name)) << name;
  }
}

TEST(SecretsOfUrl, FindsPasswordAndQueryValues) {
  EXPECT_THAT(SecretsOfUrl("http://user:pa:ss@host/p?a=1&token=t0k&Signature=s%3D&x#token=no"),
              ElementsAre("pa:ss", "t0k", "s%3D"));
  EXPECT_THAT(SecretsOfUrl("http://user@host/p?a=1"), IsEmpty());
  EXPECT_THAT(SecretsOfUrl("http://host:80/a@b?key"), IsEmpty());
  EXPECT_THAT(SecretsOfUrl("http://host/?"), IsEmpty());
  EXPECT_THAT(SecretsOfUrl(""), IsEmpty());
}

TEST(MaskedHeader, HidesValuesOfSecretNames) {
  EXPECT_EQ(MaskedHeader("X-Auth-Token: abc"), "X-Auth-Token: ***");
  EXPECT_EQ(MaskedHeader("X-Auth-Token: "), "X-Auth-Token: ");
  EXPECT_EQ(MaskedHeader("Date: today"), "Date: today");
}

TEST(HumanBytes, PicksTheUnit) {
  EXPECT_EQ(HumanBytes(0), "0 B");
  EXPECT_EQ(HumanBytes(1023), "1023 B");
  EXPECT_EQ(HumanBytes(1536), "1.5 KiB");
  EXPECT_EQ(HumanBytes(5.0 * 1024 * 1024 * 1024), "5.0 GiB");
  EXPECT_EQ(HumanBytes(5000.0 * 1024 * 1024 * 1024 * 1024), "5000.0 TiB");
}

TEST(Wrap, BreaksAtBlanksAndLeavesIndentedLines) {
  EXPECT_EQ(Wrap("one two three\n  kept as it is, however long\nfour", 8, 0),
            "one two\nthree\n  kept as it is, however long\nfour");
  EXPECT_EQ(Wrap("one two three", 10, 4), "one\n    two\n    three");
}

TEST(SplitFooter, TakesTheExampleApart) {
  const Footer footer = SplitFooter("Notes.\n\nExample:\n  a\n  b");
  EXPECT_EQ(footer.notes, "Notes.");
  EXPECT_EQ(footer.example, "  a\n  b");
  EXPECT_EQ(SplitFooter("Notes.").notes, "Notes.");
}

}  // namespace

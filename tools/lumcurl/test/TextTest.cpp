#include "Text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "Help.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(TerminalEscaper, EscapesAcrossPieces) {
  const std::string text =
      "a\n\tb\r\x1b[31m \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 \xC2\x9B \xE2\x80\xAE \xFF "
      "\xE2\x82z";
  const std::string shown =
      "a\n\tb\\x0d\\x1b[31m \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 \\xc2\\x9b \\xe2\\x80\\xae "
      "\\xff \\xe2\\x82z";
  for (std::size_t cut = 0; cut <= text.size(); ++cut) {
    for (std::size_t again = cut; again <= text.size(); ++again) {
      TerminalEscaper escaper;
      std::string out = escaper.Feed(text.data(), cut);
      out += escaper.Feed(text.data() + cut, again - cut);
      out += escaper.Feed(text.data() + again, text.size() - again);
      EXPECT_EQ(out + escaper.Flush(), shown) << cut << ", " << again;
    }
  }
}

TEST(TerminalEscaper, HoldsBackOnlyWhatMayBecomeACharacter) {
  for (const char* whole : {"a", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
    TerminalEscaper escaper;
    EXPECT_EQ(escaper.Feed(whole, std::strlen(whole)), whole);
  }
  for (const char* part : {"\xC3", "\xE2", "\xE2\x82", "\xF0", "\xF0\x9F", "\xF0\x9F\x98"}) {
    TerminalEscaper escaper;
    EXPECT_EQ(escaper.Feed(part, std::strlen(part)), "");
    const std::string rest = escaper.Flush();
    EXPECT_EQ(rest.size(), 4 * std::strlen(part));
    EXPECT_EQ(escaper.Flush(), "");
  }
}

TEST(Excerpt, EndsInDotsWhereItIsCut) {
  EXPECT_EQ(Excerpt("abc", 3), "abc");
  EXPECT_EQ(Excerpt("abcd", 3), "abc...");
  EXPECT_EQ(Excerpt("a\nb\xE2\x80\xAE", 6), "a\\x0ab\\xe2\\x80\\xae");
}

TEST(Excerpt, CutsBetweenCharacters) {
  EXPECT_EQ(Excerpt("ab\xE2\x82\xAC", 4), "ab...");
  EXPECT_EQ(Excerpt("\x1B\xE2\x82\xAC.", 4), "\\x1b\xE2\x82\xAC...");
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

TEST(SecretOfHeader, IsTheValueWhereTheNameSaysSecret) {
  EXPECT_EQ(SecretOfHeader("X-Auth-Token: abc"), "abc");
  EXPECT_EQ(SecretOfHeader("X-Auth-Token:a: b"), "a: b");
  EXPECT_EQ(SecretOfHeader("X-Auth-Token: "), "");
  EXPECT_EQ(SecretOfHeader("X-Auth-Token"), "");
  EXPECT_EQ(SecretOfHeader("Date: today"), "");
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

TEST(HumanTime, HasOneOrTwoParts) {
  EXPECT_EQ(HumanTime(0), "0 s");
  EXPECT_EQ(HumanTime(59.0), "59 s");
  EXPECT_EQ(HumanTime(59.1), "1 min 0 s");
  EXPECT_EQ(HumanTime(125), "2 min 5 s");
  EXPECT_EQ(HumanTime(3780), "1 h 3 min");
  EXPECT_EQ(HumanTime(1e300), HumanTime(1e9));
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

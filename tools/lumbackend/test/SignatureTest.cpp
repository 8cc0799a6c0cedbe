// Signed uploads.
#include "Signature.h"

#include <gtest/gtest.h>

#include "Fakes.h"

namespace {

constexpr char kKey[] = "key of the tests";
constexpr char kDate[] = "Sun, 06 Nov 1994 08:49:37 GMT";
constexpr std::time_t kThen = 784111777;
// printf 'PUT\nSun, 06 Nov 1994 08:49:37 GMT\n/objects/logs/a%%20b.zip' |
//   openssl dgst -sha1 -hmac 'key of the tests' -binary | base64
constexpr char kSigned[] = "LUM uWPPn5EimFQGf3x3D7tLPo7cej8=";

Call SignedCall(const std::string& date, const std::string& authorization,
                const std::string& target = "/objects/logs/a%20b.zip") {
  return lumtest::MakeCall("PUT", target, {"Date: " + date, "Authorization: " + authorization});
}

TEST(Signature, IsWhatOpensslComputes) {
  EXPECT_EQ(SignatureFor(kKey, "PUT", kDate, "/objects/logs/a%20b.zip"), kSigned);
}

TEST(Signature, IsAcceptedWithinTheWindow) {
  const Call call = SignedCall(kDate, kSigned);
  EXPECT_EQ(CheckSignature(kKey, call, kThen), "");
  EXPECT_EQ(CheckSignature(kKey, call, kThen - kDateWindow), "");
  EXPECT_EQ(CheckSignature(kKey, call, kThen + kDateWindow), "");
  EXPECT_EQ(CheckSignature(kKey, call, kThen - kDateWindow - 1),
            "Date is more than 15 minutes from now");
  EXPECT_EQ(CheckSignature(kKey, call, kThen + kDateWindow + 1),
            "Date is more than 15 minutes from now");
}

TEST(Signature, TheQueryIsNotPartOfIt) {
  EXPECT_EQ(CheckSignature(kKey, SignedCall(kDate, kSigned, "/objects/logs/a%20b.zip?x=1"), kThen),
            "");
}

TEST(Signature, EveryPartOfItCounts) {
  const std::string mismatch = "the signature does not match";
  EXPECT_EQ(CheckSignature("another key", SignedCall(kDate, kSigned), kThen), mismatch);
  EXPECT_EQ(CheckSignature(kKey, SignedCall("Sun, 06 Nov 1994 08:49:38 GMT", kSigned), kThen),
            mismatch);
  EXPECT_EQ(CheckSignature(kKey, SignedCall(kDate, kSigned, "/objects/logs/b.zip"), kThen),
            mismatch);
  // The same path, encoded in another way, is another text.
  EXPECT_EQ(CheckSignature(kKey, SignedCall(kDate, kSigned, "/objects/logs/%61%20b.zip"), kThen),
            mismatch);
  const Call post =
      lumtest::MakeCall("POST", "/objects/logs/a%20b.zip",
                        {std::string("Date: ") + kDate, std::string("Authorization: ") + kSigned});
  EXPECT_EQ(CheckSignature(kKey, post, kThen), mismatch);
  EXPECT_EQ(CheckSignature(kKey, SignedCall(kDate, std::string(kSigned) + "="), kThen), mismatch);
  EXPECT_EQ(CheckSignature(kKey, SignedCall(kDate, "LUM "), kThen),
            "Authorization does not begin with 'LUM '");
}

TEST(Signature, SaysWhatIsMissing) {
  EXPECT_EQ(CheckSignature(kKey, lumtest::MakeCall("PUT", "/a"), kThen), "no Authorization");
  EXPECT_EQ(CheckSignature(kKey, lumtest::MakeCall("PUT", "/a", {"Authorization: LUM x"}), kThen),
            "no Date");
  EXPECT_EQ(CheckSignature(kKey, SignedCall("yesterday", kSigned), kThen), "Date is no HTTP date");
  EXPECT_EQ(CheckSignature(kKey, SignedCall(kDate, "AWS abc"), kThen),
            "Authorization does not begin with 'LUM '");
}

TEST(Signature, KnowsHttpDates) {
  EXPECT_EQ(ParseHttpDate(kDate), kThen);
  EXPECT_EQ(ParseHttpDate("Thu, 01 Jan 1970 00:00:00 GMT"), 0);
  for (const char* text : {"", "Sun, 06 Nov 1994 08:49:37", "Sun, 06 Nov 1994 08:49:37 CET",
                           "1994-11-06T08:49:37Z", "Sun, 06 Nov 1994 08:49:37 GMT ",
                           "Sun, 06 Foo 1994 08:49:37 GMT", "Sun, 06 Nov 1994 25:49:37 GMT"}) {
    EXPECT_FALSE(ParseHttpDate(text).has_value()) << text;
  }
}

}  // namespace

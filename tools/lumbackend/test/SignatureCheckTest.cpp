// Signed uploads.
#include "Objects.h"

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

TEST(SignatureCheck, IsAcceptedWithinTheWindow) {
  const Call call = SignedCall(kDate, kSigned);
  EXPECT_EQ(CheckSignature(kKey, call, kThen), "");
  EXPECT_EQ(CheckSignature(kKey, call, kThen - kDateWindow), "");
  EXPECT_EQ(CheckSignature(kKey, call, kThen + kDateWindow), "");
  EXPECT_EQ(CheckSignature(kKey, call, kThen - kDateWindow - 1),
            "Date is more than 15 minutes from now");
  EXPECT_EQ(CheckSignature(kKey, call, kThen + kDateWindow + 1),
            "Date is more than 15 minutes from now");
}

TEST(SignatureCheck, TheQueryIsNotPartOfIt) {
  EXPECT_EQ(CheckSignature(kKey, SignedCall(kDate, kSigned, "/objects/logs/a%20b.zip?x=1"), kThen),
            "");
}

TEST(SignatureCheck, EveryPartOfItCounts) {
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

TEST(SignatureCheck, SaysWhatIsMissing) {
  EXPECT_EQ(CheckSignature(kKey, lumtest::MakeCall("PUT", "/a"), kThen), "no Authorization");
  EXPECT_EQ(CheckSignature(kKey, lumtest::MakeCall("PUT", "/a", {"Authorization: LUM x"}), kThen),
            "no Date");
  EXPECT_EQ(CheckSignature(kKey, SignedCall("yesterday", kSigned), kThen), "Date is no HTTP date");
  EXPECT_EQ(CheckSignature(kKey, SignedCall(kDate, "AWS abc"), kThen),
            "Authorization does not begin with 'LUM '");
}

}  // namespace

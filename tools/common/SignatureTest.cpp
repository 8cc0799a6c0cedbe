#include "Signature.h"

#include <gtest/gtest.h>

namespace {

constexpr char kDate[] = "Sun, 06 Nov 1994 08:49:37 GMT";
constexpr std::time_t kThen = 784111777;

// The expected value comes from: printf 'PUT\nSun, 06 Nov 1994 08:49:37 GMT\n/objects/a.zip' |
// openssl dgst -sha1 -hmac secret-key -binary | base64
TEST(Signature, IsTheHmacOfMethodDateAndPath) {
  EXPECT_EQ(Signature("secret-key", "PUT", kDate, "/objects/a.zip"),
            "LUM oRhQvr3t9sm7LOKNNEhnLFYqUi8=");
}

TEST(HttpDate, HasTheFormOfRfc9110) {
  EXPECT_EQ(HttpDate(kThen), kDate);
  EXPECT_EQ(HttpDate(0), "Thu, 01 Jan 1970 00:00:00 GMT");
}

TEST(HttpDate, IsRead) {
  EXPECT_EQ(ParseHttpDate(kDate), kThen);
  EXPECT_EQ(ParseHttpDate("Thu, 01 Jan 1970 00:00:00 GMT"), 0);
  for (const char* text : {"", "Sun, 06 Nov 1994 08:49:37", "Sun, 06 Nov 1994 08:49:37 CET",
                           "1994-11-06T08:49:37Z", "Sun, 06 Nov 1994 08:49:37 GMT ",
                           "Sun, 06 Foo 1994 08:49:37 GMT", "Sun, 06 Nov 1994 25:49:37 GMT"}) {
    EXPECT_FALSE(ParseHttpDate(text).has_value()) << text;
  }
  EXPECT_FALSE(ParseHttpDate(std::string(kDate) + '\0').has_value());
}

}  // namespace

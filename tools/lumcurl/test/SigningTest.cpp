#include "Signing.h"

#include <gtest/gtest.h>

#include "Failure.h"

namespace {

TEST(HttpDate, HasTheFormOfRfc9110) {
  EXPECT_EQ(HttpDate(784111777), "Sun, 06 Nov 1994 08:49:37 GMT");
  EXPECT_EQ(HttpDate(0), "Thu, 01 Jan 1970 00:00:00 GMT");
}

TEST(RequestPath, IsWhatLibcurlSends) {
  EXPECT_EQ(RequestPath("http://h/objects/a.zip"), "/objects/a.zip");
  EXPECT_EQ(RequestPath("http://h:8080/a%20b/%C3%A9?query=1#fragment"), "/a%20b/%C3%A9");
  EXPECT_EQ(RequestPath("http://h/a/./b/../c"), "/a/c");
  EXPECT_EQ(RequestPath("http://h"), "/");
  EXPECT_EQ(RequestPath("https://u:p@[::1]:1/x/"), "/x/");
}

TEST(RequestPath, RefusesWhatIsNoUrl) {
  EXPECT_THROW(RequestPath("http://"), Failure);
}

// The expected value comes from: printf 'PUT\nSun, 06 Nov 1994 08:49:37 GMT\n/objects/a.zip' |
// openssl dgst -sha1 -hmac secret-key -binary | base64
TEST(Signature, IsTheHmacOfMethodDateAndPath) {
  EXPECT_EQ(Signature("secret-key", "PUT", "Sun, 06 Nov 1994 08:49:37 GMT", "/objects/a.zip"),
            "LUM oRhQvr3t9sm7LOKNNEhnLFYqUi8=");
}

}  // namespace

#include "RequestPath.h"

#include <gtest/gtest.h>

#include "Failure.h"

namespace {

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

}  // namespace

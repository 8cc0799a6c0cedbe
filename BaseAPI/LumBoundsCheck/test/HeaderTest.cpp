// The header serves callers in C and in C++11, and its types are the ones C11 names.
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "LumBoundsCheck.h"

extern "C" int CallAllFromC(char* buffer, rsize_t capacity);
int CallAllFromCpp11(char* buffer, rsize_t capacity);

namespace {

static_assert(std::is_same<rsize_t, std::size_t>::value, "C11 K.3.3");
static_assert(std::is_same<errno_t, int>::value, "C11 K.3.2");

TEST(HeaderTest, ServesCallersInC) {
  char buffer[8];
  EXPECT_EQ(7, CallAllFromC(buffer, sizeof(buffer)));
  EXPECT_STREQ("12345-6", buffer);
}

TEST(HeaderTest, ServesCallersInCpp11) {
  char buffer[8];
  EXPECT_EQ(7, CallAllFromCpp11(buffer, sizeof(buffer)));
  EXPECT_STREQ("12345-6", buffer);
}

}  // namespace

// The header serves callers in C++11.
#include <gtest/gtest.h>

#include <string>

std::string UseAllFromCpp11();

namespace {

TEST(HeaderTest, ServesCallersInCpp11) {
  EXPECT_EQ(
      "boolbool intint unsignedunsigned doubledouble texttext bytesbytes nullnull arrayarray "
      "objectobject addedadded -1",
      UseAllFromCpp11());
}

}  // namespace

// The live tests' share in libcurl's initialisation: the clients' destructors clean up unasked, so
// the program holds one of its own for as long as it runs.

#include <curl/curl.h>
#include <gtest/gtest.h>

namespace {

class CurlEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { ASSERT_EQ(curl_global_init(CURL_GLOBAL_ALL), CURLE_OK); }
  void TearDown() override { curl_global_cleanup(); }
};

[[maybe_unused]] const ::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new CurlEnvironment);

}  // namespace

// The general client over real sockets.

#ifndef LUM_TEST_HTTP_HTTPLIVETEST_H
#define LUM_TEST_HTTP_HTTPLIVETEST_H

#include <string>

#include "LiveTest.h"

namespace lumtest {

class HttpLiveTest : public LiveTest {
 protected:
  LumJson::Value Get(const std::string& url, bool useSsl = false) {
    return Quietly([&] { return client.Get(url, "", useSsl, code); });
  }

  LumJson::Value Post(const std::string& url, const std::string& body, bool useSsl = false) {
    return Quietly([&] { return client.Post(url, body, useSsl, code); });
  }

  // A request that fails: the code is -1, the value null, and one line says why.
  void ExpectGetFails(const std::string& url, const std::string& message, bool useSsl = false) {
    log.Clear();
    code = 7;
    EXPECT_TRUE(Get(url, useSsl).IsNull());
    EXPECT_EQ(code, -1);
    EXPECT_THAT(log.Messages(), ::testing::ElementsAre(::testing::MatchesRegex(message)));
  }

  LumCurlHttp client;
  int code = 7;
};

// The engine's line about a failed transfer, as a regular expression.
inline std::string Failed(const std::string& method, int result, const std::string& reason) {
  return method + " failed for " + CurlErrorPattern(result) + ", ret: " + std::to_string(result) +
         ", code: [0-9]+, errorBuf: " + reason;
}

}  // namespace lumtest

#endif  // LUM_TEST_HTTP_HTTPLIVETEST_H

// What the live tests of the service client share: the real library and libcurl over a wire server,
// with everything watched that the library may write.

#ifndef LUM_TEST_SERVICE_SERVICELIVETEST_H
#define LUM_TEST_SERVICE_SERVICELIVETEST_H

#include <cstddef>
#include <functional>
#include <list>
#include <optional>
#include <string>

#include "../http/LiveTest.h"
#include "LumCurlOrvOps.h"

namespace lumtest {

using Lines = std::list<std::string>;

// A document from its text.
inline LumJson::Value Json(const std::string& text) {
  LumJson::Value value;
  EXPECT_TRUE(value.Parse(text)) << text;
  return value;
}

// One client and one server. Standard output is caught from the start; when a test ends, it must
// hold `expectedOutput` and nothing else.
class ServiceLiveTest : public LiveTest {
 protected:
  ServiceLiveTest() { client.CurlGlobalInit(); }

  void TearDown() override {
    EXPECT_EQ(m_output.Stop(), expectedOutput) << "standard output is for the replies of uploads";
  }

  // The raw head of a request as it must have come in: libcurl's own lines first, then `lines`,
  // then the length of the body where there is one.
  std::string Head(const std::string& method, const std::string& target, const Lines& lines,
                   std::optional<std::size_t> length = std::nullopt) const {
    std::string head = method + " " + target +
                       " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.Port()) +
                       "\r\nAccept: */*\r\n";
    for (const std::string& line : lines) {
      head += line + "\r\n";
    }
    if (length) {
      head += "Content-Length: " + std::to_string(*length) + "\r\n";
    }
    return head + "\r\n";
  }

  TempDir directory;
  LumCurlOrvOps client;
  std::string expectedOutput;
  WireServer server;

 private:
  CaptureStdout m_output;
};

// Answers every request with `status`, an upload's reply included.
inline std::function<WireReply(const WireRequest&)> Always(int status,
                                                           const std::string& body = "") {
  return [status, body](const WireRequest&) { return StatusReply(status, body); };
}

}  // namespace lumtest

#endif  // LUM_TEST_SERVICE_SERVICELIVETEST_H

// What the live tests of the service client share: the real library and libcurl over a wire server,
// with everything watched that the library may write.

#ifndef LUM_TEST_SERVICE_SERVICELIVETEST_H
#define LUM_TEST_SERVICE_SERVICELIVETEST_H

#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include "../http/LiveTest.h"
#include "LumCurlOrvOps.h"

namespace lumtest {

using Lines = std::list<std::string>;

// A document from its text.
LumJson::Value Json(const std::string& text);

// One client and one server. Standard output is caught from the start; when a test ends, it must
// hold `expectedOutput` and nothing else.
class ServiceLiveTest : public LiveTest {
 protected:
  explicit ServiceLiveTest(WireOptions options = {});
  void TearDown() override;

  // A pass phrase as SetSslInfo takes it, its terminating zero not counted.
  void OfferCertificate(const std::string& ca, const std::string& certificate,
                        const std::string& key, std::string passPhrase);

  // The raw head of a request as it must have come in: libcurl's own lines first, then `lines`,
  // then the length of the body where there is one.
  std::string Head(const std::string& method, const std::string& target, const Lines& lines,
                   std::optional<std::size_t> length = std::nullopt) const;

  TempDir directory;
  LumCurlOrvOps client;
  std::string expectedOutput;
  std::unique_ptr<WireServer> ownServer;
  WireServer& server;

 private:
  CaptureStdout m_output;
};

// Answers every request with `status`, an upload's reply included.
std::function<WireReply(const WireRequest&)> Always(int status, const std::string& body = "");

}  // namespace lumtest

#endif  // LUM_TEST_SERVICE_SERVICELIVETEST_H

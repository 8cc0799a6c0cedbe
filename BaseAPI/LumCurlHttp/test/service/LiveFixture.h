// What the live tests of the service client share: the real library and libcurl over a wire server,
// with everything watched that the library may write.

#ifndef LUM_TEST_SERVICE_LIVEFIXTURE_H
#define LUM_TEST_SERVICE_LIVEFIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include "LumCurlOrvOps.h"
#include "log/LogCapture.h"
#include "support/CaptureFd.h"
#include "support/Files.h"
#include "wire/CurlText.h"
#include "wire/WireServer.h"

namespace lumtest {

using Lines = std::list<std::string>;

// A document from its text.
LumJson::Value Json(const std::string& text);

// A pass phrase as SetSslInfo takes it, its terminating zero not counted.
void OfferCertificate(LumCurlOrvOps& client, const std::string& ca, const std::string& certificate,
                      const std::string& key, const std::string& passPhrase);

// One client and one server. Standard output is caught from the start; when a test ends, it must
// hold `expectedOutput` and nothing else.
class LiveTest : public ::testing::Test {
 protected:
  explicit LiveTest(WireOptions options = {});
  void TearDown() override;

  // The raw head of a request as it must have come in: libcurl's own lines first, then `lines`,
  // then the length of the body where there is one.
  std::string Head(const std::string& method, const std::string& target, const Lines& lines,
                   std::optional<std::size_t> length = std::nullopt) const;

  // Ends the watch over standard output; gives what came.
  std::string StopOutput() { return m_output.Stop(); }

  LogCapture log;
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

#endif  // LUM_TEST_SERVICE_LIVEFIXTURE_H

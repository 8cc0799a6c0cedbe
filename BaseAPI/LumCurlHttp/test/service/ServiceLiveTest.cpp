// The fixture of the service client's live tests.

#include "ServiceLiveTest.h"

#include <utility>

namespace lumtest {

LumJson::Value Json(const std::string& text) {
  LumJson::Value value;
  EXPECT_TRUE(value.Parse(text)) << text;
  return value;
}

ServiceLiveTest::ServiceLiveTest(WireOptions options)
    : ownServer(std::make_unique<WireServer>(std::move(options))), server(*ownServer) {
  client.CurlGlobalInit();
}

void ServiceLiveTest::TearDown() {
  EXPECT_EQ(m_output.Stop(), expectedOutput) << "standard output is for the replies of uploads";
}

void ServiceLiveTest::OfferCertificate(const std::string& ca, const std::string& certificate,
                                       const std::string& key, std::string passPhrase) {
  client.SetSslInfo(ca, certificate, key, reinterpret_cast<unsigned char*>(passPhrase.data()),
                    static_cast<int>(passPhrase.size()));
}

std::string ServiceLiveTest::Head(const std::string& method, const std::string& target,
                                  const Lines& lines, std::optional<std::size_t> length) const {
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

std::function<WireReply(const WireRequest&)> Always(int status, const std::string& body) {
  return [status, body](const WireRequest&) { return StatusReply(status, body); };
}

}  // namespace lumtest

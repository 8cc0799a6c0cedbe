// The wire server with libcurl as its client: the paths that a hand-written client never takes.

#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "support/Files.h"
#include "support/ProcessState.h"
#include "tls/TlsMaterial.h"
#include "wire/Digest.h"
#include "wire/Ports.h"
#include "wire/WireServer.h"

namespace lumtest {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

std::size_t Append(char* bytes, std::size_t size, std::size_t count, void* body) {
  static_cast<std::string*>(body)->append(bytes, size * count);
  return size * count;
}

// The bytes of a generated body that are still to be sent.
struct Upload {
  std::uint64_t size;
  std::uint64_t sent = 0;
};

std::size_t Give(char* bytes, std::size_t size, std::size_t count, void* data) {
  static const std::string block = GeneratedBytes(0, 1 << 20);
  auto* const upload = static_cast<Upload*>(data);
  const auto now =
      static_cast<std::size_t>(std::min<std::uint64_t>(size * count, upload->size - upload->sent));
  std::memcpy(bytes, block.data() + upload->sent % kGeneratedPeriod, now);
  upload->sent += now;
  return now;
}

class WireCurlTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(curl_global_init(CURL_GLOBAL_ALL), CURLE_OK); }
  static void TearDownTestSuite() { curl_global_cleanup(); }

  void SetUp() override {
    m_handle.reset(curl_easy_init());
    ASSERT_NE(m_handle, nullptr);
    Set(CURLOPT_WRITEFUNCTION, &Append);
    Set(CURLOPT_WRITEDATA, &m_body);
    Set(CURLOPT_NOSIGNAL, 1L);
    Set(CURLOPT_TIMEOUT, 60L);
    Set(CURLOPT_PROXY, "");
  }

  template <typename T>
  void Set(CURLoption option, T value) {
    ASSERT_EQ(curl_easy_setopt(m_handle.get(), option, value), CURLE_OK);
  }

  CURLcode Perform(const std::string& url) {
    m_body.clear();
    Set(CURLOPT_URL, url.c_str());
    return curl_easy_perform(m_handle.get());
  }

  long Status() {
    long status = 0;
    curl_easy_getinfo(m_handle.get(), CURLINFO_RESPONSE_CODE, &status);
    return status;
  }

  void UploadGenerated(Upload* upload) {
    Set(CURLOPT_UPLOAD, 1L);
    Set(CURLOPT_READFUNCTION, &Give);
    Set(CURLOPT_READDATA, upload);
    Set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(upload->size));
  }

  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> m_handle{nullptr, &curl_easy_cleanup};
  std::string m_body;
};

TEST_F(WireCurlTest, GetsJsonChunksAndRedirects) {
  WireServer server;
  server.Script(JsonReply("{}")).Script(ChunkedReply({"ab", "c"})).Script(RedirectReply("/there"));
  server.Script(StatusReply(204));
  EXPECT_EQ(Perform(server.Url("/a b?c")), CURLE_URL_MALFORMAT);
  EXPECT_EQ(Perform(server.Url("/a?b")), CURLE_OK);
  EXPECT_EQ(m_body, "{}");
  EXPECT_EQ(Perform(server.Url()), CURLE_OK);
  EXPECT_EQ(m_body, "abc");
  Set(CURLOPT_FOLLOWLOCATION, 1L);
  EXPECT_EQ(Perform(server.Url("/here")), CURLE_OK);
  EXPECT_EQ(Status(), 204);
  EXPECT_EQ(server.Request(3).target, "/there");
  EXPECT_EQ(server.Connections().size(), 1u);
}

TEST_F(WireCurlTest, TakesALargeUploadInFlatMemory) {
  constexpr std::uint64_t kSize = 96u << 20;
  WireOptions options;
  options.keptBodyBytes = 1000;
  WireServer server(options);
  server.Script(StatusReply(200));
  Upload upload{kSize};
  UploadGenerated(&upload);
  ASSERT_TRUE(ResetPeakResident());
  const std::size_t before = ResidentBytes();
  ASSERT_EQ(Perform(server.Url("/up")), CURLE_OK);
  EXPECT_LE(PeakResidentBytes(), before + (32u << 20));
  ASSERT_TRUE(server.WaitForRequests(1));
  const WireRequest request = server.Request(0);
  EXPECT_EQ(request.method, "PUT");
  EXPECT_EQ(request.Header("Expect"), "100-continue");
  EXPECT_EQ(request.bodyBytes, kSize);
  EXPECT_EQ(request.bodySha256, GeneratedSha256(kSize));
  EXPECT_EQ(request.body.size(), 1000u);
}

TEST_F(WireCurlTest, SendsAnUploadWithoutBeingToldToGoOn) {
  WireServer server;
  server.Script(StatusReply(200).NoContinue());
  Upload upload{2000000};
  UploadGenerated(&upload);
  Set(CURLOPT_EXPECT_100_TIMEOUT_MS, 1L);
  ASSERT_EQ(Perform(server.Url()), CURLE_OK);
  EXPECT_EQ(server.Request(0).bodyBytes, 2000000u);
}

TEST_F(WireCurlTest, AnUploadRefusedBeforeItsBodySendsNone) {
  WireServer server;
  server.Script(StatusReply(403, "no").At(WireStart::kHead).Close());
  Upload upload{2000000};
  UploadGenerated(&upload);
  ASSERT_EQ(Perform(server.Url()), CURLE_OK);
  EXPECT_EQ(Status(), 403);
  EXPECT_EQ(m_body, "no");
  EXPECT_EQ(upload.sent, 0u);
  m_handle.reset();
  ASSERT_TRUE(server.WaitIdle());
  EXPECT_EQ(server.Request(0).state, WireState::kAborted);
}

TEST_F(WireCurlTest, AnUploadIsCutInItsMidst) {
  WireOptions options;
  options.receiveBuffer = 4096;
  WireServer server(options);
  server.Script(WireReply(WireContinue()).At(WireStart::kHead).ReadBytes(100000).Reset());
  Upload upload{50000000};
  UploadGenerated(&upload);
  EXPECT_THAT((std::vector<CURLcode>{CURLE_SEND_ERROR, CURLE_RECV_ERROR}),
              ::testing::Contains(Perform(server.Url())));
  ASSERT_TRUE(server.WaitForRequests(1));
  EXPECT_EQ(server.Request(0).bodyBytes, 100000u);
  EXPECT_LT(upload.sent, 50000000u);
}

TEST_F(WireCurlTest, CutAnswersGiveTheirErrors) {
  WireServer server;
  server.Script(WireReply(WireHead(200, {"Content-Length: 5"}) + "abc").Close());
  EXPECT_EQ(Perform(server.Url()), CURLE_PARTIAL_FILE);
  server.Script(WireReply(WireHead(200, {"Content-Length: 5"}) + "abc").Reset());
  EXPECT_EQ(Perform(server.Url()), CURLE_RECV_ERROR);
  EXPECT_EQ(m_body, "abc");
  server.Script(WireReply().At(WireStart::kAccept).Drop());
  EXPECT_THAT((std::vector<CURLcode>{CURLE_GOT_NOTHING, CURLE_RECV_ERROR}),
              ::testing::Contains(Perform(server.Url())));
  server.Script(WireReply("garbage\r\n").Close());
  EXPECT_EQ(Perform(server.Url()), CURLE_UNSUPPORTED_PROTOCOL);
}

TEST_F(WireCurlTest, TimesOutOnAStallAndOnASilentPort) {
  WireServer server;
  server.Script(WireReply().At(WireStart::kAccept).Stall());
  Set(CURLOPT_TIMEOUT_MS, 100L);
  EXPECT_EQ(Perform(server.Url()), CURLE_OPERATION_TIMEDOUT);
  m_handle.reset();
  ASSERT_TRUE(server.WaitIdle());
  EXPECT_EQ(server.Connections()[0].end, WireEnd::kByClient);
  SetUp();
  const SilentPort silent;
  Set(CURLOPT_TIMEOUT_MS, 100L);
  EXPECT_EQ(Perform(silent.Url()), CURLE_OPERATION_TIMEDOUT);
  const RefusedPort refused;
  EXPECT_EQ(Perform(refused.Url()), CURLE_COULDNT_CONNECT);
}

TEST_F(WireCurlTest, TakesManyHeadersAndInterimAnswers) {
  WireServer server;
  server.Script(WireReply()
                    .Repeat(WireHead(103, {"Link: </a>"}), 100)
                    .Send("HTTP/1.1 200 OK\r\n")
                    .Repeat("X-A: b\r\n", 1000)
                    .Send("Content-Length: 2\r\n\r\nok"));
  EXPECT_EQ(Perform(server.Url()), CURLE_OK);
  EXPECT_EQ(m_body, "ok");
}

TEST_F(WireCurlTest, SpeaksTlsWithAClientCertificate) {
  const TempDir directory;
  const TlsMaterial made = lumtools::MakeTlsMaterial(directory.Path(), "pass phrase");
  WireOptions options;
  options.tls = MakeWireTls(made, WireTls::ClientCertificate::kRequired);
  WireServer server(options);
  for (const std::string& key : {made.clientEncryptedKey, made.clientTraditionalKey}) {
    server.Script(StatusReply(200, "ok").Close());
    Set(CURLOPT_CAINFO, made.caCertificate.c_str());
    Set(CURLOPT_SSLCERT, made.clientCertificate.c_str());
    Set(CURLOPT_SSLKEY, key.c_str());
    Set(CURLOPT_KEYPASSWD, "pass phrase");
    ASSERT_EQ(Perform(server.UrlWithHost("localhost")), CURLE_OK) << key;
    EXPECT_EQ(m_body, "ok");
    EXPECT_EQ(server.Requests().back().clientSubject, "CN=Lum test client,O=Lum");
    EXPECT_EQ(server.Requests().back().serverName, "localhost");
    m_handle.reset();
    SetUp();
  }
  Set(CURLOPT_CAINFO, made.caCertificate.c_str());
  EXPECT_NE(Perform(server.Url()), CURLE_OK);
  EXPECT_EQ(server.RequestCount(), 2u);
}

TEST_F(WireCurlTest, EachBadServerCertificateIsRefused) {
  const TempDir directory;
  const TlsMaterial made = lumtools::MakeTlsMaterial(directory.Path(), "pass phrase");
  const std::pair<std::string, std::string> bad[] = {
      {made.expiredServerCertificate, made.expiredServerKey},
      {made.wrongHostServerCertificate, made.wrongHostServerKey},
      {made.untrustedServerCertificate, made.untrustedServerKey}};
  for (const auto& [certificate, key] : bad) {
    WireOptions options;
    options.tls = MakeWireTls(made);
    options.tls->certificate = certificate;
    options.tls->key = key;
    WireServer server(options);
    server.Script(StatusReply(200, "ok").Close());
    Set(CURLOPT_CAINFO, made.caCertificate.c_str());
    EXPECT_EQ(Perform(server.Url()), CURLE_PEER_FAILED_VERIFICATION) << certificate;
    Set(CURLOPT_SSL_VERIFYPEER, 0L);
    Set(CURLOPT_SSL_VERIFYHOST, 0L);
    EXPECT_EQ(Perform(server.Url()), CURLE_OK) << certificate;
    m_handle.reset();
    SetUp();
  }
}

}  // namespace
}  // namespace lumtest

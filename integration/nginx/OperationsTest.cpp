// Every operation over HTTP/1.1, without TLS and with it, and over HTTP/2, which libcurl takes when
// a server offers it in the TLS handshake.

#include <HttpResult.h>
#include <LumApollo.h>
#include <LumCurlHttp.h>
#include <LumCurlOrvOps.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Nginx.h"
#include "log/LogCapture.h"
#include "support/CaptureFd.h"
#include "support/ProcessState.h"
#include "wire/CurlText.h"
#include "wire/WireReply.h"

namespace lumtest {
namespace {

constexpr std::uint64_t kLargeFile = 256 * 1024 * 1024;

// More than the 64 KiB that a server lets a client send before it has read any of it.
constexpr std::size_t kMoreThanAWindow = 300000;

struct Protocol {
  const char* name;
  Nginx::Port port;
  const char* scheme;
  const char* logged;

  bool IsHttp2() const { return port == Nginx::kHttp2; }
};

constexpr Protocol kProtocols[] = {{"OverHttp11", Nginx::kHttp, "http://", "HTTP/1.1|"},
                                   {"OverHttp11AndTls", Nginx::kHttps, "https://", "HTTP/1.1|"},
                                   {"OverHttp2", Nginx::kHttp2, "https://", "HTTP/2.0|"}};

class OperationsNginx : public testing::TestWithParam<Protocol> {
 protected:
  // All tests share a server.
  static void SetUpTestSuite() {
    LumCurlHttp::CurlGlobalInit();
    nginx = std::make_unique<Nginx>();
  }
  static void TearDownTestSuite() { nginx.reset(); }

  void TearDown() override { EXPECT_EQ(0u, log.Count(LumLogger::kError)); }

  // Stores the material of a client that nginx lets in, with its encrypted key.
  template <typename Client>
  static void Identify(Client& client) {
    std::string phrase = Nginx::PassPhrase();
    client.SetSslInfo(nginx->Tls().caCertificate, nginx->Tls().clientCertificate,
                      nginx->Tls().clientEncryptedKey, reinterpret_cast<unsigned char*>(&phrase[0]),
                      static_cast<int>(phrase.size()));
  }

  static std::string Url(const std::string& path) {
    return GetParam().scheme + nginx->Host(GetParam().port) + path;
  }

  // Waits for the line of a request that came by this protocol, from this client.
  static bool Logged(const std::string& request, const std::string& client = "") {
    return nginx->Logged(request + GetParam().logged + client);
  }
  // Whom Identify makes known: nobody without TLS.
  static std::string Identified() {
    return GetParam().port == Nginx::kHttp ? "" : "CN=Lum test client,O=Lum";
  }

  static LumJson::Value Document() {
    LumJson::Value document;
    EXPECT_TRUE(document.Parse("{\"accessId\": \"a1\", \"values\": [1, 2.5, \"\xc3\xbc\"]}"));
    document.AddJsonValue("text", std::string(kMoreThanAWindow, 'd'));
    return document;
  }

  static inline std::unique_ptr<Nginx> nginx;
  LogCapture log;
  LumCurlHttp http;
  LumCurlOrvOps service;
  TempDir directory;
  int status = 7;
};

INSTANTIATE_TEST_SUITE_P(, OperationsNginx, testing::ValuesIn(kProtocols),
                         [](const auto& protocol) { return protocol.param.name; });

TEST_P(OperationsNginx, GetsAndPostsWithAClientCertificate) {
  Identify(http);
  EXPECT_EQ("nginx", http.Get(Url("/json"), "", true, status)["server"].AsString());
  EXPECT_EQ(200, status);
  EXPECT_TRUE(Logged("GET /json application/json||||", Identified()));
  Identify(http);
  const std::string body = "{\"text\": \"\xc3\xa4\\u0000\", \"n\": 18446744073709551615}" +
                           std::string(kMoreThanAWindow, ' ');
  EXPECT_EQ("from nginx", http.Post(Url("/sink"), body, true, status)["token"].AsString());
  EXPECT_EQ(200, status);
  EXPECT_EQ(body, nginx->LastBody());
  EXPECT_TRUE(Logged("POST /sink application/json||||"));
}

TEST_P(OperationsNginx, HandsErrorStatusesBack) {
  EXPECT_EQ(404, http.Get(Url("/status/404"), "", false, status)["status"].AsInt64());
  EXPECT_EQ(404, status);
  EXPECT_TRUE(service.Post(Url("/status/503"), "{}", {}, status).IsNull());
  EXPECT_EQ(503, status);
  log.Clear();
}

TEST_P(OperationsNginx, Downloads) {
  const std::string content = GeneratedBytes(0, kMoreThanAWindow);
  WriteFile(nginx->Root() + "/files/small", content);
  EXPECT_EQ(0, http.DownloadFile(Url("/files/small"), directory.Path("copy")));
  EXPECT_EQ(content, ReadFile(directory.Path("copy")));
  EXPECT_TRUE(Logged("GET /files/small .*"));
}

TEST_P(OperationsNginx, DownloadOfALargeFileKeepsMemoryFlat) {
  MakeSparseFile(nginx->Root() + "/files/big", kLargeFile);
  // What the first transfer of a process allocates for good does not count.
  ASSERT_EQ(0, http.DownloadFile(Url("/json"), directory.Path("warm")));
  const std::size_t before = ResidentBytes();
  ASSERT_TRUE(ResetPeakResident());
  ASSERT_EQ(0, http.DownloadFile(Url("/files/big"), directory.Path("big")));
  const std::size_t growth = PeakResidentBytes() - before;
  EXPECT_EQ(kLargeFile, FileSize(directory.Path("big")));
  EXPECT_LT(growth, 16u * 1024 * 1024);
}

TEST_P(OperationsNginx, GetsAndRefreshesTokens) {
  Identify(service);  // the pass phrase serves every request here
  EXPECT_EQ("from nginx", service.GetToken(Url("/sink"), Document())["token"].AsString());
  EXPECT_EQ(Document().ToStyledString(), nginx->LastBody());
  EXPECT_TRUE(Logged("POST /sink application/json||||"));
  EXPECT_EQ("from nginx", service.RefreshToken(Url("/sink"), Document(), "t2")["token"].AsString());
  EXPECT_TRUE(Logged("PUT /sink application/json||t2||", Identified()));
}

TEST_P(OperationsNginx, SendsReportsPlainAndGzipped) {
  Identify(service);
  EXPECT_EQ(0, service.ReportData(Url("/sink"), Document(), "t0", ""));
  EXPECT_EQ(Document().ToStyledString(), nginx->LastBody());
  EXPECT_TRUE(Logged("POST /sink application/json||t0||"));
  EXPECT_EQ(0, service.ReportData(Url("/sink"), Document(), "t1", 5, ""));
  EXPECT_TRUE(Logged("POST /sink application/json||t1||"));
  EXPECT_EQ(0, service.ReportDataWithGzip(Url("/sink"), Document(), "t3"));
  ProcessOptions options;
  options.input = nginx->LastBody();
  EXPECT_EQ(Document().ToStyledString(), RunCommand({"gzip", "-dc"}, options).out);
  EXPECT_TRUE(Logged("POST /sink application/json|gzip|t3||"));
}

TEST_P(OperationsNginx, SendsJsonRequestsWithHeaderLists) {
  EXPECT_EQ("nginx", service.Get(Url("/json"), {"X-Auth-Token: t4"}, status)["server"].AsString());
  EXPECT_TRUE(Logged("GET /json ||t4||"));
  EXPECT_EQ("from nginx",
            service.Post(Url("/sink"), "{}", {"X-Auth-Token: t5"}, status)["token"].AsString());
  EXPECT_EQ("{}", nginx->LastBody());
  EXPECT_EQ("nginx", service.GetLogAddress(Url("/json"), "a1", "t6", "f")["server"].AsString());
  EXPECT_TRUE(Logged("GET /json.access_id=a1&file_name=f application/json||t6||"));
}

TEST_P(OperationsNginx, Uploads) {
  const std::string content(kMoreThanAWindow, 'v');
  const std::string file = directory.Write("video.mp4", content);
  const std::string url = Url("/sink");
  CaptureStdout out;
  EXPECT_EQ(0, service.UploadLog(url, file, 20, {"X-Auth-Token: t7"}));
  EXPECT_EQ(content, nginx->LastBody());
  EXPECT_TRUE(Logged("PUT /sink ||t7||"));
  EXPECT_EQ(0, service.UploadLog(url, file, 20));
  EXPECT_TRUE(Logged("PUT /sink application/zip||||"));
  EXPECT_EQ(0, service.UploadVideoFile(url, file, 20));
  EXPECT_TRUE(Logged("PUT /sink video/mp4||||"));
  service.SetUploadLogAuthorisation("signed");
  service.SetUploadLogDate("today");
  EXPECT_EQ(0, service.UploadLog(url, file));
  EXPECT_EQ(content, nginx->LastBody());
  EXPECT_TRUE(Logged("PUT /sink |||signed|"));
}

TEST_P(OperationsNginx, UploadsArchives) {
  directory.MakeDir("logs");
  const std::string file = directory.Write("logs/a.log", "a line\n");
  const std::string url = Url("/sink");
  const auto unpacked = [] {
    ProcessOptions options;
    options.input = nginx->LastBody();
    return RunCommand({"tar", "-xzO"}, options).out;
  };
  CaptureStdout out;
  EXPECT_EQ(0, service.UploadLogFileForCompress(url, file));
  EXPECT_EQ("a line\n", unpacked());
  EXPECT_EQ(0, service.UploadLogDirPathForCompress(url, directory.Path("logs")));
  EXPECT_EQ("a line\n", unpacked());
  EXPECT_EQ(0, service.UploadLogFileGorupForCompress(url, file, directory.Path("group")));
  EXPECT_EQ("a line\n", unpacked());
  EXPECT_TRUE(Logged("PUT /sink application/zip||||"));
}

TEST_P(OperationsNginx, ReadsTheConfiguration) {
  std::filesystem::create_directories(nginx->Root() + "/configs/app/default");
  WriteFile(nginx->Root() + "/configs/app/default/application", "{\"appId\":\"app\"}");
  const std::string host = nginx->Host(GetParam().IsHttp2() ? Nginx::kHttp2 : Nginx::kHttps);
  LumApolloEnv env{host, "app", "", "application"};
  LumApolloEnv unknown{host, "app", "default", "unknown"};
  LumApollo apollo;
  const HttpResult result = apollo.GetPropertyString(env);
  EXPECT_EQ(200, result.code);
  EXPECT_EQ("{\"appId\":\"app\"}", result.body);
  EXPECT_EQ("default", env.cluster);
  EXPECT_TRUE(Logged("GET /configs/app/default/application .*"));
  const HttpResult none = apollo.GetPropertyString(unknown);
  EXPECT_EQ(404, none.code);
  EXPECT_EQ("{\"status\": 404}", none.body);
}

// nginx answers, reads no more of the body and, by HTTP/2, resets the stream.
TEST_P(OperationsNginx, AnAnswerBeforeTheBodyWasReadIsTheAnswer) {
  const std::string file = directory.Write("big.log", std::string(kMoreThanAWindow, 'b'));
  CaptureStdout out;
  const int result = service.UploadLog(Url("/status/403"), file, 20);
  EXPECT_EQ("{\"status\": 403}", out.Stop());
  EXPECT_EQ(-10000, result);
  EXPECT_EQ(-10000, service.ReportData(Url("/status/403"), Document(), "t", ""));
  EXPECT_EQ("{\"status\": 403}", service.GetLastErrorBody());
  log.Clear();
}

// A server that does not reset the stream either lets libcurl 7 wait, until the time is up, for
// leave to send the rest; libcurl 8 takes the answer.
TEST(EarlyAnswer, StallsLibcurl7WhenTheServerStopsReading) {
  LumCurlHttp::CurlGlobalInit();
  const TempDir directory;
  const lumtools::TlsMaterial tls = lumtools::MakeTlsMaterial(directory.Path("tls"), "phrase");
  SpawnedProcess server({"node", EARLY_SERVER, tls.serverCertificate, tls.serverKey});
  std::vector<std::string> port;
  ASSERT_TRUE(server.WaitForLine("^port ([0-9]+)$", &port));
  LogCapture log;
  LumCurlOrvOps service;
  service.CurlGlobalInit();
  int status = 7;
  service.Post("https://127.0.0.1:" + port.at(1) + "/", std::string(kMoreThanAWindow, 'b'), {},
               status);
  const bool timedOut = log.Text().find("resOps: 28,") != std::string::npos;
  EXPECT_EQ(IsCurl7(), timedOut) << log.Text();
  EXPECT_EQ(404, status);
}

}  // namespace
}  // namespace lumtest

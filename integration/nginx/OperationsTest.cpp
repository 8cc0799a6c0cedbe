// Every operation over HTTP/1.1, without TLS and with it, and over HTTP/2, which libcurl takes when
// a server offers it in the TLS handshake.

#include <HttpResult.h>
#include <LumApollo.h>
#include <LumCurlHttp.h>
#include <LumCurlOrvOps.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "Nginx.h"
#include "log/LogCapture.h"
#include "support/CaptureFd.h"
#include "wire/WireReply.h"

namespace lumtest {
namespace {

// More than the 64 KiB that a server lets a client send before it has read any of it.
constexpr std::size_t kMoreThanAWindow = 300000;

struct Protocol {
  const char* name;
  std::string (Nginx::*url)(const std::string& path) const;
  const char* logged;

  bool IsHttp2() const { return url == &Nginx::Http2; }
};

constexpr Protocol kProtocols[] = {{"OverHttp11", &Nginx::Http, "HTTP/1.1|"},
                                   {"OverHttp11AndTls", &Nginx::OpenHttps, "HTTP/1.1|"},
                                   {"OverHttp2", &Nginx::Http2, "HTTP/2.0|"}};

class OperationsNginx : public NginxTest, public testing::WithParamInterface<Protocol> {
 protected:
  void TearDown() override { EXPECT_EQ(0u, log.Count(LumLogger::kError)); }

  static std::string Url(const std::string& path) { return (nginx.get()->*GetParam().url)(path); }

  // Waits for the line of a request that came by this protocol.
  static bool Logged(const std::string& request) {
    return nginx->Logged(request + GetParam().logged);
  }

  static LumJson::Value Document() {
    LumJson::Value document;
    EXPECT_TRUE(document.Parse("{\"accessId\": \"a1\", \"values\": [1, 2.5, \"\xc3\xbc\"]}"));
    document.AddJsonValue("text", std::string(kMoreThanAWindow, 'd'));
    return document;
  }

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
  EXPECT_TRUE(Logged("GET /json application/json||||"));
  EXPECT_TRUE(!GetParam().IsHttp2() || nginx->Logged("HTTP/2.0|CN=Lum test client,O=Lum"));
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

TEST_P(OperationsNginx, GetsAndRefreshesTokens) {
  EXPECT_EQ("from nginx", service.GetToken(Url("/token"), Document())["token"].AsString());
  EXPECT_EQ(Document().ToStyledString(), nginx->LastBody());
  EXPECT_TRUE(Logged("POST /token application/json||||"));
  EXPECT_EQ("from nginx",
            service.RefreshToken(Url("/token"), Document(), "t2")["token"].AsString());
  EXPECT_TRUE(Logged("PUT /token application/json||t2||"));
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
  const std::string host = GetParam().IsHttp2() ? nginx->Http2Host() : nginx->OpenHttpsHost();
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

}  // namespace
}  // namespace lumtest

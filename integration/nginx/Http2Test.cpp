// Every operation over HTTP/2, which libcurl takes when a server offers it in the TLS handshake.

#include <HttpResult.h>
#include <LumApollo.h>
#include <LumCurlHttp.h>
#include <LumCurlOrvOps.h>
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "Nginx.h"
#include "log/LogCapture.h"
#include "support/CaptureFd.h"
#include "wire/CurlText.h"

namespace lumtest {
namespace {

// More than the 64 KiB that a server lets a client send before it has read any of it.
constexpr std::size_t kMoreThanAWindow = 300000;

class Http2Nginx : public NginxTest {
 protected:
  void TearDown() override { EXPECT_EQ(0u, log.Count(LumLogger::kError)); }

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

TEST_F(Http2Nginx, GetsAndPostsWithAClientCertificate) {
  Identify(http);
  EXPECT_EQ("nginx", http.Get(nginx->Http2("/json"), "", true, status)["server"].AsString());
  EXPECT_EQ(200, status);
  EXPECT_TRUE(nginx->Logged("GET /json application/json||||HTTP/2.0|CN=Lum test client,O=Lum"));
  Identify(http);
  const std::string body(kMoreThanAWindow, ' ');
  EXPECT_EQ("from nginx", http.Post(nginx->Http2("/sink"), body, true, status)["token"].AsString());
  EXPECT_EQ(200, status);
  EXPECT_EQ(body, nginx->LastBody());
  EXPECT_TRUE(nginx->Logged("POST /sink application/json||||HTTP/2.0|CN=Lum test client,O=Lum"));
}

TEST_F(Http2Nginx, HandsErrorStatusesBack) {
  EXPECT_EQ(404, http.Get(nginx->Http2("/status/404"), "", false, status)["status"].AsInt64());
  EXPECT_EQ(404, status);
  EXPECT_TRUE(service.Post(nginx->Http2("/status/503"), "{}", {}, status).IsNull());
  EXPECT_EQ(503, status);
  log.Clear();
}

TEST_F(Http2Nginx, Downloads) {
  const std::string content(kMoreThanAWindow, '\xf7');
  WriteFile(nginx->Root() + "/files/small", content);
  EXPECT_EQ(0, http.DownloadFile(nginx->Http2("/files/small"), directory.Path("copy")));
  EXPECT_EQ(content, ReadFile(directory.Path("copy")));
  EXPECT_TRUE(nginx->Logged("GET /files/small .*HTTP/2.0|"));
}

TEST_F(Http2Nginx, GetsAndRefreshesTokens) {
  EXPECT_EQ("from nginx", service.GetToken(nginx->Http2("/token"), Document())["token"].AsString());
  EXPECT_EQ(Document().ToStyledString(), nginx->LastBody());
  EXPECT_TRUE(nginx->Logged("POST /token application/json||||HTTP/2.0|"));
  EXPECT_EQ("from nginx",
            service.RefreshToken(nginx->Http2("/token"), Document(), "t2")["token"].AsString());
  EXPECT_TRUE(nginx->Logged("PUT /token application/json||t2||HTTP/2.0|"));
}

TEST_F(Http2Nginx, SendsReportsPlainAndGzipped) {
  Identify(service);
  EXPECT_EQ(0, service.ReportData(nginx->Http2("/sink"), Document(), "t0", ""));
  EXPECT_EQ(Document().ToStyledString(), nginx->LastBody());
  EXPECT_TRUE(nginx->Logged("POST /sink application/json||t0||HTTP/2.0|CN=Lum test client,O=Lum"));
  EXPECT_EQ(0, service.ReportData(nginx->Http2("/sink"), Document(), "t1", 5, ""));
  EXPECT_TRUE(nginx->Logged("POST /sink application/json||t1||HTTP/2.0|"));
  EXPECT_EQ(0, service.ReportDataWithGzip(nginx->Http2("/sink"), Document(), "t3"));
  ProcessOptions options;
  options.input = nginx->LastBody();
  EXPECT_EQ(Document().ToStyledString(), RunCommand({"gzip", "-dc"}, options).out);
  EXPECT_TRUE(nginx->Logged("POST /sink application/json|gzip|t3||HTTP/2.0|"));
}

TEST_F(Http2Nginx, SendsJsonRequestsWithHeaderLists) {
  EXPECT_EQ("nginx",
            service.Get(nginx->Http2("/json"), {"X-Auth-Token: t4"}, status)["server"].AsString());
  EXPECT_TRUE(nginx->Logged("GET /json ||t4||HTTP/2.0|"));
  EXPECT_EQ(
      "from nginx",
      service.Post(nginx->Http2("/sink"), "{}", {"X-Auth-Token: t5"}, status)["token"].AsString());
  EXPECT_EQ("{}", nginx->LastBody());
  EXPECT_EQ("nginx",
            service.GetLogAddress(nginx->Http2("/json"), "a1", "t6", "f")["server"].AsString());
  EXPECT_TRUE(nginx->Logged("GET /json.access_id=a1&file_name=f application/json||t6||HTTP/2.0|"));
}

TEST_F(Http2Nginx, Uploads) {
  const std::string content(kMoreThanAWindow, 'v');
  const std::string file = directory.Write("video.mp4", content);
  const std::string url = nginx->Http2("/sink");
  CaptureStdout out;
  EXPECT_EQ(0, service.UploadLog(url, file, 20, {"X-Auth-Token: t7"}));
  EXPECT_EQ(content, nginx->LastBody());
  EXPECT_TRUE(nginx->Logged("PUT /sink ||t7||HTTP/2.0|"));
  EXPECT_EQ(0, service.UploadLog(url, file, 20));
  EXPECT_TRUE(nginx->Logged("PUT /sink application/zip||||HTTP/2.0|"));
  EXPECT_EQ(0, service.UploadVideoFile(url, file, 20));
  EXPECT_TRUE(nginx->Logged("PUT /sink video/mp4||||HTTP/2.0|"));
  service.SetUploadLogAuthorisation("signed");
  service.SetUploadLogDate("today");
  EXPECT_EQ(0, service.UploadLog(url, file));
  EXPECT_EQ(content, nginx->LastBody());
  EXPECT_TRUE(nginx->Logged("PUT /sink |||signed|HTTP/2.0|"));
}

TEST_F(Http2Nginx, UploadsArchives) {
  directory.MakeDir("logs");
  const std::string file = directory.Write("logs/a.log", "a line\n");
  const std::string url = nginx->Http2("/sink");
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
  EXPECT_TRUE(nginx->Logged("PUT /sink application/zip||||HTTP/2.0|"));
}

TEST_F(Http2Nginx, ReadsTheConfiguration) {
  for (const char* part : {"/configs", "/configs/app", "/configs/app/default"}) {
    ASSERT_EQ(0, RunCommand({"mkdir", "-p", nginx->Root() + part}).exitStatus);
  }
  WriteFile(nginx->Root() + "/configs/app/default/application", "{\"appId\":\"app\"}");
  LumApolloEnv env{nginx->Http2Host(), "app", "", "application"};
  LumApollo apollo;
  const HttpResult result = apollo.GetPropertyString(env);
  EXPECT_EQ(200, result.code);
  EXPECT_EQ("{\"appId\":\"app\"}", result.body);
  EXPECT_TRUE(nginx->Logged("GET /configs/app/default/application .*HTTP/2.0|"));
}

// nginx answers, reads no more of the body and resets the stream.
TEST_F(Http2Nginx, AnAnswerBeforeTheBodyWasReadIsTheAnswer) {
  const std::string file = directory.Write("big.log", std::string(kMoreThanAWindow, 'b'));
  CaptureStdout out;
  const int result = service.UploadLog(nginx->Http2("/status/403"), file, 20);
  EXPECT_EQ("{\"status\": 403}", out.Stop());
  EXPECT_EQ(-10000, result);
  EXPECT_EQ(-10000, service.ReportData(nginx->Http2("/status/403"), Document(), "t", ""));
  EXPECT_EQ("{\"status\": 403}", service.GetLastErrorBody());
  log.Clear();
}

// A server that does not reset the stream either lets libcurl 7 wait, until the time is up, for
// leave to send the rest; libcurl 8 takes the answer.
TEST_F(Http2Nginx, AServerThatStopsReadingStallsLibcurl7) {
  SpawnedProcess server(
      {"node", EARLY_SERVER, nginx->Tls().serverCertificate, nginx->Tls().serverKey});
  std::vector<std::string> port;
  ASSERT_TRUE(server.WaitForLine("^port ([0-9]+)$", &port));
  service.Post("https://127.0.0.1:" + port.at(1) + "/", std::string(kMoreThanAWindow, 'b'), {},
               status);
  EXPECT_EQ(IsCurl7(), log.HasPart(LumLogger::kError, "resOps: 28,")) << log.Text();
  EXPECT_EQ(404, status);
  log.Clear();
}

}  // namespace
}  // namespace lumtest

// LumCurlOrvOps against nginx.

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

using ::testing::Contains;
using ::testing::HasSubstr;

class ServiceClientNginx : public NginxTest {
 protected:
  void SetUp() override { service.CurlGlobalInit(); }

  static LumJson::Value Document() {
    LumJson::Value document;
    EXPECT_TRUE(document.Parse("{\"accessId\": \"a1\", \"values\": [1, 2.5, \"\xc3\xbc\"]}"));
    return document;
  }

  LogCapture log;
  LumCurlOrvOps service;
  int status = 7;
};

TEST_F(ServiceClientNginx, FailedReportsLeaveTheirBody) {
  for (const int code : {400, 401, 403, 404, 409, 418, 500, 502, 503}) {
    const std::string url = nginx->Http("/status/" + std::to_string(code));
    const std::string body = "{\"status\": " + std::to_string(code) + "}";
    EXPECT_EQ(-10000, service.ReportData(url, Document(), "t", ""));
    EXPECT_EQ(body, service.GetLastErrorBody());
    service.UpdateLastError("");
    EXPECT_EQ(-10000, service.ReportDataWithGzip(url, Document(), "t", "a"));
    EXPECT_EQ(body, service.GetLastErrorBody());
  }
}

TEST_F(ServiceClientNginx, SlowAndCutAnswersAreFailedTransfers) {
  EXPECT_EQ(-10000, service.ReportData(nginx->Http("/slow"), Document(), "t", 1, ""));
  EXPECT_THAT(log.Messages(LumLogger::kError),
              Contains(HasSubstr("resOps: 28,")));  // CURLE_OPERATION_TIMEDOUT
  log.Clear();
  service.Get(nginx->Http("/cut"), {}, status);
  EXPECT_EQ(0, status);
  EXPECT_THAT(log.Messages(LumLogger::kError),
              Contains(HasSubstr("resOps: 52,")));  // CURLE_GOT_NOTHING
}

TEST_F(ServiceClientNginx, TokensComeOverTlsWithAClientCertificate) {
  Identify(service);
  // The pass phrase serves every request here.
  EXPECT_EQ("from nginx", service.GetToken(nginx->Https("/token"), Document())["token"].AsString());
  EXPECT_EQ("from nginx",
            service.RefreshToken(nginx->Https("/token"), Document(), "t2")["token"].AsString());
  EXPECT_EQ(Document().ToStyledString(), nginx->LastBody());
  EXPECT_TRUE(nginx->Logged("PUT /token application/json||t2|"));
}

TEST_F(ServiceClientNginx, OnlyStatus200IsAnUploadThatWorked) {
  TempDir directory;
  const std::string file = directory.Write("a.log", "a line\n");
  // nginx stores the file and answers 201, then 204.
  EXPECT_EQ(-10000, service.UploadLog(nginx->Http("/objects/a.log"), file, 20));
  EXPECT_EQ("a line\n", ReadFile(nginx->Root() + "/objects/a.log"));
  EXPECT_EQ(-10000, service.UploadLog(nginx->Http("/objects/a.log"), file, 20));
}

TEST_F(ServiceClientNginx, RefusedUploadKeepsADirectorysArchiveAlone) {
  TempDir directory;
  directory.MakeDir("logs");
  const std::string file = directory.Write("logs/a.log", "a line\n");
  CaptureStdout out;
  EXPECT_EQ(-10000, service.UploadLogDirPathForCompress(nginx->Http("/status/403"),
                                                        directory.Path("logs")));
  EXPECT_TRUE(Exists(directory.Path("logs.tar.gz")));
  EXPECT_EQ(0, service.UploadLogFileForCompress(nginx->Http("/status/403"), file));
  EXPECT_FALSE(Exists(file + ".tar.gz"));
}

// A server that does not reset the stream either lets libcurl 7 wait, until the time is up, for
// leave to send the rest; libcurl 8 takes the answer.
TEST_F(ServiceClientNginx, AServerThatStopsReadingStallsLibcurl7) {
  SpawnedProcess server(
      {"node", EARLY_SERVER, nginx->Tls().serverCertificate, nginx->Tls().serverKey});
  std::vector<std::string> port;
  ASSERT_TRUE(server.WaitForLine("^port ([0-9]+)$", &port));
  service.Post("https://127.0.0.1:" + port.at(1) + "/", std::string(300000, 'b'), {}, status);
  const bool timedOut = log.Text().find("resOps: 28,") != std::string::npos;
  EXPECT_EQ(IsCurl7(), timedOut) << log.Text();
  EXPECT_EQ(404, status);
}

}  // namespace
}  // namespace lumtest

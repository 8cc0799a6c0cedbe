// LumCurlHttp against nginx.

#include <LumCurlHttp.h>
#include <gmock/gmock.h>

#include <string>

#include "Nginx.h"
#include "log/LogCapture.h"
#include "support/ProcessState.h"

namespace lumtest {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;

constexpr std::uint64_t kGiB = 1024ULL * 1024 * 1024;

class GeneralClientNginx : public NginxTest {
 protected:
  LogCapture log;
  LumCurlHttp http;
  int status = 7;
};

TEST_F(GeneralClientNginx, HandsErrorStatusesAndTheirJsonBack) {
  for (const int code : {400, 401, 403, 404, 409, 418, 500, 502, 503}) {
    const std::string path = "/status/" + std::to_string(code);
    const LumJson::Value reply = http.Get(nginx->Http(path), "", false, status);
    EXPECT_EQ(code, status);
    EXPECT_EQ(code, reply["status"].AsInt64());
  }
  EXPECT_EQ(0u, log.Count(LumLogger::kError));
}

TEST_F(GeneralClientNginx, HtmlIsNoAnswer) {
  EXPECT_TRUE(http.Get(nginx->Http("/html"), "", false, status).IsNull());
  EXPECT_EQ(-1, status);
  EXPECT_THAT(log.Messages(LumLogger::kError),
              Contains("json parse(<html><body>no JSON</body></html>) failed"));
}

TEST_F(GeneralClientNginx, AConnectionCutWithoutAnAnswerIsAFailedTransfer) {
  EXPECT_TRUE(http.Get(nginx->Http("/cut"), "", false, status).IsNull());
  EXPECT_EQ(-1, status);
  EXPECT_THAT(log.Messages(LumLogger::kError),
              Contains(HasSubstr("ret: 52, code: 0")));  // CURLE_GOT_NOTHING
}

TEST_F(GeneralClientNginx, ShowsItsCertificateOncePerSslInfo) {
  Identify(http);
  EXPECT_EQ("nginx", http.Get(nginx->Https("/json"), "", true, status)["server"].AsString());
  EXPECT_EQ(200, status);

  // The pass phrase went with the first request.
  EXPECT_TRUE(http.Get(nginx->Https("/json"), "", true, status).IsNull());
  EXPECT_EQ(-1, status);

  Identify(http);
  EXPECT_EQ("from nginx",
            http.Post(nginx->Https("/token"), "{}", true, status)["token"].AsString());
  EXPECT_EQ(200, status);
}

TEST_F(GeneralClientNginx, IsTurnedAwayWithoutACertificate) {
  const LumJson::Value reply = http.Get(nginx->Https("/json"), "", false, status);
  EXPECT_TRUE(reply.IsNull());
  EXPECT_EQ(-1, status);  // nginx answers 400 with a page that is no JSON
  EXPECT_THAT(log.Messages(LumLogger::kError),
              Contains(HasSubstr("No required SSL certificate was sent")));
}

TEST_F(GeneralClientNginx, DownloadOfaGigabyteKeepsMemoryFlat) {
  TempDir directory;
  MakeSparseFile(nginx->Root() + "/files/big", kGiB);
  // What the first transfer of a process allocates for good does not count.
  ASSERT_EQ(0, http.DownloadFile(nginx->Http("/files/small"), directory.Path("warm")));
  const std::size_t before = ResidentBytes();
  ASSERT_TRUE(ResetPeakResident());
  ASSERT_EQ(0, http.DownloadFile(nginx->Http("/files/big"), directory.Path("big")));
  const std::size_t growth = PeakResidentBytes() - before;
  EXPECT_EQ(kGiB, FileSize(directory.Path("big")));
  EXPECT_LT(growth, 16u * 1024 * 1024);
}

TEST_F(GeneralClientNginx, DownloadOfAnErrorPageCounts) {
  TempDir directory;
  EXPECT_EQ(0, http.DownloadFile(nginx->Http("/status/404"), directory.Path("page")));
  EXPECT_EQ("{\"status\": 404}", ReadFile(directory.Path("page")));
}

}  // namespace
}  // namespace lumtest

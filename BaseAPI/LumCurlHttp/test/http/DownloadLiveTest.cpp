// DownloadFile over real sockets into real files.

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <climits>

#include "LiveTest.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;

class DownloadLiveTest : public LiveTest {
 protected:
  int Download(const std::string& url, const std::string& target) {
    return Quietly([&] { return client.DownloadFile(url, target); });
  }

  int Download(const std::string& url) { return Download(url, path); }

  // A download that fails in libcurl, for this reason.
  void ExpectFailure(const std::string& url, int result) {
    log.Clear();
    EXPECT_EQ(Download(url), -10000);
    EXPECT_THAT(log.Messages(), ElementsAre("download file " + url + " to " + path,
                                            "curl_easy_perform() failed: " + CurlError(result)));
  }

  // A download whose path is refused before anything else happens.
  void ExpectRefused(const std::string& target) {
    log.Clear();
    EXPECT_EQ(Download(server.Url(), target), -10000);
    EXPECT_THAT(log.Messages(), ElementsAre("download file " + server.Url() + " to " + target));
    EXPECT_EQ(server.Connections().size(), 0u);
  }

  const TempDir dir;
  std::string path = dir.Path("file");
  WireServer server;
  LumCurlHttp client;
};

TEST_F(DownloadLiveTest, SendsTheseBytesAndStoresTheBody) {
  server.Script(StatusReply(200, std::string("con\0tent", 8)));
  client.SetHeaders("X-Not: sent");
  EXPECT_EQ(Download(server.Url("/file?x=1")), 0);
  EXPECT_EQ(server.Request(0).Raw(),
            "GET /file?x=1 HTTP/1.1\r\n"
            "Host: 127.0.0.1:" +
                std::to_string(server.Port()) +
                "\r\n"
                "User-Agent: QVcurlHttp/0.1.2\r\n"
                "Accept: */*\r\n"
                "Content-Type: application/json\r\n"
                "charsets: utf-8\r\n"
                "\r\n");
  EXPECT_EQ(ReadFile(path), std::string("con\0tent", 8));
  EXPECT_THAT(log.Messages(3),
              ElementsAre("download file " + server.Url("/file?x=1") + " to " + path,
                          "download succeed, path: " + path));
  EXPECT_EQ(log.Count(), 2u);
}

TEST_F(DownloadLiveTest, StoresALargeBodyWhole) {
  server.Script(GeneratedReply(9000001));
  EXPECT_EQ(Download(server.Url()), 0);
  EXPECT_TRUE(ReadFile(path) == GeneratedBytes(0, 9000001));
}

TEST_F(DownloadLiveTest, ReplacesALongerFile) {
  WriteFile(path, std::string(100000, 'x'));
  server.Script(StatusReply(200, "short"));
  EXPECT_EQ(Download(server.Url()), 0);
  EXPECT_EQ(ReadFile(path), "short");
}

TEST_F(DownloadLiveTest, UsesIPv6Too) {
  WireServer six(IPv6Options());
  six.Script(StatusReply(200, "six"));
  EXPECT_EQ(Download(six.Url()), 0);
  EXPECT_EQ(ReadFile(path), "six");
}

// --- Paths

TEST_F(DownloadLiveTest, ThoseThatAreNoPathOfAFileAreRefused) {
  ExpectRefused(dir.Path());
  ExpectRefused("");
  ExpectRefused(dir.Path(std::string(PATH_MAX, 'x')));
  ExpectRefused(dir.Path("missing/file"));
  EXPECT_FALSE(Exists(dir.Path("missing")));
}

TEST_F(DownloadLiveTest, AFileThatTheKernelDoesNotMakeIsAFailure) {
  EXPECT_EQ(Download(server.Url(), "/proc/no-such-file"), -10000);
  EXPECT_THAT(log.Messages(1), ElementsAre("fopen failed"));
  EXPECT_EQ(server.Connections().size(), 0u);
}

// As a user to whom permissions matter. No server of this process is up when it forks.
TEST(DownloadLivePermissions, ADirectoryThatCannotBeWrittenIsAFailure) {
  const TempDir dir;
  const std::string path = dir.Path("file");
  const LogCapture log;
  LumCurlHttp client;
  ASSERT_EQ(chmod(dir.Path().c_str(), 0555), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const bool isNobody = geteuid() != 0 || setuid(65534) == 0;
    const int result = client.DownloadFile("http://127.0.0.1/", path);
    const bool told = log.Messages(1) == std::vector<std::string>{"fopen failed"};
    _exit(isNobody && result == -10000 && told ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(Exists(path));
  ASSERT_EQ(chmod(dir.Path().c_str(), 0755), 0);
}

TEST_F(DownloadLiveTest, AFullFileSystemIsAFailureWhateverTheSize) {
  path = "/dev/full";
  for (const std::uint64_t size : {1, 100, 65536, 65537, 3000000}) {
    server.Script(GeneratedReply(size));
    ExpectFailure(server.Url(), 23);
  }
}

TEST_F(DownloadLiveTest, NothingIsLostOnANullDevice) {
  path = "/dev/null";
  server.Script(GeneratedReply(3000000));
  EXPECT_EQ(Download(server.Url()), 0);
}

TEST_F(DownloadLiveTest, AnEmptyUrlIsAFailure) {
  ExpectFailure("", 3);
}

// --- TLS

TEST_F(DownloadLiveTest, ACaFileThatIsMissingDoesNotMatter) {
  WireServer secure(TlsOptions());
  secure.Script(StatusReply(200, "one")).Script(StatusReply(200, "two"));
  EXPECT_EQ(Download(secure.Url()), 0);
  client.SetSslInfo("/nonexistent/ca.pem", "", "", nullptr, 0);
  EXPECT_EQ(Download(secure.Url()), 0);
  EXPECT_EQ(ReadFile(path), "two");
}

}  // namespace
}  // namespace lumtest

// DownloadFile: every call of it in order, every option, every way to fail.

#include "HttpTest.h"
#include "support/Files.h"

namespace lumtest {
namespace {

using ::testing::Contains;

class DownloadTest : public HttpTest {
 protected:
  int Download() { return client.DownloadFile(kUrl, path); }

  Events StartEvents() const {
    return {Log(3, "DownloadFile", "download file " + std::string(kUrl) + " to " + path),
            "curl_easy_init", "LumRealPath " + path + " " + std::to_string(path.size())};
  }

  // From the open file to the transfer's end.
  Events TransferEvents(const std::string& ca = "") const {
    return {"fopen " + path + " wb",
            "setvbuf 65536",
            "curl_slist_append Content-Type: application/json",
            "curl_slist_append charsets: utf-8",
            "CURLOPT_USERAGENT QVcurlHttp/0.1.2",
            "CURLOPT_HTTPHEADER [Content-Type: application/json][charsets: utf-8]",
            "CURLOPT_URL http://server.example/path?q=1",
            "CURLOPT_READFUNCTION null",
            "CURLOPT_SSL_VERIFYHOST 0",
            "CURLOPT_SSL_VERIFYPEER 0",
            "CURLOPT_CAINFO " + ca,
            "CURLOPT_WRITEFUNCTION function",
            "CURLOPT_WRITEDATA pointer",
            "CURLOPT_NOSIGNAL 1",
            "CURLOPT_CONNECTTIMEOUT 60",
            "CURLOPT_TIMEOUT 60",
            "curl_easy_perform"};
  }

  Events SuccessEvents() const {
    return {"fflush", kFreeList, "curl_easy_cleanup", "fclose",
            Log(3, "DownloadFile", "download succeed, path: " + path)};
  }

  Events FailureEvents(int code) const {
    return {kFreeList,
            Log(1, "DownloadFile", "curl_easy_perform() failed: strerror " + std::to_string(code)),
            "curl_easy_cleanup", "fclose"};
  }

  const std::string kFreeList =
      "curl_slist_free_all [Content-Type: application/json][charsets: utf-8]";
  const TempDir dir;
  std::string path = dir.Path("file");
};

TEST_F(DownloadTest, CallsThisAndNothingElse) {
  recorder.NextPerform(Answer(200, "content"));
  EXPECT_EQ(Download(), 0);
  ExpectEvents(StartEvents() + TransferEvents() + SuccessEvents());
}

// Only the CA file is handed over; nothing is verified all the same, and no lock is taken.
TEST_F(DownloadTest, CallsThisAndNothingElseWithEverythingSet) {
  PrepareSsl();
  client.SetHeaders("X-One: 1");
  Engine().m_userAgent = "other/1";
  recorder.WatchMutex(&Engine().m_mutex, true);
  EXPECT_EQ(Download(), 0);
  ExpectEvents(StartEvents() + TransferEvents(kCa) + SuccessEvents());
  EXPECT_STREQ(reinterpret_cast<const char*>(Engine().m_keyPassword), "secret");
}

TEST_F(DownloadTest, TellsLibcurlHowManyItemsWereWritten) {
  Script script;
  script.during = [](const Transfer& transfer) {
    const auto write =
        reinterpret_cast<curl_write_callback>(transfer.pointers.at(CURLOPT_WRITEFUNCTION));
    char items[] = "aabbcc";
    EXPECT_EQ(write(items, 2, 3, transfer.pointers.at(CURLOPT_WRITEDATA)), 3u);
  };
  recorder.NextPerform(script);
  EXPECT_EQ(Download(), 0);
  EXPECT_EQ(ReadFile(path), "aabbcc");
}

// --- Failures

// The one path on which a handle is never released, which nothing else may join.
TEST_F(DownloadTest, ARefusedPathKeepsItsHandleAndSaysNothing) {
  recorder.realPath = false;
  EXPECT_EQ(Download(), -10000);
  ExpectEvents(StartEvents());
  keptHandles = 1;
  EXPECT_FALSE(Exists(path));
}

TEST_F(DownloadTest, GivesThePathAndItsLengthUpToTheFirstZero) {
  recorder.realPath = false;
  client.DownloadFile(kUrl, std::string("/a/b\0c", 6));
  client.DownloadFile(kUrl, "");
  keptHandles = 2;
  EXPECT_THAT(recorder.Events(), Contains("LumRealPath /a/b 4"));
  EXPECT_THAT(recorder.Events(), Contains("LumRealPath  0"));
}

TEST_F(DownloadTest, FailsWhenTheFileCannotBeOpened) {
  recorder.failFopen = true;
  EXPECT_EQ(Download(), -10000);
  ExpectEvents(StartEvents() + Events{"fopen " + path + " wb", "curl_easy_cleanup",
                                      "log 1 DownloadFile: fopen failed"});
}

TEST_F(DownloadTest, FailsWhenTheTransferFailsAndKeepsThePartOfTheFile) {
  // The download gives libcurl no buffer for its reason.
  recorder.NextPerform(Broken(CURLE_PARTIAL_FILE, 200, "", {"half of"}));
  EXPECT_EQ(Download(), -10000);
  ExpectEvents(StartEvents() + TransferEvents() + FailureEvents(18));
  EXPECT_EQ(ReadFile(path), "half of");
}

TEST_F(DownloadTest, FailsWhenWhatIsLeftCannotBeWritten) {
  recorder.failFflush = true;
  recorder.NextPerform(Answer(200, "content"));
  EXPECT_EQ(Download(), -10000);
  ExpectEvents(StartEvents() + TransferEvents() + Events{"fflush"} + FailureEvents(23));
  EXPECT_TRUE(Exists(path));
}

}  // namespace
}  // namespace lumtest

// DownloadFile: every call of it in order, every option, every way to fail.

#include <thread>

#include "HttpTest.h"
#include "recording/FailingAllocation.h"
#include "recording/Latch.h"
#include "support/Files.h"

namespace lumtest {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

const char kDownload[] = "DownloadFile";

class DownloadTest : public HttpTest {
 protected:
  int Download() { return client.DownloadFile(kUrl, path); }

  ExpectedLog StartLog() const {
    return {kHttpPath, kDownload, 3, "download file %s to %s", {kUrl, path}};
  }

  Events StartEvents() const {
    return {"log 3 DownloadFile: download file " + std::string(kUrl) + " to " + path,
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

  Events FailureEvents(int code) const {
    return {kFreeList,
            "log 1 DownloadFile: curl_easy_perform() failed: strerror " + std::to_string(code),
            "curl_easy_cleanup", "fclose"};
  }

  ExpectedLog FailureLog(int code) const {
    return {kHttpPath,
            kDownload,
            1,
            "curl_easy_perform() failed: %s",
            {"strerror " + std::to_string(code)}};
  }

  const std::string kFreeList =
      "curl_slist_free_all [Content-Type: application/json][charsets: utf-8]";
  const TempDir dir;
  std::string path = dir.Path("file");
};

TEST_F(DownloadTest, CallsThisAndNothingElse) {
  recorder.NextPerform(Reply("content"));
  EXPECT_EQ(Download(), 0);
  EXPECT_EQ(recorder.Events(), Joined({StartEvents(),
                                       TransferEvents(),
                                       {"fflush", kFreeList, "curl_easy_cleanup", "fclose",
                                        "log 3 DownloadFile: download succeed, path: " + path}}));
  ExpectLogs({StartLog(), {kHttpPath, kDownload, 3, "download succeed, path: %s", {path}}});
  ExpectNothingKept();
}

TEST_F(DownloadTest, WritesTheBodyIntoTheFile) {
  Script script;
  std::string whole;
  for (int i = 0; i < 300; ++i) {
    script.chunks.push_back(std::string(1, '\0') + std::to_string(i) + std::string(3000, '\xff'));
    whole += script.chunks.back();
  }
  recorder.NextPerform(script);
  EXPECT_EQ(Download(), 0);
  EXPECT_TRUE(ReadFile(path) == whole);
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

TEST_F(DownloadTest, ReplacesWhatTheFileHeld) {
  WriteFile(path, "something much longer than the reply");
  recorder.NextPerform(Reply("new"));
  EXPECT_EQ(Download(), 0);
  EXPECT_EQ(ReadFile(path), "new");
}

TEST_F(DownloadTest, AnEmptyReplyMakesAnEmptyFile) {
  EXPECT_EQ(Download(), 0);
  EXPECT_EQ(ReadFile(path), "");
}

TEST_F(DownloadTest, DownloadSavesAnErrorPageAndSucceeds) {
  for (const long status : {301, 404, 500}) {
    recorder.NextPerform(Reply("no such file", status));
    EXPECT_EQ(Download(), 0);
    EXPECT_EQ(ReadFile(path), "no such file");
  }
  EXPECT_THAT(recorder.Events(), Not(Contains("CURLINFO_RESPONSE_CODE")));
}

TEST_F(DownloadTest, DownloadNeverVerifiesTheServer) {
  PrepareSsl();
  Download();
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_SSL_VERIFYPEER), 0);
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_SSL_VERIFYHOST), 0);
}

TEST_F(DownloadTest, DownloadHandsTheCaFileOverAllTheSame) {
  PrepareSsl();
  Download();
  EXPECT_EQ(TheTransfer().texts.at(CURLOPT_CAINFO), kCa);
}

TEST_F(DownloadTest, DownloadOffersNoCertificateAndKeepsThePassPhrase) {
  PrepareSsl();
  Download();
  const Transfer transfer = TheTransfer();
  EXPECT_EQ(transfer.texts.count(CURLOPT_SSLCERT), 0u);
  EXPECT_EQ(transfer.texts.count(CURLOPT_SSLKEY), 0u);
  EXPECT_EQ(transfer.texts.count(CURLOPT_KEYPASSWD), 0u);
  EXPECT_STREQ(reinterpret_cast<const char*>(Engine().m_keyPassword), "secret");
}

TEST_F(DownloadTest, DownloadMayConnectForAMinute) {
  Download();
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_CONNECTTIMEOUT), 60);
}

TEST_F(DownloadTest, DownloadMayTakeAMinuteInAll) {
  Download();
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_TIMEOUT), 60);
}

TEST_F(DownloadTest, DownloadUsesNoSignals) {
  Download();
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_NOSIGNAL), 1);
}

TEST_F(DownloadTest, DownloadUsesAnyIPVersion) {
  Download();
  EXPECT_EQ(TheTransfer().numbers.count(CURLOPT_IPRESOLVE), 0u);
}

TEST_F(DownloadTest, DownloadSendsTheJsonHeadersWhateverTheCallerSet) {
  client.SetHeaders("X-One: 1");
  Download();
  EXPECT_THAT(TheTransfer().headers,
              ElementsAre("Content-Type: application/json", "charsets: utf-8"));
}

TEST_F(DownloadTest, DownloadNamesTheConstantUserAgent) {
  Engine().m_userAgent = "other/1";
  Download();
  EXPECT_EQ(TheTransfer().texts.at(CURLOPT_USERAGENT), "QVcurlHttp/0.1.2");
}

TEST_F(DownloadTest, DownloadTakesNoLock) {
  recorder.WatchMutex(&Engine().m_mutex, true);
  EXPECT_EQ(Download(), 0);
}

TEST_F(DownloadTest, DownloadRunsBesideAGet) {
  Latch both(2);
  Script script = Reply("{}");
  script.during = [&both](const Transfer&) { EXPECT_TRUE(both.CountDownAndWait()); };
  recorder.NextPerform(script);
  recorder.NextPerform(script);
  RunBoth(
      both, [this] { EXPECT_EQ(Download(), 0); }, [this] { Call(kGet); });
  EXPECT_EQ(responseCode, 200);
}

// --- Failures

TEST_F(DownloadTest, WithoutItsPrivatePartNothingIsSent) {
  const WithoutPrivate<LumCurlHttp> without(client);
  EXPECT_EQ(Download(), -9999);
  ExpectLogs({{kHttpPath, kDownload, 1, "d_LumCurlHttpPrivate is null", {}}});
  EXPECT_EQ(recorder.Events().size(), 1u);
}

TEST_F(DownloadTest, FailsWhenThereIsNoHandle) {
  recorder.FailInit();
  EXPECT_EQ(Download(), -10000);
  ExpectLogs({StartLog(), {kHttpPath, kDownload, 1, "curl_easy_init failed", {}}});
  EXPECT_EQ(recorder.Events().size(), 3u);
  EXPECT_FALSE(Exists(path));
}

// The one path on which a handle is never released, which nothing else may join.
TEST_F(DownloadTest, ARefusedPathKeepsItsHandleAndSaysNothing) {
  recorder.realPath = false;
  EXPECT_EQ(Download(), -10000);
  EXPECT_EQ(recorder.Events(), StartEvents());
  ExpectLogs({StartLog()});
  EXPECT_EQ(recorder.LiveHandles(), 1);
  EXPECT_EQ(recorder.LiveLists(), 0);
  EXPECT_EQ(recorder.LiveFiles(), 0);
  EXPECT_FALSE(Exists(path));
}

TEST_F(DownloadTest, GivesThePathAndItsLengthUpToTheFirstZero) {
  recorder.realPath = false;
  client.DownloadFile(kUrl, std::string("/a/b\0c", 6));
  client.DownloadFile(kUrl, "");
  EXPECT_THAT(recorder.Events(), Contains("LumRealPath /a/b 4"));
  EXPECT_THAT(recorder.Events(), Contains("LumRealPath  0"));
}

TEST_F(DownloadTest, FailsWhenTheFileCannotBeOpened) {
  recorder.FailFopen();
  EXPECT_EQ(Download(), -10000);
  EXPECT_EQ(
      recorder.Events(),
      Joined({StartEvents(),
              {"fopen " + path + " wb", "curl_easy_cleanup", "log 1 DownloadFile: fopen failed"}}));
  ExpectLogs({StartLog(), {kHttpPath, kDownload, 1, "fopen failed", {}}});
  ExpectNothingKept();
}

TEST_F(DownloadTest, FailsWhenTheTransferFailsAndKeepsThePartOfTheFile) {
  Script script = Failure(CURLE_PARTIAL_FILE, "", 200);
  script.chunks = {"half of"};
  // The download gives libcurl no buffer for its reason.
  recorder.NextPerform(script);
  EXPECT_EQ(Download(), -10000);
  EXPECT_EQ(recorder.Events(), Joined({StartEvents(), TransferEvents(), FailureEvents(18)}));
  ExpectLogs({StartLog(), FailureLog(18)});
  ExpectNothingKept();
  EXPECT_EQ(ReadFile(path), "half of");
}

TEST_F(DownloadTest, FailsWhenWhatIsLeftCannotBeWritten) {
  recorder.FailFflush();
  recorder.NextPerform(Reply("content"));
  EXPECT_EQ(Download(), -10000);
  EXPECT_EQ(recorder.Events(),
            Joined({StartEvents(), TransferEvents(), {"fflush"}, FailureEvents(23)}));
  ExpectLogs({StartLog(), FailureLog(23)});
  ExpectNothingKept();
  EXPECT_TRUE(Exists(path));
}

TEST_F(DownloadTest, FailsOnAFullDiskWhateverTheSize) {
  path = "/dev/full";
  for (const std::size_t size : {1u, 4096u, 65535u, 65536u, 65537u, 1000000u}) {
    recorder.Reset();
    recorder.NextPerform(Reply(std::string(size, 'x')));
    EXPECT_EQ(Download(), -10000) << size;
    ExpectLogs({StartLog(), FailureLog(23)});
    ExpectNothingKept();
  }
}

TEST_F(DownloadTest, AFailedTransferIsToldWithItsOwnReasonEvenOnAFullDisk) {
  path = "/dev/full";
  Script script = Failure(CURLE_OPERATION_TIMEDOUT, "");
  script.chunks = {"x"};
  recorder.NextPerform(script);
  EXPECT_EQ(Download(), -10000);
  ExpectLogs({StartLog(), FailureLog(28)});
}

// --- Memory that runs out

TEST_F(DownloadTest, AnOptionThatLibcurlCannotStoreIsABadAlloc) {
  for (const CURLoption option : {CURLOPT_USERAGENT, CURLOPT_URL, CURLOPT_CAINFO}) {
    recorder.Reset();
    recorder.FailOption(option, CURLE_OUT_OF_MEMORY);
    EXPECT_THROW(Download(), std::bad_alloc) << option;
    ExpectNothingKept();
    EXPECT_THAT(recorder.Events(), Not(Contains("curl_easy_perform")));
  }
}

TEST_F(DownloadTest, AHeaderLineThatCannotBeStoredIsABadAlloc) {
  for (const int line : {1, 2}) {
    recorder.Reset();
    recorder.FailAppend(line);
    EXPECT_THROW(Download(), std::bad_alloc);
    ExpectNothingKept();
  }
}

TEST_F(DownloadTest, RunsOutOfMemoryAnywhereWithoutALeak) {
  const auto prepare = [this] {
    recorder.Reset();
    recorder.NextPerform(Reply("content"));
  };
  int result = 7;
  const std::size_t failed = FailEachAllocation(
      prepare, [&] { result = Download(); }, [this] { ExpectNothingKept(); });
  EXPECT_GT(failed, 0u);
  EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace lumtest

// The engine's upload: the stream it reads and whose it is, the speed cap, the pinned host, and
// what each early return leaves.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "ServiceTest.h"
#include "support/Files.h"

namespace lumtest {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

const std::string kUrl = "https://store.example/bucket/a.zip";
const Lines kLines = {"Content-Type: application/zip", "X-A: 1"};

FILE* StreamOf(const char* text) {
  return fmemopen(const_cast<char*>(text), std::strlen(text), "r");
}

// A stream of three bytes whose end is found, and no way back from there.
FILE* StreamWithoutAWayBack() {
  cookie_io_functions_t functions{};
  functions.seek = [](void* /*cookie*/, off64_t* offset, int whence) {
    *offset = 3;
    return whence == SEEK_SET ? -1 : 0;
  };
  return fopencookie(nullptr, "r", functions);
}

class UploadTransferTest : public ServiceTest {
 protected:
  UploadTransferTest() { Forget(); }

  TempDir directory;
  const std::string path = directory.Write("a.zip", "0123456789");
};

// --- Early returns ---

TEST_F(UploadTransferTest, RefusedPathReturnsWithoutALogLine) {
  recorder.realPath = false;

  const HttpResult result = Engine().Upload(kUrl, path, kLines, 30);

  EXPECT_EQ(result.code, -1);
  EXPECT_EQ(result.body, "");
  ExpectEvents({"memset_s 4096 0 4096", "curl_easy_init",
                "LumRealPath " + path + " " + std::to_string(path.size()), "curl_easy_cleanup"});
}

TEST_F(UploadTransferTest, PathIsCheckedUpToItsFirstZeroByte) {
  recorder.realPath = false;

  Engine().Upload(kUrl, std::string("/a\0b", 4), kLines, 30);

  EXPECT_THAT(recorder.EventsWithout({"memset_s", "curl_easy"}), ElementsAre("LumRealPath /a 2"));
}

TEST_F(UploadTransferTest, FileThatCannotBeOpenedIsLogged) {
  const std::string missing = directory.Path("missing");

  const HttpResult result = Engine().Upload(kUrl, missing, kLines, 30);

  EXPECT_EQ(result.code, -1);
  EXPECT_EQ(result.body, "");
  ExpectEvents({"memset_s 4096 0 4096", "curl_easy_init",
                "LumRealPath " + missing + " " + std::to_string(missing.size()),
                "fopen " + missing + " rb", "log 1 Upload: read file error", "curl_easy_cleanup"});
}

// What ftell then tells is not the size.
TEST_F(UploadTransferTest, FileWhoseEndIsNotFoundIsSentWholeWithoutASize) {
  recorder.failSeek = true;

  const HttpResult result = Engine().Upload(kUrl, path, kLines, 30);

  EXPECT_EQ(result.code, 200);
  EXPECT_THAT(recorder.Events(), Contains("ftell"));
  EXPECT_EQ(recorder.Transfers().at(0).numbers.at(CURLOPT_INFILESIZE_LARGE), -1);
  EXPECT_EQ(recorder.Transfers().at(0).uploaded, "0123456789");
}

// --- The caller's stream ---

TEST_F(UploadTransferTest, StreamOfTheCallerServesOneUploadAndStaysOpen) {
  FILE* stream = StreamOf("the stream");
  ASSERT_EQ(std::fgetc(stream), 't');  // it is read from its start all the same
  client.SetFp(stream);

  Engine().Upload(kUrl, path, kLines, 30);

  Events expected = UploadEvents(kUrl, path, 10, kLines, "30");
  expected.erase(std::find(expected.begin(), expected.end(), "fopen " + path + " rb"));
  expected.erase(std::find(expected.begin(), expected.end(), "fclose"));
  ExpectEvents(expected);
  EXPECT_EQ(recorder.Transfers().at(0).uploaded, "the stream");
  EXPECT_EQ(recorder.Transfers().at(0).pointers.at(CURLOPT_READDATA), stream);
  EXPECT_EQ(Engine().uploadFp, nullptr);

  Forget();
  Engine().Upload(kUrl, path, kLines, 30);

  ExpectEvents(UploadEvents(kUrl, path, 10, kLines, "30"));
  EXPECT_EQ(recorder.Transfers().at(0).uploaded, "0123456789");
  CloseOwn(stream);
}

TEST_F(UploadTransferTest, StreamIsUsedUpByAFailedTransferToo) {
  FILE* stream = StreamOf("stream");
  client.SetFp(stream);
  recorder.NextPerform(Broken(CURLE_COULDNT_CONNECT, 0, "refused"));

  const HttpResult result = Engine().Upload(kUrl, path, kLines, 30);

  EXPECT_EQ(result.body, "PUT failed for: refused .");
  EXPECT_EQ(Engine().uploadFp, nullptr);
  EXPECT_THAT(recorder.Events(), Not(Contains("fclose")));
  CloseOwn(stream);
}

TEST_F(UploadTransferTest, EarlyReturnsLeaveTheStreamSetAndUnread) {
  FILE* stream = StreamOf("unread");
  client.SetFp(stream);

  recorder.failInit = true;
  Engine().Upload(kUrl, path, kLines, 30);
  EXPECT_EQ(Engine().uploadFp, stream);

  Forget();
  recorder.realPath = false;
  Engine().Upload(kUrl, path, kLines, 30);
  EXPECT_EQ(Engine().uploadFp, stream);

  EXPECT_EQ(std::fgetc(stream), 'u');
  CloseOwn(stream);
}

TEST_F(UploadTransferTest, StreamThatCannotSeekIsSentWithoutASizeFromWhereItStands) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "through a pipe", 14), 14);
  close(ends[1]);
  FILE* stream = fdopen(ends[0], "rb");
  ASSERT_NE(stream, nullptr);
  ASSERT_EQ(std::fgetc(stream), 't');
  client.SetFp(stream);

  Engine().Upload(kUrl, path, kLines, 30);

  Events expected = UploadEvents(kUrl, path, 10, kLines, "30");
  expected.erase(std::find(expected.begin(), expected.end(), "fopen " + path + " rb"));
  expected.erase(std::find(expected.begin(), expected.end(), "fclose"));
  std::replace(expected.begin(), expected.end(), std::string("CURLOPT_INFILESIZE_LARGE 10"),
               std::string("CURLOPT_INFILESIZE_LARGE -1"));
  ExpectEvents(expected);
  EXPECT_EQ(recorder.Transfers().at(0).uploaded, "hrough a pipe");
  EXPECT_EQ(Engine().uploadFp, nullptr) << "it is used up as any other";
  EXPECT_NE(fcntl(ends[0], F_GETFD), -1) << "and stays open";
  CloseOwn(stream);
}

// Its size is told, and what the stream then gives is sent.
TEST_F(UploadTransferTest, StreamThatCannotSeekBackToItsStartIsSentAllTheSame) {
  FILE* stream = StreamWithoutAWayBack();
  client.SetFp(stream);

  const HttpResult result = Engine().Upload(kUrl, path, kLines, 30);

  EXPECT_EQ(result.code, 200);
  EXPECT_EQ(recorder.Transfers().at(0).numbers.at(CURLOPT_INFILESIZE_LARGE), 3);
  EXPECT_EQ(Engine().uploadFp, nullptr);
  EXPECT_THAT(Logs(), IsEmpty());
  CloseOwn(stream);
}

TEST_F(UploadTransferTest, DestroyingTheClientLeavesItsStreamOpen) {
  FILE* stream = StreamOf("stream");
  client.SetFp(stream);

  delete client.d_pointer;
  client.d_pointer = nullptr;

  EXPECT_THAT(recorder.Events(), Not(Contains("fclose")));
  CloseOwn(stream);
}

TEST_F(UploadTransferTest, ReadCallbackPassesItsArgumentsToFread) {
  Script script;
  script.reads = false;
  std::vector<std::size_t> counts;
  std::string got;
  script.during = [&counts, &got](const Transfer& transfer) {
    const auto read =
        reinterpret_cast<curl_read_callback>(transfer.pointers.at(CURLOPT_READFUNCTION));
    void* user = transfer.pointers.at(CURLOPT_READDATA);
    char buffer[32] = {};
    counts.push_back(read(buffer, 3, 2, user));  // two items of three bytes
    got.append(buffer, 6);
    counts.push_back(read(buffer, 3, 9, user));  // one whole item is left, and one byte
    counts.push_back(read(buffer, 1, 9, user));
  };
  recorder.NextPerform(script);

  Engine().Upload(kUrl, path, {}, 30);

  EXPECT_THAT(counts, ElementsAre(2U, 1U, 0U));
  EXPECT_EQ(got, "012345");
}

TEST_F(UploadTransferTest, EmptyFileAnnouncesNoBytes) {
  const std::string empty = directory.Write("empty", "");
  Forget();

  Engine().Upload(kUrl, empty, kLines, 30);

  ExpectEvents(UploadEvents(kUrl, empty, 0, kLines, "30"));
}

TEST_F(UploadTransferTest, FileBeyondFourGigabytesAnnouncesItsSize) {
  const std::string large = directory.Path("large");
  MakeSparseFile(large, 5368709121);
  Script script;
  script.reads = false;
  recorder.NextPerform(script);

  Engine().Upload(kUrl, large, {}, 30);

  EXPECT_EQ(recorder.Transfers().at(0).numbers.at(CURLOPT_INFILESIZE_LARGE), 5368709121);
}

// --- The speed cap ---

TEST_F(UploadTransferTest, NoCapSetsNoOption) {
  client.SetLimitSpeed(5);
  client.SetLimitSpeed(-1);
  ASSERT_EQ(Engine().limitSpeed, 0xFFFFFFFF);

  Engine().Upload(kUrl, path, kLines, 30);

  ExpectEvents(UploadEvents(kUrl, path, 10, kLines, "30"));
}

TEST_F(UploadTransferTest, EveryOtherCapIsHandedOnAsASignedNumber) {
  const std::vector<std::pair<std::uint32_t, long long>> caps = {{0, 0},
                                                                 {1, 1},
                                                                 {1048576, 1048576},
                                                                 {0x7FFFFFFF, 2147483647},
                                                                 {0x80000000, -2147483648LL},
                                                                 {0xFFFFFFFE, -2}};
  for (const auto& [stored, handed] : caps) {
    Forget();
    Engine().SetLimitSpeed(stored);

    Engine().Upload(kUrl, path, {}, 30);

    const Transfer transfer = recorder.Transfers().at(0);
    ASSERT_EQ(transfer.numbers.count(CURLOPT_MAX_SEND_SPEED_LARGE), 1U) << stored;
    EXPECT_EQ(transfer.numbers.at(CURLOPT_MAX_SEND_SPEED_LARGE), handed) << stored;
  }
}

// --- Pinned uploads ---

TEST_F(UploadTransferTest, EachPinnedUploadKeepsOneListAndNothingElse) {
  client.SetDomainIp("10.0.0.5");
  Forget();

  for (int i = 0; i < 3; ++i) {
    Engine().Upload(kUrl, path, kLines, 30);
    EXPECT_EQ(recorder.LiveLists(), i + 1);
    EXPECT_EQ(recorder.LiveHandles(), 0);
    EXPECT_EQ(recorder.LiveFiles(), 0);
  }

  for (const Transfer& transfer : recorder.Transfers()) {
    EXPECT_THAT(transfer.resolve, ElementsAre("store.example:443:10.0.0.5"));
  }
  keptLists = 3;
}

}  // namespace
}  // namespace lumtest

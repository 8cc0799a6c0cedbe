// Uploads over real sockets: bytes, streams, pinned hosts, bound interfaces, and servers and files
// that do not behave.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

#include "ServiceLiveTest.h"
#include "support/ProcessState.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class UploadLiveTest : public ServiceLiveTest {
 protected:
  std::string Url() const { return server.Url("/bucket/x.zip"); }

  const std::string path = directory.Write("x.zip", "the archive");
};

// --- The bytes of each form ---

TEST_F(UploadLiveTest, EachFormOnTheWire) {
  server.SetHandler(Always(200));

  EXPECT_EQ(client.UploadLog(Url(), path, 5, {"X-B: 2", "X-A: 1"}), 0);
  EXPECT_EQ(client.UploadLog(Url(), path, 5, {}), 0);
  EXPECT_EQ(client.UploadLog(Url(), path, 5), 0);
  EXPECT_EQ(client.UploadVideoFile(Url(), path, 5), 0);
  EXPECT_EQ(client.UploadLog(Url(), path), 0);
  client.SetUploadLogAuthorisation("AWS key:signature");
  EXPECT_EQ(client.UploadLog(Url(), path), 0);
  client.SetUploadLogDate("Sat, 21 Nov 2026 13:00:00 GMT");
  EXPECT_EQ(client.UploadLog(Url(), path), 0);
  client.SetSecurityToken("token");
  EXPECT_EQ(client.UploadLog(Url(), path), 0);

  const Lines kLines[] = {
      {"X-B: 2", "X-A: 1"},
      {},
      {"Content-Type: application/zip"},
      {"Content-Type: video/mp4"},
      {"Content-Type: application/zip"},
      {"Content-Type: application/zip"},
      {"Authorization: AWS key:signature", "Date: Sat, 21 Nov 2026 13:00:00 GMT"},
      {"Authorization: AWS key:signature", "Date: Sat, 21 Nov 2026 13:00:00 GMT",
       "x-zun-security-token: token"}};
  for (std::size_t i = 0; i < 8; ++i) {
    // libcurl asks before it sends a body that it has to read.
    std::string head = Head("PUT", "/bucket/x.zip", kLines[i], 11);
    if (CurlAsksBefore(11)) {
      head.insert(head.size() - 2, "Expect: 100-continue\r\n");
    }
    EXPECT_EQ(server.Request(i).Raw(), head + "the archive") << i;
  }
}

TEST_F(UploadLiveTest, ReplyAppearsOnStandardOutputWhateverTheStatus) {
  server.Script(StatusReply(200, "stored\n"));
  server.Script(StatusReply(403, "<Error>AccessDenied</Error>"));
  server.Script(WireReply(WireHead(201, {"Transfer-Encoding: chunked"}) + WireChunk("in ") +
                          WireChunk("pieces") + WireChunk("")));
  expectedOutput = "stored\n<Error>AccessDenied</Error>in pieces";

  EXPECT_EQ(client.UploadLog(Url(), path, 5), 0);
  EXPECT_EQ(client.UploadLog(Url(), path), -10000);
  EXPECT_EQ(client.UploadVideoFile(Url(), path, 5), -10000);

  EXPECT_THAT(log.Messages(), ElementsAre("UploadLog failed, code=403, body=", "UploadLog failed"));
}

TEST_F(UploadLiveTest, EmptyFileIsUploaded) {
  server.SetHandler(Always(200));
  const std::string empty = directory.Write("empty", "");

  EXPECT_EQ(client.UploadLog(Url(), empty, 5), 0);

  EXPECT_EQ(server.Request(0).Header("Content-Length"), "0");
}

TEST_F(UploadLiveTest, BinaryFileArrivesByteForByte) {
  server.SetHandler(Always(200));
  const std::string content = GeneratedBytes(0, 3000001) + std::string(1000, '\0') + "\r\n\r\n";
  const std::string file = directory.Write("binary", content);

  EXPECT_EQ(client.UploadLog(Url(), file), 0);

  EXPECT_EQ(server.Request(0).body, content);
}

// --- The caller's stream ---

TEST_F(UploadLiveTest, StreamIsReadInPlaceOfTheFileAndStaysOpen) {
  server.SetHandler(Always(200));
  FILE* stream = std::fopen(directory.Write("other", "of the stream").c_str(), "rb");
  ASSERT_NE(stream, nullptr);
  ASSERT_EQ(std::fgetc(stream), 'o');
  client.SetFp(stream);

  EXPECT_EQ(client.UploadLog(Url(), path, 5), 0);
  EXPECT_EQ(client.UploadLog(Url(), path, 5), 0);

  EXPECT_EQ(server.Request(0).body, "of the stream");
  EXPECT_EQ(server.Request(1).body, "the archive");
  EXPECT_EQ(std::fseek(stream, 3, SEEK_SET), 0);
  EXPECT_EQ(std::fgetc(stream), 't');
  EXPECT_EQ(std::fclose(stream), 0);
}

TEST_F(UploadLiveTest, PipeGivenAsAStreamArrivesWholeInChunksOnce) {
  server.SetHandler(Always(200));
  const std::string content = GeneratedBytes(0, 3000001);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::thread writer([&] {
    FILE* end = fdopen(ends[1], "wb");
    std::fwrite(content.data(), 1, content.size(), end);
    std::fclose(end);
  });
  FILE* stream = fdopen(ends[0], "rb");
  client.SetFp(stream);

  EXPECT_EQ(client.UploadLog(Url(), path, 30), 0);
  writer.join();
  EXPECT_EQ(client.UploadLog(Url(), path, 5), 0);

  EXPECT_EQ(server.Request(0).Header("Transfer-Encoding"), "chunked");
  EXPECT_FALSE(server.Request(0).HasHeader("Content-Length"));
  EXPECT_EQ(server.Request(0).body, content);
  EXPECT_EQ(server.Request(1).body, "the archive") << "a stream serves one upload";
  EXPECT_THAT(log.Messages(), IsEmpty());
  EXPECT_EQ(std::fclose(stream), 0);
}

TEST_F(UploadLiveTest, NamedPipeArrivesWholeInChunks) {
  server.SetHandler(Always(200));
  const std::string content = GeneratedBytes(0, 3000001);
  const std::string fifo = directory.Path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::thread writer([&] { WriteFile(fifo, content); });

  EXPECT_EQ(client.UploadLog(Url(), fifo), 0);
  writer.join();

  EXPECT_EQ(server.Request(0).Header("Transfer-Encoding"), "chunked");
  EXPECT_EQ(server.Request(0).body, content);
  EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST_F(UploadLiveTest, ServerThatAsksForTheLengthOfAPipeIsAFailedUpload) {
  server.Script(WireReply(WireAnswer(411)).At(WireStart::kHead).Close());
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "data", 4), 4);
  close(ends[1]);
  FILE* stream = fdopen(ends[0], "rb");
  client.SetFp(stream);

  EXPECT_EQ(client.UploadLog(Url(), path), -10000);

  EXPECT_THAT(log.Messages().back(), StartsWith("UploadLog failed, code=411, body="));
  EXPECT_EQ(std::fclose(stream), 0);
}

// --- Files that do not behave ---

TEST_F(UploadLiveTest, PathsThatCannotBeReadFailWithoutARequest) {
  const std::size_t before = OpenDescriptors();
  for (const std::string& file : {directory.Path("missing"), directory.Path("no/such/directory"),
                                  directory.Path(), std::string(), std::string(5000, 'p')}) {
    log.Clear();
    EXPECT_EQ(client.UploadLog(Url(), file, 5), -10000) << file;
    EXPECT_EQ(log.Last().message, "UploadLog failed");
  }
  EXPECT_EQ(server.Connections().size(), 0U);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(UploadLiveTest, FileWithoutPermissionIsAFileThatCannotBeRead) {
  ASSERT_EQ(chmod(directory.Path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(path.c_str(), 0), 0);
  // Root reads everything, and who it becomes may not come here from the root of the file system.
  const int before = open(".", O_PATH | O_CLOEXEC);
  ASSERT_EQ(chdir(directory.Path().c_str()), 0);
  const bool root = geteuid() == 0;
  if (root) {
    ASSERT_EQ(seteuid(65534), 0);
  }

  const int result = client.UploadLog(Url(), "x.zip", 5);

  if (root) {
    ASSERT_EQ(seteuid(0), 0);
  }
  ASSERT_EQ(fchdir(before), 0);
  close(before);
  EXPECT_EQ(result, -10000);
  EXPECT_THAT(log.Messages(), ElementsAre("read file error", "UploadLog failed"));
}

TEST_F(UploadLiveTest, FileThatVanishesWhileItIsSentArrivesWhole) {
  const std::string content = GeneratedBytes(0, 4 << 20);
  const std::string file = directory.Write("vanishing", content);
  server.Script(StatusReply(200).At(WireStart::kBody));
  server.SetHandler(
      [&](const WireRequest&) {
        std::remove(file.c_str());
        return WireReply(WireContinue()).ReadBody().Send(WireAnswer(200));
      },
      WireStart::kHead);
  EXPECT_EQ(client.UploadLog(Url(), path, 5), 0);  // takes the script

  EXPECT_EQ(client.UploadLog(Url(), file, 30), 0);

  EXPECT_FALSE(Exists(file));
  EXPECT_EQ(server.Request(1).body, content);
}

// libcurl asks for no more once a read has brought it to the announced size. 7.88 sends all of that
// read, which takes 64 KiB where there are so many; 8.14 cuts it off.
TEST_F(UploadLiveTest, FileThatGrowsIsSentToTheEndOfTheReadThatReachesItsAnnouncedSize) {
  const std::string more = "more than was announced";
  constexpr std::size_t kReads = std::size_t{64} << 16;
  for (const std::size_t size : {kReads, kReads - more.size(), kReads + 1}) {
    const std::string file = directory.Write("growing", GeneratedBytes(0, size));
    server.SetHandler(
        [&](const WireRequest&) {
          AppendFile(file, more);
          return WireReply(WireContinue()).ReadBody().Send(WireAnswer(200)).Close();
        },
        WireStart::kHead);
    const std::size_t number = server.RequestCount();

    client.UploadLog(Url(), file, 30);

    ASSERT_TRUE(server.WaitIdle());
    const WireRequest request = server.Request(number);
    EXPECT_EQ(request.Header("Content-Length"), std::to_string(size));
    const bool cutsOff = !IsCurl7();
    const std::size_t beyond = cutsOff || size == kReads ? 0 : more.size();
    EXPECT_EQ(server.Connections().back().bytesReceived, request.head.size() + size + beyond);
  }
}

TEST_F(UploadLiveTest, FileThatShrinksWhileItIsSentIsAFailure) {
  const std::string file = directory.Path("shrinking");
  MakeSparseFile(file, 64 << 20);
  server.SetHandler(
      [&](const WireRequest&) {
        WriteFile(file, "little");
        return WireReply(WireContinue()).ReadBody().Send(WireAnswer(200));
      },
      WireStart::kHead);

  EXPECT_EQ(client.UploadLog(Url(), file, 3), -10000);

  EXPECT_GE(log.Count(1), 2U) << log.Text();
}

// --- Servers that do not behave ---

TEST_F(UploadLiveTest, BrokenInMidUploadIsAFailureAndRaisesNoSignal) {
  const std::string file = directory.Path("large");
  MakeSparseFile(file, 64 << 20);
  const WireReply start = WireReply().At(WireStart::kHead).Send(WireContinue()).ReadBytes(100000);
  for (const WireReply& end : {WireReply(start).Reset(), WireReply(start).Drop()}) {
    log.Clear();
    server.Script(end);

    EXPECT_EQ(client.UploadLog(Url(), file), -10000);

    EXPECT_THAT(log.Messages(1).at(0), StartsWith("PUT failed for "));
    EXPECT_THAT(log.Messages(1).at(1), HasSubstr(", body=PUT failed for: "));
    EXPECT_EQ(log.Count(1), 2U);
  }
}

TEST_F(UploadLiveTest, RefusalBeforeTheBodyIsReadIsItsStatus) {
  const std::string file = directory.Path("large");
  MakeSparseFile(file, 64 << 20);
  server.Script(StatusReply(413, "too large").At(WireStart::kHead).Close());
  server.Script(WireReply(WireAnswer(401, "who?")).At(WireStart::kHead).Close());
  expectedOutput = "too largewho?";

  EXPECT_EQ(client.UploadLog(Url(), file), -10000);
  EXPECT_EQ(client.UploadLog(Url(), file), -10000);

  EXPECT_THAT(log.Messages().at(0), StartsWith("UploadLog failed, code=413, body="));
  EXPECT_THAT(log.Messages().at(1), StartsWith("UploadLog failed, code=401, body="));
}

}  // namespace
}  // namespace lumtest

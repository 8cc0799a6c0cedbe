// upload-log, upload-video, upload-file, upload-dir and upload-group.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Lumcurl.h"
#include "support/Files.h"
#include "wire/Ports.h"
#include "wire/WireServer.h"

namespace lumtest {
namespace {

class Upload : public testing::Test {
 protected:
  Upload()
      : m_file(m_directory.Write("a.log", "content of a\n")),
        m_key(m_directory.Secret("key", "secret-key\n")) {}

  WireRequest Sent(const Words& arguments, int exitStatus = 0) {
    m_result = Lumcurl(arguments);
    EXPECT_EQ(m_result.exitStatus, exitStatus) << m_result.Describe();
    return m_server.Requests().back();
  }

  // The header lines that are not libcurl's own.
  static Words OwnLines(const WireRequest& request) {
    Words lines;
    for (const std::string& line : request.headerLines) {
      if (line.rfind("Host:", 0) != 0 && line.rfind("Accept:", 0) != 0 &&
          line.rfind("Content-Length:", 0) != 0 && line.rfind("Expect:", 0) != 0) {
        lines.push_back(line);
      }
    }
    return lines;
  }

  SecretDir m_directory;
  std::string m_file;
  std::string m_key;
  WireServer m_server;
  ProcessResult m_result;
};

TEST_F(Upload, LogHasADefaultContentType) {
  m_server.Script(StatusReply(200, "stored"));
  const WireRequest request = Sent({"upload-log", m_server.Url("/o/a"), m_file});
  EXPECT_EQ(request.method, "PUT");
  EXPECT_EQ(request.target, "/o/a");
  EXPECT_THAT(OwnLines(request), ElementsAre("Content-Type: application/zip"));
  EXPECT_EQ(request.body, "content of a\n");
  EXPECT_EQ(m_result.out, "stored");  // the library's doing
  EXPECT_THAT(m_result.err, IsEmpty());
}

TEST_F(Upload, LogTakesATimeLimit) {
  m_server.Script(WireReply().Stall());
  Sent({"upload-log", "--timeout", "1", m_server.Url(), m_file}, 7);
  EXPECT_THAT(m_result.err, HasSubstr("the limit is 1 s"));
  m_server.Script(StatusReply(200));
  EXPECT_THAT(OwnLines(Sent({"upload-log", "--timeout", "0", m_server.Url(), m_file})),
              ElementsAre("Content-Type: application/zip"));
}

TEST_F(Upload, LogTakesHeaderLines) {
  m_server.Script(StatusReply(200));
  EXPECT_THAT(OwnLines(Sent({"upload-log", "-H", "B: 2", "-H", "A: 1", m_server.Url(), m_file})),
              ElementsAre("B: 2", "A: 1"));
}

TEST_F(Upload, LogIsSigned) {
  m_server.Script(StatusReply(200));
  const Words lines =
      OwnLines(Sent({"upload-log", "--sign-key-file", m_key, "--date",
                     "Sun, 06 Nov 1994 08:49:37 GMT", m_server.Url("/objects/a.zip"), m_file}));
  // The value that openssl computes, see SignatureTest.
  EXPECT_THAT(lines, ElementsAre("Authorization: LUM oRhQvr3t9sm7LOKNNEhnLFYqUi8=",
                                 "Date: Sun, 06 Nov 1994 08:49:37 GMT"));
}

TEST_F(Upload, LogIsSignedWithTodaysDate) {
  m_server.Script(StatusReply(200));
  const WireRequest request =
      Sent({"upload-log", "--sign-key-file", m_key, m_server.Url(), m_file});
  EXPECT_THAT(request.Header("Authorization"), StartsWith("LUM "));
  EXPECT_THAT(request.Header("Date"),
              testing::ContainsRegex("^[A-Z][a-z]{2}, [0-9]{2} [A-Z][a-z]{2} 20[0-9]{2} "
                                     "[0-9]{2}:[0-9]{2}:[0-9]{2} GMT$"));
  EXPECT_FALSE(request.HasHeader("Content-Type"));
}

TEST_F(Upload, LogTakesAReadyMadeSignature) {
  m_server.Script(StatusReply(200));
  EXPECT_THAT(
      OwnLines(Sent({"upload-log", "--authorisation-file", m_directory.Secret("auth", "AWS a:b\n"),
                     "--date", "today", "--security-token-file",
                     m_directory.Secret("sec", "sec-token\n"), m_server.Url(), m_file})),
      ElementsAre("Authorization: AWS a:b", "Date: today", "x-zun-security-token: sec-token"));
}

TEST_F(Upload, RefusesSignaturesWithLineBreaksAndEmptyOnes) {
  for (const std::string& content : {std::string("a\nb: c"), std::string()}) {
    const ProcessResult result =
        Lumcurl({"upload-log", "--authorisation-file", m_directory.Secret("auth", content),
                 "--date", "today", m_server.Url(), m_file});
    EXPECT_EQ(result.exitStatus, 2) << result.Describe();
  }
  EXPECT_EQ(Lumcurl({"upload-log", "--sign-key-file", m_directory.Secret("empty", "\n"),
                     m_server.Url(), m_file})
                .exitStatus,
            2);
  EXPECT_EQ(m_server.Connections().size(), 0u);
}

TEST_F(Upload, ShowsTheReplyThatRefusesOnStandardOutput) {
  m_server.Script(StatusReply(403, "signature wanted"));
  Sent({"upload-log", m_server.Url("/p"), m_file}, 4);
  EXPECT_EQ(m_result.out, "signature wanted");
  EXPECT_THAT(m_result.err, HasSubstr("the server answered 403"));
}

TEST_F(Upload, SaysThatTheReplyIsLost) {
  m_server.SetHandler([](const WireRequest&) { return StatusReply(200, "stored"); });
  for (const Words& options : {Words{}, Words{"--limit-rate", "1G"}}) {
    Words words = {"upload-log", m_server.Url(), m_file};
    words.insert(words.begin() + 1, options.begin(), options.end());
    EXPECT_THAT(LumcurlInShell(words, "> /dev/full"),
                Ends(0, HasSubstr("the server's reply cannot be written to standard output")));
  }
}

TEST_F(Upload, SaysThatAStatusIsNotVisible) {
  m_server.Script(StatusReply(403, "no"));
  Sent({"upload-video", m_server.Url("/p"), m_file}, 1);
  EXPECT_THAT(m_result.err, HasSubstr("its status is not visible"));
}

TEST_F(Upload, FailsForA201) {
  m_server.Script(StatusReply(201));
  Sent({"upload-log", m_server.Url(), m_file}, 1);
  EXPECT_THAT(m_result.err, HasSubstr("201"));
}

TEST_F(Upload, VideoHasItsContentType) {
  m_server.Script(StatusReply(200));
  EXPECT_THAT(OwnLines(Sent({"upload-video", "-v", m_server.Url(), m_file})),
              ElementsAre("Content-Type: video/mp4"));
  EXPECT_THAT(m_result.err, HasSubstr("> Content-Type: video/mp4\n"));
}

TEST_F(Upload, SendsLargeAndEmptyFiles) {
  const std::string large = m_directory.Path("large");
  MakeSparseFile(large, 50'000'000);
  m_server.Script(StatusReply(200)).Script(StatusReply(200));
  const WireRequest request = Sent({"upload-video", m_server.Url(), large});
  EXPECT_EQ(request.bodyBytes, 50'000'000u);
  EXPECT_EQ(Sent({"upload-video", m_server.Url(), m_directory.Write("empty", "")}).bodyBytes, 0u);
}

TEST_F(Upload, TakesARateLimitWithASuffix) {
  m_server.Script(StatusReply(200));
  Sent({"upload-video", "--limit-rate", "500K", m_server.Url(), m_file});
}

// Where nothing listens: the warning comes before anything is sent.
TEST_F(Upload, WarnsOfARateThatCannotMeetTheLimit) {
  RefusedPort port;
  const std::string file = m_directory.Write("f", GeneratedBytes(0, 3000));
  const auto shown = [&](const Words& options, const char* command = "upload-video") {
    Words words = {command};
    words.insert(words.end(), options.begin(), options.end());
    words.insert(words.end(), {port.Url(), file});
    const ProcessResult result = Lumcurl(words);
    EXPECT_EQ(result.exitStatus, 6) << result.Describe();
    return result.err;
  };
  EXPECT_THAT(shown({"--limit-rate", "10"}), HasSubstr("warning: at 10 B/s the upload of '" + file +
                                                       "' needs 300 s, the limit is 60 s\n"));
  EXPECT_THAT(shown({"--limit-rate", "10"}, "upload-log"),
              HasSubstr("needs 300 s, the limit is 60"));
  EXPECT_THAT(shown({"--limit-rate", "10", "--timeout", "299"}), HasSubstr("the limit is 299 s"));
  EXPECT_THAT(shown({"--limit-rate", "10", "--timeout", "300"}), Not(HasSubstr("warning")));
  EXPECT_THAT(shown({"--limit-rate", "10", "--timeout", "0"}), Not(HasSubstr("warning")));
  EXPECT_THAT(shown({"--limit-rate", "51"}), Not(HasSubstr("warning: at")));
  EXPECT_THAT(shown({"--limit-rate", "10", "-q"}), Not(HasSubstr("warning")));
  // Of an archive the size is known when it has been made.
  EXPECT_THAT(shown({"--limit-rate", "1"}, "upload-file"),
              HasSubstr("the upload of '" + file + ".tar.gz' needs "));
}

TEST_F(Upload, NamesWhatCannotBeSent) {
  const std::string fifo = m_directory.Path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string none = m_directory.Path("none");
  for (const std::string& path :
       {none, m_directory.Path(), fifo, std::string("/dev/zero"), std::string()}) {
    for (const char* command : {"upload-log", "upload-video", "upload-file", "upload-group"}) {
      const ProcessResult result = Lumcurl({command, m_server.Url(), path});
      EXPECT_EQ(result.exitStatus, 9) << command << " " << result.Describe();
      EXPECT_THAT(result.err, HasSubstr("'" + path + "'"));
    }
  }
  for (const std::string& path : {none, m_file}) {
    EXPECT_THAT(Lumcurl({"upload-dir", m_server.Url(), path}),
                Ends(9, HasSubstr("'" + path + "'")));
  }
  EXPECT_EQ(m_server.Connections().size(), 0u);
}

TEST_F(Upload, PinsTheHostToAnAddress) {
  m_server.Script(StatusReply(200));
  const WireRequest request = Sent({"upload-log", "--pin-ip", "127.0.0.1",
                                    m_server.UrlWithHost("storage.invalid", "/p"), m_file});
  EXPECT_THAT(request.Header("Host"), StartsWith("storage.invalid:"));
}

TEST_F(Upload, FilePacksBesideTheFile) {
  m_server.Script(StatusReply(200));
  const WireRequest request = Sent({"upload-file", m_server.Url(), m_file});
  EXPECT_THAT(MembersOf(request.body), ElementsAre("a.log"));
  EXPECT_THAT(OwnLines(request), ElementsAre("Content-Type: application/zip"));
  EXPECT_TRUE(Exists(m_file));
  EXPECT_FALSE(Exists(m_file + ".tar.gz"));
}

TEST_F(Upload, FileIsSigned) {
  m_server.Script(StatusReply(200));
  EXPECT_THAT(Sent({"upload-file", "--sign-key-file", m_key, m_server.Url(), m_file})
                  .Header("Authorization"),
              StartsWith("LUM "));
}

TEST_F(Upload, FileFailsWithItsUploadThoughTheArchiveIsGone) {
  m_server.Script(StatusReply(503));
  Sent({"upload-file", m_server.Url(), m_file}, 5);
  EXPECT_FALSE(Exists(m_file + ".tar.gz"));
}

TEST_F(Upload, DirectoryKeepsItsArchiveWhenTheUploadFails) {
  const std::string directory = m_directory.MakeDir("logs");
  WriteFile(directory + "/b.log", "b");
  m_server.Script(StatusReply(503)).Script(StatusReply(200));
  Sent({"upload-dir", m_server.Url(), directory}, 5);
  EXPECT_TRUE(Exists(directory + ".tar.gz"));
  EXPECT_THAT(m_result.err, AllOf(HasSubstr("the archive is kept"), HasSubstr("upload-log"),
                                  HasSubstr(directory + ".tar.gz")));
  const WireRequest request = Sent({"upload-dir", "--overwrite", m_server.Url(), directory});
  EXPECT_THAT(MembersOf(request.body), UnorderedElementsAre("logs/", "logs/b.log"));
  EXPECT_FALSE(Exists(directory + ".tar.gz"));
}

TEST_F(Upload, DirectoryWithASlashIsPackedToo) {
  const std::string directory = m_directory.MakeDir("logs");
  WriteFile(directory + "/b.log", "b");
  m_server.Script(StatusReply(200));
  EXPECT_THAT(MembersOf(Sent({"upload-dir", m_server.Url(), directory + "/"}).body),
              UnorderedElementsAre("logs/", "logs/b.log"));
  EXPECT_FALSE(Exists(directory + "/.tar.gz"));
}

TEST_F(Upload, DoesNotReplaceAFileThatHasTheArchivesName) {
  WriteFile(m_file + ".tar.gz", "precious");
  EXPECT_THAT(Lumcurl({"upload-file", m_server.Url(), m_file}),
              Ends(9, AllOf(HasSubstr(m_file + ".tar.gz"), HasSubstr("--overwrite"))));
  EXPECT_EQ(ReadFile(m_file + ".tar.gz"), "precious");
  EXPECT_EQ(m_server.Connections().size(), 0u);
}

// A file of procfs is of size 0 and gives more: to the library it grows while it is packed.
TEST_F(Upload, WarnsOfAFileThatGrowsWhileItIsPacked) {
  m_server.Script(StatusReply(200));
  EXPECT_THAT(MembersOf(Sent({"upload-group", m_server.Url(), "/proc/version"}).body),
              ElementsAre("version"));
  EXPECT_EQ(m_result.err,
            "lumcurl: warning: version has grown and is packed to its first 0 bytes\n");
}

TEST_F(Upload, GroupPacksSeveralFiles) {
  const std::string other = m_directory.Write("other/b.log", "b");
  TempDir temporary;
  ProcessOptions options;
  options.environment = {"TMPDIR=" + temporary.Path()};
  m_server.Script(StatusReply(200));
  const ProcessResult result = Lumcurl({"upload-group", m_server.Url(), m_file, other}, options);
  EXPECT_EQ(result.exitStatus, 0) << result.Describe();
  EXPECT_THAT(MembersOf(m_server.Request(0).body), UnorderedElementsAre("a.log", "b.log"));
  EXPECT_THAT(FilesBelow(temporary.Path()), IsEmpty());
}

TEST_F(Upload, GroupMakesItsArchiveWhereAsked) {
  m_server.Script(WireReply()
                      .Call([this] { EXPECT_TRUE(Exists(m_directory.Path("base.tar.gz"))); })
                      .Send(WireAnswer(200)));
  Sent({"upload-group", "--archive", m_directory.Path("base"), m_server.Url(), m_file});
  EXPECT_FALSE(Exists(m_directory.Path("base.tar.gz")));
}

TEST_F(Upload, GroupNamesAnArchiveThatCannotBeMade) {
  const std::string twin = m_directory.Write("other/a.log", "b");
  EXPECT_THAT(Lumcurl({"upload-group", m_server.Url(), m_file, twin}),
              Ends(9, HasSubstr("no two files have one name")));
  EXPECT_THAT(
      Lumcurl({"upload-group", "--archive", m_directory.Path("none/base"), m_server.Url(), m_file}),
      Ends(9, HasSubstr(m_directory.Path("none/base.tar.gz"))));
  EXPECT_EQ(m_server.Connections().size(), 0u);
}

TEST_F(Upload, GroupRefusesANameWithALineBreak) {
  EXPECT_EQ(Lumcurl({"upload-group", m_server.Url(), m_file + "\n" + m_file}).exitStatus, 2);
}

}  // namespace
}  // namespace lumtest

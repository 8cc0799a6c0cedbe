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

  // The request of lumcurl's `words`, to which the server answers with `reply`.
  WireRequest Sent(const WireReply& reply, const Words& words, int exitStatus = 0) {
    m_server.Script(reply);
    m_result = Lumcurl(words);
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

TEST_F(Upload, SendsTheFileAndTheReplyGoesToStandardOutput) {
  const WireRequest request =
      Sent(StatusReply(200, "stored"), {"upload-log", m_server.Url("/o/a"), m_file});
  EXPECT_EQ(request.method, "PUT");
  EXPECT_EQ(request.target, "/o/a");
  EXPECT_EQ(request.body, "content of a\n");
  EXPECT_EQ(m_result.out, "stored");  // the library's doing
  EXPECT_THAT(m_result.err, IsEmpty());
}

TEST_F(Upload, HasTheHeaderLinesThatItsOptionsAskFor) {
  const std::string date = "Sun, 06 Nov 1994 08:49:37 GMT";
  const std::string authorisation = m_directory.Secret("auth", "AWS a:b\n");
  const std::string token = m_directory.Secret("sec", "sec-token\n");
  const std::pair<Words, Words> kCases[] = {
      {{"upload-log"}, {"Content-Type: application/zip"}},
      {{"upload-log", "--timeout", "0"}, {"Content-Type: application/zip"}},
      {{"upload-log", "-H", "B: 2", "-H", "A: 1"}, {"B: 2", "A: 1"}},
      // The value that openssl computes, see SignatureTest.
      {{"upload-log", "--sign-key-file", m_key, "--date", date},
       {"Authorization: LUM oRhQvr3t9sm7LOKNNEhnLFYqUi8=", "Date: " + date}},
      {{"upload-log", "--authorisation-file", authorisation, "--date", "today",
        "--security-token-file", token},
       {"Authorization: AWS a:b", "Date: today", "x-zun-security-token: sec-token"}},
      {{"upload-file"}, {"Content-Type: application/zip"}},
      {{"upload-file", "--sign-key-file", m_key, "--date", date},
       {"Authorization: LUM oRhQvr3t9sm7LOKNNEhnLFYqUi8=", "Date: " + date}},
      {{"upload-video"}, {"Content-Type: video/mp4"}}};
  for (const auto& [options, lines] : kCases) {
    SCOPED_TRACE(ShellWords(options));
    const Words words = Joined(options, {"-v", m_server.Url("/objects/a.zip"), m_file});
    EXPECT_EQ(OwnLines(Sent(StatusReply(200), words)), lines);
    for (const std::string& line : lines) {
      const std::string hidden = line.substr(0, line.find(':')) + ": ***";
      const std::string& shown = line.find("Auth") == 0 || line[0] == 'x' ? hidden : line;
      EXPECT_THAT(m_result.err, HasSubstr("> " + shown + "\n"));
    }
  }
}

TEST_F(Upload, LogIsSignedWithTodaysDate) {
  const WireRequest request =
      Sent(StatusReply(200), {"upload-log", "--sign-key-file", m_key, m_server.Url(), m_file});
  EXPECT_THAT(request.Header("Authorization"), StartsWith("LUM "));
  EXPECT_THAT(request.Header("Date"),
              testing::ContainsRegex("^[A-Z][a-z]{2}, [0-9]{2} [A-Z][a-z]{2} 20[0-9]{2} "
                                     "[0-9]{2}:[0-9]{2}:[0-9]{2} GMT$"));
  EXPECT_FALSE(request.HasHeader("Content-Type"));
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

TEST_F(Upload, SaysWhatIsWrong) {
  const auto answered = [this](const WireReply& reply, const Words& words) {
    m_server.Script(reply);
    return Lumcurl(Joined(words, {m_server.Url(), m_file}));
  };
  EXPECT_THAT(answered(StatusReply(403, "no"), {"upload-log"}),
              Ends(4, "no", HasSubstr("the server answered 403")));
  EXPECT_THAT(answered(StatusReply(403, "no"), {"upload-video"}),
              Ends(1, "no", HasSubstr("its status is not visible")));
  EXPECT_THAT(answered(StatusReply(201), {"upload-log"}), Ends(1, HasSubstr("201")));
  EXPECT_THAT(answered(WireReply().Stall(), {"upload-log", "--timeout", "1"}),
              Ends(7, HasSubstr("the limit is 1 s")));
}

TEST_F(Upload, SaysThatTheReplyIsLost) {
  m_server.SetHandler([](const WireRequest&) { return StatusReply(200, "stored"); });
  for (const Words& options : {Words{}, Words{"--limit-rate", "1G"}}) {
    const Words words = Joined({"upload-log", m_server.Url(), m_file}, options);
    EXPECT_THAT(LumcurlInShell(words, "> /dev/full"),
                Ends(0, HasSubstr("the server's reply cannot be written to standard output")));
  }
}

TEST_F(Upload, SendsLargeAndEmptyFiles) {
  const std::string large = m_directory.Path("large");
  MakeSparseFile(large, 50'000'000);
  const WireRequest request = Sent(StatusReply(200), {"upload-video", m_server.Url(), large});
  EXPECT_EQ(request.bodyBytes, 50'000'000u);
  EXPECT_EQ(Sent(StatusReply(200), {"upload-video", m_server.Url(), m_directory.Write("empty", "")})
                .bodyBytes,
            0u);
}

// Where nothing listens: the warning comes before anything is sent.
TEST_F(Upload, WarnsOfARateThatCannotMeetTheLimit) {
  RefusedPort port;
  const std::string file = m_directory.Write("f", GeneratedBytes(0, 3000));
  const auto shown = [&](const Words& options, const char* command = "upload-video") {
    const ProcessResult result = Lumcurl(Joined({command, port.Url(), file}, options));
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
  for (const auto& [path, reason] :
       {std::pair<std::string, std::string>{none, ": No such file"},
        {m_directory.Path(), " is a directory"},
        {fifo, " is no regular file"},  // and nobody waits for a writer
        {"/dev/zero", " is no regular file"},
        {"", ": No such file"}}) {
    for (const char* command : {"upload-log", "upload-video", "upload-file", "upload-group"}) {
      EXPECT_THAT(Lumcurl({command, m_server.Url(), path}),
                  Ends(9, HasSubstr("'" + path + "'" + reason)))
          << command;
    }
  }
  for (const std::string& path : {none, m_file}) {
    EXPECT_THAT(Lumcurl({"upload-dir", m_server.Url(), path}),
                Ends(9, HasSubstr("'" + path + "'")));
  }
  EXPECT_EQ(m_server.Connections().size(), 0u);
}

TEST_F(Upload, PinsTheHostToAnAddress) {
  const WireRequest request =
      Sent(StatusReply(200), {"upload-log", "--pin-ip", "127.0.0.1",
                              m_server.UrlWithHost("storage.invalid", "/p"), m_file});
  EXPECT_THAT(request.Header("Host"), StartsWith("storage.invalid:"));
}

TEST_F(Upload, FilePacksBesideTheFile) {
  const WireRequest request = Sent(StatusReply(200), {"upload-file", m_server.Url(), m_file});
  EXPECT_THAT(MembersOf(request.body), ElementsAre("a.log"));
  EXPECT_TRUE(Exists(m_file));
  EXPECT_FALSE(Exists(m_file + ".tar.gz"));
}

TEST_F(Upload, DirectoryKeepsItsArchiveWhenTheUploadFails) {
  const std::string directory = m_directory.MakeDir("logs");
  WriteFile(directory + "/b.log", "b");
  Sent(StatusReply(503), {"upload-dir", m_server.Url(), directory}, 5);
  EXPECT_TRUE(Exists(directory + ".tar.gz"));
  EXPECT_THAT(m_result.err, AllOf(HasSubstr("the archive is kept"), HasSubstr("upload-log"),
                                  HasSubstr(directory + ".tar.gz")));
  const WireRequest request =
      Sent(StatusReply(200), {"upload-dir", "--overwrite", m_server.Url(), directory});
  EXPECT_THAT(MembersOf(request.body), UnorderedElementsAre("logs/", "logs/b.log"));
  EXPECT_FALSE(Exists(directory + ".tar.gz"));
}

TEST_F(Upload, DirectoryWithASlashIsPackedToo) {
  const std::string directory = m_directory.MakeDir("logs");
  WriteFile(directory + "/b.log", "b");
  EXPECT_THAT(
      MembersOf(Sent(StatusReply(200), {"upload-dir", m_server.Url(), directory + "/"}).body),
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
  EXPECT_THAT(
      MembersOf(Sent(StatusReply(200), {"upload-group", m_server.Url(), "/proc/version"}).body),
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
  const auto look = [this] { EXPECT_TRUE(Exists(m_directory.Path("base.tar.gz"))); };
  Sent(WireReply().Call(look).Send(WireAnswer(200)),
       {"upload-group", "--archive", m_directory.Path("base"), m_server.Url(), m_file});
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

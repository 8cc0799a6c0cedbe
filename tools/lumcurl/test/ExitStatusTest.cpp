// Every command against every way in which a server can disappoint.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

#include "Lumcurl.h"
#include "support/Files.h"
#include "wire/Ports.h"
#include "wire/WireServer.h"

namespace lumtest {
namespace {

// A command with what stands before and behind its URL. "@file", "@dir" and "@json" are things that
// exist. `statusVisible`: the library hands the status back, or its log does.
struct Command {
  const char* name;
  Words before;
  Words after;
  bool statusVisible = true;
};

const Command kCommands[] = {
    {"get", {"get"}, {}},
    {"post", {"post", "-d", "{}"}, {}},
    {"token", {"token", "--data-file", "@json"}, {}},
    {"refresh_token", {"refresh-token", "--data-file", "@json"}, {}},
    {"report", {"report", "--data-file", "@json"}, {}},
    {"report_timeout", {"report", "--timeout", "9", "--data-file", "@json"}, {}},
    {"report_gzip", {"report", "--gzip", "--data-file", "@json"}, {}},
    {"report_gzip_id", {"report", "--gzip", "--access-id", "a", "--data-file", "@json"}, {}},
    {"log_address", {"log-address", "--access-id", "a", "--file-name", "f"}, {}, false},
    {"service_get", {"service-get"}, {}},
    {"service_post", {"service-post", "-d", "{}"}, {}},
    {"upload_log", {"upload-log"}, {"@file"}},
    {"upload_log_signed", {"upload-log", "--sign-key-file", "@file"}, {"@file"}},
    {"upload_log_own", {"upload-log", "-H", "A: b"}, {"@file"}, false},
    {"upload_log_timeout", {"upload-log", "--timeout", "9"}, {"@file"}, false},
    {"upload_video", {"upload-video"}, {"@file"}, false},
    {"upload_file", {"upload-file"}, {"@file"}},
    {"upload_dir", {"upload-dir"}, {"@dir"}},
    {"upload_group", {"upload-group"}, {"@file", "@json"}},
};

class EveryCommand : public testing::TestWithParam<Command> {
 protected:
  EveryCommand() {
    m_directory.Write("file", "content of the file\n");
    m_directory.Write("json", R"({"accessId":"robot-7","text":"long enough to be compressed"})");
    m_directory.Write("dir/member", "content of the member\n");
  }

  // Runs the command; the archive that a failed one has kept is out of its way.
  ProcessResult Run(const std::string& url, const Words& more = {}) {
    std::remove(m_directory.Path("dir.tar.gz").c_str());
    Words arguments = Joined(Joined(GetParam().before, more), Joined({url}, GetParam().after));
    for (std::string& word : arguments) {
      if (word[0] == '@') {
        word = m_directory.Path(word.substr(1));
      }
    }
    return Lumcurl(arguments);
  }

  // Expects the exit status, and a message that names command, URL and advice.
  void ExpectFailure(const ProcessResult& result, const std::string& url, int exitStatus) {
    EXPECT_EQ(result.exitStatus, exitStatus) << result.Describe();
    EXPECT_THAT(result.err, HasSubstr("lumcurl: " + GetParam().before[0] + " " + url + ": "));
    EXPECT_THAT(result.err, HasSubstr("; "));
  }

  TempDir m_directory;
};

TEST_P(EveryCommand, EndsWith0WhenDone) {
  WireServer server;
  server.Script(JsonReply("{}"));
  EXPECT_THAT(Run(server.Url("/p"), {"-q"}), Ends(0, IsEmpty()));
}

TEST_P(EveryCommand, EndsWithTheClassOfTheStatus) {
  WireServer server;
  for (const auto& [status, exitStatus] : {std::pair{404, 4}, {503, 5}}) {
    server.Script(JsonReply("{}", status));
    ExpectFailure(Run(server.Url("/p")), server.Url("/p"),
                  GetParam().statusVisible ? exitStatus : 1);
  }
}

TEST_P(EveryCommand, EndsWith6ForARefusedPort) {
  RefusedPort port;
  ExpectFailure(Run(port.Url("http", "/p")), port.Url("http", "/p"), 6);
}

TEST_P(EveryCommand, EndsWith6ForAnAnswerThatIsNone) {
  WireServer server;
  for (const WireReply& reply :
       {WireReply().Close(), WireReply().Reset(), WireReply("SSH-2.0-garbage\r\n\r\n").Close()}) {
    server.Script(reply);
    ExpectFailure(Run(server.Url("/p")), server.Url("/p"), 6);
  }
}

TEST_P(EveryCommand, EndsWith6ForAHostThatHasNoAddress) {
  // A label this long is refused before any name server is asked.
  const std::string url = "http://" + std::string(64, 'x') + ".invalid/p";
  ExpectFailure(Run(url), url, 6);
}

TEST_P(EveryCommand, EndsWith8WhereNoTlsIs) {
  WireServer server;
  server.Script(NoTls());
  const std::string url = "https://127.0.0.1:" + std::to_string(server.Port()) + "/p";
  const ProcessResult result = Run(url);
  ExpectFailure(result, url, 8);
  EXPECT_THAT(result.err, HasSubstr("speaks TLS"));
}

TEST_P(EveryCommand, SaysOnceThatAnHttpsServerIsNotVerified) {
  const RefusedPort port;
  const std::string url = port.Url("https", "/p");
  EXPECT_THAT(Run(url), Ends(6, WarnsOnceOf("the https server is not verified")));
  EXPECT_THAT(Run(url, {"-q"}), Ends(6, Not(HasSubstr("verified"))));
}

TEST_P(EveryCommand, LeavesNoArchive) {
  WireServer server;
  server.Script(JsonReply("{}")).Script(JsonReply("{}", 500));
  Run(server.Url("/p"));
  EXPECT_FALSE(Exists(m_directory.Path("file.tar.gz")));
  EXPECT_FALSE(Exists(m_directory.Path("dir.tar.gz")));
  Run(server.Url("/p"));
  EXPECT_FALSE(Exists(m_directory.Path("file.tar.gz")));
  EXPECT_EQ(Exists(m_directory.Path("dir.tar.gz")), GetParam().before[0] == "upload-dir");
}

INSTANTIATE_TEST_SUITE_P(All, EveryCommand, testing::ValuesIn(kCommands),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace lumtest

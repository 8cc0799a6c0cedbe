// apollo: one namespace of a configuration centre.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <sstream>

#include "Lumcurl.h"
#include "support/Files.h"
#include "tls/TlsMaterial.h"
#include "wire/Ports.h"
#include "wire/WireServer.h"

namespace lumtest {
namespace {

class Apollo : public testing::Test {
 protected:
  Apollo() {
    const TlsMaterial material = lumtools::MakeTlsMaterial(m_directory.Path("tls"), "pass");
    WireOptions options;
    options.tls = MakeWireTls(material);
    m_server.emplace(options);
  }

  std::string Server() const { return "127.0.0.1:" + std::to_string(m_server->Port()); }

  ProcessResult Run(const WireReply& reply, const Words& options = {}) {
    m_server->Script(reply);
    return Lumcurl(Joined(Joined({"apollo"}, options), {Server(), "robot", "application"}));
  }

  static std::string Answer(const std::string& configurations) {
    return R"({"appId":"robot", "cluster":"default","namespaceName":"application",)"
           R"("configurations":)" +
           configurations + R"(,"releaseKey":"r"})";
  }

  TempDir m_directory;
  std::optional<WireServer> m_server;
};

TEST_F(Apollo, PrintsTheAnswerAsItCame) {
  const std::string answer = Answer(R"({"b":"2","a":"1"})");
  EXPECT_THAT(Run(JsonReply(answer), {"-q"}), Ends(0, answer, IsEmpty()));
  EXPECT_EQ(m_server->Request(0).target, "/configs/robot/default/application");
}

TEST_F(Apollo, AsksForACluster) {
  EXPECT_EQ(Run(JsonReply(Answer("{}")), {"--cluster", "c%201"}).exitStatus, 0);
  EXPECT_EQ(m_server->Request(0).target, "/configs/robot/c%201/application");
}

TEST_F(Apollo, PrintsOneProperty) {
  EXPECT_EQ(Run(JsonReply(Answer(R"({"b":"2","a.b":"x\ty"})")), {"--key", "a.b"}).out, "x\ty\n");
  EXPECT_THAT(Run(JsonReply(Answer(R"({"b":"2"})")), {"--key", "c"}),
              Ends(1, IsEmpty(), HasSubstr("has no property 'c'")));
}

TEST_F(Apollo, PrintsLinesThatAShellReadsBack) {
  const ProcessResult result =
      Run(JsonReply(
              Answer(R"({"db.url":"it's $HOME `x` \"q\" \\ \n2nd","2x":"","plain_1":"v","n":7})")),
          {"--env-file"});
  EXPECT_EQ(result.exitStatus, 0);
  const std::string path = m_directory.Write("env", result.out);
  EXPECT_EQ(RunCommand({"sh", "-euc",
                        ". \"$0\"; printf '[%s]' \"$db_url\" \"$_2x\" \"$plain_1\" \"$n\"", path})
                .out,
            "[it's $HOME `x` \"q\" \\ \n2nd][][v][7]");
}

TEST_F(Apollo, RefusesNamesThatSteerAShell) {
  std::istringstream names(
      "PATH IFS ENV BASH_ENV LD_PRELOAD LD_LIBRARY_PATH LD.AUDIT "
      "SHELLOPTS PS4 PROMPT PROMPT_COMMAND PROMPT2 PROMPT3 PROMPT4 "
      "prompt RPS1 RPS2 RPROMPT RPROMPT2 SPROMPT NULLCMD "
      "READNULLCMD FCEDIT EDITOR VISUAL INPUTRC EXINIT VIMINIT "
      "PYTHONPATH PYTHONSTARTUP PERL5OPT NODE_OPTIONS RES_OPTIONS "
      "LOCALDOMAIN HOSTALIASES http_proxy HTTP_PROXY https_proxy "
      "HTTPS_PROXY ALL_PROXY all_proxy NO_PROXY no_proxy No_Proxy "
      "ftp_proxy CURL_HOME CURL_CA_BUNDLE SSLKEYLOGFILE "
      "SSL_CERT_FILE LUMCURL_TOKEN");
  for (std::string name; names >> name;) {
    std::string variable = name;
    std::replace(variable.begin(), variable.end(), '.', '_');
    EXPECT_THAT(Run(JsonReply(Answer(R"({"a":"1",")" + name + R"(":"x"})")), {"--env-file"}),
                Ends(1, IsEmpty(), AllOf(HasSubstr(": " + variable + ";"), HasSubstr("--prefix"))));
  }
  EXPECT_THAT(Run(JsonReply(Answer(R"({"PATH":"1","IFS":"2"})")), {"--env-file"}).err,
              HasSubstr(": PATH, IFS;"));
  // What merely looks like one of them.
  EXPECT_EQ(Run(JsonReply(Answer(R"({"PROMPTLY":"1","db_proxy":"2"})")), {"--env-file"}).out,
            "PROMPTLY='1'\ndb_proxy='2'\n");
}

TEST_F(Apollo, PutsAPrefixInFrontOfNames) {
  const ProcessResult result =
      Run(JsonReply(Answer(R"({"PATH":"1","2x":"2"})")), {"--env-file", "--prefix", "APP_"});
  EXPECT_EQ(result.exitStatus, 0) << result.Describe();
  EXPECT_EQ(result.out, "APP_PATH='1'\nAPP_2x='2'\n");
  // What steers is the whole name.
  EXPECT_EQ(
      Run(JsonReply(Answer(R"({"PRELOAD":"1"})")), {"--env-file", "--prefix", "LD_"}).exitStatus,
      1);
}

TEST_F(Apollo, RefusesNamesThatFallTogether) {
  EXPECT_THAT(
      Run(JsonReply(Answer(R"({"a.b":"1","a-b":"2"})")), {"--env-file"}),
      Ends(1, IsEmpty(), AllOf(HasSubstr("'a.b'"), HasSubstr("'a-b'"), HasSubstr("--key"))));
}

TEST_F(Apollo, TellsStatusesApart) {
  for (const auto& [status, exitStatus] : {std::pair{401, 4}, {404, 4}, {500, 5}, {304, 1}}) {
    const ProcessResult result = Run(StatusReply(status, status == 304 ? "" : "why not"));
    EXPECT_EQ(result.exitStatus, exitStatus);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.err, HasSubstr("apollo https://" + Server() +
                                      "/configs/robot/default/application: the server answered " +
                                      std::to_string(status)));
    if (status != 304) {
      EXPECT_THAT(result.err, HasSubstr("the reply: why not"));
    }
  }
}

TEST_F(Apollo, FailsForAnswersThatAreNoNamespace) {
  EXPECT_THAT(Run(StatusReply(200, "<html>")),
              Ends(1, AllOf(HasSubstr("not JSON"), HasSubstr("the reply: <html>"))));
  EXPECT_THAT(Run(JsonReply("[]")), Ends(1, HasSubstr("no 'configurations'")));
}

TEST_F(Apollo, FailsWhenTheServerClosesInMidBody) {
  EXPECT_EQ(Run(WireReply(WireHead(200, {"Content-Length: 99"}) + "{\"a\"").Close()).exitStatus, 6);
}

TEST_F(Apollo, NamesAServerThatIsDown) {
  RefusedPort port;
  const std::string server = "127.0.0.1:" + std::to_string(port.Port());
  EXPECT_THAT(Lumcurl({"apollo", server, "a", "n"}),
              Ends(6, HasSubstr("https://" + server + "/configs/a/default/n")));
}

TEST_F(Apollo, NamesAServerWithoutTls) {
  WireServer plain;
  plain.Script(NoTls());
  EXPECT_EQ(Lumcurl({"apollo", "127.0.0.1:" + std::to_string(plain.Port()), "a", "n"}).exitStatus,
            8);
}

TEST_F(Apollo, NamesAnIpv6AddressThatTheLibraryDoesNotReach) {
  EXPECT_THAT(Lumcurl({"apollo", "[::1]:9", "a", "n"}),
              Ends(6, HasSubstr("https://[::1]:9/configs/a/default/n")));
}

}  // namespace
}  // namespace lumtest

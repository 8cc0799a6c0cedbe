// get, post and download against a server that plays scripts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "Lumcurl.h"
#include "support/Files.h"
#include "tls/TlsMaterial.h"
#include "wire/Digest.h"
#include "wire/Ports.h"
#include "wire/WireServer.h"

namespace lumtest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

TEST(Get, PrintsTheDocument) {
  WireServer server;
  server.Script(JsonReply(R"({"b":[1,2],"a":null})"));
  const ProcessResult result = Lumcurl({"get", server.Url("/status?x=1")});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.out, "{\n    \"b\": [\n        1,\n        2\n    ],\n    \"a\": null\n}\n");
  EXPECT_THAT(result.err, IsEmpty());
  const WireRequest request = server.Request(0);
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.target, "/status?x=1");
  EXPECT_EQ(request.Header("User-Agent"), "QVcurlHttp/0.1.2");
  EXPECT_EQ(request.Header("Content-Type"), "application/json");
  EXPECT_EQ(request.Header("charsets"), "utf-8");
}

TEST(Get, SendsOneHeaderLineInPlaceOfTheUsualOnes) {
  WireServer server;
  server.Script(JsonReply("1"));
  EXPECT_EQ(Lumcurl({"get", "-H", "X-Own: a b", server.Url()}).exitStatus, 0);
  EXPECT_EQ(server.Request(0).Header("X-Own"), "a b");
  EXPECT_FALSE(server.Request(0).HasHeader("Content-Type"));
}

TEST(Get, PrintsTheDocumentOfAnErrorToo) {
  WireServer server;
  server.Script(JsonReply(R"({"error":"gone"})", 404));
  const ProcessResult result = Lumcurl({"get", server.Url("/p")});
  EXPECT_EQ(result.exitStatus, 4);
  EXPECT_EQ(result.out, "{\n    \"error\": \"gone\"\n}\n");
  EXPECT_THAT(result.err, HasSubstr("get " + server.Url("/p") + ": the server answered 404"));
}

TEST(Get, DoesNotFollowRedirects) {
  WireServer server;
  server.Script(JsonReply("{}", 302));
  const ProcessResult result = Lumcurl({"get", server.Url()});
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_THAT(result.err, HasSubstr("redirects are not followed"));
}

TEST(Get, ShowsWhatIsNotJson) {
  WireServer server;
  server.Script(StatusReply(200, "<html>\x1b[31mhello</html>"));
  const ProcessResult result = Lumcurl({"get", server.Url()});
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_THAT(result.out, IsEmpty());
  EXPECT_THAT(result.err, HasSubstr(server.Url() + ": the answer is not JSON"));
  EXPECT_THAT(result.err, HasSubstr("the reply: <html>\\x1b[31mhello</html>"));
}

TEST(Get, TakesAnEmptyAnswerForNoJson) {
  WireServer server;
  server.Script(StatusReply(204));
  EXPECT_EQ(Lumcurl({"get", server.Url()}).exitStatus, 1);
}

TEST(Get, FailsWhereOutputCannotBeWritten) {
  WireServer server;
  server.Script(JsonReply("{}"));
  const ProcessResult result =
      RunCommand({"sh", "-c", ShellWords(LumcurlCommand({"get", server.Url()})) + " > /dev/full"},
                 LumcurlOptions());
  EXPECT_EQ(result.exitStatus, 9);
  EXPECT_THAT(result.err, HasSubstr("standard output"));
}

TEST(Get, ShowsTheExchangeWhenVerbose) {
  WireServer server;
  server.Script(JsonReply("{}"));
  const ProcessResult result = Lumcurl({"get", "-v", server.Url("/p")});
  EXPECT_EQ(result.out, "{}\n");
  EXPECT_EQ(result.err, "lumcurl: > GET " + server.Url("/p") +
                            "\n"
                            "lumcurl: > User-Agent: QVcurlHttp/0.1.2\n"
                            "lumcurl: > Content-Type: application/json\n"
                            "lumcurl: > charsets: utf-8\n"
                            "lumcurl: < 200\n");
}

TEST(Post, ShowsTheContentTypeThatLibcurlAddsWhenVerbose) {
  WireServer server;
  server.SetHandler([](const WireRequest&) { return JsonReply("{}"); });
  const std::string added =
      "> Content-Type: application/x-www-form-urlencoded (added by libcurl)\n";
  for (const char* command : {"post", "service-post"}) {
    const Words words = {command, "-v", "-d", "{}", "-H", "A: b", server.Url()};
    EXPECT_THAT(Lumcurl(words).err, HasSubstr(added)) << command;
    EXPECT_EQ(server.Requests().back().Header("Content-Type"), "application/x-www-form-urlencoded");
    const Words own = {command, "-v", "-d", "{}", "-H", "content-type: text/plain", server.Url()};
    EXPECT_THAT(Lumcurl(own).err, Not(HasSubstr("added by"))) << command;
  }
  EXPECT_THAT(Lumcurl({"get", "-v", server.Url()}).err, Not(HasSubstr("added by")));
}

TEST(Get, EndsTheStartOfALongReplyInDots) {
  WireServer server;
  server.Script(StatusReply(200, std::string(5000, 'x')));
  EXPECT_THAT(Lumcurl({"get", server.Url()}).err,
              HasSubstr("the reply: " + std::string(1000, 'x') + "...\n"));
}

TEST(Get, WaitsFiveSecondsAtMost) {
  WireServer server;
  server.Script(WireReply().Stall());
  const ProcessResult result = Lumcurl({"get", server.Url()});
  EXPECT_EQ(result.exitStatus, 7);
  EXPECT_THAT(result.err, HasSubstr("the limit is 5 s"));
}

TEST(Post, SendsTheBodyByteForByte) {
  WireServer server;
  TempDir directory;
  const std::string body = "{ \"a\" :1 }\n";
  server.Script(JsonReply("1")).Script(JsonReply("2")).Script(JsonReply("3"));
  EXPECT_EQ(Lumcurl({"post", "-d", body, server.Url()}).out, "1\n");
  EXPECT_EQ(Lumcurl({"post", "--data-file", directory.Write("f", body), server.Url()}).out, "2\n");
  ProcessOptions options;
  options.input = body;
  EXPECT_EQ(Lumcurl({"post", "--data-file", "-", server.Url()}, options).out, "3\n");
  for (const WireRequest& request : server.Requests()) {
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.body, body);
    EXPECT_EQ(request.Header("Content-Type"), "application/json");
  }
}

TEST(Post, SendsAnEmptyBodyAndZeroBytes) {
  WireServer server;
  TempDir directory;
  server.Script(JsonReply("1")).Script(JsonReply("2"));
  EXPECT_EQ(Lumcurl({"post", "-d", "", server.Url()}).exitStatus, 0);
  const std::string body("a\0b", 3);
  EXPECT_EQ(Lumcurl({"post", "--data-file", directory.Write("f", body), server.Url()}).exitStatus,
            0);
  EXPECT_EQ(server.Request(0).body, "");
  EXPECT_EQ(server.Request(1).body, body);
}

TEST(Post, NamesABodyThatCannotBeRead) {
  const ProcessResult result = Lumcurl({"post", "--data-file", "/none/f", "http://127.0.0.1:9/"});
  EXPECT_EQ(result.exitStatus, 9);
  EXPECT_THAT(result.err, HasSubstr("cannot read '/none/f': No such file"));
}

class Tls : public testing::Test {
 protected:
  Tls() : m_material(lumtools::MakeTlsMaterial(m_directory.Path("tls"), "open sesame")) {
    m_options.tls.emplace();
    m_options.tls->certificate = m_material.serverCertificate;
    m_options.tls->key = m_material.serverKey;
    m_options.tls->clientCertificate = WireTls::ClientCertificate::kRequired;
    m_options.tls->clientCa = m_material.caCertificate;
  }

  Words Arguments(const std::string& caCert, const std::string& key, const std::string& pass) {
    Words words = {"get",   "--ssl", "--cacert",     caCert, "--cert", m_material.clientCertificate,
                   "--key", key,     m_server->Url()};
    if (!pass.empty()) {
      const std::string file = m_directory.Write("pass", pass + "\n");
      EXPECT_EQ(RunCommand({"chmod", "600", file}).exitStatus, 0);
      words.insert(words.begin() + 1, {"--pass-file", file});
    }
    return words;
  }

  void Serve() {
    m_server.emplace(m_options);
    m_server->SetHandler([](const WireRequest&) { return JsonReply("{}"); });
  }

  TempDir m_directory;
  TlsMaterial m_material;
  WireOptions m_options;
  std::optional<WireServer> m_server;
};

TEST_F(Tls, OffersTheCertificateWithAnEncryptedKey) {
  Serve();
  const ProcessResult result =
      Lumcurl(Arguments(m_material.caCertificate, m_material.clientEncryptedKey, "open sesame"));
  EXPECT_EQ(result.exitStatus, 0) << result.Describe();
  EXPECT_THAT(result.err, IsEmpty());
  EXPECT_EQ(m_server->Request(0).clientSubject, "CN=Lum test client,O=Lum");
}

TEST_F(Tls, TakesThePassPhraseFromTheEnvironment) {
  Serve();
  ProcessOptions options;
  options.environment = {"LUMCURL_KEY_PASS=open sesame"};
  EXPECT_EQ(Lumcurl(Arguments(m_material.caCertificate, m_material.clientEncryptedKey, ""), options)
                .exitStatus,
            0);
}

TEST_F(Tls, RefusesAWrongOrMissingPassPhrase) {
  Serve();
  for (const char* pass : {"open barley", ""}) {
    const ProcessResult result =
        Lumcurl(Arguments(m_material.caCertificate, m_material.clientEncryptedKey, pass));
    EXPECT_EQ(result.exitStatus, 8) << result.Describe();
    EXPECT_THAT(result.err, HasSubstr("the pass phrase is the key's"));
    EXPECT_THAT(result.err, Not(HasSubstr("barley")));
  }
}

TEST_F(Tls, NamesFilesThatAreMissing) {
  Serve();
  const ProcessResult result =
      Lumcurl(Arguments(m_material.caCertificate, m_directory.Path("none.key"), ""));
  EXPECT_EQ(result.exitStatus, 9);
  EXPECT_THAT(result.err, HasSubstr("--key: cannot read '" + m_directory.Path("none.key")));
  EXPECT_EQ(m_server->Connections().size(), 0u);
}

TEST_F(Tls, RefusesAServerOfAnotherAuthority) {
  m_options.tls->certificate = m_material.untrustedServerCertificate;
  m_options.tls->key = m_material.untrustedServerKey;
  Serve();
  const ProcessResult result =
      Lumcurl(Arguments(m_material.caCertificate, m_material.clientKey, ""));
  EXPECT_EQ(result.exitStatus, 8);
  EXPECT_THAT(result.err, HasSubstr("--cacert"));
}

TEST_F(Tls, SaysSoWhenTheServerWantsACertificate) {
  Serve();
  const ProcessResult result = Lumcurl({"get", m_server->Url()});
  EXPECT_EQ(result.exitStatus, 8) << result.Describe();
  EXPECT_THAT(result.err, HasSubstr("client certificate"));
}

TEST_F(Tls, SaysSoWhenThePortSpeaksNoTls) {
  WireServer plain;
  plain.Script(NoTls());
  const ProcessResult result =
      Lumcurl({"get", "https://127.0.0.1:" + std::to_string(plain.Port()) + "/"});
  EXPECT_EQ(result.exitStatus, 8);
  EXPECT_THAT(result.err, HasSubstr("speaks TLS"));
}

TEST(Download, WritesTheFile) {
  WireServer server;
  TempDir directory;
  const std::string path = directory.Write("file", std::string(100, 'x'));
  server.Script(GeneratedReply(3'000'000));
  const ProcessResult result = Lumcurl({"download", server.Url("/f"), path});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_THAT(result.out, IsEmpty());
  EXPECT_THAT(result.err, IsEmpty());
  EXPECT_EQ(Sha256OfFile(path), GeneratedSha256(3'000'000));
}

TEST(Download, SavesAnErrorPage) {
  WireServer server;
  TempDir directory;
  server.Script(StatusReply(404, "no such page"));
  EXPECT_EQ(Lumcurl({"download", server.Url(), directory.Path("f")}).exitStatus, 0);
  EXPECT_EQ(ReadFile(directory.Path("f")), "no such page");
}

TEST(Download, NamesADirectoryThatIsTheTarget) {
  TempDir directory;
  const ProcessResult result = Lumcurl({"download", "http://127.0.0.1:9/", directory.Path()});
  EXPECT_EQ(result.exitStatus, 9);
  EXPECT_THAT(result.err, HasSubstr("'" + directory.Path() + "' is a directory"));
}

TEST(Download, NamesADirectoryThatIsMissing) {
  TempDir directory;
  const ProcessResult result =
      Lumcurl({"download", "-q", "http://127.0.0.1:9/", directory.Path("none/f")});
  EXPECT_EQ(result.exitStatus, 9);
  EXPECT_THAT(result.err, HasSubstr("its directory '" + directory.Path("none") + "'"));
}

TEST(Download, NamesAFileThatCannotBeMade) {
  // Not even root makes files there.
  const ProcessResult result = Lumcurl({"download", "http://127.0.0.1:9/", "/proc/lumcurl-test"});
  EXPECT_EQ(result.exitStatus, 9);
  EXPECT_THAT(result.err, HasSubstr("/proc/lumcurl-test"));
}

TEST(Download, NamesAnEmptyPathAndOneThatIsTooLong) {
  EXPECT_EQ(Lumcurl({"download", "http://127.0.0.1:9/", ""}).exitStatus, 9);
  const ProcessResult result =
      Lumcurl({"download", "http://127.0.0.1:9/", "/tmp/" + std::string(5000, 'x')});
  EXPECT_EQ(result.exitStatus, 9);
  EXPECT_THAT(result.err, HasSubstr("File name too long"));
}

TEST(Download, NamesAFileThatCannotGrow) {
  WireServer server;
  TempDir directory;
  const std::string path = directory.Path("f");
  server.Script(GeneratedReply(1'000'000));
  const ProcessResult result =
      RunCommand({"sh", "-c",
                  "trap '' XFSZ; ulimit -f 1; exec " +
                      ShellWords(LumcurlCommand({"download", server.Url(), path}))},
                 LumcurlOptions());
  EXPECT_EQ(result.exitStatus, 9) << result.Describe();
  EXPECT_THAT(result.err, HasSubstr("cannot write '" + path + "'"));
  EXPECT_THAT(result.err, HasSubstr("disk is not full"));
}

TEST(Download, RefusesPipesDevicesAndStandardOutput) {
  WireServer server;
  TempDir directory;
  const std::string fifo = directory.Path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {fifo, std::string("/dev/null"), std::string("/dev/full"),
                                  std::string("/dev/stdout"), std::string("-")}) {
    const ProcessResult result = Lumcurl({"download", server.Url(), path});
    EXPECT_EQ(result.exitStatus, 9) << result.Describe();
    EXPECT_THAT(
        result.err,
        StartsWith(path == "-" ? "lumcurl: download: a download goes into a file"
                               : "lumcurl: download: '" + path + "' is a pipe or a device"));
  }
  EXPECT_EQ(server.Connections().size(), 0u);
}

TEST(Download, WarnsOfWhatLooksLikeAnErrorPage) {
  WireServer server;
  TempDir directory;
  const std::string path = directory.Path("f");
  server.Script(StatusReply(404, "<html><h1>404 Not Found</h1></html>"))
      .Script(StatusReply(404, R"({"error":"no such file"})"))
      .Script(StatusReply(200, "content"));
  for (int i = 0; i < 2; ++i) {
    const ProcessResult result = Lumcurl({"download", server.Url("/f"), path});
    EXPECT_EQ(result.exitStatus, 0) << result.Describe();
    EXPECT_THAT(result.err,
                HasSubstr("warning: what is in '" + path + "' looks like an error page"));
  }
  EXPECT_THAT(Lumcurl({"download", server.Url("/f"), path}).err, IsEmpty());
}

TEST(Download, KeepsWhatArrivedBeforeTheServerClosed) {
  WireServer server;
  TempDir directory;
  server.Script(WireReply(WireHead(200, {"Content-Length: 100"}) + "first part").Close());
  const ProcessResult result = Lumcurl({"download", server.Url(), directory.Path("f")});
  EXPECT_EQ(result.exitStatus, 6);
  EXPECT_THAT(result.err, HasSubstr("what had arrived is in '" + directory.Path("f") + "'"));
  EXPECT_EQ(ReadFile(directory.Path("f")), "first part");
}

TEST(Download, NamesARefusedPort) {
  RefusedPort port;
  TempDir directory;
  const ProcessResult result = Lumcurl({"download", port.Url(), directory.Path("f")});
  EXPECT_EQ(result.exitStatus, 6);
  EXPECT_THAT(result.err, StartsWith("lumcurl: download " + port.Url() + ": "));
  EXPECT_THAT(result.err, HasSubstr("check host and port"));
}

}  // namespace
}  // namespace lumtest

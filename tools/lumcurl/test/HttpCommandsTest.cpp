// get, post and download against a server that plays scripts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "Lumcurl.h"
#include "support/Files.h"
#include "tls/TlsMaterial.h"
#include "wire/Ports.h"
#include "wire/WireServer.h"

namespace lumtest {
namespace {

class Http : public testing::Test {
 protected:
  // lumcurl's `words`, asking a server that plays `reply`.
  ProcessResult Run(const WireReply& reply, const Words& words) {
    m_server.Script(reply);
    return Lumcurl(words);
  }

  WireServer m_server;
  TempDir m_directory;
};

using Get = Http;
using Post = Http;
using Download = Http;

TEST_F(Get, PrintsTheDocument) {
  EXPECT_THAT(
      Run(JsonReply(R"({"b":[1,2],"a":null})"), {"get", m_server.Url("/status?x=1")}),
      Ends(0, "{\n    \"b\": [\n        1,\n        2\n    ],\n    \"a\": null\n}\n", IsEmpty()));
  const WireRequest request = m_server.Request(0);
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.target, "/status?x=1");
  EXPECT_EQ(request.Header("User-Agent"), "QVcurlHttp/0.1.2");
  EXPECT_EQ(request.Header("Content-Type"), "application/json");
  EXPECT_EQ(request.Header("charsets"), "utf-8");
}

TEST_F(Get, SendsOneHeaderLineInPlaceOfTheUsualOnes) {
  Run(JsonReply("1"), {"get", "-H", "X-Own: a b", m_server.Url()});
  EXPECT_EQ(m_server.Request(0).Header("X-Own"), "a b");
  EXPECT_FALSE(m_server.Request(0).HasHeader("Content-Type"));
}

TEST_F(Get, PrintsTheDocumentOfAnErrorToo) {
  EXPECT_THAT(Run(JsonReply(R"({"error":"gone"})", 404), {"get", m_server.Url("/p")}),
              Ends(4, "{\n    \"error\": \"gone\"\n}\n",
                   HasSubstr("get " + m_server.Url("/p") + ": the server answered 404")));
}

TEST_F(Get, DoesNotFollowRedirects) {
  EXPECT_THAT(Run(JsonReply("{}", 302), {"get", m_server.Url()}),
              Ends(1, HasSubstr("redirects are not followed")));
}

TEST_F(Get, ShowsWhatIsNotJson) {
  EXPECT_THAT(Run(StatusReply(200, "<html>\x1b[31mhello</html>"), {"get", m_server.Url()}),
              Ends(1, IsEmpty(),
                   AllOf(HasSubstr(m_server.Url() + ": the answer is not JSON"),
                         HasSubstr("the reply: <html>\\x1b[31mhello</html>"))));
}

TEST_F(Get, TakesAnEmptyAnswerForNoJson) {
  EXPECT_EQ(Run(StatusReply(204), {"get", m_server.Url()}).exitStatus, 1);
}

TEST_F(Get, FailsWhereOutputCannotBeWritten) {
  m_server.Script(JsonReply("{}"));
  EXPECT_THAT(LumcurlInShell({"get", m_server.Url()}, "> /dev/full"),
              Ends(9, HasSubstr("standard output")));
}

TEST_F(Get, ShowsTheExchangeWhenVerbose) {
  const ProcessResult result = Run(JsonReply("{}"), {"get", "-v", m_server.Url("/p")});
  EXPECT_EQ(result.out, "{}\n");
  EXPECT_EQ(result.err, "lumcurl: > GET " + m_server.Url("/p") +
                            "\n"
                            "lumcurl: > User-Agent: QVcurlHttp/0.1.2\n"
                            "lumcurl: > Content-Type: application/json\n"
                            "lumcurl: > charsets: utf-8\n"
                            "lumcurl: < 200\n");
}

TEST_F(Get, EndsTheStartOfALongReplyInDots) {
  EXPECT_THAT(Run(StatusReply(200, std::string(5000, 'x')), {"get", m_server.Url()}).err,
              HasSubstr("the reply: " + std::string(1000, 'x') + "...\n"));
}

TEST_F(Get, WaitsFiveSecondsAtMost) {
  EXPECT_THAT(Run(WireReply().Stall(), {"get", m_server.Url()}),
              Ends(7, HasSubstr("the limit is 5 s")));
}

TEST_F(Post, ShowsTheContentTypeThatLibcurlAddsWhenVerbose) {
  m_server.SetHandler([](const WireRequest&) { return JsonReply("{}"); });
  const std::string url = m_server.Url();
  const std::string added =
      "> Content-Type: application/x-www-form-urlencoded (added by libcurl)\n";
  for (const char* command : {"post", "service-post"}) {
    const Words words = {command, "-v", "-d", "{}", "-H", "A: b", url};
    EXPECT_THAT(Lumcurl(words).err, HasSubstr(added)) << command;
    EXPECT_EQ(m_server.Requests().back().Header("Content-Type"),
              "application/x-www-form-urlencoded");
    const Words own = {command, "-v", "-d", "{}", "-H", "content-type: text/plain", url};
    EXPECT_THAT(Lumcurl(own).err, Not(HasSubstr("added by"))) << command;
  }
  EXPECT_THAT(Lumcurl({"get", "-v", url}).err, Not(HasSubstr("added by")));
}

TEST_F(Post, SendsTheBodyByteForByte) {
  for (const std::string& body : {std::string("{ \"a\" :1 }\n"), std::string("a\0b", 3)}) {
    const std::string file = m_directory.Write("f", body);
    EXPECT_EQ(Run(JsonReply("1"), {"post", "--data-file", file, m_server.Url()}).out, "1\n");
    EXPECT_EQ(m_server.Requests().back().method, "POST");
    EXPECT_EQ(m_server.Requests().back().body, body);
    EXPECT_EQ(m_server.Requests().back().Header("Content-Type"), "application/json");
  }
  for (const std::string& body : {std::string("{ \"a\" :1 }\n"), std::string()}) {
    EXPECT_EQ(Run(JsonReply("2"), {"post", "-d", body, m_server.Url()}).out, "2\n");
    EXPECT_EQ(m_server.Requests().back().body, body);
  }
  ProcessOptions options;
  options.input = " [1]\n";
  m_server.Script(JsonReply("3"));
  EXPECT_EQ(Lumcurl({"post", "--data-file", "-", m_server.Url()}, options).out, "3\n");
  EXPECT_EQ(m_server.Requests().back().body, options.input);
}

TEST_F(Post, NamesABodyThatCannotBeRead) {
  EXPECT_THAT(Lumcurl({"post", "--data-file", "/none/f", m_server.Url()}),
              Ends(9, HasSubstr("cannot read '/none/f': No such file")));
}

class Tls : public testing::Test {
 protected:
  Tls() : m_material(lumtools::MakeTlsMaterial(m_directory.Path("tls"), "open sesame")) {
    m_options.tls = MakeWireTls(m_material, WireTls::ClientCertificate::kRequired);
  }

  // get with a key, and with a pass phrase for it unless that is empty.
  ProcessResult Get(const std::string& key, const std::string& pass,
                    const ProcessOptions& options = {}) {
    Words words = {"get",          "--ssl",
                   "--cacert",     m_material.caCertificate,
                   "--cert",       m_material.clientCertificate,
                   "--key",        key,
                   m_server->Url()};
    if (!pass.empty()) {
      words.insert(words.begin() + 1, {"--pass-file", m_directory.Secret("pass", pass + "\n")});
    }
    return Lumcurl(words, options);
  }

  void Serve() {
    m_server.emplace(m_options);
    m_server->SetHandler([](const WireRequest&) { return JsonReply("{}"); });
  }

  SecretDir m_directory;
  TlsMaterial m_material;
  WireOptions m_options;
  std::optional<WireServer> m_server;
};

// Such a key may be read by others.
TEST_F(Tls, OffersTheCertificateWithAnEncryptedKey) {
  Serve();
  for (const std::string& key : {m_material.clientEncryptedKey, m_material.clientTraditionalKey}) {
    chmod(key.c_str(), 0644);
    EXPECT_THAT(Get(key, "open sesame"), Ends(0, IsEmpty()));
    EXPECT_EQ(m_server->Requests().back().clientSubject, "CN=Lum test client,O=Lum");
  }
}

TEST_F(Tls, TakesThePassPhraseFromTheEnvironment) {
  Serve();
  ProcessOptions options;
  options.environment = {"LUMCURL_KEY_PASS=open sesame"};
  EXPECT_EQ(Get(m_material.clientEncryptedKey, "", options).exitStatus, 0);
}

TEST_F(Tls, RefusesAWrongOrMissingPassPhrase) {
  Serve();
  for (const std::string& pass :
       {std::string("open barley"), std::string(2048, 'p'), std::string()}) {
    EXPECT_THAT(
        Get(m_material.clientEncryptedKey, pass),
        Ends(8, AllOf(HasSubstr("the pass phrase is the key's"), Not(HasSubstr("barley")))));
  }
  EXPECT_THAT(Get(m_material.clientEncryptedKey, std::string(2049, 'p')),
              Ends(2, HasSubstr("the key's pass phrase is longer than 2048 bytes")));
}

TEST_F(Tls, NamesFilesThatAreMissing) {
  Serve();
  EXPECT_THAT(Get(m_directory.Path("none.key"), ""),
              Ends(9, HasSubstr("--key: cannot read '" + m_directory.Path("none.key"))));
  EXPECT_EQ(m_server->Connections().size(), 0u);
}

TEST_F(Tls, RefusesAServerOfAnotherAuthority) {
  m_options.tls->certificate = m_material.untrustedServerCertificate;
  m_options.tls->key = m_material.untrustedServerKey;
  Serve();
  EXPECT_THAT(Get(m_material.clientKey, ""), Ends(8, HasSubstr("--cacert")));
}

TEST_F(Tls, SaysSoWhenTheServerWantsACertificate) {
  Serve();
  EXPECT_THAT(Lumcurl({"get", m_server->Url()}), Ends(8, HasSubstr("client certificate")));
}

TEST_F(Download, WritesTheFile) {
  const std::string path = m_directory.Write("file", std::string(100, 'x'));
  EXPECT_THAT(Run(GeneratedReply(3'000'000), {"download", m_server.Url("/f"), path}),
              Ends(0, IsEmpty(), IsEmpty()));
  EXPECT_TRUE(ReadFile(path) == GeneratedBytes(0, 3'000'000));
}

TEST_F(Download, WritesIntoItsOwnDirectory) {
  ProcessOptions options;
  options.directory = m_directory.Path();
  for (const char* name : {"./-", "new"}) {
    m_server.Script(StatusReply(200, "content"));
    EXPECT_THAT(Lumcurl({"download", m_server.Url(), name}, options), Ends(0, IsEmpty()));
    EXPECT_EQ(ReadFile(m_directory.Path(name)), "content");
  }
}

TEST_F(Download, NamesWhatItCannotWriteTo) {
  const std::string fifo = m_directory.Path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string link = m_directory.Path("link");
  ASSERT_EQ(symlink(fifo.c_str(), link.c_str()), 0);
  const std::pair<std::string, std::string> kCases[] = {
      {"", "the name of the file to write is empty"},
      {"-", "a download goes into a file"},
      {m_directory.Path(), "'" + m_directory.Path() + "' is a directory"},
      {fifo, "'" + fifo + "' is a pipe or a device"},
      {"/dev/null", "'/dev/null' is a pipe or a device"},
      {m_directory.Write("file", "") + "/below", "Not a directory"},
      {link, "'" + link + "' is a pipe or a device"},
      {m_directory.Path("none/f"), "its directory '" + m_directory.Path("none") + "'"},
      {"/tmp/" + std::string(5000, 'x'), "File name too long"},
      {"/proc/lumcurl-test",
       "cannot write '/proc/lumcurl-test'"},  // not even root makes files there
  };
  for (const auto& [path, message] : kCases) {
    EXPECT_THAT(Lumcurl({"download", "-q", m_server.Url(), path}),
                Ends(9, AllOf(StartsWith("lumcurl: download"), HasSubstr(message))));
  }
  EXPECT_EQ(m_server.Connections().size(), 0u);
}

TEST_F(Download, NamesAFileThatCannotGrow) {
  const std::string path = m_directory.Path("f");
  m_server.Script(GeneratedReply(1'000'000));
  EXPECT_THAT(
      RunCommand({"sh", "-c",
                  "trap '' XFSZ; ulimit -f 1; exec " +
                      ShellWords(LumcurlCommand({"download", m_server.Url(), path}))},
                 LumcurlOptions()),
      Ends(9, AllOf(HasSubstr("cannot write '" + path + "'"), HasSubstr("disk is not full"))));
}

TEST_F(Download, SavesAnErrorPageAndWarnsOfWhatLooksLikeOne) {
  const std::string path = m_directory.Path("f");
  for (const std::string page :
       {"<html><h1>404 Not Found</h1></html>", R"({"error":"no such file"})"}) {
    EXPECT_THAT(Run(StatusReply(404, page), {"download", m_server.Url("/f"), path}),
                Ends(0, HasSubstr("warning: what is in '" + path + "' looks like an error page")));
    EXPECT_EQ(ReadFile(path), page);
  }
  EXPECT_THAT(Run(StatusReply(200, "content"), {"download", m_server.Url("/f"), path}).err,
              IsEmpty());
}

TEST_F(Download, KeepsWhatArrivedBeforeTheServerClosed) {
  const std::string path = m_directory.Path("f");
  EXPECT_THAT(Run(WireReply(WireHead(200, {"Content-Length: 100"}) + "first part").Close(),
                  {"download", m_server.Url(), path}),
              Ends(6, HasSubstr("what had arrived is in '" + path + "'")));
  EXPECT_EQ(ReadFile(path), "first part");
}

TEST_F(Download, NamesARefusedPort) {
  const RefusedPort port;
  EXPECT_THAT(Lumcurl({"download", port.Url(), m_directory.Path("f")}),
              Ends(6, AllOf(StartsWith("lumcurl: download " + port.Url() + ": "),
                            HasSubstr("check host and port"))));
}

}  // namespace
}  // namespace lumtest

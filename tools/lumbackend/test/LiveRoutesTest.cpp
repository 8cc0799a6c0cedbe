// What the routes of the running program do over the wire, asked by curl.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BackendProcess.h"
#include "support/ProcessState.h"
#include "support/Threads.h"

namespace lumtest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(LiveRoutes, PrintsThePortsInUse) {
  BackendProcess backend({"--port", "0", "--tls-port", "0"});
  EXPECT_EQ(backend.Process().Out(), "http 127.0.0.1:" + std::to_string(backend.Port()) +
                                         "\nhttps 127.0.0.1:" + std::to_string(backend.TlsPort()) +
                                         "\n");
  BackendProcess plain(std::vector<std::string>{});
  EXPECT_EQ(plain.Process().Out(), "http 127.0.0.1:" + std::to_string(plain.Port()) + "\n");
  BackendProcess tls({"--tls-port", "0"});
  EXPECT_EQ(tls.Process().Out(), "https 127.0.0.1:" + std::to_string(tls.TlsPort()) + "\n");
}

TEST(LiveRoutes, TheHeadOfAnAnswerIsKeptAsItWasSent) {
  BackendProcess backend({"--port", "0", "--open"});
  Curl({"-d", "1", backend.Url("/report")});
  ASSERT_TRUE(backend.Logged("POST /report 200 "));
  EXPECT_EQ(Curl({backend.Url("/exchanges/1")}).Json()["answerHead"].JsonValueToString(),
            R"([{"name":"Content-Type","value":"application/json"},)"
            R"({"name":"Content-Length","value":"20"}])");
  Curl({"-H", "Connection: close", backend.Url("/reports")});
  ASSERT_TRUE(backend.Logged("GET /reports 200 "));
  EXPECT_EQ(Curl({backend.Url("/exchanges/2")}).Json()["answerHead"].JsonValueToString(),
            R"([{"name":"Cache-Control","value":"no-store"},)"
            R"({"name":"X-Content-Type-Options","value":"nosniff"},)"
            R"({"name":"Content-Type","value":"application/jsonl"},)"
            R"({"name":"Transfer-Encoding","value":"chunked"},)"
            R"({"name":"Connection","value":"close"}])");
}

TEST(LiveRoutes, EchoesOverHttpsToAClientThatChecksTheServer) {
  BackendProcess backend({"--tls-port", "0"});
  const std::string ca = backend.Root().Path("tls/ca.pem");
  EXPECT_EQ(Curl({"--cacert", ca, backend.TlsUrl("/echo")}).Json()["scheme"].AsString(), "https");
  const std::string byName = "https://localhost:" + std::to_string(backend.TlsPort()) + "/echo";
  EXPECT_EQ(Curl({"-4", "--cacert", ca, byName}).status, 200);
}

TEST(LiveRoutes, RequiresClientCertificates) {
  const TempDir tls;
  // Makes the material that the second one is to ask for.
  { BackendProcess first({"--tls-port", "0", "--tls-dir", tls.Path()}); }
  const std::string made = ReadFile(tls.Path("server.pem"));
  BackendProcess backend(
      {"--tls-port", "0", "--tls-dir", tls.Path(), "--client-ca", tls.Path("ca.pem")});
  EXPECT_EQ(ReadFile(tls.Path("server.pem")), made);
  const auto ask = [&](const std::string& certificate, const std::string& key) {
    return Curl({"--cacert", tls.Path("ca.pem"), "--cert", certificate, "--key", tls.Path(key),
                 backend.TlsUrl("/echo")});
  };
  EXPECT_EQ(ask(tls.Path("client.pem"), "client.key").Json()["clientCertificate"].AsString(),
            "O=Lum, CN=Lum test client");
  EXPECT_EQ(FileMode(tls.Path("client-encrypted.pass")), 0600u);
  std::string passPhrase = ReadFile(tls.Path("client-encrypted.pass"));
  passPhrase.pop_back();
  EXPECT_EQ(ask(tls.Path("client.pem") + ":" + passPhrase, "client-encrypted.key").status, 200);

  EXPECT_NE(Curl({"-k", backend.TlsUrl("/echo")}).exitStatus, 0);
  EXPECT_TRUE(backend.Logged("TLS handshake failed: peer did not return a certificate"));
  EXPECT_NE(ask(tls.Path("expired-client.pem"), "expired-client.key").exitStatus, 0);
  EXPECT_NE(ask(tls.Path("untrusted-client.pem"), "untrusted-client.key").exitStatus, 0);
  EXPECT_TRUE(backend.Logged("TLS handshake failed: certificate verify failed"));
  EXPECT_EQ(ask(tls.Path("client.pem"), "client.key").status, 200);
}

TEST(LiveRoutes, ExpiredCertificatesAreMadeAnew) {
  const TempDir tls;
  const std::vector<std::string> options{"--tls-port", "0", "--tls-dir", tls.Path()};
  BackendProcess backend(options);
  WriteFile(tls.Path("server.pem"), ReadFile(tls.Path("expired-server.pem")));
  WriteFile(tls.Path("server.key"), ReadFile(tls.Path("expired-server.key")));
  backend.Start(options);
  EXPECT_EQ(Curl({"--cacert", tls.Path("ca.pem"), backend.TlsUrl("/echo")}).status, 200);
}

TEST(LiveRoutes, TakesACertificateOfOnesOwn) {
  const TempDir tls;
  { BackendProcess first({"--tls-port", "0", "--tls-dir", tls.Path()}); }
  BackendProcess backend({"--tls-port", "0", "--cert", tls.Path("untrusted-server.pem"), "--key",
                          tls.Path("untrusted-server.key")});
  EXPECT_EQ(Curl({"--cacert", tls.Path("untrusted-ca.pem"), backend.TlsUrl("/echo")}).status, 200);
  EXPECT_EQ(Curl({"--cacert", tls.Path("ca.pem"), backend.TlsUrl("/echo")}).exitStatus, 60);
  EXPECT_FALSE(Exists(backend.Root().Path("tls")));
}

TEST(LiveRoutes, ALogAddressIsWhereTheLogCanBePut) {
  BackendProcess backend({"--port", "0", "--tls-port", "0"});
  const std::string token =
      "X-Auth-Token: " + Curl({"-d", "{}", backend.Url("/token")}).Json()["token"].AsString();
  for (const std::string& base : {backend.Url(""), backend.TlsUrl("")}) {
    const TempDir temp;
    const std::string log = temp.Write("log", "sent to " + base);
    const std::string query = "?access_id=a1&file_name=x&y=1%.log";
    const CurlAnswer answer = Curl({"-k", "-H", token, base + "/log-address" + query});
    const std::string url = answer.Json()["url"].AsString();
    EXPECT_EQ(url, base + "/objects/logs/x%26y%3D1%25.log");
    EXPECT_EQ(Curl({"-k", "-T", log, url}).status, 200);
    EXPECT_EQ(ReadFile(backend.Root().Path("objects/logs/x&y=1%.log")), "sent to " + base);
  }
}

TEST(LiveRoutes, ObjectsArePutAndRead) {
  BackendProcess backend;
  const TempDir temp;
  std::string content;
  for (unsigned i = 0; i < 2'000'000; ++i) {
    content += static_cast<char>(i * i >> 7);
  }
  const std::string file = temp.Write("file", content);
  const CurlAnswer put = Curl({"-T", file, backend.Url("/objects/a/b%20c")});
  EXPECT_EQ(put.status, 200);
  EXPECT_EQ(put.Json()["stored"].AsString(), "/objects/a/b%20c");
  EXPECT_EQ(put.Json()["bytes"].AsUint64(), content.size());
  EXPECT_TRUE(Curl({backend.Url("/objects/a/b%20c")}).body == content);
  EXPECT_EQ(
      Curl({"-H", "Transfer-Encoding: chunked", "-T", file, backend.Url("/objects/chunks")}).status,
      200);
  EXPECT_TRUE(ReadFile(backend.Root().Path("objects/chunks")) == content);
  EXPECT_EQ(Curl({"-T", file, backend.Url("/objects/a")}).status, 409);
  EXPECT_EQ(Curl({"-T", file, backend.Url("/objects/chunks/a")}).status, 409);
  EXPECT_THAT(FilesBelow(backend.Root().Path("objects")), ElementsAre("a", "a/b c", "chunks"));
}

TEST(LiveRoutes, LargeObjectsComeAndGoWithFlatMemory) {
  BackendProcess backend({"--port", "0", "--tls-port", "0"});
  constexpr std::uint64_t kSize = 128u * 1024 * 1024;
  const TempDir temp;
  MakeSparseFile(temp.Path("large"), kSize);
  EXPECT_EQ(Curl({"-T", temp.Write("empty", ""), backend.Url("/objects/empty")}).status, 200);
  const CurlAnswer empty = Curl({backend.Url("/objects/empty")});
  EXPECT_EQ(empty.status, 200);
  EXPECT_EQ(empty.body, "");
  const std::uint64_t before = PeakResidentBytes(backend.Process().Pid());
  for (const std::string& url : {backend.Url("/objects/large"), backend.TlsUrl("/objects/large")}) {
    EXPECT_EQ(Curl({"-k", "-T", temp.Path("large"), url}).Json()["bytes"].AsUint64(), kSize);
    EXPECT_THAT(Curl({"-k", "-I", url}).body,
                HasSubstr("Content-Length: " + std::to_string(kSize)));
    const CurlAnswer answer = Curl({"-k", "-o", temp.Path("back"), url});
    EXPECT_EQ(answer.exitStatus, 0) << answer.problem;
    EXPECT_EQ(FileSize(temp.Path("back")), kSize);
  }
  EXPECT_LT(PeakResidentBytes(backend.Process().Pid()),
            before + 16 * 1024 * 1024 + LUM_SANITIZERS_SHARE);
}

TEST(LiveRoutes, ManyUploadsAtOnce) {
  BackendProcess backend({"--port", "0", "--tls-port", "0"});
  const TempDir temp;
  OnThreads(10, [&](int i) {
    const std::string name = std::to_string(i);
    const std::string file = temp.Write(name, std::string(3'000'000, static_cast<char>('a' + i)));
    const std::string path = "/objects/dir/" + name;
    EXPECT_EQ(
        Curl({"-k", "-T", file, i % 2 == 0 ? backend.Url(path) : backend.TlsUrl(path)}).status,
        200);
    EXPECT_EQ(Curl({"-T", file, backend.Url("/objects/same")}).status, 200);
  });
  for (int i = 0; i < 10; ++i) {
    EXPECT_TRUE(ReadFile(backend.Root().Path("objects/dir/" + std::to_string(i))) ==
                std::string(3'000'000, static_cast<char>('a' + i)));
  }
  const std::string same = ReadFile(backend.Root().Path("objects/same"));
  EXPECT_TRUE(same == std::string(3'000'000, same[0]));
  EXPECT_EQ(FilesBelow(backend.Root().Path("objects")).size(), 12u);
}

TEST(LiveRoutes, ListensOnIpv6) {
  BackendProcess backend({"--bind", "::1", "--open"});
  EXPECT_THAT(backend.Process().Out(), testing::MatchesRegex("http \\[::1\\]:[0-9]+\n"));
  const std::string base = "http://[::1]:" + std::to_string(backend.Port());
  EXPECT_EQ(Curl({base + "/log-address?access_id=a&file_name=b"}).Json()["url"].AsString(),
            base + "/objects/logs/b");
}

TEST(LiveRoutes, ServesThePage) {
  BackendProcess backend;
  const CurlAnswer page = Curl({"-i", backend.Url("/")});
  EXPECT_EQ(page.status, 200);
  EXPECT_THAT(page.body, HasSubstr("Content-Type: text/html; charset=utf-8"));
  EXPECT_THAT(page.body, HasSubstr("Content-Security-Policy: default-src 'none'"));
  EXPECT_THAT(page.body, HasSubstr("<title>lumbackend</title>"));
}

}  // namespace
}  // namespace lumtest

// Every route of the running program, asked by curl.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <ctime>
#include <thread>

#include "BackendProcess.h"
#include "Signature.h"

namespace {

using lumtest::BackendProcess;
using lumtest::Curl;
using lumtest::CurlAnswer;
using lumtest::FilesBelow;
using lumtest::ReadFile;
using lumtest::RunCommand;
using lumtest::TempDir;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::string TokenFrom(const BackendProcess& backend) {
  return Curl({"-d", "{}", backend.Url("/token")}).Json()["token"].AsString();
}

// What the openssl and gzip commands make of `input`.
std::string Output(const std::vector<std::string>& command, const std::string& input) {
  lumtest::ProcessOptions options;
  options.input = input;
  const lumtest::ProcessResult result = RunCommand(command, options);
  EXPECT_TRUE(result.Succeeded()) << result.Describe();
  return result.out;
}

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

TEST(LiveRoutes, EchoesOverHttp) {
  BackendProcess backend;
  const LumJson::Value get =
      Curl({"-H", "X-Auth-Token: s3cret", "-H", "Odd: 100%", backend.Url("/echo?a=1?b")}).Json();
  EXPECT_EQ(get["method"].AsString(), "GET");
  EXPECT_EQ(get["query"].AsString(), "a=1?b");
  EXPECT_EQ(get["scheme"].AsString(), "http");
  const std::string headers = get["headers"].JsonValueToString();
  EXPECT_THAT(headers, HasSubstr(R"({"name":"X-Auth-Token","value":"***"})"));
  EXPECT_THAT(headers, HasSubstr(R"({"name":"Odd","value":"100%"})"));
  const LumJson::Value post = Curl({"-d", R"({"a":[1,2]})", backend.Url("/echo")}).Json();
  EXPECT_EQ(post["body"].JsonValueToString(), R"({"a":[1,2]})");
  const CurlAnswer bad = Curl({"-d", "{", backend.Url("/echo")});
  EXPECT_EQ(bad.status, 400);
  EXPECT_EQ(bad.Error(), "the body is no valid JSON");
  EXPECT_TRUE(backend.Logged("GET /echo 200 in=0 out="));
  EXPECT_THAT(backend.Process().Err(), Not(HasSubstr("s3cret")));
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

TEST(LiveRoutes, EchoesBodiesInChunks) {
  BackendProcess backend;
  const CurlAnswer answer = Curl({"-H", "Transfer-Encoding: chunked", "-d",
                                  "\"" + std::string(100'000, 'x') + "\"", backend.Url("/echo")});
  EXPECT_EQ(answer.Json()["body"].AsString(), std::string(100'000, 'x'));
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
  BackendProcess backend(
      {"--tls-port", "0", "--tls-dir", tls.Path(), "--client-ca", tls.Path("ca.pem")});
  const auto ask = [&](const std::string& certificate, const std::string& key) {
    return Curl({"--cacert", tls.Path("ca.pem"), "--cert", certificate, "--key", tls.Path(key),
                 backend.TlsUrl("/echo")});
  };
  EXPECT_EQ(ask(tls.Path("client.pem"), "client.key").Json()["clientCertificate"].AsString(),
            "O=Lum, CN=Lum test client");
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

TEST(LiveRoutes, TakesACertificateOfOnesOwn) {
  const TempDir tls;
  { BackendProcess first({"--tls-port", "0", "--tls-dir", tls.Path()}); }
  BackendProcess backend({"--tls-port", "0", "--cert", tls.Path("untrusted-server.pem"), "--key",
                          tls.Path("untrusted-server.key")});
  EXPECT_EQ(Curl({"--cacert", tls.Path("untrusted-ca.pem"), backend.TlsUrl("/echo")}).status, 200);
  EXPECT_EQ(Curl({"--cacert", tls.Path("ca.pem"), backend.TlsUrl("/echo")}).exitStatus, 60);
  EXPECT_FALSE(lumtest::Exists(backend.Root().Path("tls")));
}

TEST(LiveRoutes, ServesFilesAndNothingElse) {
  BackendProcess backend;
  const TempDir& root = backend.Root();
  root.MakeDir("files/sub");
  std::string large;
  for (int i = 0; i < 400'000; ++i) {
    large += std::to_string(i) + "\n";
  }
  root.Write("files/sub/large name.txt", large);
  root.Write("files/empty", "");
  root.Write("secret", "s3cret");
  ASSERT_EQ(::symlink(root.Path("secret").c_str(), root.Path("files/link").c_str()), 0);
  ASSERT_EQ(::symlink(root.Path().c_str(), root.Path("files/up").c_str()), 0);

  const CurlAnswer whole = Curl({backend.Url("/files/sub/large%20name.txt")});
  EXPECT_EQ(whole.status, 200);
  EXPECT_TRUE(whole.body == large);
  const CurlAnswer empty = Curl({backend.Url("/files/empty")});
  EXPECT_EQ(empty.status, 200);
  EXPECT_EQ(empty.body, "");
  EXPECT_THAT(Curl({"-I", backend.Url("/files/sub/large%20name.txt")}).body,
              HasSubstr("Content-Length: " + std::to_string(large.size())));
  const std::pair<const char*, int> kRefused[] = {
      {"/files/../secret", 400},
      {"/files/sub/../../secret", 400},
      {"/files/%2e%2e/secret", 400},
      {"/files/..%2fsecret", 400},
      {"/files//secret", 400},
      {"/files/%00", 400},
      {"/files/link", 403},
      {"/files/up/secret", 403},
      {"/files/none", 404},
      {"/files/sub", 404},
      {"/files/", 400},
      {"/../secret", 404},
      {"/reports.jsonl", 404},
      {"/files/sub/%ff", 404},
  };
  for (const auto& [path, status] : kRefused) {
    const CurlAnswer answer = Curl({backend.Url(path)});
    EXPECT_EQ(answer.status, status) << path;
    EXPECT_FALSE(answer.Error().empty()) << path;
    EXPECT_THAT(answer.body, Not(HasSubstr("s3cret"))) << path;
  }
}

TEST(LiveRoutes, FilesGoOutWithFlatMemory) {
  BackendProcess backend;
  constexpr std::uint64_t kSize = 128u * 1024 * 1024;
  lumtest::MakeSparseFile(backend.Root().Path("files/large"), kSize);
  Curl({backend.Url("/echo")});
  const std::uint64_t before = lumtest::PeakMemoryOf(backend.Process().Pid());
  const TempDir target;
  const CurlAnswer answer = Curl({"-o", target.Path("large"), backend.Url("/files/large")});
  EXPECT_EQ(answer.exitStatus, 0) << answer.problem;
  EXPECT_EQ(lumtest::FileSize(target.Path("large")), kSize);
  EXPECT_LT(lumtest::PeakMemoryOf(backend.Process().Pid()),
            before + 16 * 1024 * 1024 + lumtest::kSanitizersShare);
}

TEST(LiveRoutes, TokensAreFetchedRefreshedAndExpire) {
  BackendProcess backend({"--port", "0", "--token-lifetime", "1000"});
  const LumJson::Value fetched = Curl({"-d", "{\"id\":1}", backend.Url("/token")}).Json();
  EXPECT_EQ(fetched["expiresIn"].AsInt64(), 1000);
  const std::string first = "X-Auth-Token: " + fetched["token"].AsString();
  const CurlAnswer refreshed = Curl({"-X", "PUT", "-H", first, "-d", "{}", backend.Url("/token")});
  EXPECT_EQ(refreshed.status, 200);
  const std::string second = "X-Auth-Token: " + refreshed.Json()["token"].AsString();
  EXPECT_EQ(Curl({"-H", second, "-d", "1", backend.Url("/report")}).status, 200);
  const CurlAnswer ended = Curl({"-H", first, "-d", "1", backend.Url("/report")});
  EXPECT_EQ(ended.status, 401);
  EXPECT_EQ(ended.Error(), "the token is unknown");
  EXPECT_EQ(Curl({"-d", "[]", backend.Url("/token")}).status, 400);

  BackendProcess fast({"--port", "0", "--token-lifetime", "0"});
  const CurlAnswer expired =
      Curl({"-H", "X-Auth-Token: " + TokenFrom(fast), "-d", "1", fast.Url("/report")});
  EXPECT_EQ(expired.status, 401);
  EXPECT_EQ(expired.Error(), "the token has expired");
}

TEST(LiveRoutes, StoresReportsPlainAndPacked) {
  BackendProcess backend;
  const std::string token = "X-Auth-Token: " + TokenFrom(backend);
  const std::string url = backend.Url("/report");
  EXPECT_EQ(Curl({"-H", token, "-d", "{\n  \"n\": 1\n}", url}).Json()["stored"].AsInt64(), 1);
  const TempDir temp;
  const std::string packed = temp.Write("packed", Output({"gzip", "-c"}, "{ \"n\": [2] }"));
  EXPECT_EQ(Curl({"-H", token, "-H", "Content-Encoding: gzip", "--data-binary", "@" + packed, url})
                .Json()["stored"]
                .AsInt64(),
            2);
  const CurlAnswer none = Curl({"-H", token, "-d", "3", url + "?status=204"});
  EXPECT_EQ(none.status, 204);
  EXPECT_EQ(none.body, "");
  EXPECT_EQ(Curl({backend.Url("/reports")}).body, "{\"n\":1}\n{\"n\":[2]}\n3\n");
}

TEST(LiveRoutes, RefusesBadReports) {
  BackendProcess backend({"--port", "0", "--max-body", "100000"});
  const std::string token = "X-Auth-Token: " + TokenFrom(backend);
  const std::string url = backend.Url("/report");
  const TempDir temp;
  const auto gzip = [&](const std::string& bytes) {
    return Curl({"-H", token, "-H", "Content-Encoding: gzip", "--data-binary",
                 "@" + temp.Write("body", bytes), url});
  };
  const std::string packed = Output({"gzip", "-c"}, "{\"n\": 1}");
  const std::string bomb = Output({"gzip", "-9", "-c"}, std::string(20'000'000, ' '));
  ASSERT_LT(bomb.size(), 100'000u);
  EXPECT_EQ(gzip("{\"n\": 1}").Error(), "the body is no gzip data, or damaged");
  EXPECT_EQ(gzip(packed.substr(0, packed.size() - 1)).Error(), "the gzip body ends too early");
  EXPECT_EQ(gzip(packed + "garbage").Error(), "the body is no gzip data, or damaged");
  EXPECT_EQ(gzip(Output({"gzip", "-c"}, "{")).Error(), "the unpacked body is no valid JSON");
  const CurlAnswer tooMuch = gzip(bomb);
  EXPECT_EQ(tooMuch.status, 413);
  EXPECT_EQ(tooMuch.Error(), "the gzip body unpacks to more than 100000 bytes");
  EXPECT_EQ(Curl({"-H", token, "-d", "nonsense", url}).Error(), "the body is no valid JSON");
  EXPECT_EQ(Curl({"-H", token, "-X", "POST", url}).Error(),
            "the body is empty, a JSON document is expected");
  EXPECT_EQ(Curl({"-H", token, "-H", "Content-Encoding: br", "-d", "1", url}).status, 415);
  const std::string longBody = "@" + temp.Write("long", std::string(100'001, '1'));
  EXPECT_EQ(Curl({"-H", token, "-d", longBody, url}).status, 413);
  EXPECT_EQ(Curl({"-H", token, "-H", "Transfer-Encoding: chunked", "-d", longBody, url}).status,
            413);
  EXPECT_EQ(Curl({"-d", "1", url}).Error(), "no token in X-Auth-Token");
  EXPECT_EQ(Curl({backend.Url("/reports")}).body, "");
}

TEST(LiveRoutes, AnOpenBackEndTakesReportsFromAnybody) {
  BackendProcess backend({"--port", "0", "--open"});
  EXPECT_EQ(Curl({"-d", "1", backend.Url("/report")}).status, 200);
}

TEST(LiveRoutes, ReportsOfManyAtOnceAreAllStored) {
  BackendProcess backend({"--port", "0", "--open"});
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      // One connection for all five.
      const std::string url = backend.Url("/report");
      EXPECT_EQ(
          Curl({"-d", "\"" + std::string(5000, 'x') + "\"", url, url, url, url, url}).exitStatus,
          0);
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const std::string line = "\"" + std::string(5000, 'x') + "\"\n";
  std::string expected;
  for (int i = 0; i < 40; ++i) {
    expected += line;
  }
  EXPECT_TRUE(Curl({backend.Url("/reports")}).body == expected);
}

TEST(LiveRoutes, ALogAddressIsWhereTheLogCanBePut) {
  for (const bool secure : {false, true}) {
    BackendProcess backend({"--port", "0", "--tls-port", "0"});
    const std::string base = secure ? backend.TlsUrl("") : backend.Url("");
    const std::string token = "X-Auth-Token: " + TokenFrom(backend);
    const LumJson::Value answer =
        Curl({"-k", "-H", token, base + "/log-address?access_id=a1&file_name=x&y=1%.log"}).Json();
    EXPECT_EQ(answer["accessId"].AsString(), "a1");
    EXPECT_EQ(answer["fileName"].AsString(), "x&y=1%.log");
    const std::string url = answer["url"].AsString();
    EXPECT_EQ(url, base + "/objects/logs/x%26y%3D1%25.log");
    const TempDir temp;
    EXPECT_EQ(Curl({"-k", "-T", temp.Write("log", "a log"), url}).status, 200);
    EXPECT_EQ(ReadFile(backend.Root().Path("objects/logs/x&y=1%.log")), "a log");
    EXPECT_EQ(Curl({"-k", base + "/log-address?access_id=a&file_name=b"}).status, 401);
    EXPECT_EQ(Curl({"-k", "-H", token, base + "/log-address?access_id=a"}).status, 400);
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
  EXPECT_EQ(Curl({"-T", file, backend.Url("/objects/../x")}).status, 400);
  EXPECT_EQ(Curl({backend.Url("/objects/none")}).status, 404);
  EXPECT_THAT(FilesBelow(backend.Root().Path("objects")), ElementsAre("a", "a/b c", "chunks"));
}

TEST(LiveRoutes, UploadsComeInWithFlatMemory) {
  BackendProcess backend({"--port", "0", "--tls-port", "0"});
  constexpr std::uint64_t kSize = 256u * 1024 * 1024;
  const TempDir temp;
  lumtest::MakeSparseFile(temp.Path("large"), kSize);
  Curl({"-T", temp.Write("small", "x"), backend.Url("/objects/small")});
  const std::uint64_t before = lumtest::PeakMemoryOf(backend.Process().Pid());
  for (const std::string& url : {backend.Url("/objects/large"), backend.TlsUrl("/objects/large")}) {
    EXPECT_EQ(Curl({"-k", "-T", temp.Path("large"), url}).Json()["bytes"].AsUint64(), kSize);
  }
  EXPECT_LT(lumtest::PeakMemoryOf(backend.Process().Pid()),
            before + 16 * 1024 * 1024 + lumtest::kSanitizersShare);
}

TEST(LiveRoutes, ManyUploadsAtOnce) {
  BackendProcess backend({"--port", "0", "--tls-port", "0"});
  const TempDir temp;
  std::vector<std::thread> threads;
  for (int i = 0; i < 10; ++i) {
    threads.emplace_back([&, i] {
      const std::string name = std::to_string(i);
      const std::string file = temp.Write(name, std::string(3'000'000, static_cast<char>('a' + i)));
      const std::string path = "/objects/dir/" + name;
      EXPECT_EQ(
          Curl({"-k", "-T", file, i % 2 == 0 ? backend.Url(path) : backend.TlsUrl(path)}).status,
          200);
      EXPECT_EQ(Curl({"-T", file, backend.Url("/objects/same")}).status, 200);
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (int i = 0; i < 10; ++i) {
    EXPECT_TRUE(ReadFile(backend.Root().Path("objects/dir/" + std::to_string(i))) ==
                std::string(3'000'000, static_cast<char>('a' + i)));
  }
  const std::string same = ReadFile(backend.Root().Path("objects/same"));
  EXPECT_TRUE(same == std::string(3'000'000, same[0]));
  EXPECT_EQ(FilesBelow(backend.Root().Path("objects")).size(), 12u);
}

TEST(LiveRoutes, SignedUploadsAreChecked) {
  const TempDir temp;
  BackendProcess backend({"--port", "0", "--sign-key-file", temp.Write("key", "upload key\n")});
  const std::string file = temp.Write("file", "content");
  const std::string path = "/objects/logs/a%20b";
  const std::string now = HttpDate(std::time(nullptr));
  const auto sign = [&](const std::string& date) {
    const std::string digest =
        Output({"openssl", "dgst", "-sha1", "-hmac", "upload key", "-binary"},
               "PUT\n" + date + "\n" + path);
    std::string base64 = Output({"openssl", "base64", "-A"}, digest);
    return "Authorization: LUM " + base64;
  };
  const auto put = [&](const std::vector<std::string>& lines) {
    std::vector<std::string> arguments{"-T", file, backend.Url(path)};
    for (const std::string& line : lines) {
      arguments.insert(arguments.end(), {"-H", line});
    }
    return Curl(arguments);
  };
  const auto refusal = [&](const std::vector<std::string>& lines) {
    const CurlAnswer answer = put(lines);
    EXPECT_EQ(answer.status, 403);
    return answer.Error();
  };
  const std::string old = HttpDate(std::time(nullptr) - 1000);
  EXPECT_EQ(refusal({}), "no Authorization");
  EXPECT_EQ(refusal({sign(now)}), "no Date");
  EXPECT_EQ(refusal({sign("today"), "Date: today"}), "Date is no HTTP date");
  EXPECT_EQ(refusal({sign(old), "Date: " + old}), "Date is more than 15 minutes from now");
  EXPECT_EQ(refusal({"Authorization: Basic x", "Date: " + now}),
            "Authorization does not begin with 'LUM '");
  EXPECT_EQ(refusal({sign(now) + "x", "Date: " + now}), "the signature does not match");
  EXPECT_THAT(FilesBelow(backend.Root().Path("objects")), IsEmpty());
  EXPECT_EQ(put({sign(now), "Date: " + now, "x-zun-security-token: t"}).status, 200);
  EXPECT_EQ(ReadFile(backend.Root().Path("objects/logs/a b")), "content");
}

TEST(LiveRoutes, ServesConfigurationsOverHttps) {
  BackendProcess backend({"--tls-port", "0"});
  const TempDir& root = backend.Root();
  for (const char* directory : {"configs/app", "configs/app/default", "configs/app/east"}) {
    root.MakeDir(directory);
  }
  root.Write("configs/app/east/application.properties", "a=1\nb : 2\n");
  root.Write("configs/app/default/other.json", "{\"x\": 1}");
  const LumJson::Value answer =
      Curl({"-k", backend.TlsUrl("/configs/app/east/application")}).Json();
  EXPECT_EQ(answer["configurations"].JsonValueToString(), R"({"a":"1","b":"2"})");
  EXPECT_EQ(answer["cluster"].AsString(), "east");
  const LumJson::Value fallBack = Curl({"-k", backend.TlsUrl("/configs/app/east/other")}).Json();
  EXPECT_EQ(fallBack["cluster"].AsString(), "default");
  EXPECT_EQ(fallBack["configurations"]["content"].AsString(), "{\"x\": 1}");
  EXPECT_EQ(Curl({"-k", backend.TlsUrl("/configs/app/east/application?releaseKey=" +
                                       answer["releaseKey"].AsString())})
                .status,
            304);
  EXPECT_EQ(Curl({"-k", backend.TlsUrl("/configs/app/east/none")}).status, 404);
}

TEST(LiveRoutes, ListensOnIpv6) {
  BackendProcess backend({"--bind", "::1"});
  EXPECT_THAT(backend.Process().Out(), testing::MatchesRegex("http \\[::1\\]:[0-9]+\n"));
  const std::string base = "http://[::1]:" + std::to_string(backend.Port());
  const std::string token =
      "X-Auth-Token: " + Curl({"-d", "{}", base + "/token"}).Json()["token"].AsString();
  EXPECT_EQ(
      Curl({"-H", token, base + "/log-address?access_id=a&file_name=b"}).Json()["url"].AsString(),
      base + "/objects/logs/b");
}

TEST(LiveRoutes, ServesThePageAndItsEvents) {
  BackendProcess backend({"--port", "0", "--open"});
  const CurlAnswer page = Curl({"-i", backend.Url("/")});
  EXPECT_EQ(page.status, 200);
  EXPECT_THAT(page.body, HasSubstr("Content-Type: text/html; charset=utf-8"));
  EXPECT_THAT(page.body, HasSubstr("Content-Security-Policy: default-src 'none'"));
  EXPECT_THAT(page.body, HasSubstr("<title>lumbackend</title>"));
  Curl({"-d", "{\"a\":1}", backend.Url("/report")});
  ASSERT_TRUE(backend.Logged("POST /report 200"));
  Curl({backend.Url("/nothing")});
  ASSERT_TRUE(backend.Logged("GET /nothing 404"));
  const LumJson::Value events = Curl({backend.Url("/events")}).Json()["events"];
  ASSERT_EQ(events.Size(), 2u);
  EXPECT_EQ(events.At(0)["text"].AsString(), "{\"a\":1}");
  EXPECT_EQ(events.At(1)["text"].AsString(), "there is nothing at this path");
}

}  // namespace

// What the running program makes of odd bytes, lost clients, its switches, signals and bad options.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>

#include "BackendProcess.h"
#include "wire/WireClient.h"

namespace lumtest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr std::uint64_t kLarge = 256u * 1024 * 1024;  // more than sockets can hold

// Everything that the back end answers to `bytes` on a connection of their own, up to its end.
std::string Exchange(const BackendProcess& backend, const std::string& bytes) {
  WireClient client("127.0.0.1", backend.Port());
  client.Send(bytes);
  client.HalfClose();
  return client.ReadAll();
}

int CountOf(const std::string& text, const std::string& part) {
  int count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) {
    ++count;
  }
  return count;
}

TEST(LiveWire, MalformedRequestsAreRefusedWithAReason) {
  BackendProcess backend;
  const std::string longText(70'000, 'a');
  const struct {
    std::string bytes;
    int status;
    const char* reason;
  } kCases[] = {
      {"GET / b HTTP/1.1\r\n\r\n", 400, "malformed request"},
      {"BREW / HTTP/1.1\r\n\r\n", 400, "malformed request"},
      {std::string("\0\1\2\r\n\r\n", 7), 400, "malformed request"},
      {"\x16\x03\x01\x02\r\n\r\n", 400, "malformed request"},  // the start of a TLS handshake
      {"GET echo HTTP/1.1\r\n\r\n", 400, "the request target does not begin with '/'"},
      {"GET /echo HTTP/1.1\r\nA: b\r\n folded\r\n\r\n", 400, "malformed header line"},
      {"PUT /objects/a HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\nab", 400,
       "Content-Length is no single number"},
      {"PUT /objects/a HTTP/1.1\r\nTransfer-Encoding: chunked\r\nContent-Length: 2\r\n\r\nab", 400,
       "both Transfer-Encoding and Content-Length"},
      {"PUT /objects/a HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nab\r\n0\r\n\r\n", 400,
       "the upload ends after 0 bytes, too early"},
      {"PUT /objects/a HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nabcd\r\n0\r\n\r\n", 400,
       "the upload ends after 2 bytes, too early"},
      {"PUT /objects/a HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nab\r\n", 400,
       "the upload ends after 2 bytes, too early"},
      {"PUT /objects/a HTTP/1.1\r\nContent-Length: 3\r\n\r\nab", 400,
       "the upload ends after 2 bytes, too early"},
      {"POST /echo HTTP/1.1\r\nContent-Length: 3\r\n\r\n[1", 400,
       "the body ends after 2 bytes, too early"},
      {"GET /" + longText.substr(0, 9000) + " HTTP/1.1\r\n\r\n", 414,
       "the request line is too long"},
      {"GET / HTTP/1.1\r\nA: " + longText + "\r\n\r\n", 431, "the request's head is too long"},
      {"GET / HTTP/1.1\r\nA: b", 400, "malformed request"},
      {"TRACE /echo HTTP/1.1\r\n\r\n", 501, "the method is not known here"},
      {"CONNECT /echo HTTP/1.1\r\n\r\n", 501, "the method is not known here"},
      {"PRI /echo HTTP/1.1\r\n\r\n", 501, "the method is not known here"},
  };
  for (const auto& one : kCases) {
    SCOPED_TRACE(one.bytes.substr(0, 100));
    const std::string answer = Exchange(backend, one.bytes);
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 " + std::to_string(one.status) + " "));
    EXPECT_THAT(answer, HasSubstr("Connection: close\r\n"));
    EXPECT_THAT(answer, HasSubstr("\"error\": \"" + std::string(one.reason) + "\""));
    EXPECT_EQ(CountOf(answer, "HTTP/1.1 "), 1);
  }
  EXPECT_TRUE(backend.Logged(R"(Z - - 400 in=0 out=[0-9]+ \(malformed request\)$)"));
  EXPECT_THAT(FilesBelow(backend.Root().Path("objects")), IsEmpty());
  EXPECT_EQ(Curl({backend.Url("/echo")}).status, 200);
}

TEST(LiveWire, ServesSeveralRequestsOnAConnection) {
  BackendProcess backend;
  const std::string first = "GET /echo HTTP/1.1\r\nA: " + std::string(8000, 'a') + "\r\n\r\n";
  const std::string second = "POST /echo HTTP/1.1\r\nContent-Length: 3\r\n\r\n[1]";
  const std::string third =
      "PUT /objects/a HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n3;x=y\r\nabc\r\n0\r\n\r\n";
  const std::string last = "GET /echo?4 HTTP/1.1\r\nConnection: close\r\n\r\n";
  const std::string answer = Exchange(backend, first + second + third + last);
  EXPECT_EQ(CountOf(answer, "HTTP/1.1 200 OK\r\n"), 4);
  EXPECT_EQ(CountOf(answer, "Connection: close\r\n"), 1);
  EXPECT_EQ(ReadFile(backend.Root().Path("objects/a")), "abc");
}

TEST(LiveWire, ABodyThatIsNotReadIsNoRequest) {
  BackendProcess backend;
  const std::string inner = "GET /echo HTTP/1.1\r\n\r\n";
  const std::string length = "Content-Length: " + std::to_string(inner.size()) + "\r\n\r\n" + inner;
  for (const char* line : {"POST /report HTTP/1.1\r\n", "GET /echo HTTP/1.1\r\n",
                           "POST /nothing HTTP/1.1\r\n", "DELETE /objects/a HTTP/1.1\r\n"}) {
    const std::string answer = Exchange(backend, line + length);
    EXPECT_EQ(CountOf(answer, "HTTP/1.1 "), 1) << line;
    EXPECT_THAT(answer, HasSubstr("Connection: close\r\n")) << line;
  }
}

TEST(LiveWire, ARefusalReachesAClientThatStillSends) {
  BackendProcess backend;
  WireClient client("127.0.0.1", backend.Port());
  client.Send("POST /report HTTP/1.1\r\nContent-Length: 1000000\r\n\r\n" +
              std::string(500'000, ' '));
  EXPECT_THAT(client.ReadAll(), HasSubstr("no token in X-Auth-Token"));
}

TEST(LiveWire, AsksForABodyThatIsHeldBack) {
  BackendProcess backend;
  WireClient client("127.0.0.1", backend.Port());
  client.Send("PUT /objects/a HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 3\r\n\r\n");
  EXPECT_EQ(client.ReadUntil("\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");
  client.Send("abc");
  EXPECT_THAT(client.ReadUntil("\r\n\r\n"), StartsWith("HTTP/1.1 200 OK\r\n"));
}

TEST(LiveWire, AnUploadLostOnItsWayLeavesNothingBehind) {
  BackendProcess backend;
  backend.Root().Write("objects/old", "old");
  for (const bool reset : {false, true}) {
    const std::string path = reset ? "/objects/old" : "/objects/dir/lost";
    WireClient client("127.0.0.1", backend.Port());
    client.Send("PUT " + path + " HTTP/1.1\r\nContent-Length: 9000000\r\n\r\n" +
                std::string(1'000'000, 'x'));
    client.Close(reset);
    EXPECT_TRUE(backend.Logged("PUT " + path + " 400 "));
  }
  EXPECT_THAT(FilesBelow(backend.Root().Path("objects")), ElementsAre("old"));
  EXPECT_EQ(ReadFile(backend.Root().Path("objects/old")), "old");
}

TEST(LiveWire, ADownloadLostOnItsWayHarmsNobody) {
  BackendProcess backend;
  MakeSparseFile(backend.Root().Path("files/large"), kLarge);
  {
    WireClient client("127.0.0.1", backend.Port());
    client.Send("GET /files/large HTTP/1.1\r\n\r\n");
    client.ReadBytes(1000);
    client.Close(true);
  }
  EXPECT_TRUE(backend.Logged("GET /files/large 200 "));
  EXPECT_EQ(Curl({backend.Url("/echo")}).status, 200);
}

TEST(LiveWire, SurvivesPlainTextOnTheTlsPort) {
  BackendProcess backend({"--tls-port", "0"});
  WireClient client("127.0.0.1", backend.TlsPort());
  client.Send("GET / HTTP/1.1\r\n\r\n");
  client.HalfClose();
  client.ReadAll();
  EXPECT_TRUE(backend.Logged("TLS handshake failed: http request"));
  EXPECT_EQ(Curl({"-k", backend.TlsUrl("/echo")}).status, 200);
}

// --- Misbehaviour on purpose.

TEST(LiveFaults, EveryAnswerHasTheStatusAskedFor) {
  for (const std::string status : {"200", "204", "304", "404", "500"}) {
    SCOPED_TRACE(status);
    BackendProcess backend({"--port", "0", "--status", status});
    EXPECT_EQ(Curl({"-d", "{}", backend.Url("/token")}).status, std::stoi(status));
    EXPECT_EQ(Curl({backend.Url("/nothing")}).status, std::stoi(status));
    EXPECT_EQ(Curl({"-X", "PUT", "-d", "x", backend.Url("/objects/a")}).status, std::stoi(status));
    EXPECT_THAT(FilesBelow(backend.Root().Path("objects")), IsEmpty());
    EXPECT_EQ(Curl({backend.Url("/events")}).status, 200);
    EXPECT_EQ(Curl({backend.Url("/")}).status, 200);
    // A body is read to its end, as by a server that fails later.
    const std::string put = "PUT /objects/a HTTP/1.1\r\nContent-Length: 1\r\n\r\nx";
    const std::string answers = Exchange(backend, put + put);
    EXPECT_EQ(CountOf(answers, "HTTP/1.1 " + status), 2);
    EXPECT_EQ(CountOf(answers, "Content-Length"), status == "204" || status == "304" ? 0 : 2);
  }
}

TEST(LiveFaults, AnswersAreDelayed) {
  BackendProcess backend({"--port", "0", "--delay", "300"});
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Curl({backend.Url("/echo")}).status, 200);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
}

TEST(LiveFaults, ADelayDoesNotHoldTheEndUp) {
  BackendProcess backend({"--port", "0", "--delay", "600000"});
  WireClient client("127.0.0.1", backend.Port());
  client.Send("PUT /objects/a HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 1\r\n\r\n");
  client.ReadUntil("Continue\r\n\r\n");
  client.Send("x");
  const ProcessResult result = backend.Process().Stop();
  EXPECT_EQ(result.exitStatus, 0) << result.Describe();
}

TEST(LiveFaults, AnswersAreCut) {
  for (const std::size_t bytes : {0u, 1u, 100u, 5000u}) {
    BackendProcess backend(
        {"--port", "0", "--tls-port", "0", "--cut-after", std::to_string(bytes)});
    backend.Root().Write("files/file", std::string(10'000, 'x'));
    WireClient client("127.0.0.1", backend.Port());
    client.Send("GET /files/file HTTP/1.1\r\n\r\n");
    EXPECT_EQ(client.ReadAll().size(), bytes);
    EXPECT_FALSE(client.WasReset());
    WireClient tls("127.0.0.1", backend.TlsPort());
    tls.StartTls();
    tls.Send("GET /files/file HTTP/1.1\r\n\r\n");
    EXPECT_EQ(tls.ReadAll().size(), bytes);
    EXPECT_FALSE(tls.SawTlsClose());
    EXPECT_EQ(Curl({backend.Url("/events")}).status, 200);
  }
}

TEST(LiveFaults, AnAnswerShorterThanTheCutIsWhole) {
  BackendProcess backend({"--port", "0", "--cut-after", "1MB"});
  const std::string url = backend.Url("/echo");
  EXPECT_EQ(Curl({url}).status, 200);
  EXPECT_EQ(Curl({url, url}).exitStatus, 0);
}

TEST(LiveFaults, LongBodiesAreRefused) {
  BackendProcess backend({"--port", "0", "--open", "--max-body", "1000"});
  const TempDir temp;
  const std::string fits = temp.Write("fits", std::string(1000, '1'));
  const std::string tooLong = temp.Write("long", std::string(1001, '1'));
  EXPECT_EQ(Curl({"-T", fits, backend.Url("/objects/a")}).status, 200);
  const CurlAnswer refused = Curl({"-T", tooLong, backend.Url("/objects/b")});
  EXPECT_EQ(refused.status, 413);
  EXPECT_EQ(refused.Error(), "the object is longer than 1000 bytes");
  EXPECT_EQ(
      Curl({"-H", "Transfer-Encoding: chunked", "-T", tooLong, backend.Url("/objects/b")}).status,
      413);
  EXPECT_EQ(Curl({"-d", "@" + tooLong, backend.Url("/report")}).status, 413);
  EXPECT_EQ(Curl({"-d", "@" + tooLong, backend.Url("/token")}).status, 413);
  EXPECT_EQ(Curl({"-d", "@" + tooLong, backend.Url("/echo")}).status, 413);
  // What says that it is too long is not asked for.
  EXPECT_THAT(Exchange(backend,
                       "PUT /objects/b HTTP/1.1\r\nExpect: 100-continue\r\n"
                       "Content-Length: 1001\r\n\r\n"),
              StartsWith("HTTP/1.1 413 "));
  EXPECT_THAT(FilesBelow(backend.Root().Path("objects")), ElementsAre("a"));
}

// --- Beginning and end.

TEST(LiveEnd, SignalsEndAnIdleBackEnd) {
  for (const int signal : {SIGINT, SIGTERM}) {
    BackendProcess backend({"--port", "0", "--tls-port", "0"});
    WireClient idle("127.0.0.1", backend.Port());
    WireClient kept("127.0.0.1", backend.Port());
    kept.Send("GET /echo HTTP/1.1\r\n\r\n");
    kept.ReadUntil("\r\n\r\n");
    WireClient noHandshake("127.0.0.1", backend.TlsPort());
    backend.Process().Signal(signal);
    const ProcessResult result = backend.Process().Wait();
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitStatus, 0) << result.Describe();
  }
}

TEST(LiveEnd, ASignalEndsTransfers) {
  for (const bool secure : {false, true}) {
    BackendProcess backend({"--port", "0", "--tls-port", "0"});
    MakeSparseFile(backend.Root().Path("files/large"), kLarge);
    const std::uint16_t port = secure ? backend.TlsPort() : backend.Port();
    WireClient upload("127.0.0.1", port);
    WireClient download("127.0.0.1", port);
    if (secure) {
      upload.StartTls();
      download.StartTls();
    }
    // Neither client goes on: one does not send the rest, the other does not read it.
    upload.Send(
        "PUT /objects/a HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 9000000\r\n\r\n");
    upload.ReadUntil("Continue\r\n\r\n");
    upload.Send(std::string(100'000, 'x'));
    download.Send("GET /files/large HTTP/1.1\r\n\r\n");
    download.ReadUntil("\r\n\r\n");
    const ProcessResult result = backend.Process().Stop();
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitStatus, 0) << result.Describe();
    EXPECT_THAT(FilesBelow(backend.Root().Path("objects")), IsEmpty());
    EXPECT_THAT(result.err, HasSubstr("PUT /objects/a 400 "));
    EXPECT_THAT(result.err, HasSubstr("GET /files/large 200 "));
  }
}

TEST(LiveEnd, ASignalEndsTheEventStreamInItsPlace) {
  BackendProcess backend;
  WireClient page("127.0.0.1", backend.Port());
  page.Send("GET /stream HTTP/1.1\r\nHost: localhost\r\n\r\n");
  page.ReadUntil("\n\n\r\n");
  EXPECT_EQ(backend.Process().Stop().exitStatus, 0);
  EXPECT_EQ(page.ReadAll(), "0\r\n\r\n");  // the last chunk, not the end of somebody's patience
}

// Runs lumbackend where it should end by itself.
ProcessResult RunBackend(std::vector<std::string> options) {
  options.insert(options.begin(), LUM_BACKEND);
  return RunCommand(options);
}

TEST(LiveEnd, ThePortIsFreeAgainAtOnce) {
  std::uint16_t port = 0;
  {
    BackendProcess first;
    port = first.Port();
    WireClient client("127.0.0.1", port);
    client.Send("GET /echo HTTP/1.1\r\nConnection: close\r\n\r\n");
    client.ReadAll();
    ASSERT_EQ(first.Process().Stop().exitStatus, 0);
  }
  BackendProcess second({"--port", std::to_string(port)});
  EXPECT_EQ(second.Port(), port);
}

TEST(LiveEnd, BadOptionsAreUsageErrors) {
  const TempDir root;
  for (const std::vector<std::string>& options : {std::vector<std::string>{},
                                                  {"--root", root.Path(), "--port", "x"},
                                                  {"--root", root.Path(), "--nonsense"},
                                                  {"--root", root.Path(), "--cert", "c"}}) {
    const ProcessResult result = RunBackend(options);
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("--help"));
  }
}

TEST(LiveEnd, WhatCannotBeUsedIsNamed) {
  const TempDir root;
  const std::string file = root.Write("file", "");
  const std::string none = root.Path("none");
  const TempDir noDatabase;
  noDatabase.Write("lumbackend.db", std::string(5000, 'x'));
  const TempDir tls;
  BackendProcess other({"--port", "0", "--tls-port", "0", "--tls-dir", tls.Path()});
  const std::string port = std::to_string(other.Port());
  const std::string tlsPort = std::to_string(other.TlsPort());
  const auto withTls = [&](const char* certificate, const char* key, const std::string& ca = "") {
    std::vector<std::string> options{"--root", root.Path(),           "--tls-port", "0",
                                     "--cert", tls.Path(certificate), "--key",      tls.Path(key)};
    if (!ca.empty()) {
      options.insert(options.end(), {"--client-ca", tls.Path(ca)});
    }
    return options;
  };
  const std::vector<std::pair<std::vector<std::string>, std::string>> kCases = {
      {{"--root", file}, "cannot use directory '" + file},
      {{"--root", root.Path(), "--sign-key-file", none}, "cannot read the signature key '" + none},
      {{"--root", root.Path(), "--sign-key-file", root.Path()}, "cannot read the signature key"},
      {{"--root", root.Path(), "--sign-key-file", file},
       "the signature key '" + file + "' is empty"},
      {{"--root", noDatabase.Path()}, "cannot use '" + noDatabase.Path("lumbackend.db") + "'"},
      {withTls("none", "server.key"), "cannot use certificate '" + tls.Path("none") + "'"},
      {withTls("server.pem", "none"), "cannot use private key '" + tls.Path("none") + "'"},
      {withTls("server.pem", "client.key"), "cannot use private key '" + tls.Path("client.key")},
      // Without a question on the terminal.
      {withTls("client.pem", "client-encrypted.key"),
       "cannot use private key '" + tls.Path("client-encrypted.key") + "'"},
      {withTls("server.pem", "server.key", "server.key"),
       "cannot use client authorities '" + tls.Path("server.key") + "'"},
      {{"--root", root.Path(), "--bind", "192.0.2.1"}, "cannot listen on 192.0.2.1 port 0"},
      {{"--root", root.Path(), "--port", port},
       "cannot listen on 127.0.0.1 port " + port + ": Address already in use\n"},
      {{"--root", root.Path(), "--tls-port", tlsPort},
       "cannot listen on 127.0.0.1 port " + tlsPort + ": Address already in use\n"},
  };
  for (const auto& [options, message] : kCases) {
    const ProcessResult result = RunBackend(options);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, StartsWith("lumbackend: " + message));
  }
}

TEST(LiveEnd, HelpAndVersionGoToStandardOutput) {
  const ProcessResult help = RunBackend({"--help"});
  EXPECT_EQ(help.exitStatus, 0);
  EXPECT_EQ(help.err, "");
  EXPECT_THAT(help.out, HasSubstr("\n  lumbackend --root "));
  const ProcessResult version = RunBackend({"--version"});
  EXPECT_EQ(version.exitStatus, 0);
  EXPECT_EQ(version.out, "lumbackend " LUM_VERSION "\n");
}

}  // namespace
}  // namespace lumtest

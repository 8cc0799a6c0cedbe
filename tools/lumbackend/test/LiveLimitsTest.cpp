// What the running program must stand: floods, bombs, slow clients and kill -9.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <set>
#include <thread>

#include "BackendProcess.h"
#include "Database.h"
#include "support/ProcessState.h"
#include "support/Threads.h"
#include "wire/WireClient.h"

namespace lumtest {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

const std::vector<std::string> kOpen{"--open"};

TEST(LiveLimits, MemoryIsFlatForHeadsAndChunkLinesWithoutEnd) {
  BackendProcess backend;
  Curl({backend.Url("/echo")});
  const std::uint64_t before = PeakResidentBytes(backend.Process().Pid());
  for (const char* start :
       {"GET / HTTP/1.1\r\nA: ", "GET /",
        "PUT /objects/a HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n2;x=",
        "PUT /objects/a HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n0\r\nA: "}) {
    WireClient client("127.0.0.1", backend.Port());
    client.Send(start);
    const std::string piece(1 << 20, '1');
    for (int i = 0; i < 64 && client.Send(piece); ++i) {
    }
    const std::string answer = client.ReadAll();
    EXPECT_TRUE(answer.empty() || answer.compare(0, 10, "HTTP/1.1 4") == 0) << answer;
  }
  EXPECT_LT(PeakResidentBytes(backend.Process().Pid()),
            before + 8 * 1024 * 1024 + LUM_SANITIZERS_SHARE);
}

TEST(LiveLimits, HoldsTenThousandIdleConnections) {
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  const std::size_t count = std::min<std::size_t>(10'000, limit.rlim_cur - 500);
  BackendProcess backend({"--port", "0", "--open"});
  const auto connect = [&] {
    auto client = std::make_unique<WireClient>("127.0.0.1", backend.Port());
    client->Send("GET /echo HTTP/1.1\r\n\r\n");
    client->ReadUntil("clientCertificate");
    return client;
  };
  connect();
  const std::uint64_t before = ResidentBytes(backend.Process().Pid());
  std::vector<std::unique_ptr<WireClient>> clients;
  for (std::size_t i = 0; i < count; ++i) {
    clients.push_back(connect());
  }
  EXPECT_LT(ResidentBytes(backend.Process().Pid()),
            before + count * 32 * 1024 + LUM_SANITIZERS_SHARE);
  EXPECT_EQ(Curl({backend.Url("/")}).status, 200);
  EXPECT_EQ(Curl({"-d", "1", backend.Url("/report")}).status, 200);
  // All of them are still there.
  for (const auto& client : clients) {
    client->ReadUntil("}\n");
    ASSERT_TRUE(client->Send("GET /paths HTTP/1.1\r\nConnection: close\r\n\r\n"));
    ASSERT_THAT(client->ReadUntil("\r\n"), HasSubstr("200 OK"));
  }
}

TEST(LiveLimits, BombsAreRefusedWithinABudget) {
  BackendProcess backend({"--port", "0", "--open"});
  const TempDir temp;
  std::vector<std::string> bombs;
  for (const char* piece : {"0,", "[],", "[", "{\"\":0},"}) {
    std::string text = "[";
    while (text.size() < 64 << 20) {
      text += piece;
    }
    const std::string file = temp.Write(piece, text);
    ASSERT_TRUE(RunCommand({"gzip", "-9", file}).Succeeded());
    bombs.push_back(file + ".gz");
    ASSERT_LT(FileSize(bombs.back()), 512u * 1024);
  }
  OnThreads(16, [&](int i) {
    const std::string& bomb = bombs[static_cast<std::size_t>(i) % bombs.size()];
    const CurlAnswer answer =
        Curl({"-H", "Content-Encoding: gzip", "--data-binary", "@" + bomb, backend.Url("/report")});
    EXPECT_EQ(answer.status, 413) << bomb;
    EXPECT_THAT(answer.Error(), testing::AnyOf("the document is made of too many values",
                                               "the document is nested too deeply",
                                               "too much is being read at once"))
        << bomb;
  });
  EXPECT_LT(PeakResidentBytes(backend.Process().Pid()), 256u * 1024 * 1024 + LUM_SANITIZERS_SHARE);
  EXPECT_EQ(Curl({"-d", "1", backend.Url("/report")}).status, 200);
}

TEST(LiveLimits, AnUploadThatIsKilledLeavesNothingUnderItsName) {
  BackendProcess backend(kOpen);
  const TempDir& root = backend.Root();
  WireClient client("127.0.0.1", backend.Port());
  client.Send(
      "PUT /objects/dir/a HTTP/1.1\r\nExpect: 100-continue\r\n"
      "Content-Length: 9000000\r\n\r\n");
  client.ReadUntil("Continue\r\n\r\n");
  client.Send(std::string(1'000'000, 'x'));
  while (FilesBelow(root.Path("objects")).empty()) {
    std::this_thread::yield();
  }
  backend.Kill();
  ASSERT_THAT(FilesBelow(root.Path("objects")), testing::Contains(testing::StartsWith(".upload-")));
  backend.Start(kOpen);
  EXPECT_THAT(FilesBelow(root.Path("objects")), IsEmpty());
  const ProcessResult third = RunCommand({LUM_BACKEND, "--root", root.Path(), "--port", "0"});
  EXPECT_EQ(third.exitStatus, 1);
  EXPECT_THAT(third.err, HasSubstr("'" + root.Path() + "' is in use by another lumbackend"));
  EXPECT_EQ(Curl({backend.Url("/echo")}).status, 200);
}

TEST(LiveLimits, EveryReportThatWasAnsweredOutlivesAHundredKills) {
  BackendProcess backend(kOpen);
  std::set<std::string> answered;
  std::mt19937 random(7);
  for (int round = 0; round < 100; ++round) {
    std::atomic<int> count{0};
    std::thread client([&] {
      WireClient wire("127.0.0.1", backend.Port());
      for (int i = 0;; ++i) {
        const std::string text = std::to_string(round * 100'000 + i);
        if (!wire.Send("POST /report?status=204 HTTP/1.1\r\nContent-Length: " +
                       std::to_string(text.size()) + "\r\n\r\n" + text) ||
            wire.ReadUntil("\r\n\r\n").compare(0, 12, "HTTP/1.1 204") != 0) {
          return;
        }
        answered.insert(text);
        ++count;
      }
    });
    const int enough = 1 + static_cast<int>(random() % 20);
    while (count < enough) {
      std::this_thread::yield();
    }
    backend.Kill();
    client.join();
    {
      const Database database(backend.Root().Path("lumbackend.db"));
      Query check(database, "PRAGMA integrity_check");
      ASSERT_TRUE(check.Next());
      ASSERT_EQ(check.Text(0), "ok");
    }
    backend.Start(kOpen);
  }
  std::istringstream lines(Curl({backend.Url("/reports")}).body);
  std::set<std::string> kept;
  for (std::string line; std::getline(lines, line);) {
    kept.insert(line);
  }
  EXPECT_TRUE(std::includes(kept.begin(), kept.end(), answered.begin(), answered.end()));
  EXPECT_GE(answered.size(), 100u);
}

TEST(LiveLimits, WithoutDescriptorsConnectionsWait) {
  BackendProcess run(kOpen);
  run.Start(kOpen, "ulimit -n 210");
  std::vector<std::unique_ptr<WireClient>> clients;
  for (int i = 0; i < 150; ++i) {
    clients.push_back(std::make_unique<WireClient>("127.0.0.1", run.Port()));
    clients.back()->Send("GET /paths HTTP/1.1\r\n\r\n");
  }
  for (int i = 0; i < 110; ++i) {
    EXPECT_THAT(clients[static_cast<std::size_t>(i)]->ReadUntil("\r\n"), HasSubstr("200 OK"));
  }
  clients.erase(clients.begin(), clients.begin() + 110);
  for (const auto& client : clients) {
    EXPECT_THAT(client->ReadUntil("\r\n"), HasSubstr("200 OK"));
  }
}

TEST(LiveLimits, AFullDiskIsSaidAndForgotten) {
  BackendProcess run(kOpen);
  run.Start(kOpen, "ulimit -f 2000");  // of 512 bytes: 1 MB
  const TempDir temp;
  const std::string large = temp.Write("large", "\"" + std::string(2'000'000, 'x') + "\"");
  const CurlAnswer upload = Curl({"-T", large, run.Url("/objects/a")});
  EXPECT_EQ(upload.status, 507);
  EXPECT_EQ(upload.Error(), "cannot store the object: File too large");
  const CurlAnswer report = Curl({"-d", "@" + large, run.Url("/report")});
  EXPECT_EQ(report.status, 507);
  EXPECT_THAT(report.Error(), testing::StartsWith("cannot store the report: "));
  EXPECT_THAT(FilesBelow(run.Root().Path("objects")), IsEmpty());
  EXPECT_EQ(Curl({"-d", "1", run.Url("/report")}).status, 200);
  EXPECT_EQ(Curl({run.Url("/reports")}).body, "1\n");
}

}  // namespace
}  // namespace lumtest

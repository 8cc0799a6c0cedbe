// The reporter with a real back end: what it accepts arrives, however often it is killed.
//
// LUM_REPORTER_KILLS is the number of kills (20), LUM_REPORTER_SEED the seed of their moments (1).

#include <LumJson.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "BackendProcess.h"
#include "support/Files.h"
#include "support/Process.h"

namespace {

using lumtest::BackendProcess;
using lumtest::ProcessResult;
using lumtest::SpawnedProcess;

int FromEnvironment(const char* name, int otherwise) {
  const char* text = std::getenv(name);
  return text == nullptr ? otherwise : std::atoi(text);
}

// The content by ID of every record that the back end has, and how often each has arrived.
struct Arrived {
  std::map<std::string, std::string> content;
  std::map<std::string, int> times;
};

Arrived ArrivedAt(const BackendProcess& backend) {
  sqlite3* database = nullptr;
  EXPECT_EQ(sqlite3_open_v2(backend.Root().Path("lumbackend.db").c_str(), &database,
                            SQLITE_OPEN_READONLY, nullptr),
            SQLITE_OK);
  sqlite3_busy_timeout(database, 30000);
  sqlite3_stmt* select = nullptr;
  EXPECT_EQ(sqlite3_prepare_v2(database, "SELECT document FROM report", -1, &select, nullptr),
            SQLITE_OK);
  Arrived arrived;
  while (sqlite3_step(select) == SQLITE_ROW) {
    LumJson::Value document;
    EXPECT_TRUE(document.Parse(reinterpret_cast<const char*>(sqlite3_column_text(select, 0))));
    for (const LumJson::Value& record : document["records"].Elements()) {
      const LumJson::Value& constant = record;
      const std::string id = constant["id"].AsString();
      const std::string content = constant["data"].JsonValueToString();
      const auto added = arrived.content.emplace(id, content);
      EXPECT_EQ(added.first->second, content) << "two records have the ID " << id;
      ++arrived.times[id];
    }
  }
  sqlite3_finalize(select);
  sqlite3_close(database);
  return arrived;
}

class Reporter : public testing::Test {
 protected:
  std::vector<std::string> Command(const std::string& url,
                                   const std::vector<std::string>& more = {}) {
    std::vector<std::string> command{LUM_REPORTER, "--interval=0", "--first-wait=1",
                                     "--longest-wait=20", "--batch=8"};
    command.insert(command.end(), more.begin(), more.end());
    command.insert(command.end(), {url, m_directory.Path("queue.db"), "device-1"});
    return command;
  }

  // `count` new records as the input of the next run.
  lumtest::ProcessOptions Input(int count) {
    lumtest::ProcessOptions options;
    m_given.clear();
    for (int i = 0; i < count; ++i) {
      m_given.push_back("{\"record\":" + std::to_string(++m_records) + "}");
      options.input += m_given.back() + "\n";
    }
    return options;
  }

  std::unique_ptr<SpawnedProcess> Start(const std::string& url, int count,
                                        const std::vector<std::string>& more = {}) {
    return std::make_unique<SpawnedProcess>(Command(url, more), Input(count));
  }

  // Notes which of the records were accepted: they are answered in their order.
  void Note(const ProcessResult& result) {
    std::istringstream lines(result.out);
    std::size_t answered = 0;
    for (std::string line; std::getline(lines, line) && !lines.eof(); ++answered) {
      ASSERT_LT(answered, m_given.size()) << result.Describe();
      ASSERT_EQ(line.compare(0, 9, "accepted "), 0) << result.Describe();
      const bool added = m_accepted.emplace(line.substr(9), m_given[answered]).second;
      EXPECT_TRUE(added) << "two records were given the ID in: " << line;
    }
  }

  // Every accepted record is at the back end, and what is there under its ID is it.
  void ExpectAllArrived(const Arrived& arrived) {
    for (const auto& [id, content] : m_accepted) {
      const auto found = arrived.content.find(id);
      ASSERT_NE(found, arrived.content.end()) << id << " was accepted and is lost";
      EXPECT_EQ(found->second, content) << id;
    }
  }

  // Reports what is left, and expects that all is there.
  Arrived Drain(const BackendProcess& backend) {
    const ProcessResult result =
        lumtest::RunCommand(Command(backend.Url("")), {}, std::chrono::seconds(120));
    EXPECT_TRUE(result.Succeeded()) << result.Describe();
    Arrived arrived = ArrivedAt(backend);
    ExpectAllArrived(arrived);
    return arrived;
  }

  void ExpectSuccessAndAllArrived(SpawnedProcess& reporter, const BackendProcess& backend) {
    const ProcessResult result = reporter.Wait(std::chrono::seconds(90));
    EXPECT_TRUE(result.Succeeded()) << result.Describe();
    ASSERT_NO_FATAL_FAILURE(Note(result));
    ExpectAllArrived(ArrivedAt(backend));
  }

  lumtest::TempDir m_directory;
  int m_records = 0;
  std::vector<std::string> m_given;
  std::map<std::string, std::string> m_accepted;
};

TEST_F(Reporter, NothingAcceptedIsLostByKills) {
  // Refusals, tokens that end soon, and answers that come a moment after the report is stored.
  BackendProcess backend({"--port", "0", "--fail-rate", "0.1", "--seed", "7", "--delay", "2",
                          "--token-lifetime", "2"});
  const int kills = FromEnvironment("LUM_REPORTER_KILLS", 20);
  const int seed = FromEnvironment("LUM_REPORTER_SEED", 1);
  SCOPED_TRACE("LUM_REPORTER_SEED=" + std::to_string(seed));
  std::mt19937 random(static_cast<unsigned>(seed));
  int killed = 0;
  for (int i = 0; i < kills; ++i) {
    const int count = static_cast<int>(random() % 100) + 1;
    const std::chrono::microseconds moment(random() % 40000);
    const unsigned event = static_cast<unsigned>(random() % 3);
    auto reporter = Start(backend.Url(""), count);
    if (event != 0) {  // the moment is counted from what it has done, not from its start
      ASSERT_TRUE(reporter->WaitForLine(event == 1 ? "^accepted " : "^reported "));
    }
    std::this_thread::sleep_for(moment);  // the moment of the kill, which nothing waits for
    reporter->Signal(SIGKILL);
    const ProcessResult result = reporter->Wait();
    killed += result.signal == SIGKILL ? 1 : 0;
    ASSERT_TRUE(result.signal == SIGKILL || result.Succeeded()) << result.Describe();
    ASSERT_NO_FATAL_FAILURE(Note(result));
  }
  const Arrived arrived = Drain(backend);
  int again = 0;
  for (const auto& [id, times] : arrived.times) {
    again += times > 1 ? 1 : 0;
  }
  std::printf(
      "%d of %d kills met the program alive; %zu records accepted, %zu arrived, %d of them"
      " more than once\n",
      killed, kills, m_accepted.size(), arrived.content.size(), again);
  EXPECT_GT(killed, kills / 2) << "the program is done before it is killed";
  EXPECT_FALSE(m_accepted.empty());
}

TEST_F(Reporter, NothingAcceptedIsLostByPowerCuts) {
  BackendProcess backend;
  int cuts = 0;
  for (int write = 1; write <= 30; ++write) {
    lumtest::ProcessOptions options = Input(60);
    options.environment = {"LUM_POWER_CUT=" + std::to_string(write)};
    std::vector<std::string> command = Command(backend.Url(""));
    command[0] = LUM_REPORTER_POWER_CUT;
    const ProcessResult result = lumtest::RunCommand(command, options);
    ASSERT_TRUE(result.exitStatus == 99 || result.Succeeded()) << result.Describe();
    cuts += result.exitStatus == 99 ? 1 : 0;
    ASSERT_NO_FATAL_FAILURE(Note(result));
  }
  EXPECT_GT(cuts, 15);
  EXPECT_FALSE(m_accepted.empty());
  Drain(backend);
}

TEST_F(Reporter, WhatArrivesAgainHasTheSameId) {
  BackendProcess backend({"--port", "0", "--open", "--delay", "3000"});
  auto reporter = Start(backend.Url(""), 3);
  // The back end has stored the report, and its answer does not come before the kill.
  std::size_t stored = 0;
  for (const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
       stored == 0 && std::chrono::steady_clock::now() < end;) {
    stored = ArrivedAt(backend).content.size();
  }
  ASSERT_EQ(stored, 3U);
  reporter->Signal(SIGKILL);
  ASSERT_NO_FATAL_FAILURE(Note(reporter->Wait()));
  EXPECT_EQ(m_accepted.size(), 3U);
  backend.Start({"--port", "0"});
  const Arrived arrived = Drain(backend);
  EXPECT_EQ(arrived.content.size(), 3U);
  for (const auto& [id, times] : arrived.times) {
    EXPECT_EQ(times, 2) << id;
  }
}

TEST_F(Reporter, NoIdIsGivenTwiceThoughTheQueueWasEmpty) {
  BackendProcess backend;
  for (int run = 0; run < 2; ++run) {
    const ProcessResult result = Start(backend.Url(""), 2)->Wait();
    ASSERT_TRUE(result.Succeeded()) << result.Describe();
    ASSERT_NO_FATAL_FAILURE(Note(result));
  }
  EXPECT_EQ(m_accepted.size(), 4U);
  ExpectAllArrived(ArrivedAt(backend));
}

TEST_F(Reporter, AFullQueueRefuses) {
  BackendProcess backend({"--port", "0", "--status", "503"});
  auto reporter = Start(backend.Url(""), 40, {"--most=25"});
  ASSERT_TRUE(reporter->WaitForLine("^refused no room$"));
  const ProcessResult result = reporter->Stop();
  std::istringstream lines(result.out);
  int accepted = 0;
  int refused = 0;
  for (std::string line; std::getline(lines, line);) {
    (line == "refused no room" ? refused : accepted) += 1;
  }
  EXPECT_EQ(accepted, 25) << result.Describe();
  EXPECT_EQ(refused, 15) << result.Describe();
}

TEST_F(Reporter, WhatIsNoRecordIsRefusedInItsPlace) {
  BackendProcess backend;
  lumtest::ProcessOptions options;
  options.input =
      "{\"a\":1}\n[1]\n\n{\"a\":\"" + std::string(4096, 'x') + "\"}\n{\"a\":2}\n{\"a\":3}";
  const ProcessResult result = lumtest::RunCommand(Command(backend.Url("")), options);
  EXPECT_TRUE(result.Succeeded()) << result.Describe();
  const std::string refused = "refused no JSON object of up to 4096 bytes\n";
  // The last one is no whole line: it was cut off.
  EXPECT_THAT(result.out, testing::MatchesRegex("accepted [0-9a-f]+-1\n" + refused + refused +
                                                refused + "accepted [0-9a-f]+-2\n"));
  const Arrived arrived = ArrivedAt(backend);
  ASSERT_EQ(arrived.content.size(), 2U);
  EXPECT_THAT(arrived.content.rbegin()->second, "{\"a\":2}");
}

TEST_F(Reporter, ASignalEndsItInOrderAndTheRestWaits) {
  BackendProcess backend({"--port", "0", "--status", "503"});
  auto reporter = Start(backend.Url(""), 20, {"--first-wait=3600000", "--longest-wait=3600000"});
  ASSERT_TRUE(backend.Logged("/token"));  // it has failed, and waits for up to an hour
  for (std::size_t answered = 0; answered < 20;) {
    const std::string out = reporter->Out();
    answered = static_cast<std::size_t>(std::count(out.begin(), out.end(), '\n'));
  }
  reporter->Signal(SIGTERM);
  const ProcessResult result = reporter->Wait();
  EXPECT_EQ(result.exitStatus, 0) << result.Describe();
  ASSERT_NO_FATAL_FAILURE(Note(result));
  EXPECT_EQ(m_accepted.size(), 20U);
  backend.Start({"--port", "0"});
  const Arrived arrived = Drain(backend);
  EXPECT_EQ(arrived.times.size(), 20U);
}

TEST_F(Reporter, ATokenIsRenewedBeforeItEnds) {
  BackendProcess backend({"--port", "0", "--token-lifetime", "1", "--delay", "5"});
  auto reporter = Start(backend.Url(""), 400, {"--batch=1"});
  EXPECT_TRUE(backend.Logged(" PUT /token 200 "));
  ExpectSuccessAndAllArrived(*reporter, backend);
}

TEST_F(Reporter, ATokenThatTheServiceNoLongerKnowsIsReplaced) {
  BackendProcess backend({"--port", "0", "--delay", "20"});
  auto reporter = Start(backend.Url(""), 60, {"--batch=1"});
  ASSERT_TRUE(reporter->WaitForLine("^reported "));
  backend.Start({"--port", std::to_string(backend.Port())});  // it has forgotten its tokens
  ExpectSuccessAndAllArrived(*reporter, backend);
}

TEST_F(Reporter, OneQueueHasOneReporter) {
  BackendProcess backend({"--port", "0", "--status", "503"});
  auto first = Start(backend.Url(""), 1);
  ASSERT_TRUE(first->WaitForLine("^accepted "));
  const ProcessResult second = lumtest::RunCommand(Command(backend.Url("")));
  EXPECT_EQ(second.exitStatus, 1) << second.Describe();
  EXPECT_THAT(second.err, testing::HasSubstr("database is locked"));
}

}  // namespace

// What tests over the recording double share: the fixture, and the comparison of calls.

#ifndef LUM_TESTING_RECORDINGTEST_H
#define LUM_TESTING_RECORDINGTEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "recording/Recorder.h"

namespace lumtest {

using Events = std::vector<std::string>;
using Lines = std::list<std::string>;  // of a request's head

// One list of events behind the other.
inline Events operator+(Events first, const Events& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// The event of a log line; levels 1 error, 2 warning, 3 info.
inline std::string Log(int level, const std::string& function, const std::string& message) {
  return "log " + std::to_string(level) + " " + function + ": " + message;
}

// A transfer that succeeds.
inline Script Answer(long status, const std::string& body = "") {
  Script script;
  script.status = status;
  if (!body.empty()) {
    script.chunks = {body};
  }
  return script;
}

// A transfer that libcurl gives up with `result` after `status` and these parts have arrived.
inline Script Broken(CURLcode result, long status, const std::string& errorText,
                     const std::vector<std::string>& chunks = {}) {
  Script script;
  script.result = result;
  script.status = status;
  script.errorText = errorText;
  script.chunks = chunks;
  return script;
}

// The events around number `at`, which is marked.
inline std::string Around(const Events& events, std::size_t at) {
  constexpr std::size_t kNeighbours = 3;
  std::string shown;
  for (std::size_t i = at < kNeighbours ? 0 : at - kNeighbours;
       i <= std::min(at + kNeighbours, events.size()); ++i) {
    shown += i == at ? "  > " : "    ";
    shown += (i < events.size() ? events[i] : "(the end)") + "\n";
  }
  return shown;
}

// Whether both lists are the same; if not, the first difference with its neighbours.
inline ::testing::AssertionResult SameEvents(const Events& seen, const Events& expected) {
  const auto differ = std::mismatch(seen.begin(), seen.end(), expected.begin(), expected.end());
  if (differ.first == seen.end() && differ.second == expected.end()) {
    return ::testing::AssertionSuccess();
  }
  const auto at = static_cast<std::size_t>(differ.first - seen.begin());
  return ::testing::AssertionFailure() << "from number " << at + 1 << " on, seen was\n"
                                       << Around(seen, at) << "in place of\n"
                                       << Around(expected, at);
}

// The text of the statement on line `number` (counted from 1) of a source file, named without its
// extension and from the root of the source tree. For a call over several lines g++ takes the first
// of them for __LINE__, clang++ the last.
inline std::string StatementAt(const std::string& file, int number) {
  std::ifstream source(LUM_SOURCE_DIR "/" + file + ".cpp");
  std::string statement;
  std::string line;
  for (int i = 1; std::getline(source, line); ++i) {
    line.erase(0, line.find_first_not_of(' '));
    if (line.compare(0, 2, "//") == 0) {
      continue;
    }
    statement += line + "\n";
    if (line.find_first_of(";{}") != std::string::npos) {
      if (i >= number) {
        break;
      }
      statement.clear();
    }
  }
  return statement;
}

// Starts with nothing recorded. When a test ends, nothing may be left but what it says is kept, and
// every log line must have come from the statement that it names.
class RecordingTest : public ::testing::Test {
 protected:
  RecordingTest() { recorder.Reset(); }
  ~RecordingTest() override { recorder.Reset(); }

  void TearDown() override {
    CheckOrigins();
    EXPECT_EQ(recorder.LiveHandles(), keptHandles);
    EXPECT_EQ(recorder.LiveLists(), keptLists);
    EXPECT_EQ(recorder.LiveFiles(), 0);
  }

  // Everything made so far has been released.
  void ExpectNothingKept() const {
    EXPECT_EQ(recorder.LiveHandles(), 0);
    EXPECT_EQ(recorder.LiveLists(), 0);
    EXPECT_EQ(recorder.LiveFiles(), 0);
  }

  // Exactly these calls have been made, in this order.
  void ExpectEvents(const Events& expected) const {
    EXPECT_TRUE(SameEvents(recorder.Events(), expected));
  }

  // The log lines so far are exactly these.
  void ExpectLogs(const Events& expected) const { EXPECT_TRUE(SameEvents(Logs(), expected)); }

  Events Logs() const {
    Events logs;
    for (const LogLine& log : recorder.Logs()) {
      logs.push_back(Log(log.level, log.function, log.message));
    }
    return logs;
  }

  // Forgets what has been recorded; clients keep their settings.
  void Forget() {
    CheckOrigins();
    recorder.Reset();
  }

  // The one transfer that has been performed.
  Transfer TheTransfer() const {
    const auto transfers = recorder.Transfers();
    EXPECT_EQ(transfers.size(), 1U);
    return transfers.empty() ? Transfer() : transfers.front();
  }

  // Closes a stream of the test's own, which the balance of the client's files leaves out.
  void CloseOwn(FILE* stream) {
    std::fclose(stream);
    ++recorder.m_liveFiles;
  }

  Recorder& recorder = Recorder::Get();
  int keptHandles = 0;  // by the test's subject, on purpose
  int keptLists = 0;

 private:
  // Every log line names its file and line, and was asked for by itself.
  void CheckOrigins() const {
    static const char* const kLevels[] = {"", "kLogError", "kLogWarning", "kLogInfo"};
    static std::map<std::pair<std::string, int>, std::string> statements;
    for (const LogLine& log : recorder.Logs()) {
      SCOPED_TRACE(log.message);
      EXPECT_TRUE(log.asked) << "GetInstance() was not called for this line";
      EXPECT_EQ(log.tag, " ");
      EXPECT_EQ(log.detail, "");
      ASSERT_GE(log.level, 1);
      ASSERT_LE(log.level, 3);
      std::string& statement = statements[{log.file, log.line}];
      if (statement.empty()) {
        statement = StatementAt(log.file, log.line);
      }
      EXPECT_THAT(statement,
                  ::testing::StartsWith(std::string("LUM_LOG(") + kLevels[log.level] + ","));
      EXPECT_THAT(statement, ::testing::HasSubstr("\"" + log.format + "\""));
    }
  }
};

// Takes the private part out of a client while it lives, as no constructor does.
template <typename Client>
class WithoutPrivate {
 public:
  explicit WithoutPrivate(Client& client) : m_client(client), m_private(client.d_pointer) {
    client.d_pointer = nullptr;
  }
  ~WithoutPrivate() { m_client.d_pointer = m_private; }
  WithoutPrivate(const WithoutPrivate&) = delete;
  WithoutPrivate& operator=(const WithoutPrivate&) = delete;

 private:
  Client& m_client;
  decltype(Client::d_pointer) m_private;
};

}  // namespace lumtest

#endif  // LUM_TESTING_RECORDINGTEST_H

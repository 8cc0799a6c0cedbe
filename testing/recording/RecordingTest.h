// What tests over the recording double share: the fixture, and the check of log lines.

#ifndef LUM_TESTING_RECORDINGTEST_H
#define LUM_TESTING_RECORDINGTEST_H

#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <string>
#include <vector>

#include "recording/Recorder.h"

namespace lumtest {

using Events = std::vector<std::string>;

// Several lists of events, one after the other.
inline Events Joined(const std::vector<Events>& parts) {
  Events all;
  for (const Events& part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
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

struct ExpectedLog {
  std::string file;
  std::string function;
  int level;
  std::string format;
  std::vector<std::string> arguments;
};

// The log lines so far are exactly these: every field, the line number of the statement included.
inline void ExpectLogs(const std::vector<ExpectedLog>& expected) {
  const std::vector<LogLine> logs = Recorder::Get().Logs();
  ASSERT_EQ(logs.size(), expected.size());
  for (std::size_t i = 0; i < logs.size(); ++i) {
    SCOPED_TRACE(logs[i].message);
    EXPECT_EQ(logs[i].file, expected[i].file);
    EXPECT_EQ(logs[i].function, expected[i].function);
    EXPECT_EQ(logs[i].tag, " ");
    EXPECT_EQ(logs[i].detail, "");
    EXPECT_EQ(logs[i].level, expected[i].level);
    EXPECT_EQ(logs[i].format, expected[i].format);
    EXPECT_EQ(logs[i].arguments, expected[i].arguments);
    EXPECT_TRUE(logs[i].asked) << "GetInstance() was not called for this line";
    const std::string statement = StatementAt(logs[i].file, logs[i].line);
    EXPECT_EQ(statement.compare(0, 8, "LUM_LOG("), 0)
        << "line " << logs[i].line << ": " << statement;
    EXPECT_NE(statement.find('"' + logs[i].format + '"'), std::string::npos) << statement;
  }
}

// Starts with nothing recorded; what the product keeps on purpose is freed at the end.
class RecordingTest : public ::testing::Test {
 protected:
  RecordingTest() { recorder.Reset(); }
  ~RecordingTest() override { recorder.Reset(); }

  // Everything made has been released.
  void ExpectNothingKept() const {
    EXPECT_EQ(recorder.LiveHandles(), 0);
    EXPECT_EQ(recorder.LiveLists(), 0);
    EXPECT_EQ(recorder.LiveFiles(), 0);
  }

  Recorder& recorder = Recorder::Get();
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

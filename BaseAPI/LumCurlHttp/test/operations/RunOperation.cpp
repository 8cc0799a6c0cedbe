// The log lines of each thread, and the check.

#include "RunOperation.h"

#include <LumLogger.h>
#include <gmock/gmock.h>

#include <chrono>

namespace lumtest {

namespace {

thread_local std::vector<std::string>* t_lines = nullptr;

}  // namespace

ThreadLogs::ThreadLogs() {
  LumLogger::GetInstance().SetSink([](const LumLogger::Record& record) {
    if (t_lines != nullptr) {
      t_lines->push_back(LogText(record.file, record.function, record.level,
                                 std::string(record.message, record.messageLength)));
    }
  });
}

ThreadLogs::~ThreadLogs() {
  LumLogger::GetInstance().SetSink(nullptr);
}

Outcome RunOperation(Caller& caller, const Operation& operation, const std::string& url,
                     const std::string& owner) {
  Outcome outcome;
  outcome.directory = caller.MakeFiles(owner + operation.name);
  t_lines = &outcome.lines;
  const auto start = std::chrono::steady_clock::now();
  outcome.value = operation.run(caller, url, outcome.directory);
  outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  t_lines = nullptr;
  AddFiles(operation, outcome);
  return outcome;
}

const Ending& ExpectEnding(const Operation& operation, const std::string& url,
                           const Outcome& outcome, const std::vector<Ending>& endings) {
  const std::string errorText = ErrorTextOf(outcome);
  std::string failure;
  for (const Ending& ending : endings) {
    const bool saysWhy = ending.code == 0 || operation.kind == Kind::kDownload ||
                         ::testing::Matches(::testing::MatchesRegex(ending.error))(errorText);
    if (saysWhy && Fits(operation, url, outcome, ending)) {
      return ending;
    }
    failure += ShownBlocks(operation, url, outcome, ending) +
               (saysWhy ? "" : "    with an error text like " + ending.error + "\n");
  }
  ADD_FAILURE() << failure;
  return endings.front();
}

}  // namespace lumtest

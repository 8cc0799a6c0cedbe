// One run, and what was logged meanwhile.

#include "RunRecorded.h"

#include <algorithm>
#include <filesystem>

namespace lumtest {

namespace {

// Fifty bytes of no document, so that a log line can tell their number from an empty one's.
int Gzip(const std::string& /*text*/, char* target, int /*room*/) {
  constexpr int kSize = 50;
  std::fill_n(target, kSize, 'z');
  return kSize;
}

}  // namespace

Outcome RunRecorded(Caller& caller, const Operation& operation, const std::string& url,
                    const Script& script) {
  Recorder& recorder = Recorder::Get();
  Outcome outcome;
  outcome.directory = caller.MakeFiles(operation.name);
  std::filesystem::remove(DownloadPath(outcome.directory));
  recorder.gzip = &Gzip;
  recorder.NextPerform(script);
  const std::size_t before = recorder.Logs().size();
  outcome.value = operation.run(caller, url, outcome.directory);
  const std::vector<LogLine> logs = recorder.Logs();
  for (std::size_t i = before; i < logs.size(); ++i) {
    outcome.lines.push_back(
        LogText(logs[i].file, logs[i].function, logs[i].level, logs[i].message));
  }
  AddFiles(operation, outcome);
  return outcome;
}

}  // namespace lumtest

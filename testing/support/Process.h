// Runs other programs: to their end, or as servers beside a test.

#ifndef LUM_TESTING_SUPPORT_PROCESS_H
#define LUM_TESTING_SUPPORT_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/Files.h"

namespace lumtest {

struct ProcessOptions {
  std::string input;                     // given to standard input, which then ends
  std::string directory;                 // working directory; "" for the test's own
  std::vector<std::string> environment;  // "NAME=value", added to or replacing the test's own
};

// How a program came out.
struct ProcessResult {
  int exitStatus = -1;    // -1 when it did not exit by itself
  int signal = 0;         // the signal that ended it; 0 when it exited
  bool timedOut = false;  // it was killed because its time was up
  std::string out;        // standard output
  std::string err;        // standard error

  bool Succeeded() const { return exitStatus == 0; }

  // All of it in a few lines, for failure messages.
  std::string Describe() const;
};

// Runs `argv` (the program is looked for in PATH) to its end and returns how it came out. The
// program, and what it started itself, is killed when `timeout` has passed.
//
// Throws std::runtime_error naming the program when it cannot be started. The program gets none of
// the test's descriptors but 0, 1 and 2, and no blocked signals. May be called from any thread.
ProcessResult RunCommand(const std::vector<std::string>& argv, const ProcessOptions& options = {},
                         std::chrono::milliseconds timeout = std::chrono::seconds(60));

// A program that runs beside the test, in a process group of its own. It gets SIGTERM when the
// thread that started it ends, so that a test that crashes leaves nothing behind.
//
// Not for use by two threads at once.
class SpawnedProcess {
 public:
  // Starts `argv` as RunCommand does.
  explicit SpawnedProcess(const std::vector<std::string>& argv, const ProcessOptions& options = {});

  // A copy of this process, which must have no other threads: it exits with what `function`
  // returns.
  explicit SpawnedProcess(const std::function<int()>& function);

  // Stops it if it still runs.
  ~SpawnedProcess();
  SpawnedProcess(const SpawnedProcess&) = delete;
  SpawnedProcess& operator=(const SpawnedProcess&) = delete;

  pid_t Pid() const { return m_pid; }

  // Waits for a line on standard output or standard error in which `regex` (POSIX, extended) is
  // found; false when the program has ended or `deadline` has passed first. `groups`, unless null,
  // gets the whole match and then the groups: "port=([0-9]+)" gives the number as (*groups)[1].
  // Throws std::runtime_error when `regex` is none.
  bool WaitForLine(const std::string& regex, std::vector<std::string>* groups = nullptr,
                   std::chrono::milliseconds deadline = std::chrono::seconds(30));

  // --- What it wrote so far. All of it once it has ended.
  std::string Out() const { return m_out.Text(); }
  std::string Err() const { return m_err.Text(); }

  // --- Its end.

  void Signal(int signal);

  // Waits for it to end by itself; kills it when `deadline` has passed (`timedOut`).
  ProcessResult Wait(std::chrono::milliseconds deadline = std::chrono::seconds(30));

  // SIGTERM, and SIGKILL to its whole group when it still runs after `grace`.
  ProcessResult Stop(std::chrono::milliseconds grace = std::chrono::seconds(10));

 private:
  void Fork(const std::function<void()>& child);
  bool HasEnded(std::chrono::milliseconds deadline);

  // Files rather than pipes: nobody has to read on while the test does something else.
  const UnnamedFile m_out;
  const UnnamedFile m_err;
  pid_t m_pid = -1;
  std::optional<int> m_status;  // of waitpid, once it has been reaped
};

}  // namespace lumtest

#endif  // LUM_TESTING_SUPPORT_PROCESS_H

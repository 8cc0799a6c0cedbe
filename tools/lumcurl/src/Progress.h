// Progress of a transfer on a terminal.

#ifndef LUM_LUMCURL_PROGRESS_H
#define LUM_LUMCURL_PROGRESS_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "Console.h"

// How far a transfer is.
struct Progress {
  bool packing = false;     // an archive is still being made: `bytes` are the archive's so far
  std::uint64_t bytes = 0;  // done
  std::uint64_t total = 0;  // 0: not known
};

// "1.0 MiB of 2.0 MiB, 50 %, 512.0 KiB/s, 2 s left" after `seconds` of the transfer.
std::string ProgressLine(const Progress& progress, double seconds);

// Shows the progress of a transfer, several times a second from a thread of its own until it is
// destroyed; the last figures stay. Does nothing when the console shows no progress.
class ProgressMeter {
 public:
  // `progress` is called on that thread, and must stay callable.
  ProgressMeter(Console& console, std::function<Progress()> progress);
  ~ProgressMeter();

  // The transfer is over: its final figures are those that stay.
  void Finish() { m_finished = true; }

 private:
  void Run();
  void Show();

  Console& m_console;
  const std::function<Progress()> m_progress;
  std::optional<std::chrono::steady_clock::time_point> m_start;  // of the transfer
  std::mutex m_mutex;
  std::condition_variable m_wake;
  bool m_done = false;  // guarded by m_mutex
  bool m_finished = false;
  std::thread m_thread;
};

// While it lives and standard output is a terminal, what anybody writes to standard output passes
// through a TerminalEscaper. The reply to an upload is written there by the library itself.
class EscapedStdout {
 public:
  EscapedStdout();
  ~EscapedStdout();

 private:
  void Run() const;

  int m_terminal = -1;  // the descriptor that standard output had; -1: nothing to do
  int m_pipe = -1;      // the end to read
  std::thread m_thread;
};

#endif  // LUM_LUMCURL_PROGRESS_H

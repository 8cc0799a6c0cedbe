// Progress of a transfer on a terminal.

#ifndef LUM_LUMCURL_PROGRESS_H
#define LUM_LUMCURL_PROGRESS_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "Console.h"
#include "Text.h"

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

// While it lives and standard output is a terminal, what is written to stdout passes through a
// TerminalEscaper. The reply to an upload is written there by the library itself.
class EscapedStdout {
 public:
  EscapedStdout();
  ~EscapedStdout();
  EscapedStdout(const EscapedStdout&) = delete;
  EscapedStdout& operator=(const EscapedStdout&) = delete;

 private:
  static ssize_t Write(void* cookie, const char* bytes, std::size_t size);

  TerminalEscaper m_escaper;
  char m_last = '\n';
  FILE* m_terminal = nullptr;  // what stdout was; null: nothing to do
};

#endif  // LUM_LUMCURL_PROGRESS_H

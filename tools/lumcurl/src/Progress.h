// Progress of a transfer on a terminal.

#ifndef LUM_LUMCURL_PROGRESS_H
#define LUM_LUMCURL_PROGRESS_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "Console.h"

// Shows bytes so far and rate, several times a second from a thread of its own until it is
// destroyed; the last figures stay. Does nothing when the console shows no progress.
class ProgressMeter {
 public:
  // `bytes` is called on that thread, and must stay callable.
  ProgressMeter(Console& console, std::function<std::uint64_t()> bytes);
  ~ProgressMeter();
  ProgressMeter(const ProgressMeter&) = delete;
  ProgressMeter& operator=(const ProgressMeter&) = delete;

 private:
  void Run();
  void Show() const;

  Console& m_console;
  const std::function<std::uint64_t()> m_bytes;
  const std::chrono::steady_clock::time_point m_start;
  std::mutex m_mutex;
  std::condition_variable m_wake;
  bool m_done = false;  // guarded by m_mutex
  std::thread m_thread;
};

// A stream over a file that counts what is read from it. The file is opened by the first seek or
// read, so that it may come into being after the stream.
class CountingFile {
 public:
  // Throws std::bad_alloc when there is no stream to be had.
  explicit CountingFile(std::string path);
  ~CountingFile();
  CountingFile(const CountingFile&) = delete;
  CountingFile& operator=(const CountingFile&) = delete;

  FILE* Stream() const { return m_stream.get(); }

  // Bytes read since the last seek. From any thread.
  std::uint64_t Bytes() const { return m_bytes; }

  // The size that the file had when it was last sought; 0 before. From any thread.
  std::uint64_t Size() const { return m_size; }

 private:
  struct Callbacks;
  struct Close {
    void operator()(FILE* stream) const { (void)std::fclose(stream); }
  };
  bool Open();

  const std::string m_path;
  int m_fd = -1;
  std::atomic<std::uint64_t> m_bytes{0};
  std::atomic<std::uint64_t> m_size{0};
  std::unique_ptr<char[]> m_buffer;  // outlives the stream
  std::unique_ptr<FILE, Close> m_stream;
};

// While it lives and standard output is a terminal, what anybody writes to standard output passes
// through a TerminalEscaper. The reply to an upload is written there by the library itself.
class EscapedStdout {
 public:
  EscapedStdout();
  ~EscapedStdout();
  EscapedStdout(const EscapedStdout&) = delete;
  EscapedStdout& operator=(const EscapedStdout&) = delete;

 private:
  void Run() const;

  int m_terminal = -1;  // the descriptor that standard output had; -1: nothing to do
  int m_pipe = -1;      // the end to read
  std::thread m_thread;
};

#endif  // LUM_LUMCURL_PROGRESS_H

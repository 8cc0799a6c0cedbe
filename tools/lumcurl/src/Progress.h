// How far a transfer is, and showing it on a terminal.

#ifndef LUM_LUMCURL_PROGRESS_H
#define LUM_LUMCURL_PROGRESS_H

#include <atomic>
#include <bitset>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
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

// The descriptors that this process has opened since the object was made: those of the library's
// one call, not those that the process was started with.
class NewDescriptors {
 public:
  NewDescriptors();

  // What `measure` finds in all of them.
  std::uint64_t Sum(std::uint64_t (*measure)(int fd)) const;

 private:
  static constexpr int kHighest = 1024;  // the call opens a handful

  std::bitset<kHighest> m_before;
};

// A stream over the file of an upload, for SetFp. The file is opened by the first seek or read
// where Open has not done so, so that it may come into being after the stream. Sent may be called
// from any thread.
class UploadStream {
 public:
  // `opened` is called with the file's size, once, before anything is read. Throws std::bad_alloc
  // when there is no stream to be had.
  UploadStream(std::string path, std::function<void(std::uint64_t)> opened);

  FILE* Stream() const { return m_stream.get(); }

  // False when the file cannot be opened, and when it could not.
  bool Open();
  bool Failed() const { return m_failed; }

  // Of the file's bytes, those that have left for the server. Counted are bytes that the other end
  // of the connection (a proxy's, where there is one) has acknowledged since the first byte of the
  // file was read: neither what was read ahead nor what waits in libcurl or in the kernel. TLS
  // frames count as well, so that the figure may run ahead by a few bytes in a thousand, but never
  // beyond what was read.
  Progress Sent();

  // The server's answer says that it has all of it.
  void Complete() { m_sent = m_size.load(); }

 private:
  struct Callbacks;
  struct Close {
    void operator()(FILE* stream) const { (void)std::fclose(stream); }
  };

  const std::string m_path;
  const std::function<void(std::uint64_t)> m_opened;
  const NewDescriptors m_descriptors;
  int m_fd = -1;
  std::atomic<bool> m_failed{false};
  std::atomic<bool> m_ready{false};        // the file is open
  std::atomic<std::uint64_t> m_size{0};    // of the file
  std::atomic<std::uint64_t> m_read{0};    // bytes of it
  std::atomic<std::uint64_t> m_handed{0};  // to the connection before the first of them
  std::atomic<std::uint64_t> m_sent{0};    // of m_read; the connection is closed in the end
  std::unique_ptr<char[]> m_buffer;        // outlives the stream
  std::unique_ptr<FILE, Close> m_stream;
};

#endif  // LUM_LUMCURL_PROGRESS_H

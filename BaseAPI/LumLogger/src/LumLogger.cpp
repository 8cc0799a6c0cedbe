// The process's logger: level, formatting, and the two ways out, standard error through spdlog and
// the caller's sink.

#include "LumLogger.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/base_sink.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "LumSafeText.h"

namespace {

// Longer messages than this, terminator included, are formatted on the heap.
constexpr std::size_t kStackMessage = 1024;

// Set while this thread holds the state's lock and runs the sink. What it logs meanwhile must take
// neither the lock nor the sink again.
thread_local bool t_runsSink = false;

const char* OrEmpty(const char* text) {
  return text != nullptr ? text : "";
}

// So that a record stays one line and no message of a server's drives the reader's terminal.
void AppendVisible(spdlog::string_view_t text, spdlog::memory_buf_t& line) {
  LumAppendSafeText(text.data(), text.size(), "\t", line);
}

// The layout "file:line function level message".
class LineFormatter final : public spdlog::formatter {
 public:
  void format(const spdlog::details::log_msg& record, spdlog::memory_buf_t& line) override {
    AppendVisible(record.source.filename, line);
    fmt::format_to(std::back_inserter(line), ":{} ", record.source.line);
    AppendVisible(record.source.funcname, line);
    fmt::format_to(std::back_inserter(line), " {} ", spdlog::level::to_string_view(record.level));
    AppendVisible(record.payload, line);
    line.push_back('\n');
  }

  std::unique_ptr<spdlog::formatter> clone() const override {
    return std::make_unique<LineFormatter>();
  }
};

// Holds back the SIGPIPE of a write to a pipe whose reader has gone: a log line must not end the
// process. A signal that was pending before stays pending.
class SigpipeGuard {
 public:
  SigpipeGuard() {
    sigset_t pending;
    sigpending(&pending);
    m_wasPending = sigismember(&pending, SIGPIPE) == 1;
    sigemptyset(&m_sigpipe);
    sigaddset(&m_sigpipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &m_sigpipe, &m_before);
  }

  ~SigpipeGuard() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

  // Call after a write that failed with EPIPE.
  void TakeSignal() {
    if (!m_wasPending) {
      const timespec now = {0, 0};  // waits for nothing, so nothing interrupts it
      sigtimedwait(&m_sigpipe, nullptr, &now);
    }
  }

  SigpipeGuard(const SigpipeGuard&) = delete;
  SigpipeGuard& operator=(const SigpipeGuard&) = delete;

 private:
  bool m_wasPending;
  sigset_t m_sigpipe;
  sigset_t m_before;
};

// spdlog's own standard-error sink leaves a line cut short when a write is interrupted or the
// descriptor does not block; this one writes the rest.
class StandardErrorSink final : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
 public:
  StandardErrorSink() : base_sink(std::make_unique<LineFormatter>()) {}

 protected:
  void sink_it_(const spdlog::details::log_msg& record) override {
    spdlog::memory_buf_t line;
    formatter_->format(record, line);
    SigpipeGuard guard;
    const char* next = line.data();
    std::size_t left = line.size();
    while (left > 0) {
      const ssize_t written = write(STDERR_FILENO, next, left);
      if (written >= 0) {
        next += written;
        left -= static_cast<std::size_t>(written);
      } else if (errno == EAGAIN) {
        pollfd standardError = {STDERR_FILENO, POLLOUT, 0};
        poll(&standardError, 1, -1);
      } else if (errno == EPIPE) {
        guard.TakeSignal();
        return;
      } else if (errno != EINTR) {
        return;
      }
    }
  }

  void flush_() override {}  // every line is written at once
};

spdlog::level::level_enum SpdlogLevel(int level) {
  switch (level) {
    case LumLogger::kError:
      return spdlog::level::err;
    case LumLogger::kWarning:
      return spdlog::level::warn;
    case LumLogger::kInfo:
      return spdlog::level::info;
    default:
      return spdlog::level::debug;
  }
}

}  // namespace

// Never destroyed, and neither is the logger that points to it.
struct LumLogger::State {
  State() : standardError("LumLogger", std::make_shared<StandardErrorSink>()) {
    standardError.set_level(spdlog::level::trace);
    standardError.set_error_handler([](const std::string&) {});
  }

  // A child of fork must not inherit the lock taken by a thread that it does not have.
  void KeepLockConsistentOverFork() {
    s_forFork = this;
    pthread_atfork(&State::BeforeFork, &State::AfterFork, &State::AfterFork);
  }

  void Write(const Record& record) {
    standardError.log(spdlog::source_loc(record.file, record.line, record.function),
                      SpdlogLevel(std::max(record.level, kError)),
                      spdlog::string_view_t(record.message, record.messageLength));
  }

  // Drops the record when there is no memory for it, or when the sink throws.
  void Deliver(const Record& record) noexcept {
    try {
      if (t_runsSink) {
        Write(record);
        return;
      }
      const std::lock_guard<std::mutex> lock(mutex);
      if (sink == nullptr) {
        Write(record);
      } else {
        t_runsSink = true;
        try {
          sink(record);
        } catch (...) {  // the record is dropped
        }
        t_runsSink = false;
      }
    } catch (...) {  // the record is dropped
    }
  }

  std::atomic<int> level{kInfo};
  std::mutex mutex;  // guards `sink`, its calls, and the order of lines on standard error
  Sink sink;
  spdlog::logger standardError;

 private:
  static void BeforeFork() {
    if (!t_runsSink) {
      s_forFork->mutex.lock();
    }
  }

  static void AfterFork() {
    if (!t_runsSink) {
      s_forFork->mutex.unlock();
    }
  }

  static State* s_forFork;
};

LumLogger::State* LumLogger::State::s_forFork = nullptr;

// A caller in C++11 may bind a reference to a level and then needs these definitions.
constexpr int LumLogger::kSilent;
constexpr int LumLogger::kError;
constexpr int LumLogger::kWarning;
constexpr int LumLogger::kInfo;

LumLogger::LumLogger() : m_state(new State) {
  m_state->KeepLockConsistentOverFork();
}

LumLogger& LumLogger::GetInstance() {
  static LumLogger* const instance = new LumLogger;
  return *instance;
}

void LumLogger::SetLevel(int level) {
  m_state->level.store(level, std::memory_order_relaxed);
}

void LumLogger::SetSink(Sink sink) {
  if (t_runsSink) {
    return;
  }
  // The old sink is destroyed after the lock is released: its destructor may log.
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  m_state->sink.swap(sink);
}

void LumLogger::Log(const char* file, int line, const char* function, const char* tag,
                    const char* detail, int level, const char* format, ...) {
  if (std::max(level, kError) > m_state->level.load(std::memory_order_relaxed)) {
    return;
  }
  const int errnoBefore = errno;

  char stack[kStackMessage];
  std::unique_ptr<char[]> heap;
  const char* message = stack;

  std::va_list arguments;
  va_start(arguments, format);
  std::va_list again;
  va_copy(again, arguments);
  int length = std::vsnprintf(stack, sizeof stack, OrEmpty(format), arguments);
  if (length >= static_cast<int>(sizeof stack)) {
    const std::size_t size = static_cast<std::size_t>(length) + 1;
    heap.reset(new (std::nothrow) char[size]);
    message = heap.get();
    if (message != nullptr) {
      errno = errnoBefore;  // for "%m"
      length = std::vsnprintf(heap.get(), size, OrEmpty(format), again);
    }
  }
  va_end(again);
  va_end(arguments);

  if (length < 0) {  // an argument that cannot be written; the format itself still says where
    message = OrEmpty(format);
    length = static_cast<int>(std::char_traits<char>::length(message));
  }
  if (message != nullptr) {
    m_state->Deliver(Record{OrEmpty(file), line, OrEmpty(function), OrEmpty(tag), OrEmpty(detail),
                            level, message, static_cast<std::size_t>(length)});
  }
  errno = errnoBefore;
}

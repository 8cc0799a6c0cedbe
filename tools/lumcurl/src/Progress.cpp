#include "Progress.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <utility>

#include "FileDescriptor.h"
#include "Interrupt.h"
#include "Text.h"

namespace {

constexpr std::chrono::milliseconds kInterval{200};

}  // namespace

// --- ProgressMeter ---

std::string ProgressLine(const Progress& progress, double seconds) {
  const auto bytes = static_cast<double>(progress.bytes);
  if (progress.packing) {
    return progress.bytes == 0 ? "packing" : "packing, " + HumanBytes(bytes);
  }
  const auto total = static_cast<double>(progress.total);
  std::string line = HumanBytes(bytes);
  if (progress.total != 0) {
    line += " of " + HumanBytes(total) + ", " +
            std::to_string(static_cast<int>(std::floor(100 * bytes / total))) + " %";
  }
  if (seconds <= 0) {
    return line;
  }
  const double rate = bytes / seconds;
  line += ", " + HumanBytes(rate) + "/s";
  if (progress.bytes < progress.total && rate > 0) {
    line += ", " + HumanTime((total - bytes) / rate) + " left";
  }
  return line;
}

ProgressMeter::ProgressMeter(Console& console, std::function<Progress()> progress)
    : m_console(console), m_progress(std::move(progress)) {
  if (m_console.ShowsProgress()) {
    Show();
    const SignalsElsewhere block;
    m_thread = std::thread(&ProgressMeter::Run, this);
  }
}

ProgressMeter::~ProgressMeter() {
  if (!m_thread.joinable()) {
    return;
  }
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_done = true;
  }
  m_wake.notify_one();
  m_thread.join();
  if (m_finished) {
    Show();
  }
  m_console.EndProgress();
}

void ProgressMeter::Run() {
  std::unique_lock<std::mutex> lock(m_mutex);
  while (!m_wake.wait_for(lock, kInterval, [this] { return m_done; })) {
    Show();
  }
}

void ProgressMeter::Show() {
  const Progress progress = m_progress();
  const auto now = std::chrono::steady_clock::now();
  if (!m_start && !progress.packing) {
    m_start = now;
  }
  const std::chrono::duration<double> elapsed = now - m_start.value_or(now);
  m_console.ShowProgress(ProgressLine(progress, elapsed.count()));
}

// --- EscapedStdout ---

EscapedStdout::EscapedStdout() {
  std::array<int, 2> ends{};
  if (isatty(STDOUT_FILENO) != 1 || std::fflush(stdout) != 0 ||
      pipe2(ends.data(), O_CLOEXEC) != 0) {
    return;
  }
  m_pipe = ends[0];
  m_terminal = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  dup2(ends[1], STDOUT_FILENO);
  close(ends[1]);
  const SignalsElsewhere block;
  m_thread = std::thread(&EscapedStdout::Run, this);
}

EscapedStdout::~EscapedStdout() {
  if (!m_thread.joinable()) {
    return;
  }
  (void)std::fflush(stdout);
  dup2(m_terminal, STDOUT_FILENO);  // closes the pipe's other end: the thread comes to its end
  m_thread.join();
  close(m_terminal);
  close(m_pipe);
}

void EscapedStdout::Run() const {
  TerminalEscaper escaper;
  const auto show = [this](const std::string& text) {
    (void)WriteAll(m_terminal, text.data(), text.size());  // fails when the terminal is gone
  };
  std::array<char, 4096> buffer;
  char last = '\n';
  for (;;) {
    const ssize_t count = read(m_pipe, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      break;
    }
    const auto size = static_cast<std::size_t>(count);
    show(escaper.Feed(buffer.data(), size));
    last = buffer[size - 1];
  }
  show(escaper.Flush() + (last == '\n' ? "" : "\n"));
}

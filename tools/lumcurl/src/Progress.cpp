#include "Progress.h"

#include <unistd.h>

#include <cmath>
#include <utility>

#include "Interrupt.h"

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
  const cookie_io_functions_t functions = {nullptr, &Write, nullptr, nullptr};
  FILE* escaping = isatty(STDOUT_FILENO) == 1 ? fopencookie(this, "w", functions) : nullptr;
  if (escaping != nullptr) {
    m_terminal = std::exchange(stdout, escaping);
  }
}

EscapedStdout::~EscapedStdout() {
  if (m_terminal == nullptr) {
    return;
  }
  (void)std::fclose(stdout);
  stdout = m_terminal;
  const std::string rest = m_escaper.Flush() + (m_last == '\n' ? "" : "\n");
  (void)std::fwrite(rest.data(), 1, rest.size(), stdout);
  (void)std::fflush(stdout);
}

// As fopencookie(3) has it. When the terminal is gone there is nobody to tell.
ssize_t EscapedStdout::Write(void* cookie, const char* bytes, std::size_t size) {
  auto* self = static_cast<EscapedStdout*>(cookie);
  const std::string text = self->m_escaper.Feed(bytes, size);
  (void)std::fwrite(text.data(), 1, text.size(), self->m_terminal);
  self->m_last = bytes[size - 1];
  return static_cast<ssize_t>(size);
}

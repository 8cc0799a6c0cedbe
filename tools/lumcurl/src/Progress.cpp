// Progress of a transfer on a terminal.

#include "Progress.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <new>
#include <utility>

#include "Interrupt.h"
#include "Text.h"

namespace {

constexpr std::chrono::milliseconds kInterval{200};
constexpr std::size_t kStreamBuffer = std::size_t{256} * 1024;

void WriteAll(int fd, const std::string& text) {
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t count = write(fd, text.data() + written, text.size() - written);
    if (count < 0 && errno != EINTR) {
      return;  // the terminal is gone
    }
    written += count > 0 ? static_cast<std::size_t>(count) : 0;
  }
}

}  // namespace

// --- ProgressMeter ---

ProgressMeter::ProgressMeter(Console& console, std::function<std::uint64_t()> bytes)
    : m_console(console), m_bytes(std::move(bytes)), m_start(std::chrono::steady_clock::now()) {
  if (m_console.ShowsProgress()) {
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
  Show();
  m_console.EndProgress();
}

void ProgressMeter::Run() {
  std::unique_lock<std::mutex> lock(m_mutex);
  while (!m_wake.wait_for(lock, kInterval, [this] { return m_done; })) {
    Show();
  }
}

void ProgressMeter::Show() const {
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - m_start;
  const auto bytes = static_cast<double>(m_bytes());
  const double rate = elapsed.count() > 0 ? bytes / elapsed.count() : 0;
  m_console.ShowProgress(HumanBytes(bytes) + ", " + HumanBytes(rate) + "/s");
}

// --- CountingFile ---

// The functions of a cookie stream, fopencookie(3).
struct CountingFile::Callbacks {
  static ssize_t Read(void* cookie, char* buffer, std::size_t size) {
    auto* file = static_cast<CountingFile*>(cookie);
    if (!file->Open()) {
      return -1;
    }
    ssize_t count = 0;
    do {
      count = read(file->m_fd, buffer, size);
    } while (count < 0 && errno == EINTR);
    if (count > 0) {
      file->m_bytes += static_cast<std::uint64_t>(count);
    }
    return count;
  }

  static int Seek(void* cookie, off64_t* offset, int whence) {
    auto* file = static_cast<CountingFile*>(cookie);
    if (!file->Open()) {
      return -1;
    }
    const off64_t position = lseek64(file->m_fd, *offset, whence);
    if (position < 0) {
      return -1;
    }
    struct stat status = {};
    if (fstat(file->m_fd, &status) == 0) {
      file->m_size = static_cast<std::uint64_t>(status.st_size);
    }
    file->m_bytes = 0;
    *offset = position;
    return 0;
  }

  static int Close(void* cookie) {
    auto* file = static_cast<CountingFile*>(cookie);
    return file->m_fd < 0 ? 0 : close(file->m_fd);
  }
};

CountingFile::CountingFile(std::string path)
    : m_path(std::move(path)), m_buffer(new char[kStreamBuffer]) {
  const cookie_io_functions_t functions = {&Callbacks::Read, nullptr, &Callbacks::Seek,
                                           &Callbacks::Close};
  m_stream.reset(fopencookie(this, "rb", functions));
  if (!m_stream) {
    throw std::bad_alloc();
  }
  (void)std::setvbuf(m_stream.get(), m_buffer.get(), _IOFBF, kStreamBuffer);
}

CountingFile::~CountingFile() = default;

bool CountingFile::Open() {
  if (m_fd < 0) {
    m_fd = open(m_path.c_str(), O_RDONLY | O_CLOEXEC);
  }
  return m_fd >= 0;
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
    WriteAll(m_terminal, escaper.Feed(buffer.data(), size));
    last = buffer[size - 1];
  }
  WriteAll(m_terminal, escaper.Flush() + (last == '\n' ? "" : "\n"));
}

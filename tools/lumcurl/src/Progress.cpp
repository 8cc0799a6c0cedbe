#include "Progress.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <new>
#include <utility>

#include "Interrupt.h"

namespace {

constexpr std::chrono::milliseconds kInterval{200};

constexpr std::size_t kStreamBuffer = std::size_t{64} * 1024;

// What the other end of a TCP connection has acknowledged.
std::uint64_t AcknowledgedOn(int fd) {
  tcp_info info = {};
  socklen_t size = sizeof(info);
  const bool hasCount =
      getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &size) == 0 &&
      size >= offsetof(tcp_info, tcpi_bytes_acked) + sizeof(info.tcpi_bytes_acked);
  return hasCount ? info.tcpi_bytes_acked : 0;
}

// What it has been given: the kernel may still hold some, unsent or unacknowledged.
std::uint64_t HandedOverOn(int fd) {
  const std::uint64_t acknowledged = AcknowledgedOn(fd);
  int queued = 0;
  return acknowledged > 0 && ioctl(fd, SIOCOUTQ, &queued) == 0
             ? acknowledged + static_cast<std::uint64_t>(queued)
             : acknowledged;
}

// The size of a regular file that is being written.
std::uint64_t WrittenTo(int fd) {
  struct stat status = {};
  return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) &&
                 (fcntl(fd, F_GETFL) & O_ACCMODE) != O_RDONLY
             ? static_cast<std::uint64_t>(status.st_size)
             : 0;
}

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

// --- NewDescriptors ---

NewDescriptors::NewDescriptors() {
  for (int fd = 0; fd < kHighest; ++fd) {
    m_before[static_cast<std::size_t>(fd)] = fcntl(fd, F_GETFD) >= 0;
  }
}

std::uint64_t NewDescriptors::Sum(std::uint64_t (*measure)(int fd)) const {
  std::uint64_t sum = 0;
  for (int fd = 0; fd < kHighest; ++fd) {
    sum += m_before[static_cast<std::size_t>(fd)] ? 0 : measure(fd);
  }
  return sum;
}

// --- UploadStream ---

// The functions of a cookie stream, fopencookie(3).
struct UploadStream::Callbacks {
  static ssize_t Read(void* cookie, char* buffer, std::size_t size) {
    auto* file = static_cast<UploadStream*>(cookie);
    if (!file->Open()) {
      return -1;
    }
    if (file->m_read == 0) {
      file->m_handed = file->m_descriptors.Sum(&HandedOverOn);
    }
    ssize_t count = 0;
    do {
      count = read(file->m_fd, buffer, size);
    } while (count < 0 && errno == EINTR);
    if (count > 0) {
      file->m_read += static_cast<std::uint64_t>(count);
    }
    return count;
  }

  static int Seek(void* cookie, off64_t* offset, int whence) {
    auto* file = static_cast<UploadStream*>(cookie);
    if (!file->Open()) {
      return -1;
    }
    const off64_t position = lseek64(file->m_fd, *offset, whence);
    if (position < 0) {
      return -1;
    }
    file->m_read = 0;
    file->m_sent = 0;
    *offset = position;
    return 0;
  }

  static int Close(void* cookie) {
    auto* file = static_cast<UploadStream*>(cookie);
    return file->m_fd < 0 ? 0 : close(file->m_fd);
  }
};

UploadStream::UploadStream(std::string path, std::function<void(std::uint64_t)> opened)
    : m_path(std::move(path)), m_opened(std::move(opened)), m_buffer(new char[kStreamBuffer]) {
  const cookie_io_functions_t functions = {&Callbacks::Read, nullptr, &Callbacks::Seek,
                                           &Callbacks::Close};
  m_stream.reset(fopencookie(this, "rb", functions));
  if (!m_stream) {
    throw std::bad_alloc();
  }
  (void)std::setvbuf(m_stream.get(), m_buffer.get(), _IOFBF, kStreamBuffer);
}

Progress UploadStream::Sent() {
  if (!m_ready) {
    return {true, m_descriptors.Sum(&WrittenTo), 0};
  }
  const std::uint64_t acknowledged = m_descriptors.Sum(&AcknowledgedOn);
  const std::uint64_t handed = m_handed;
  if (acknowledged > handed) {
    m_sent = std::max(m_sent.load(), std::min(acknowledged - handed, m_read.load()));
  }
  return {false, m_sent, m_size};
}

bool UploadStream::Open() {
  if (m_fd >= 0) {
    return true;
  }
  m_fd = open(m_path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status = {};
  if (m_fd < 0 || fstat(m_fd, &status) != 0) {
    m_failed = true;
    return false;
  }
  m_size = static_cast<std::uint64_t>(status.st_size);
  m_ready = true;
  m_opened(m_size);
  return true;
}

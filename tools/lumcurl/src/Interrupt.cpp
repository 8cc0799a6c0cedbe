// What happens when the user interrupts a command. The handler uses async-signal-safe functions
// only, signal-safety(7).

#include "Interrupt.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "Failure.h"

namespace {

constexpr std::array<int, 3> kSignals = {SIGINT, SIGTERM, SIGHUP};

// Absolute paths for the handler; an empty text: none. Each is filled before its flag is raised.
std::array<char, PATH_MAX> archivePath;
std::array<char, PATH_MAX> directoryPath;
std::atomic<bool> hasArchive{false};
std::atomic<bool> hasDirectory{false};

constexpr int kDescriptors = 256;  // the process opens a handful

// Writes the decimal digits of a descriptor behind "/proc/self/fd/".
const char* DescriptorPath(std::array<char, 32>& buffer, int fd) {
  static constexpr char kPrefix[] = "/proc/self/fd/";
  std::memcpy(buffer.data(), kPrefix, sizeof(kPrefix));
  std::size_t end = sizeof(kPrefix) - 1;
  for (int scale = 100; scale > 0; scale /= 10) {
    if (fd >= scale || scale == 1) {
      buffer[end++] = static_cast<char>('0' + fd / scale % 10);
    }
  }
  buffer[end] = '\0';
  return buffer.data();
}

// Removes the files that this process is writing in the archive's directory.
void RemoveUnfinished() {
  const char* slash = std::strrchr(archivePath.data(), '/');
  const auto directoryLength = static_cast<std::size_t>(slash + 1 - archivePath.data());
  std::array<char, 32> link{};
  std::array<char, PATH_MAX> target;
  for (int fd = STDERR_FILENO + 1; fd < kDescriptors; ++fd) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || (flags & O_ACCMODE) != O_WRONLY) {
      continue;
    }
    const ssize_t length = readlink(DescriptorPath(link, fd), target.data(), target.size() - 1);
    if (length <= static_cast<ssize_t>(directoryLength)) {
      continue;
    }
    target[static_cast<std::size_t>(length)] = '\0';
    if (std::memcmp(target.data(), archivePath.data(), directoryLength) == 0 &&
        std::strchr(target.data() + directoryLength, '/') == nullptr) {
      unlink(target.data());
    }
  }
}

void OnSignal(int number) {
  static constexpr char kText[] = "\nlumcurl: interrupted\n";
  if (hasArchive) {
    RemoveUnfinished();
    unlink(archivePath.data());
  }
  if (hasDirectory) {
    rmdir(directoryPath.data());
  }
  (void)!write(STDERR_FILENO, kText, sizeof(kText) - 1);
  _exit(128 + number);
}

// Copies an absolute path into a buffer of the handler.
void Store(std::array<char, PATH_MAX>& buffer, std::atomic<bool>& flag, const std::string& path) {
  if (path.size() < buffer.size()) {
    std::memcpy(buffer.data(), path.c_str(), path.size() + 1);
    flag = true;
  }
}

}  // namespace

void HandleInterrupts() {
  struct sigaction ignore = {};
  ignore.sa_handler = SIG_IGN;
  (void)sigaction(SIGPIPE, &ignore, nullptr);
  struct sigaction handle = {};
  handle.sa_handler = &OnSignal;
  for (const int number : kSignals) {
    sigaddset(&handle.sa_mask, number);
  }
  for (const int number : kSignals) {
    struct sigaction before = {};
    if (sigaction(number, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {
      (void)sigaction(number, &handle, nullptr);
    }
  }
}

TemporaryArchive::TemporaryArchive(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  // The kernel names open files by their real path.
  std::array<char, PATH_MAX> real;
  if (realpath(directory.c_str(), real.data()) != nullptr) {
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const std::string parent = real.data();
    Store(archivePath, hasArchive, parent + (parent == "/" ? "" : "/") + name);
  }
}

TemporaryArchive::~TemporaryArchive() {
  hasArchive = false;
}

TemporaryDirectory::TemporaryDirectory() {
  const char* parent = std::getenv("TMPDIR");
  m_path = std::string(parent == nullptr || *parent == '\0' ? "/tmp" : parent) + "/lumcurl-XXXXXX";
  const SignalsElsewhere block;  // until the handler knows the directory
  if (mkdtemp(m_path.data()) == nullptr) {
    throw Failure(Exit::kFile, "cannot make a directory '" + m_path + "': " + std::strerror(errno) +
                                   "; give --archive BASE");
  }
  std::array<char, PATH_MAX> real;
  if (realpath(m_path.c_str(), real.data()) != nullptr) {
    Store(directoryPath, hasDirectory, real.data());
  }
}

TemporaryDirectory::~TemporaryDirectory() {
  rmdir(m_path.c_str());
  hasDirectory = false;
}

SignalsElsewhere::SignalsElsewhere() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : kSignals) {
    sigaddset(&signals, number);
  }
  (void)pthread_sigmask(SIG_BLOCK, &signals, &m_before);
}

SignalsElsewhere::~SignalsElsewhere() {
  (void)pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
}

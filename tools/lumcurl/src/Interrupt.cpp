// What happens when the user interrupts a command. The handler uses async-signal-safe functions
// only, signal-safety(7). It removes nothing but what lies in a directory that this process made
// for itself: beside a user's files it could not tell its own from others.

#include "Interrupt.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "Failure.h"
#include "LumSafeText.h"
#include "Text.h"

namespace {

constexpr std::array<int, 3> kSignals = {SIGINT, SIGTERM, SIGHUP};

// Texts for the handler. Each is filled before its flag is raised.
std::array<char, PATH_MAX> keptArchive;
struct stat replacedFile = {};  // zeros when there is none
std::array<char, std::size_t{2} * PATH_MAX> keptMessage;
std::atomic<bool> hasKept{false};
std::array<char, PATH_MAX> temporaryDirectory;
std::array<char, PATH_MAX> temporaryArchive;
std::atomic<bool> hasTemporary{false};

bool onTerminal = false;  // set before there is a handler

void Say(const char* text) {
  (void)!write(STDERR_FILENO, text, std::strlen(text));
}

// Whether the archive is there, and not still the file that it replaces.
bool IsMade() {
  struct stat status = {};
  return lstat(keptArchive.data(), &status) == 0 &&
         (status.st_ino != replacedFile.st_ino || status.st_dev != replacedFile.st_dev);
}

void OnSignal(int number) {
  // Behind a progress line, or behind the "^C" that the terminal shows.
  Say(onTerminal ? "\nlumcurl: interrupted\n" : "lumcurl: interrupted\n");
  if (hasTemporary) {
    unlink(temporaryArchive.data());
    rmdir(temporaryDirectory.data());
  } else if (hasKept && IsMade()) {
    Say(keptMessage.data());
  }
  (void)raise(number);  // blocked until the handler returns; its action is the default one again
}

template <std::size_t size>
bool Store(std::array<char, size>& buffer, const std::string& text) {
  if (text.size() >= size) {
    return false;
  }
  std::memcpy(buffer.data(), text.c_str(), text.size() + 1);
  return true;
}

sigset_t Signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : kSignals) {
    sigaddset(&signals, number);
  }
  return signals;
}

}  // namespace

void HandleInterrupts() {
  onTerminal = isatty(STDERR_FILENO) == 1;
  struct sigaction ignore = {};
  ignore.sa_handler = SIG_IGN;
  (void)sigaction(SIGPIPE, &ignore, nullptr);
  struct sigaction handle = {};
  handle.sa_handler = &OnSignal;
  handle.sa_flags = static_cast<int>(SA_RESETHAND);
  handle.sa_mask = Signals();
  for (const int number : kSignals) {
    struct sigaction before = {};
    if (sigaction(number, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {
      (void)sigaction(number, &handle, nullptr);
    }
  }
}

ArchiveNote::ArchiveNote(const std::string& path) {
  if (lstat(path.c_str(), &replacedFile) != 0) {
    replacedFile = {};
  }
  hasKept = Store(keptArchive, path) &&
            Store(keptMessage, "lumcurl: the archive is kept: send it with upload-log, or remove " +
                                   LumSafeText(Quoted(path)) + "\n");
}

ArchiveNote::~ArchiveNote() {
  hasKept = false;
}

TemporaryDirectory::TemporaryDirectory() {
  const std::string parent = Environment("TMPDIR");
  m_path = (parent.empty() ? "/tmp" : parent) + "/lumcurl-XXXXXX";
  const SignalsElsewhere block;  // until the handler knows the directory
  if (mkdtemp(m_path.data()) == nullptr) {
    throw Failure(Exit::kFile, "cannot make a directory '" + m_path + "': " + std::strerror(errno) +
                                   "; give --archive BASE");
  }
  m_archive = m_path + "/group.tar.gz";
  hasTemporary = Store(temporaryDirectory, m_path) && Store(temporaryArchive, m_archive);
}

TemporaryDirectory::~TemporaryDirectory() {
  unlink(m_archive.c_str());
  rmdir(m_path.c_str());
  hasTemporary = false;
}

SignalsElsewhere::SignalsElsewhere() {
  const sigset_t signals = Signals();
  (void)pthread_sigmask(SIG_BLOCK, &signals, &m_before);
}

SignalsElsewhere::~SignalsElsewhere() {
  (void)pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
}

// What happens when the user interrupts a command.

#ifndef LUM_LUMCURL_INTERRUPT_H
#define LUM_LUMCURL_INTERRUPT_H

#include <signal.h>

#include <string>

// From now on SIGINT, SIGTERM and SIGHUP end the process with 128 and the signal's number, after
// removing what a TemporaryArchive names. A signal that the process was started to ignore stays
// ignored. SIGPIPE is ignored: a peer that is gone shows as an error.
void HandleInterrupts();

// While it lives, an interrupted process removes the archive at `path` and every file that it is
// writing in the same directory: an archive is made beside its final name. One at a time.
class TemporaryArchive {
 public:
  explicit TemporaryArchive(const std::string& path);
  ~TemporaryArchive();
  TemporaryArchive(const TemporaryArchive&) = delete;
  TemporaryArchive& operator=(const TemporaryArchive&) = delete;
};

// A new directory for an archive, under $TMPDIR or /tmp, removed at the end if it is empty; an
// interrupted process removes it too. One at a time.
class TemporaryDirectory {
 public:
  // Throws Failure kFile.
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  const std::string& Path() const { return m_path; }

 private:
  std::string m_path;
};

// While it lives, the calling thread blocks the signals above, and so do threads that it starts:
// the handler then runs on the main thread, which so makes no further file.
class SignalsElsewhere {
 public:
  SignalsElsewhere();
  ~SignalsElsewhere();
  SignalsElsewhere(const SignalsElsewhere&) = delete;
  SignalsElsewhere& operator=(const SignalsElsewhere&) = delete;

 private:
  sigset_t m_before;
};

#endif  // LUM_LUMCURL_INTERRUPT_H

// What happens when the user interrupts a command.

#ifndef LUM_LUMCURL_INTERRUPT_H
#define LUM_LUMCURL_INTERRUPT_H

#include <signal.h>

#include <string>

// From now on SIGINT, SIGTERM and SIGHUP say so on standard error, remove a TemporaryDirectory, and
// then end the process by their default action: a shell sees the signal, and ends its loop. A
// signal that the process was started to ignore stays ignored. SIGPIPE is ignored: a peer that is
// gone shows as an error.
void HandleInterrupts();

// While it lives, an interrupted process names the archive at `path`, once it has been made: it
// stays. A file that was there before is not it. One at a time.
class ArchiveNote {
 public:
  explicit ArchiveNote(const std::string& path);
  ~ArchiveNote();
  ArchiveNote(const ArchiveNote&) = delete;
  ArchiveNote& operator=(const ArchiveNote&) = delete;
};

// A new directory for an archive, under $TMPDIR or /tmp, that nobody else can open. It is removed
// at the end, with the archive if that is still there; an interrupted process does so too. One at a
// time.
class TemporaryDirectory {
 public:
  // Throws Failure kFile.
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  // The path of its one file, an archive.
  const std::string& Archive() const { return m_archive; }

 private:
  std::string m_path;
  std::string m_archive;
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

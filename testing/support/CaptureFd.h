// Catches what the process writes to standard output or standard error.

#ifndef LUM_TESTING_SUPPORT_CAPTUREFD_H
#define LUM_TESTING_SUPPORT_CAPTUREFD_H

#include <optional>
#include <string>

#include "support/Files.h"

namespace lumtest {

// From construction to Stop() or destruction, what any code of the process (and any child started
// meanwhile) writes to a descriptor goes into a file without a name. The C and C++ streams of that
// descriptor are flushed at both ends, so that nothing is attributed to the wrong side.
//
// One capture of a descriptor at a time; construction and Stop are for one thread, while others may
// go on writing. Throws std::runtime_error.
class CaptureFd {
 public:
  explicit CaptureFd(int descriptor);
  ~CaptureFd();
  CaptureFd(const CaptureFd&) = delete;
  CaptureFd& operator=(const CaptureFd&) = delete;

  // What has been written so far.
  std::string Text() const;

  // The same, and forgets it. Not after Stop.
  std::string Take();

  // Ends the capture and returns all that was written; the same text again when called again.
  std::string Stop();

 private:
  const int m_descriptor;
  FileDescriptor m_saved;
  std::optional<UnnamedFile> m_file;
  std::string m_text;
};

// Standard output: the descriptor, C's stdout and C++'s std::cout.
class CaptureStdout : public CaptureFd {
 public:
  CaptureStdout() : CaptureFd(1) {}
};

class CaptureStderr : public CaptureFd {
 public:
  CaptureStderr() : CaptureFd(2) {}
};

}  // namespace lumtest

#endif  // LUM_TESTING_SUPPORT_CAPTUREFD_H

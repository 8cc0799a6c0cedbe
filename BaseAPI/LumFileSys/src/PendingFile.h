// A file that appears under its name only when it is complete.

#ifndef LUM_FILE_SYS_PENDING_FILE_H
#define LUM_FILE_SYS_PENDING_FILE_H

#include <string>

#include "Posix.h"

namespace lumfilesys {

// Until then it has no name at all, so that nothing is left of it however the process ends. Where
// the file system knows no such files, or /proc is not there to name them by, it has a temporary
// name beside the final one. Thread safety: one thread at a time. Failures are thrown.
class PendingFile {
 public:
  // Creates an empty file in the directory of `path`, for its owner's eyes only.
  explicit PendingFile(const std::string& path);
  // Removes what was not committed.
  ~PendingFile();
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;

  int Fd() const { return m_file.Get(); }

  // Gives the file its final name, in place of what has that name now.
  void Commit();

  // Whether `name` in the directory with this status is this file, under either of its names.
  bool IsAt(const struct stat& directory, const char* name) const;

 private:
  bool Link(const std::string& name);

  Descriptor m_directory;
  struct stat m_directoryStatus;
  std::string m_name;
  std::string m_temporaryName;  // empty when there is none
  Descriptor m_file;
};

}  // namespace lumfilesys

#endif  // LUM_FILE_SYS_PENDING_FILE_H

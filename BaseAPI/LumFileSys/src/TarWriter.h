// Members of a tar archive, one after the other, through a gzip stream.

#ifndef LUM_FILE_SYS_TAR_WRITER_H
#define LUM_FILE_SYS_TAR_WRITER_H

#include <string>

#include "GzipWriter.h"
#include "Posix.h"

struct archive;
struct archive_entry;

namespace lumfilesys {

// Thread safety: one thread at a time. Failures are thrown.
class TarWriter {
 public:
  // Writes the compressed archive to `fd`, which stays the caller's.
  explicit TarWriter(int fd);
  ~TarWriter();
  TarWriter(const TarWriter&) = delete;
  TarWriter& operator=(const TarWriter&) = delete;

  // Adds the regular file `file` of that status, from where it stands, under `name`: as many bytes
  // as the status says. A file that has become longer or shorter since is worth a line in the log,
  // and what is missing is filled up with zero bytes.
  void AddFile(const std::string& name, const Descriptor& file, const struct stat& status);

  // Adds a directory; its members follow as members of their own.
  void AddDirectory(const std::string& name, const struct stat& status);

  // Adds a symbolic link that points to `target`.
  void AddLink(const std::string& name, const char* target, const struct stat& status);

  // Ends the archive. Nothing may be added any more.
  void Finish();

 private:
  void StartEntry(const std::string& name, const struct stat& status);
  void WriteHeader();
  void Check(int result);

  int m_error = 0;  // why the compressed stream could not be written
  GzipWriter m_gzip;
  archive* m_archive;
  archive_entry* m_entry;
};

}  // namespace lumfilesys

#endif  // LUM_FILE_SYS_TAR_WRITER_H

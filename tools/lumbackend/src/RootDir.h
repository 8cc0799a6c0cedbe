// Files beneath one directory, reached by names that strangers choose.
#ifndef LUM_BACKEND_ROOT_DIR_H
#define LUM_BACKEND_ROOT_DIR_H

#include <cstdint>
#include <string>
#include <vector>

#include "FileDescriptor.h"

// A regular file that has been opened for reading, or the errno value that says why not.
struct OpenedFile {
  FileDescriptor file;
  std::uint64_t size = 0;  // bytes
  int error = 0;           // 0: `file` is open
};

// One directory and what lies beneath it. Paths are lists of plain names and every step is taken
// with openat() and without following a symbolic link, so no name leads out, also not while
// somebody renames things. The directory's own path may hold symbolic links.
// Safe for several threads at once.
class RootDir {
 public:
  // Makes the directory with its parents where it is missing. Throws std::runtime_error naming
  // the path when that fails.
  explicit RootDir(const std::string& path);

  // True for a name that means an entry of a directory: not empty, not "." or "..", without '/'
  // and zero byte, 255 bytes at most.
  static bool IsPlainName(const std::string& name);

  // Opens the regular file at `names`. Errors: EINVAL for a name that is not plain or an empty
  // list, ELOOP for a symbolic link, EISDIR for anything that is no regular file, else errno of
  // the call that failed.
  OpenedFile Open(const std::vector<std::string>& names) const;

  // Opens the directory that is to hold the last of `names` and makes the ones on the way when
  // `create` is set. Returns an empty descriptor with errno set as above.
  FileDescriptor OpenParent(const std::vector<std::string>& names, bool create) const;

  int Get() const { return m_directory.Get(); }
  const std::string& Path() const { return m_path; }

 private:
  std::string m_path;
  FileDescriptor m_directory;
};

#endif  // LUM_BACKEND_ROOT_DIR_H

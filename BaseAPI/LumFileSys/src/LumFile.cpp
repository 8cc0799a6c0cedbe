// Removal of files.

#include <unistd.h>

#include <cerrno>

#include "LumFileSys.h"

int LumFile::RemoveFile(const std::string& path) {
  if (path.find('\0') != std::string::npos) {
    errno = EINVAL;  // the system would take the part before it
    return -1;
  }
  return unlink(path.c_str());
}

// Checks of paths.

#include <sys/stat.h>

#include <climits>
#include <cstring>

#include "LumFileSys.h"

bool LumDir::LumRealPath(const char* path, int length) {
  if (path == nullptr || length <= 0 || length >= PATH_MAX ||
      std::memchr(path, '\0', static_cast<std::size_t>(length)) != nullptr) {
    return false;
  }
  char text[PATH_MAX];
  std::memcpy(text, path, static_cast<std::size_t>(length));
  text[length] = '\0';

  struct stat status;
  if (stat(text, &status) == 0 && S_ISDIR(status.st_mode)) {
    return false;
  }
  const char* directory = ".";
  char* const slash = std::strrchr(text, '/');
  if (slash != nullptr) {
    // The slash stays: of "/file" it is the directory, and elsewhere it does no harm.
    slash[1] = '\0';
    directory = text;
  }
  return stat(directory, &status) == 0 && S_ISDIR(status.st_mode);
}

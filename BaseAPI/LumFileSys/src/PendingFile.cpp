#include "PendingFile.h"

#include <sys/random.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>

namespace {

// Short, so that it fits wherever the final name fits, however long that is.
std::string TemporaryName() {
  std::uint64_t number = 0;
  if (getrandom(&number, sizeof number, 0) != static_cast<ssize_t>(sizeof number)) {
    Fail(errno);
  }
  char name[sizeof ".lum-archive-" + 16];
  (void)std::snprintf(name, sizeof name, ".lum-archive-%016" PRIx64, number);
  return name;
}

}  // namespace

PendingFile::PendingFile(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const bool inWorkingDirectory = slash == std::string::npos;
  const std::string directory = inWorkingDirectory ? "." : path.substr(0, slash + 1);
  m_name = inWorkingDirectory ? path : path.substr(slash + 1);
  // Held open, so that the file is renamed where it was made even if the directory moves meanwhile.
  m_directory = Descriptor(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  m_directoryStatus = StatusOf(m_directory);
  int fd = -1;
  do {
    m_temporaryName = TemporaryName();
    fd = openat(m_directory.Get(), m_temporaryName.c_str(),
                O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
  } while (fd < 0 && errno == EEXIST);
  m_file = Descriptor(fd);
}

PendingFile::~PendingFile() {
  if (!m_temporaryName.empty()) {
    unlinkat(m_directory.Get(), m_temporaryName.c_str(), 0);
  }
}

void PendingFile::Commit() {
  // Some file systems tell of a full disk only now.
  if (close(m_file.Release()) != 0) {
    Fail(errno);
  }
  if (renameat(m_directory.Get(), m_temporaryName.c_str(), m_directory.Get(), m_name.c_str()) !=
      0) {
    Fail(errno);
  }
  m_temporaryName.clear();
}

bool PendingFile::IsAt(const struct stat& directory, const char* name) const {
  return directory.st_ino == m_directoryStatus.st_ino &&
         directory.st_dev == m_directoryStatus.st_dev &&
         (m_name == name || m_temporaryName == name);
}

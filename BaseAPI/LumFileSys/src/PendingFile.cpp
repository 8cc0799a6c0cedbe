#include "PendingFile.h"

#include <chrono>
#include <cinttypes>
#include <cstdint>
#include <cstdio>

namespace lumfilesys {

namespace {

constexpr mode_t kOwnerOnly = 0600;

// Short, so that it fits wherever the final name fits, however long that is. The clock's next tick
// gives the next name; nobody gains by foreseeing it, since only a new file ever gets it.
std::string TemporaryName() {
  const auto now = std::chrono::system_clock::now().time_since_epoch().count();
  char name[sizeof ".lum-archive-" + 16];
  (void)std::snprintf(name, sizeof name, ".lum-archive-%016" PRIx64,
                      static_cast<std::uint64_t>(now));
  return name;
}

// By which linkat(2) finds a file without a name; its flag AT_EMPTY_PATH takes privileges.
std::string ProcPath(const Descriptor& file) {
  return "/proc/self/fd/" + std::to_string(file.Get());
}

// A file without a name that can be given one later; else an empty descriptor. The reason does not
// matter: where it is not the file system's, a file with a name fails for the same.
Descriptor OpenUnnamed(const Descriptor& directory) {
  const int fd = openat(directory.Get(), ".", O_WRONLY | O_TMPFILE | O_CLOEXEC, kOwnerOnly);
  if (fd < 0) {
    return {};
  }
  Descriptor file(fd);
  return access(ProcPath(file).c_str(), F_OK) == 0 ? std::move(file) : Descriptor();
}

}  // namespace

PendingFile::PendingFile(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  m_name = path.substr(slash + 1);  // all of it where there is no slash: npos + 1 is 0
  // Held open, so that the file is named where it was made even if the directory moves meanwhile.
  m_directory = Descriptor(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  m_directoryStatus = StatusOf(m_directory);
  m_file = OpenUnnamed(m_directory);
  while (m_file.Get() < 0) {
    std::string name = TemporaryName();
    const int fd = openat(m_directory.Get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                          kOwnerOnly);
    if (fd >= 0 || errno != EEXIST) {
      m_file = Descriptor(fd);
      m_temporaryName = std::move(name);
    }
  }
  // A umask may have taken the owner's own rights. Some file systems keep none and refuse.
  (void)fchmod(m_file.Get(), kOwnerOnly);
}

PendingFile::~PendingFile() {
  if (!m_temporaryName.empty()) {
    unlinkat(m_directory.Get(), m_temporaryName.c_str(), 0);
  }
}

void PendingFile::Commit() {
  // Some file systems tell of a full disk only when a descriptor is closed; a copy will do, and the
  // file itself is lost when it is closed without a name.
  if (close(Descriptor(fcntl(m_file.Get(), F_DUPFD_CLOEXEC, 0)).Release()) != 0) {
    Fail(errno);
  }
  if (m_temporaryName.empty()) {
    if (Link(m_name)) {
      return;
    }
    // Only rename(2) replaces a file, and it needs a name to begin with.
    std::string name;
    do {
      name = TemporaryName();
    } while (!Link(name));
    m_temporaryName = std::move(name);
  }
  if (renameat(m_directory.Get(), m_temporaryName.c_str(), m_directory.Get(), m_name.c_str()) !=
      0) {
    Fail(errno);
  }
  m_temporaryName.clear();
}

// Names the file; false when something has that name.
bool PendingFile::Link(const std::string& name) {
  if (linkat(AT_FDCWD, ProcPath(m_file).c_str(), m_directory.Get(), name.c_str(),
             AT_SYMLINK_FOLLOW) == 0) {
    return true;
  }
  if (errno != EEXIST) {
    Fail(errno);
  }
  return false;
}

bool PendingFile::IsAt(const struct stat& directory, const char* name) const {
  return directory.st_ino == m_directoryStatus.st_ino &&
         directory.st_dev == m_directoryStatus.st_dev &&
         (m_name == name || m_temporaryName == name);
}

}  // namespace lumfilesys

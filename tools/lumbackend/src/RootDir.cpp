// Walking down a directory tree one checked name at a time.
#include "RootDir.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace {

constexpr std::size_t kLongestName = 255;  // NAME_MAX of every file system in use

bool IsSymbolicLink(int directory, const std::string& name) {
  struct stat status = {};
  return ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISLNK(status.st_mode);
}

FileDescriptor OpenDirectory(int parent, const std::string& name) {
  FileDescriptor directory(
      ::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  // The kernel calls a symbolic link "not a directory" here; callers want to know the difference.
  if (!directory && errno == ENOTDIR) {
    errno = IsSymbolicLink(parent, name) ? ELOOP : ENOTDIR;
  }
  return directory;
}

}  // namespace

RootDir::RootDir(const std::string& path) : m_path(path) {
  std::error_code failure;
  std::filesystem::create_directories(path, failure);
  m_directory = FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!m_directory) {
    throw std::runtime_error("cannot use directory '" + path +
                             "': " + std::generic_category().message(errno));
  }
}

bool RootDir::IsPlainName(const std::string& name) {
  return !name.empty() && name.size() <= kLongestName && name != "." && name != ".." &&
         name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

FileDescriptor RootDir::OpenParent(const std::vector<std::string>& names, bool create) const {
  if (names.empty() || !std::all_of(names.begin(), names.end(), IsPlainName)) {
    errno = EINVAL;
    return {};
  }
  FileDescriptor directory(::openat(m_directory.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (auto name = names.begin(); directory && name + 1 != names.end(); ++name) {
    // Somebody else may make the same directory at the same time: EEXIST is no failure.
    if (create && ::mkdirat(directory.Get(), name->c_str(), 0777) != 0 && errno != EEXIST) {
      return {};
    }
    directory = OpenDirectory(directory.Get(), *name);
  }
  return directory;
}

OpenedFile RootDir::Open(const std::vector<std::string>& names) const {
  OpenedFile opened;
  const FileDescriptor parent = OpenParent(names, false);
  if (!parent) {
    opened.error = errno;
    return opened;
  }
  // O_NONBLOCK: opening a named pipe must not wait for its writer.
  FileDescriptor file(
      ::openat(parent.Get(), names.back().c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status = {};
  if (!file || ::fstat(file.Get(), &status) != 0) {
    opened.error = errno;
    return opened;
  }
  if (!S_ISREG(status.st_mode)) {
    opened.error = EISDIR;
    return opened;
  }
  opened.size = static_cast<std::uint64_t>(status.st_size);
  opened.file = std::move(file);
  return opened;
}

#include "TreePacker.h"

#include <dirent.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>

#include "Log.h"

namespace lumfilesys {

namespace {

constexpr char kLogPath[] = "BaseAPI/LumFileSys/src/TreePacker";

bool IsDots(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace

void TreePacker::Pack(Descriptor directory, const std::string& name) {
  m_path = name;
  Enter(std::move(directory));
  while (!m_levels.empty()) {
    Level& level = m_levels.back();
    if (level.next == level.members.size()) {
      Leave();
      continue;
    }
    const Member member = level.members[level.next++];
    const char* const memberName = level.names.data() + member.name;
    m_path.resize(level.pathLength);
    m_path += '/';
    m_path += memberName;
    PackMember(memberName, member.type);
  }
}

// Adds `directory`, named by m_path, and makes it the one whose members come next.
void TreePacker::Enter(Descriptor directory) {
  Level level = {StatusOf(directory), {}, {}, 0, m_path.size()};
  m_tar.AddDirectory(m_path, level.status);

  // The stream reads through a descriptor of its own and is gone before the members are packed: it
  // holds 32 KiB.
  Descriptor copy(fcntl(directory.Get(), F_DUPFD_CLOEXEC, 0));
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(fdopendir(copy.Get()), &closedir);
  if (stream == nullptr) {
    Fail(errno);
  }
  copy.Release();
  for (;;) {
    errno = 0;
    const dirent* const entry = readdir(stream.get());
    if (entry == nullptr) {
      break;
    }
    if (!IsDots(entry->d_name) && !m_archive.IsAt(level.status, entry->d_name)) {
      level.members.push_back({level.names.size(), entry->d_type});
      level.names += entry->d_name;
      level.names += '\0';
    }
  }
  if (errno != 0) {
    Fail(errno);
  }
  const char* const names = level.names.data();
  std::sort(level.members.begin(), level.members.end(), [names](Member a, Member b) {
    return std::strcmp(names + a.name, names + b.name) < 0;
  });
  m_levels.push_back(std::move(level));
  m_directory = std::move(directory);
}

// Goes back to the directory above, if it is still the one that was left.
void TreePacker::Leave() {
  m_levels.pop_back();
  if (m_levels.empty()) {
    return;
  }
  Descriptor above(openat(m_directory.Get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
  const struct stat now = StatusOf(above);
  const struct stat& then = m_levels.back().status;
  if (now.st_dev != then.st_dev || now.st_ino != then.st_ino) {
    Fail(ESTALE);
  }
  m_directory = std::move(above);
}

// Looks at what a system call about the listed member has returned; false when the member has
// vanished since.
bool TreePacker::IsThere(int result) {
  if (result < 0 && errno != ENOENT) {
    Fail(errno);
  }
  if (result < 0) {
    LUM_LOG(kLogWarning, "PackMember", "%s has vanished and is passed over", m_path.c_str());
  }
  return result >= 0;
}

void TreePacker::PackMember(const char* name, unsigned char type) {
  if (type == DT_UNKNOWN) {
    struct stat status;
    if (IsThere(fstatat(m_directory.Get(), name, &status, AT_SYMLINK_NOFOLLOW))) {
      type = static_cast<unsigned char>(IFTODT(status.st_mode));
    }
  }
  switch (type) {
    case DT_REG:
      PackFile(name);
      break;
    case DT_DIR:
      PackDirectory(name);
      break;
    case DT_LNK:
      PackLink(name);
      break;
    default:  // a socket, a pipe or a device, or nothing any more
      break;
  }
}

void TreePacker::PackFile(const char* name) {
  // Without O_NONBLOCK a pipe that has taken the file's place since would hold the walk up.
  const int fd =
      openat(m_directory.Get(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (!IsThere(fd)) {
    return;
  }
  const Descriptor file(fd);
  const struct stat status = StatusOf(file);
  if (S_ISREG(status.st_mode)) {
    m_tar.AddFile(m_path, file, status);
  }
}

void TreePacker::PackDirectory(const char* name) {
  const int fd = openat(m_directory.Get(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (IsThere(fd)) {
    Enter(Descriptor(fd));
  }
}

void TreePacker::PackLink(const char* name) {
  struct stat status;
  if (!IsThere(fstatat(m_directory.Get(), name, &status, AT_SYMLINK_NOFOLLOW))) {
    return;
  }
  char target[PATH_MAX];
  const auto length = static_cast<int>(readlinkat(m_directory.Get(), name, target, sizeof target));
  if (!IsThere(length)) {
    return;
  }
  if (length == static_cast<int>(sizeof target)) {
    Fail(ENAMETOOLONG);
  }
  target[length] = '\0';
  m_tar.AddLink(m_path, target, status);
}

}  // namespace lumfilesys

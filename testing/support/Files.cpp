// Temporary directories and whole files, over std::filesystem.

#include "support/Files.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

namespace lumtest {

namespace {

[[noreturn]] void Fail(const std::string& what, const std::string& path) {
  throw std::runtime_error("cannot " + what + " " + path + ": " + std::strerror(errno));
}

void Write(const std::string& path, const std::string& content, const char* mode) {
  std::FILE* const file = std::fopen(path.c_str(), mode);
  if (file == nullptr) {
    Fail("open", path);
  }
  const bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
  if ((std::fclose(file) != 0) || !written) {
    Fail("write", path);
  }
}

void MakeParents(const std::string& path) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
}

struct stat Status(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) {
    Fail("look at", path);
  }
  return status;
}

}  // namespace

TempDir::TempDir()
    : m_path(std::filesystem::temp_directory_path().string() + "/lumtest-XXXXXX"),
      m_owner(getpid()) {
  if (mkdtemp(m_path.data()) == nullptr) {
    Fail("make", m_path);
  }
}

TempDir::~TempDir() {
  if (m_owner != getpid()) {
    return;
  }
  namespace fs = std::filesystem;
  std::error_code error;
  // A test may have locked a directory against its own user.
  for (fs::recursive_directory_iterator i(m_path, error), end; !error && i != end;
       i.increment(error)) {
    std::error_code ignored;
    if (i->symlink_status(ignored).type() == fs::file_type::directory) {
      fs::permissions(i->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    }
  }
  fs::remove_all(m_path, error);
  if (error) {
    std::cerr << "cannot remove " << m_path << ": " << error.message() << '\n';
  }
}

std::string TempDir::Write(const std::string& name, const std::string& content) const {
  MakeParents(Path(name));
  WriteFile(Path(name), content);
  return Path(name);
}

std::string TempDir::MakeDir(const std::string& name) const {
  MakeParents(Path(name));
  if (mkdir(Path(name).c_str(), S_IRWXU) != 0) {
    Fail("make", Path(name));
  }
  return Path(name);
}

UnnamedFile::UnnamedFile(const std::string& content)
    : m_file(memfd_create("lumtest", MFD_CLOEXEC)) {
  if (fcntl(Get(), F_SETFL, O_APPEND) != 0) {
    Fail("make", "a file without a name");
  }
  WriteFile("/proc/self/fd/" + std::to_string(Get()), content);
}

std::string UnnamedFile::Text() const {
  return ReadFile("/proc/self/fd/" + std::to_string(Get()));
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  if (file) {
    content << file.rdbuf();
  }
  // An empty file leaves failbit on the destination, never badbit on the source.
  if (!file.is_open() || file.bad() || std::filesystem::is_directory(path)) {
    Fail("read", path);
  }
  return content.str();
}

void WriteFile(const std::string& path, const std::string& content) {
  Write(path, content, "wbe");
}

void AppendFile(const std::string& path, const std::string& content) {
  Write(path, content, "abe");
}

void MakeSparseFile(const std::string& path, std::uint64_t size) {
  WriteFile(path, "");
  if (truncate(path.c_str(), static_cast<off_t>(size)) != 0) {
    Fail("lengthen", path);
  }
}

bool Exists(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0;
}

std::uint64_t FileSize(const std::string& path) {
  return static_cast<std::uint64_t>(Status(path).st_size);
}

unsigned FileMode(const std::string& path) {
  return Status(path).st_mode & 07777u;
}

std::vector<std::string> LinesOf(const std::string& text, char end) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line, end);) {
    lines.push_back(line);
  }
  return lines;
}

std::vector<std::string> FilesBelow(const std::string& directory) {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    files.push_back(entry.path().string().substr(directory.size() + 1));
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace lumtest

// Temporary directories, whole files, and the lines of a text.

#ifndef LUM_TESTING_SUPPORT_FILES_H
#define LUM_TESTING_SUPPORT_FILES_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "FileDescriptor.h"

namespace lumtest {

// A new directory under $TMPDIR (or /tmp), removed with all that is in it at the end. Its name is
// unlike any other, so that tests may run side by side. A forked child that leaves by exit() leaves
// its parent's directories alone. Throws std::runtime_error.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // Without a slash at the end.
  const std::string& Path() const { return m_path; }

  // The path of `name` in it; nothing is made.
  std::string Path(const std::string& name) const { return m_path + "/" + name; }

  // Writes a file in it and returns the file's path. Directories on the way are made.
  std::string Write(const std::string& name, const std::string& content) const;

  // Likewise a directory, which must be new.
  std::string MakeDir(const std::string& name) const;

 private:
  std::string m_path;
  pid_t m_owner;
};

// A file without a name, which goes with its object. What is written to its descriptor is added at
// its end. Throws std::runtime_error.
class UnnamedFile {
 public:
  explicit UnnamedFile(const std::string& content = "");

  int Get() const { return m_file.Get(); }

  // All of its content, wherever reading by its descriptor goes on.
  std::string Text() const;

 private:
  FileDescriptor m_file;
};

// The content of a file. Throws std::runtime_error naming it.
std::string ReadFile(const std::string& path);

// Makes or replaces a file, or adds to it. They throw std::runtime_error naming it.
void WriteFile(const std::string& path, const std::string& content);
void AppendFile(const std::string& path, const std::string& content);

// Makes a file that reads as `size` zero bytes but takes no room on the disk.
void MakeSparseFile(const std::string& path, std::uint64_t size);

// Whether anything is at `path`, a dangling link included.
bool Exists(const std::string& path);

// The size in bytes, and the permission bits. They throw std::runtime_error naming the file.
std::uint64_t FileSize(const std::string& path);
unsigned FileMode(const std::string& path);

// The lines of a text, or what ends in another character, without their ends.
std::vector<std::string> LinesOf(const std::string& text, char end = '\n');

// Everything below a directory, relative to it, hidden files included, sorted.
std::vector<std::string> FilesBelow(const std::string& directory);

}  // namespace lumtest

#endif  // LUM_TESTING_SUPPORT_FILES_H

// Packs a directory with all below it.

#ifndef LUM_FILE_SYS_TREE_PACKER_H
#define LUM_FILE_SYS_TREE_PACKER_H

#include <cstdint>
#include <string>
#include <vector>

#include "PendingFile.h"
#include "Posix.h"
#include "TarWriter.h"

namespace lumfilesys {

// Walks with one descriptor and no recursion, so that the depth of a tree has no limit; members
// come in the order of their bytes. A member that vanishes after it was listed is passed over with
// a line in the log. Thread safety: one thread at a time. Failures are thrown.
class TreePacker {
 public:
  // Adds members to `tar` and passes `archive` over; both must outlive this object.
  TreePacker(TarWriter& tar, const PendingFile& archive) : m_tar(tar), m_archive(archive) {}

  // Packs `directory` under `name`.
  void Pack(Descriptor directory, const std::string& name);

 private:
  struct Member {
    std::size_t name;    // where it starts in `names`
    unsigned char type;  // DT_REG and its like; DT_UNKNOWN where the file system does not tell
  };

  // A directory that is being packed: what it holds and how far that is done.
  struct Level {
    struct stat status;
    std::string names;  // each with its terminator
    std::vector<Member> members;
    std::size_t next;
    std::size_t pathLength;  // of the directory's own path in m_path
  };

  void Enter(Descriptor directory);
  void Leave();
  bool IsThere(int result);
  void PackMember(const char* name, unsigned char type);
  void PackFile(const char* name);
  void PackDirectory(const char* name);
  void PackLink(const char* name);

  TarWriter& m_tar;
  const PendingFile& m_archive;
  std::string m_path;      // of the member at hand, as it stands in the archive
  Descriptor m_directory;  // the last of m_levels
  std::vector<Level> m_levels;
};

}  // namespace lumfilesys

#endif  // LUM_FILE_SYS_TREE_PACKER_H

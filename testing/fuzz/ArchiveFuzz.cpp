// Archives: libarchive reads from each what was packed into it.
//
// Input: how to pack, then for each member its kind, its place, permissions, name, content and how
// often that is repeated.

#include <LumFileSys.h>
#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Fuzz.h"
#include "support/Files.h"

namespace {

constexpr std::size_t kMostMembers = 12;

struct Member {
  mode_t type = 0;
  mode_t mode = 0;
  std::string content;  // of a file; where a link points to
};
using Members = std::map<std::string, Member>;  // by path below the root

std::string Child(const std::string& directory, const std::string& name) {
  return directory.empty() ? name : directory + "/" + name;
}

// Makes members below `root` until the input ends; what the file system refuses is left out.
Members MakeTree(lumtest::FuzzInput& input, const std::string& root) {
  Members members;
  std::vector<std::string> directories{""};
  while (!input.AtEnd() && members.size() < kMostMembers) {
    const unsigned kind = input.Byte() % 8;
    const std::string directory = directories[input.Byte() % directories.size()];
    // Of a directory, its owner keeps the right to pass.
    Member member;
    member.mode = input.Number() & 0777;
    std::string name = input.Text();
    const std::string once = input.Text();
    const unsigned times = input.Byte();
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
        name.find('\0') != std::string::npos) {
      continue;
    }
    name = Child(directory, name);
    const std::string path = root + "/" + name;
    if (kind == 0) {
      member.mode |= 0700;
      member.type = S_IFDIR;
      if (mkdir(path.c_str(), 0700) != 0) {
        continue;
      }
      directories.push_back(name);
    } else if (kind == 1) {
      member.type = S_IFLNK;
      member.content = once.substr(0, once.find('\0'));
      if (symlink(member.content.c_str(), path.c_str()) != 0) {
        continue;
      }
    } else if (kind == 2) {
      mkfifo(path.c_str(), 0600);  // passed over
      continue;
    } else {
      member.mode |= 0400;
      member.type = S_IFREG;
      for (unsigned i = 0; i < times; ++i) {
        member.content += once;
      }
      const int file = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
      if (file < 0) {
        continue;
      }
      LUM_REQUIRE(write(file, member.content.data(), member.content.size()) ==
                  static_cast<ssize_t>(member.content.size()));
      LUM_REQUIRE(close(file) == 0);
    }
    if (member.type != S_IFLNK) {
      LUM_REQUIRE(chmod(path.c_str(), member.mode) == 0);
    }
    members.emplace(name, member);
  }
  return members;
}

struct ArchiveFree {
  void operator()(archive* reader) const { archive_read_free(reader); }
};

Members Unpack(const std::string& path) {
  const std::unique_ptr<archive, ArchiveFree> reader(archive_read_new());
  archive_read_support_filter_gzip(reader.get());
  archive_read_support_format_tar(reader.get());
  LUM_REQUIRE(archive_read_open_filename(reader.get(), path.c_str(), 10240) == ARCHIVE_OK);
  Members members;
  archive_entry* entry = nullptr;
  int result = ARCHIVE_OK;
  while ((result = archive_read_next_header(reader.get(), &entry)) == ARCHIVE_OK) {
    Member member;
    member.type = archive_entry_filetype(entry);
    member.mode = archive_entry_perm(entry);
    if (member.type == S_IFLNK) {
      member.content = archive_entry_symlink(entry);
    }
    std::vector<char> piece(65536);
    ssize_t count = 0;
    while ((count = archive_read_data(reader.get(), piece.data(), piece.size())) > 0) {
      member.content.append(piece.data(), static_cast<std::size_t>(count));
    }
    LUM_REQUIRE(count == 0);
    std::string name = archive_entry_pathname(entry);
    if (name.back() == '/') {
      name.pop_back();
    }
    LUM_REQUIRE(members.emplace(name, member).second);
  }
  LUM_REQUIRE(result == ARCHIVE_EOF);
  return members;
}

void RequireSame(const Members& packed, const Members& expected) {
  LUM_REQUIRE(packed.size() == expected.size());
  for (const auto& [name, member] : expected) {
    const auto found = packed.find(name);
    LUM_REQUIRE(found != packed.end());
    LUM_REQUIRE(found->second.type == member.type);
    LUM_REQUIRE(member.type == S_IFLNK || found->second.mode == member.mode);
    LUM_REQUIRE(found->second.content == member.content);
  }
}

// The members as they lie below "tree", and "tree" itself.
Members BelowTree(const Members& members) {
  Members below{{"tree", {S_IFDIR, 0700, ""}}};
  for (const auto& [name, member] : members) {
    below.emplace("tree/" + name, member);
  }
  return below;
}

// The topmost members as a group, without the links, which would be followed. Names with line
// breaks cannot stand in a list.
void PackGroup(const lumtest::TempDir& directory, const std::string& root, const Members& members) {
  std::string list;
  Members expected;
  for (const auto& [name, member] : members) {
    const std::string top = name.substr(0, name.find('/'));
    if (top.find('\n') != std::string::npos || members.at(top).type == S_IFLNK) {
      continue;
    }
    if (name == top) {
      list += root + "/" + top + "\n";
    }
    expected.emplace(name, member);
  }
  const std::string base = directory.Path("group");
  const int result = LumCompressAndDeCompress::CompressFileGroup(list.c_str(), base.c_str());
  LUM_REQUIRE(result == (expected.empty() ? -1 : 0));
  if (result == 0) {
    RequireSame(Unpack(base + ".tar.gz"), expected);
  } else {
    LUM_REQUIRE(!lumtest::Exists(base + ".tar.gz"));
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lumtest::FuzzInput input(data, size);
  const unsigned how = input.Byte() % 3;
  const lumtest::TempDir directory;
  const std::string root = directory.MakeDir("tree");
  LUM_REQUIRE(chmod(root.c_str(), 0700) == 0);
  const Members members = MakeTree(input, root);
  if (how == 0) {
    LUM_REQUIRE(LumCompressAndDeCompress::CompressFilePath(root.c_str()) == 0);
    RequireSame(Unpack(root + ".tar.gz"), BelowTree(members));
  } else if (how == 1) {
    PackGroup(directory, root, members);
  } else {
    for (const auto& [name, member] : members) {
      if (member.type == S_IFREG) {
        // Its name has to leave room for the archive's.
        const std::string path = root + "/" + name;
        const std::string base = name.substr(name.rfind('/') + 1);
        const bool taken = members.count(name + ".tar.gz") != 0;
        const int result = taken ? -1 : LumCompressAndDeCompress::CompressFile(path.c_str());
        LUM_REQUIRE(result == 0 || taken || base.size() + 7 > 255);
        if (result == 0) {
          RequireSame(Unpack(path + ".tar.gz"), {{base, member}});
        }
        break;
      }
    }
  }
  return 0;
}

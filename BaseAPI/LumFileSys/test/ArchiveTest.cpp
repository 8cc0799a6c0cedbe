// Tests of the archives: what goes in, what GNU tar and gzip get out, and what stays on the disk.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "LumFileSys.h"
#include "UnpackedArchive.h"
#include "support/Files.h"
#include "support/Process.h"
#include "support/ProcessState.h"

namespace {

using lumtest::ExpectSameTree;
using lumtest::Listing;
using lumtest::NamesIn;
using lumtest::Noise;
using lumtest::ReadFile;
using lumtest::TempDir;
using lumtest::UnpackedArchive;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;

constexpr std::size_t kLongestName = 255;  // NAME_MAX

int PackFile(const std::string& path) {
  errno = 0;
  return LumCompressAndDeCompress::CompressFile(path.c_str());
}

int PackDirectory(const std::string& path) {
  errno = 0;
  return LumCompressAndDeCompress::CompressFilePath(path.c_str());
}

int PackGroup(const std::string& group, const std::string& base) {
  errno = 0;
  return LumCompressAndDeCompress::CompressFileGroup(group.c_str(), base.c_str());
}

void SetTime(const std::string& path, time_t seconds) {
  const timespec times[] = {{seconds, 0}, {seconds, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

void SetMode(const std::string& path, mode_t mode) {
  ASSERT_EQ(chmod(path.c_str(), mode), 0) << path;
}

void Link(const std::string& target, const std::string& path) {
  ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0) << path;
}

// The process stands in `directory` while this lives.
class WorkingDirectory {
 public:
  explicit WorkingDirectory(const std::string& directory)
      : m_before(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    EXPECT_EQ(chdir(directory.c_str()), 0);
  }
  ~WorkingDirectory() {
    EXPECT_EQ(fchdir(m_before), 0);
    close(m_before);
  }
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;

 private:
  int m_before;
};

// What `work` returns where no more than 16 further descriptors are to be had.
int WithFewDescriptors(const std::function<int()>& work) {
  rlimit before = {};
  EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit few = {lumtest::OpenDescriptors() + 16, before.rlim_max};
  EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  const int result = work();
  EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  return result;
}

// Why a user without rights cannot pack the directory at `path`, or 0.
int ErrorOfNobody(const std::string& path) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(getuid() == 0 && setuid(65534) != 0 ? 200 : PackDirectory(path) == -1 ? errno : 0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class LumArchive : public ::testing::Test {
 protected:
  const TempDir m_dir;
};

using LumArchiveFile = LumArchive;
using LumArchiveDirectory = LumArchive;
using LumArchiveGroup = LumArchive;

// ---- One file ----

TEST_F(LumArchiveFile, IsPackedUnderItsBaseName) {
  const std::string path = m_dir.Write("a.log", "first line\nsecond line\n");
  SetMode(path, 0640);
  SetTime(path, 1234567890);
  ASSERT_EQ(PackFile(path), 0);
  EXPECT_THAT(NamesIn(m_dir.Path()), ElementsAre("a.log", "a.log.tar.gz"));
  const UnpackedArchive archive(m_dir.Path("a.log.tar.gz"));
  EXPECT_THAT(archive.Names(), ElementsAre("a.log"));
  ExpectSameTree(path, archive.Path("a.log"));
  EXPECT_EQ(ReadFile(path), "first line\nsecond line\n");
}

TEST_F(LumArchiveFile, NothingFillsTheArchiveUp) {
  const std::string path = m_dir.Write("a", "x");
  ASSERT_EQ(PackFile(path), 0);
  // A header, a block of content, and the two blocks at the end; tar's blocks of twenty would be
  // compressed for nothing.
  const std::string packed = ReadFile(path + ".tar.gz");
  EXPECT_EQ(packed.substr(packed.size() - 4), std::string("\0\x08\0\0", 4));
}

TEST_F(LumArchiveFile, LinkIsFollowed) {
  m_dir.Write("real.log", "content");
  Link("real.log", m_dir.Path("current.log"));
  ASSERT_EQ(PackFile(m_dir.Path("current.log")), 0);
  const UnpackedArchive archive(m_dir.Path("current.log.tar.gz"));
  EXPECT_THAT(archive.Names(), ElementsAre("current.log"));
  EXPECT_EQ(Listing(archive.Path("current.log")).substr(0, 3), "|f|");
  EXPECT_EQ(ReadFile(archive.Path("current.log")), "content");
}

TEST_F(LumArchiveFile, RelativePath) {
  m_dir.Write("sub/a", "x");
  const WorkingDirectory here(m_dir.Path());
  ASSERT_EQ(PackFile("sub/a"), 0);
  ASSERT_EQ(PackFile("./sub/../sub//a.tar.gz"), 0);
  EXPECT_THAT(UnpackedArchive("sub/a.tar.gz").Names(), ElementsAre("a"));
  EXPECT_THAT(UnpackedArchive("sub/a.tar.gz.tar.gz").Names(), ElementsAre("a.tar.gz"));
}

TEST_F(LumArchiveFile, LongestNameThatAnArchiveCanHave) {
  const std::string name(kLongestName - std::strlen(".tar.gz"), 'n');
  const std::string path = m_dir.Write(name, "x");
  ASSERT_EQ(PackFile(path), 0);
  EXPECT_THAT(UnpackedArchive(path + ".tar.gz").Names(), ElementsAre(name));

  const std::string longer = m_dir.Write(std::string(kLongestName, 'm'), "x");
  EXPECT_EQ(PackFile(longer), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_THAT(NamesIn(m_dir.Path()), SizeIs(3));
}

TEST_F(LumArchiveFile, DirectoryInTheArchivesPlaceStays) {
  const std::string path = m_dir.Write("a", "x");
  m_dir.MakeDir("a.tar.gz");
  EXPECT_EQ(PackFile(path), -1);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_THAT(NamesIn(m_dir.Path()), ElementsAre("a", "a.tar.gz"));
}

// ---- A directory ----

// What a name can be made of, contents around every block, permissions, times, links and depth, and
// all of it in the order of its bytes, with few descriptors and in any locale.
TEST_F(LumArchiveDirectory, HoldsTheTreeUnderItsBaseName) {
  const std::string root = "n\xc3\xa4me";
  const auto below = [&](const std::string& name) { return m_dir.Path(root + '/' + name); };
  const std::string longName(kLongestName, 'l');
  for (const std::string& name :
       {std::string(" leading blank"), std::string("-rf"), std::string("new\nline"),
        std::string("back\\slash"), std::string("\xff\xfe not UTF-8"),
        std::string("\xc3\xa4\xe2\x82\xac"), std::string("tab\t\x01\x7f"), std::string("..."),
        std::string(".hidden"), std::string(".h"), std::string("..h"), std::string("*?[]"),
        std::string(99, 'a'), std::string(100, 'b'), std::string(101, 'c'), longName}) {
    m_dir.Write(root + '/' + name, "content of " + name);
    Link("to " + name.substr(0, 250), below(name.substr(0, 200) + "-link"));
  }
  for (const std::size_t size :
       {0, 1, 511, 512, 513, 1024, 10239, 10240, 262143, 262144, 262145, 524288, 1000000}) {
    m_dir.Write(root + "/size" + std::to_string(size), Noise(size));
  }
  for (const unsigned mode : {0U, 0400U, 0644U, 0755U, 0777U, 04755U, 02711U, 01666U}) {
    SetMode(m_dir.Write(root + "/mode" + std::to_string(mode), "x"), mode);
  }
  for (const time_t time : {0L, 1L, 1234567890L, 2147483647L, 2147483648L, 8589934591L}) {
    SetTime(m_dir.Write(root + "/time" + std::to_string(time), "x"), time);
  }
  int links = 0;
  for (const char* target : {"size0", "../../outside", "/etc/hostname", "empty", "link4"}) {
    Link(target, below("link" + std::to_string(links++)));
  }
  Link(std::string(300, 'x') + '/' + std::string(300, 'y'), below("long-target"));
  m_dir.Write(root + "/empty file", "");  // its name comes behind that of "empty/"
  std::string deep = root + "/deep/" + longName + '/' + longName + '/' + longName;
  for (int level = 0; level < 60; ++level) {
    deep += "/s";
    m_dir.Write(deep + "/t", std::to_string(level));
  }
  ASSERT_EQ(link(below("size1").c_str(), below("hard link").c_str()), 0);
  lumtest::MakeSparseFile(below("holes"), 3000000);
  SetTime(below("link0"), 1000000000);
  SetMode(m_dir.MakeDir(root + "/empty"), 0500);
  SetTime(below("empty"), 1100000000);
  SetMode(m_dir.Path(root), 03775);
  SetTime(m_dir.Path(root), 1200000000);

  // What is in a directory follows it.
  std::vector<std::string> names = lumtest::FilesBelow(m_dir.Path(root));
  std::sort(names.begin(), names.end(), [](std::string a, std::string b) {
    std::replace(a.begin(), a.end(), '/', '\0');
    std::replace(b.begin(), b.end(), '/', '\0');
    return a < b;
  });
  std::string listed = root + "/\n";
  for (const std::string& name : names) {
    const bool isDirectory = is_directory(std::filesystem::symlink_status(below(name)));
    listed += root + '/' + name + (isDirectory ? "/\n" : "\n");
  }
  for (const char* locale : {"C", "C.UTF-8"}) {
    ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr) << locale;
    EXPECT_EQ(WithFewDescriptors([&] { return PackDirectory(m_dir.Path(root)); }), 0) << locale;
    std::setlocale(LC_ALL, "C");
    // A time that has not come yet is worth a warning to tar.
    const UnpackedArchive archive(m_dir.Path(root + ".tar.gz"), {"--warning=no-timestamp"});
    EXPECT_EQ(archive.Names(), lumtest::LinesOf(listed));
    ExpectSameTree(m_dir.Path(root), archive.Path(root));
    lumtest::WriteFile(archive.Path(root + "/size1"), "changed");
    EXPECT_EQ(ReadFile(archive.Path(root + "/hard link")), Noise(1));
  }
  EXPECT_THAT(NamesIn(m_dir.Path()), ElementsAre(root, root + ".tar.gz"));
}

// Headers and contents end where a block of the compressor ends, or lie in it already; a long name
// or target comes from elsewhere and may be cut in two.
TEST_F(LumArchiveDirectory, LongTargetAcrossTheEndOfABlock) {
  // Before the target: the headers of "d/" and "d/a", the content, the header of the target.
  m_dir.Write("d/a", std::string(262144 - 3 * 512 - 512, 'a'));
  std::string target;
  while (target.size() < 1000) {
    target += std::to_string(target.size()) + "/";
  }
  Link(target, m_dir.Path("d/link"));
  ASSERT_EQ(PackDirectory(m_dir.Path("d")), 0);
  ExpectSameTree(m_dir.Path("d"), UnpackedArchive(m_dir.Path("d.tar.gz")).Path("d"));
}

TEST_F(LumArchiveDirectory, TimesOutsideTheFormatsRangeBecomeItsEnds) {
  SetTime(m_dir.Write("d/early", "x"), -300000000);
  SetTime(m_dir.Write("d/late", "x"), 9000000000);
  ASSERT_EQ(PackDirectory(m_dir.Path("d")), 0);
  const UnpackedArchive archive(m_dir.Path("d.tar.gz"), {"--warning=no-timestamp"});
  EXPECT_THAT(Listing(archive.Path("d")), HasSubstr("early|f|644|0||1\n"));
  EXPECT_THAT(Listing(archive.Path("d")), HasSubstr("late|f|644|8589934591||1\n"));
}

TEST_F(LumArchiveDirectory, OwnersGoByNumber) {
  const std::string path = m_dir.Write("d/file", "x");
  uid_t user = getuid();
  gid_t group = getgid();
  if (user == 0) {  // beyond what a tar header holds in octal digits
    user = 3000000;
    group = 4000000000;
    ASSERT_EQ(chown(path.c_str(), user, group), 0);
  }
  ASSERT_EQ(PackDirectory(m_dir.Path("d")), 0);
  const std::string list =
      lumtest::RunCommand({"tar", "--numeric-owner", "-tvzf", m_dir.Path("d.tar.gz"), "d/file"})
          .out;
  EXPECT_NE(list.find(" " + std::to_string(user) + "/" + std::to_string(group) + " "),
            std::string::npos)
      << list;
}

TEST_F(LumArchiveDirectory, SocketsPipesAndDevicesArePassedOver) {
  m_dir.Write("d/file", "x");
  ASSERT_EQ(mkfifo(m_dir.Path("d/pipe").c_str(), 0600), 0);
  const int socketFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  {
    const WorkingDirectory here(m_dir.Path("d"));  // the address has room for a short path only
    std::strcpy(address.sun_path, "socket");
    ASSERT_EQ(bind(socketFd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
  // Only root may make a device.
  const bool device = mknod(m_dir.Path("d/device").c_str(), S_IFCHR | 0600, makedev(1, 3)) == 0;
  EXPECT_EQ(device, NamesIn(m_dir.Path("d")).size() == 4);
  ASSERT_EQ(PackDirectory(m_dir.Path("d")), 0);
  EXPECT_THAT(UnpackedArchive(m_dir.Path("d.tar.gz")).Names(), ElementsAre("d/", "d/file"));
  close(socketFd);
}

TEST_F(LumArchiveDirectory, SlashAtTheEndPutsTheArchiveInsideAndItNeverPacksItself) {
  m_dir.Write("d/file", Noise(600000));
  m_dir.Write("d/sub/.tar.gz", "another directory's file of that name");
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(PackDirectory(m_dir.Path("d/")), 0);
    EXPECT_THAT(NamesIn(m_dir.Path("d")), ElementsAre(".tar.gz", "file", "sub"));
    const UnpackedArchive archive(m_dir.Path("d/.tar.gz"));
    EXPECT_THAT(archive.Names(), ElementsAre("d/", "d/file", "d/sub/", "d/sub/.tar.gz"));
    EXPECT_TRUE(ReadFile(archive.Path("d/file")) == Noise(600000));
  }
  ASSERT_EQ(PackDirectory(m_dir.Path("d///")), 0);
  EXPECT_THAT(UnpackedArchive(m_dir.Path("d/.tar.gz")).Names(), SizeIs(4));
  EXPECT_THAT(NamesIn(m_dir.Path()), ElementsAre("d"));
}

TEST_F(LumArchiveDirectory, DotsGoByTheNameOfWhatTheyMean) {
  m_dir.MakeDir("d/e");
  m_dir.Write("d/file", "x");
  const WorkingDirectory here(m_dir.Path("d/e"));
  ASSERT_EQ(PackDirectory(".."), 0);
  EXPECT_THAT(UnpackedArchive("...tar.gz").Names(), ElementsAre("d/", "d/e/", "d/file"));
  ASSERT_EQ(PackDirectory("."), 0);
  EXPECT_THAT(UnpackedArchive("..tar.gz").Names(), ElementsAre("e/", "e/...tar.gz"));
}

TEST_F(LumArchiveDirectory, WorkingDirectoryThatIsGoneHasNoName) {
  const WorkingDirectory here(m_dir.MakeDir("d"));
  ASSERT_EQ(rmdir(m_dir.Path("d").c_str()), 0);
  EXPECT_EQ(PackDirectory("."), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(PackGroup(".", m_dir.Path("bundle")), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_THAT(NamesIn(m_dir.Path()), SizeIs(0));
}

TEST_F(LumArchiveDirectory, LinkToADirectoryIsFollowed) {
  m_dir.Write("real/sub/file", "x");
  m_dir.Write("real/z", "after the way back up");
  Link("real", m_dir.Path("current"));
  ASSERT_EQ(PackDirectory(m_dir.Path("current")), 0);
  const UnpackedArchive archive(m_dir.Path("current.tar.gz"));
  EXPECT_THAT(archive.Names(),
              ElementsAre("current/", "current/sub/", "current/sub/file", "current/z"));
  ASSERT_EQ(PackDirectory(m_dir.Path("current/")), 0);
  EXPECT_THAT(NamesIn(m_dir.Path("real")), Contains(".tar.gz"));
}

TEST_F(LumArchiveDirectory, WhatMayNotBeReadIsAFailure) {
  SetMode(m_dir.Path(), 0777);
  SetMode(m_dir.MakeDir("d"), 0755);
  SetMode(m_dir.MakeDir("d/sub"), 0755);
  m_dir.Write("d/sub/secret", "x");
  SetMode(m_dir.Write("d/a", Noise(1000000)), 0644);
  SetMode(m_dir.Path("d/sub/secret"), 0000);
  EXPECT_EQ(ErrorOfNobody(m_dir.Path("d")), EACCES);
  EXPECT_THAT(NamesIn(m_dir.Path()), ElementsAre("d"));
  SetMode(m_dir.Path("d/sub/secret"), 0644);
  SetMode(m_dir.Path("d/sub"), 0333);
  EXPECT_EQ(ErrorOfNobody(m_dir.Path("d")), EACCES);
  EXPECT_THAT(NamesIn(m_dir.Path()), ElementsAre("d"));
  SetMode(m_dir.Path("d/sub"), 0755);
  EXPECT_EQ(ErrorOfNobody(m_dir.Path("d")), 0);
  EXPECT_THAT(NamesIn(m_dir.Path()), ElementsAre("d", "d.tar.gz"));
}

TEST_F(LumArchiveDirectory, PlaceWithoutWritePermissionIsAFailure) {
  m_dir.MakeDir("d");
  SetMode(m_dir.Path(), 0555);
  EXPECT_EQ(ErrorOfNobody(m_dir.Path("d")), EACCES);
  SetMode(m_dir.Path(), 0755);
  EXPECT_THAT(NamesIn(m_dir.Path()), ElementsAre("d"));
}

// ---- A group ----

TEST_F(LumArchiveGroup, HoldsItsMembersInOrderUnderTheirBaseNames) {
  const std::string b = m_dir.Write("x/b.log", "b");
  const std::string a = m_dir.Write("y/a.log", "a");
  const std::string odd = m_dir.Write("y/ a\tb,c;d\r", "only a line feed ends a line");
  m_dir.Write("logs/sub/inner", "inner");
  Link("inner", m_dir.Path("logs/sub/link"));
  Link("x/b.log", m_dir.Path("current"));
  const std::string rest = odd + '\n' + m_dir.Path("logs/") + '\n' + m_dir.Path("current");
  for (const std::string& group :
       {b + '\n' + a + '\n' + rest, "\n\n" + b + "\n\n\n" + a + '\n' + rest,
        '\n' + b + '\n' + a + '\n' + rest + "\n\n"}) {
    ASSERT_EQ(PackGroup(group, m_dir.Path("bundle")), 0) << group;
    const UnpackedArchive archive(m_dir.Path("bundle.tar.gz"));
    EXPECT_THAT(archive.Names(), ElementsAre("b.log", "a.log", " a\tb,c;d\r", "logs/", "logs/sub/",
                                             "logs/sub/inner", "logs/sub/link", "current"));
    ExpectSameTree(b, archive.Path("b.log"));
    ExpectSameTree(a, archive.Path("a.log"));
    ExpectSameTree(odd, archive.Path(" a\tb,c;d\r"));
    ExpectSameTree(m_dir.Path("logs"), archive.Path("logs"));
    ExpectSameTree(b, archive.Path("current"));
  }
}

TEST_F(LumArchiveGroup, ArchiveInsideAMemberIsNotPacked) {
  m_dir.MakeDir("d/sub");
  m_dir.Write("d/file", Noise(600000));
  m_dir.Write("d/bundle.tar.gz", "another one of that name");
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(PackGroup(m_dir.Path("d"), m_dir.Path("d/sub/../sub/bundle")), 0);
    EXPECT_THAT(UnpackedArchive(m_dir.Path("d/sub/bundle.tar.gz")).Names(),
                ElementsAre("d/", "d/bundle.tar.gz", "d/file", "d/sub/"));
  }
}

TEST_F(LumArchiveGroup, WhatMakesNoSenseIsRefused) {
  const std::string a = m_dir.Write("x/same", "a");
  const std::string b = m_dir.Write("y/same", "b");
  m_dir.MakeDir("same");
  const std::string directories = m_dir.Path("x") + '\n' + m_dir.Path("y") + '\n';
  const std::string base = m_dir.Path("bundle");
  const struct {
    std::string group;
    std::string base;
    int error;
  } kCases[] = {
      {a + '\n' + b, base, EEXIST},  // two of one name
      {a + '\n' + a, base, EEXIST},
      {a + '\n' + m_dir.Path("same/"), base, EEXIST},
      {directories + m_dir.Path("x/../y"), base, EEXIST},
      {"", base, EINVAL},
      {"\n", base, EINVAL},
      {"\n\n\n", base, EINVAL},
      {a, "", EINVAL},
      {a, m_dir.Path("missing/bundle"), ENOENT},
      {a, m_dir.Path("x/same/bundle"), ENOTDIR},
  };
  const std::string before = Listing(m_dir.Path());
  for (const auto& row : kCases) {
    EXPECT_EQ(PackGroup(row.group, row.base), -1) << row.group;
    EXPECT_EQ(errno, row.error) << row.group;
  }
  EXPECT_EQ(LumCompressAndDeCompress::CompressFileGroup(nullptr, base.c_str()), -1);
  EXPECT_EQ(LumCompressAndDeCompress::CompressFileGroup(a.c_str(), nullptr), -1);
  EXPECT_EQ(Listing(m_dir.Path()), before);
}

TEST_F(LumArchiveGroup, OneMissingMemberFailsTheWhole) {
  const std::string a = m_dir.Write("a", Noise(900000));
  m_dir.Write("bundle.tar.gz", "old archive");
  EXPECT_EQ(PackGroup(a + "\n" + m_dir.Path("missing"), m_dir.Path("bundle")), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(ReadFile(m_dir.Path("bundle.tar.gz")), "old archive");
  EXPECT_THAT(NamesIn(m_dir.Path()), ElementsAre("a", "bundle.tar.gz"));
}

TEST_F(LumArchiveGroup, MayHoldTheArchiveThatItReplaces) {
  const std::string old = m_dir.Write("bundle.tar.gz", "old archive");
  ASSERT_EQ(PackGroup(old, m_dir.Path("bundle")), 0);
  EXPECT_EQ(ReadFile(UnpackedArchive(old).Path("bundle.tar.gz")), "old archive");
}

TEST_F(LumArchiveGroup, ManyMembersNeedFewDescriptors) {
  std::string group;
  for (int i = 0; i < 100; ++i) {
    group += m_dir.Write("file" + std::to_string(i), std::to_string(i)) + "\n";
  }
  ASSERT_EQ(WithFewDescriptors([&] { return PackGroup(group, m_dir.Path("bundle")); }), 0);
  EXPECT_THAT(UnpackedArchive(m_dir.Path("bundle.tar.gz")).Names(), SizeIs(100));
}

// ---- All forms ----

TEST_F(LumArchive, WhatIsOfAnotherKindIsRefused) {
  m_dir.MakeDir("sub");
  m_dir.Write("file", "x");
  ASSERT_EQ(mkfifo(m_dir.Path("pipe").c_str(), 0600), 0);
  Link("missing", m_dir.Path("dangling"));
  Link("loop", m_dir.Path("loop"));
  const struct {
    std::string path;
    int errorAsFile;
    int errorAsDirectory;  // 0: is one
  } kCases[] = {
      {m_dir.Path("missing"), ENOENT, ENOENT},
      {m_dir.Path("no/such"), ENOENT, ENOENT},
      {m_dir.Path("file/x"), ENOTDIR, ENOTDIR},
      {m_dir.Path("file/"), ENOTDIR, ENOTDIR},
      {m_dir.Path("file"), 0, ENOTDIR},
      {m_dir.Path("sub"), EISDIR, 0},
      {m_dir.Path("sub/"), EISDIR, 0},
      {m_dir.Path("dangling"), ENOENT, ENOENT},
      {m_dir.Path("loop"), ELOOP, ELOOP},
      {m_dir.Path("pipe"), EINVAL, EINVAL},
      {"", ENOENT, ENOENT},
      {"/dev/null", EINVAL, EINVAL},
      {m_dir.Path(std::string(300, 'n')), ENAMETOOLONG, ENAMETOOLONG},
  };
  const std::string before = Listing(m_dir.Path());
  for (const auto& refused : kCases) {
    if (refused.errorAsFile != 0) {
      EXPECT_EQ(PackFile(refused.path), -1) << refused.path;
      EXPECT_EQ(errno, refused.errorAsFile) << refused.path;
    }
    if (refused.errorAsDirectory != 0) {
      EXPECT_EQ(PackDirectory(refused.path), -1) << refused.path;
      EXPECT_EQ(errno, refused.errorAsDirectory) << refused.path;
    }
  }
  EXPECT_EQ(LumCompressAndDeCompress::CompressFile(nullptr), -1);
  EXPECT_EQ(LumCompressAndDeCompress::CompressFilePath(nullptr), -1);
  EXPECT_EQ(Listing(m_dir.Path()), before);  // the directory was not even touched
}

TEST_F(LumArchive, DescriptorsAreClosed) {
  const std::string file = m_dir.Write("d/sub/file", "x");
  const std::size_t before = lumtest::OpenDescriptors();
  EXPECT_EQ(PackFile(file), 0);
  EXPECT_EQ(PackDirectory(m_dir.Path("d")), 0);
  EXPECT_EQ(PackGroup(file, m_dir.Path("bundle")), 0);
  EXPECT_EQ(PackFile(m_dir.Path("d")), -1);
  EXPECT_EQ(PackDirectory(file), -1);
  EXPECT_EQ(PackGroup(file + "\n" + m_dir.Path("missing"), m_dir.Path("bundle")), -1);
  EXPECT_EQ(PackGroup(file, m_dir.Path("missing/bundle")), -1);
  EXPECT_EQ(lumtest::OpenDescriptors(), before);
}

TEST_F(LumArchive, ThreadsMayPackAtOnce) {
  m_dir.Write("shared/file", Noise(300000));
  std::vector<std::thread> threads;
  std::vector<int> results(4, -1);
  for (std::size_t id = 0; id < results.size(); ++id) {
    const std::string own = "own" + std::to_string(id);
    m_dir.Write(own + "/file", Noise(100000 + id));
    threads.emplace_back([this, &results, own, id] {
      results[id] = 0;
      for (int i = 0; i < 5; ++i) {
        results[id] |= LumCompressAndDeCompress::CompressFilePath(m_dir.Path(own).c_str());
        results[id] |= LumCompressAndDeCompress::CompressFilePath(m_dir.Path("shared").c_str());
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_THAT(results, ElementsAre(0, 0, 0, 0));
  for (const std::string name : {"own0", "own1", "own2", "own3", "shared"}) {
    const UnpackedArchive archive(m_dir.Path(name + ".tar.gz"));
    ExpectSameTree(m_dir.Path(name), archive.Path(name));
  }
  EXPECT_THAT(NamesIn(m_dir.Path()), SizeIs(10));
}

}  // namespace

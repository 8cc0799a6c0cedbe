// Tests of the archives: what goes in, what GNU tar and gzip get out, and what stays on the disk.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
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
#include <functional>
#include <random>
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
using lumtest::FileMode;
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

// Runs `work` in a child process and returns what it returned.
int InChild(const std::function<int()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(work());
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

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
  return InChild([&] {
    if (getuid() == 0 && setuid(65534) != 0) {
      return 200;
    }
    return PackDirectory(path) == -1 ? errno : 0;
  });
}

// ---- One file ----

TEST(LumArchiveFile, IsPackedUnderItsBaseName) {
  const TempDir dir;
  const std::string path = dir.Write("a.log", "first line\nsecond line\n");
  SetMode(path, 0640);
  SetTime(path, 1234567890);
  ASSERT_EQ(PackFile(path), 0);
  EXPECT_THAT(NamesIn(dir.Path()), ElementsAre("a.log", "a.log.tar.gz"));
  const UnpackedArchive archive(dir.Path("a.log.tar.gz"));
  EXPECT_THAT(archive.Names(), ElementsAre("a.log"));
  ExpectSameTree(path, archive.Path("a.log"));
  EXPECT_EQ(ReadFile(path), "first line\nsecond line\n");
}

TEST(LumArchiveFile, SizesAroundEveryBlock) {
  const TempDir dir;
  for (const std::size_t size :
       {0, 1, 511, 512, 513, 1024, 10239, 10240, 262143, 262144, 262145, 524288, 1000000}) {
    const std::string path = dir.Write("file", Noise(size));
    ASSERT_EQ(PackFile(path), 0) << size;
    const UnpackedArchive archive(path + ".tar.gz");
    EXPECT_TRUE(ReadFile(archive.Path("file")) == Noise(size)) << size;
  }
}

TEST(LumArchiveFile, NothingFillsTheArchiveUp) {
  const TempDir dir;
  const std::string path = dir.Write("a", "x");
  ASSERT_EQ(PackFile(path), 0);
  // A header, a block of content, and the two blocks at the end; tar's blocks of twenty would be
  // compressed for nothing.
  const std::string packed = ReadFile(path + ".tar.gz");
  EXPECT_EQ(packed.substr(packed.size() - 4), std::string("\0\x08\0\0", 4));
}

TEST(LumArchiveFile, LinkIsFollowed) {
  const TempDir dir;
  dir.Write("real.log", "content");
  Link("real.log", dir.Path("current.log"));
  ASSERT_EQ(PackFile(dir.Path("current.log")), 0);
  const UnpackedArchive archive(dir.Path("current.log.tar.gz"));
  EXPECT_THAT(archive.Names(), ElementsAre("current.log"));
  EXPECT_EQ(Listing(archive.Path("current.log")).substr(0, 3), "|f|");
  EXPECT_EQ(ReadFile(archive.Path("current.log")), "content");
}

TEST(LumArchiveFile, RelativePath) {
  const TempDir dir;
  dir.MakeDir("sub");
  dir.Write("sub/a", "x");
  const WorkingDirectory here(dir.Path());
  ASSERT_EQ(PackFile("sub/a"), 0);
  ASSERT_EQ(PackFile("./sub/../sub//a.tar.gz"), 0);
  EXPECT_THAT(UnpackedArchive("sub/a.tar.gz").Names(), ElementsAre("a"));
  EXPECT_THAT(UnpackedArchive("sub/a.tar.gz.tar.gz").Names(), ElementsAre("a.tar.gz"));
}

TEST(LumArchiveFile, LongestNameThatAnArchiveCanHave) {
  const TempDir dir;
  const std::string name(kLongestName - std::strlen(".tar.gz"), 'n');
  const std::string path = dir.Write(name, "x");
  ASSERT_EQ(PackFile(path), 0);
  EXPECT_THAT(UnpackedArchive(path + ".tar.gz").Names(), ElementsAre(name));

  const std::string longer = dir.Write(std::string(kLongestName, 'm'), "x");
  EXPECT_EQ(PackFile(longer), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_THAT(NamesIn(dir.Path()), SizeIs(3));
}

TEST(LumArchiveFile, OnlyItsOwnerMayReadIt) {
  const TempDir dir;
  const std::string path = dir.Write("a", "x");
  for (const char* const older : {"", "older"}) {
    for (const mode_t mask : {0U, 022U, 0777U}) {
      unlink((path + ".tar.gz").c_str());
      if (*older != '\0') {
        SetMode(dir.Write("a.tar.gz", older), 0666);
      }
      const mode_t before = umask(mask);
      const int result = PackFile(path);
      umask(before);
      ASSERT_EQ(result, 0);
      EXPECT_EQ(FileMode(path + ".tar.gz"), 0600U) << mask;
    }
  }
}

TEST(LumArchiveFile, OlderArchiveIsReplaced) {
  const TempDir dir;
  const std::string path = dir.Write("a", "new");
  dir.Write("a.tar.gz", "old archive");
  const int reader = open(dir.Path("a.tar.gz").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(PackFile(path), 0);
  EXPECT_EQ(ReadFile(UnpackedArchive(path + ".tar.gz").Path("a")), "new");
  char old[32] = {};
  EXPECT_EQ(read(reader, old, sizeof old), 11);  // who had it open still reads the old one
  EXPECT_STREQ(old, "old archive");
  close(reader);
  EXPECT_THAT(NamesIn(dir.Path()), ElementsAre("a", "a.tar.gz"));
}

TEST(LumArchiveFile, DirectoryInTheArchivesPlaceStays) {
  const TempDir dir;
  const std::string path = dir.Write("a", "x");
  dir.MakeDir("a.tar.gz");
  EXPECT_EQ(PackFile(path), -1);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_THAT(NamesIn(dir.Path()), ElementsAre("a", "a.tar.gz"));
}

TEST(LumArchiveFile, FailureKeepsTheOlderArchiveAndLeavesNothing) {
  const TempDir dir;
  const std::string path = dir.Write("a", Noise(1000000));
  dir.Write("a.tar.gz", "old archive");
  const int error = InChild([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {100000, 100000};
    setrlimit(RLIMIT_FSIZE, &limit);
    return PackFile(path) == -1 ? errno : 0;
  });
  EXPECT_EQ(error, EFBIG);
  EXPECT_THAT(NamesIn(dir.Path()), ElementsAre("a", "a.tar.gz"));
  EXPECT_EQ(ReadFile(dir.Path("a.tar.gz")), "old archive");
}

// ---- A directory ----

TEST(LumArchiveDirectory, HoldsTheTreeUnderItsBaseName) {
  const TempDir dir;
  dir.MakeDir("logs");
  dir.MakeDir("logs/sub");
  dir.MakeDir("logs/sub/deep");
  dir.MakeDir("logs/empty");
  dir.Write("logs/empty file", "");
  dir.Write("logs/a.log", "a\n");
  dir.Write("logs/sub/deep/noise", Noise(700000));
  Link("a.log", dir.Path("logs/link"));
  Link("../../outside", dir.Path("logs/sub/dangling"));
  Link("/etc/hostname", dir.Path("logs/absolute"));
  Link("sub", dir.Path("logs/to-directory"));
  Link("self", dir.Path("logs/self"));
  Link(std::string(300, 'x') + "/" + std::string(300, 'y'), dir.Path("logs/long-target"));
  ASSERT_EQ(PackDirectory(dir.Path("logs")), 0);
  EXPECT_THAT(NamesIn(dir.Path()), ElementsAre("logs", "logs.tar.gz"));
  const UnpackedArchive archive(dir.Path("logs.tar.gz"));
  EXPECT_THAT(
      archive.Names(),
      ElementsAre("logs/", "logs/a.log", "logs/absolute", "logs/empty/", "logs/empty file",
                  "logs/link", "logs/long-target", "logs/self", "logs/sub/", "logs/sub/dangling",
                  "logs/sub/deep/", "logs/sub/deep/noise", "logs/to-directory"));
  ExpectSameTree(dir.Path("logs"), archive.Path("logs"));
}

// Headers and contents end where a block of the compressor ends, or lie in it already; a long name
// or target comes from elsewhere and may be cut in two.
TEST(LumArchiveDirectory, LongTargetAcrossTheEndOfABlock) {
  const TempDir dir;
  dir.MakeDir("d");
  // Before the target: the headers of "d/" and "d/a", the content, the header of the target.
  dir.Write("d/a", std::string(262144 - 3 * 512 - 512, 'a'));
  std::string target;
  while (target.size() < 1000) {
    target += std::to_string(target.size()) + "/";
  }
  Link(target, dir.Path("d/link"));
  ASSERT_EQ(PackDirectory(dir.Path("d")), 0);
  ExpectSameTree(dir.Path("d"), UnpackedArchive(dir.Path("d.tar.gz")).Path("d"));
}

TEST(LumArchiveDirectory, EmptyDirectory) {
  const TempDir dir;
  ASSERT_EQ(PackDirectory(dir.MakeDir("empty")), 0);
  const UnpackedArchive archive(dir.Path("empty.tar.gz"));
  EXPECT_THAT(archive.Names(), ElementsAre("empty/"));
  ExpectSameTree(dir.Path("empty"), archive.Path("empty"));
}

TEST(LumArchiveDirectory, PermissionsAndTimes) {
  const TempDir dir;
  dir.MakeDir("d");
  dir.MakeDir("d/sub");
  for (const unsigned mode : {0U, 0400U, 0644U, 0755U, 0777U, 04755U, 02711U, 01666U}) {
    const std::string path = dir.Write("d/mode" + std::to_string(mode), "x");
    SetMode(path, mode);
  }
  for (const time_t time : {0L, 1L, 1234567890L, 2147483647L, 2147483648L, 8589934591L}) {
    SetTime(dir.Write("d/time" + std::to_string(time), "x"), time);
  }
  dir.Write("d/sub/inner", "x");
  Link("inner", dir.Path("d/sub/link"));
  SetTime(dir.Path("d/sub/link"), 1000000000);
  SetMode(dir.Path("d/sub"), 0500);
  SetTime(dir.Path("d/sub"), 1100000000);
  SetMode(dir.Path("d"), 03775);
  SetTime(dir.Path("d"), 1200000000);
  ASSERT_EQ(PackDirectory(dir.Path("d")), 0);
  // A time that has not come yet is worth a warning to tar.
  const UnpackedArchive archive(dir.Path("d.tar.gz"), {"--warning=no-timestamp"});
  ExpectSameTree(dir.Path("d"), archive.Path("d"));
}

TEST(LumArchiveDirectory, TimesOutsideTheFormatsRangeBecomeItsEnds) {
  const TempDir dir;
  dir.MakeDir("d");
  SetTime(dir.Write("d/early", "x"), -300000000);
  SetTime(dir.Write("d/late", "x"), 9000000000);
  ASSERT_EQ(PackDirectory(dir.Path("d")), 0);
  const UnpackedArchive archive(dir.Path("d.tar.gz"), {"--warning=no-timestamp"});
  EXPECT_THAT(Listing(archive.Path("d")), HasSubstr("early|f|644|0||1\n"));
  EXPECT_THAT(Listing(archive.Path("d")), HasSubstr("late|f|644|8589934591||1\n"));
}

TEST(LumArchiveDirectory, OwnersGoByNumber) {
  const TempDir dir;
  dir.MakeDir("d");
  const std::string path = dir.Write("d/file", "x");
  uid_t user = getuid();
  gid_t group = getgid();
  if (user == 0) {  // beyond what a tar header holds in octal digits
    user = 3000000;
    group = 4000000000;
    ASSERT_EQ(chown(path.c_str(), user, group), 0);
  }
  ASSERT_EQ(PackDirectory(dir.Path("d")), 0);
  const std::string list =
      lumtest::RunCommand({"tar", "--numeric-owner", "-tvzf", dir.Path("d.tar.gz"), "d/file"}).out;
  EXPECT_NE(list.find(" " + std::to_string(user) + "/" + std::to_string(group) + " "),
            std::string::npos)
      << list;
}

TEST(LumArchiveDirectory, NamesAreBytes) {
  const TempDir dir;
  dir.MakeDir("n\xc3\xa4me");
  const std::string longName(kLongestName, 'l');
  std::string path = "n\xc3\xa4me";
  for (const std::string& name :
       {std::string(" leading blank"), std::string("-rf"), std::string("new\nline"),
        std::string("back\\slash"), std::string("\xff\xfe not UTF-8"),
        std::string("\xc3\xa4\xe2\x82\xac"), std::string("tab\t\x01\x7f"), std::string("..."),
        std::string(".hidden"), std::string(".h"), std::string("..h"), std::string("*?[]"),
        std::string(99, 'a'), std::string(100, 'b'), std::string(101, 'c'), longName}) {
    dir.Write(path + "/" + name, "content of " + name);
    Link("to " + name.substr(0, 250), dir.Path(path + "/" + name.substr(0, 200) + "-link"));
  }
  for (int level = 0; level < 4; ++level) {
    path += "/" + std::string(kLongestName, 'd');
    dir.MakeDir(path);
  }
  dir.Write(path + "/deep", "deep");
  for (const char* locale : {"C", "C.UTF-8"}) {
    ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr) << locale;
    EXPECT_EQ(PackDirectory(dir.Path("n\xc3\xa4me")), 0) << locale;
    std::setlocale(LC_ALL, "C");
    const UnpackedArchive archive(dir.Path("n\xc3\xa4me.tar.gz"));
    ExpectSameTree(dir.Path("n\xc3\xa4me"), archive.Path("n\xc3\xa4me"));
  }
}

TEST(LumArchiveDirectory, MembersComeInTheOrderOfTheirBytes) {
  const TempDir dir;
  dir.MakeDir("d");
  std::mt19937 random(1);
  std::vector<std::string> names;
  for (int i = 0; i < 100; ++i) {
    names.push_back("d/" + std::to_string(random()));
    dir.Write(names.back(), "");
  }
  std::sort(names.begin(), names.end());
  names.insert(names.begin(), "d/");
  ASSERT_EQ(PackDirectory(dir.Path("d")), 0);
  EXPECT_EQ(UnpackedArchive(dir.Path("d.tar.gz")).Names(), names);
}

TEST(LumArchiveDirectory, SocketsPipesAndDevicesArePassedOver) {
  const TempDir dir;
  dir.MakeDir("d");
  dir.Write("d/file", "x");
  ASSERT_EQ(mkfifo(dir.Path("d/pipe").c_str(), 0600), 0);
  const int socketFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  {
    const WorkingDirectory here(dir.Path("d"));  // the address has room for a short path only
    std::strcpy(address.sun_path, "socket");
    ASSERT_EQ(bind(socketFd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
  // Only root may make a device.
  const bool device = mknod(dir.Path("d/device").c_str(), S_IFCHR | 0600, makedev(1, 3)) == 0;
  EXPECT_EQ(device, NamesIn(dir.Path("d")).size() == 4);
  ASSERT_EQ(PackDirectory(dir.Path("d")), 0);
  EXPECT_THAT(UnpackedArchive(dir.Path("d.tar.gz")).Names(), ElementsAre("d/", "d/file"));
  close(socketFd);
}

TEST(LumArchiveDirectory, HardLinksAndHolesBecomePlainFiles) {
  const TempDir dir;
  dir.MakeDir("d");
  dir.Write("d/a", "shared");
  ASSERT_EQ(link(dir.Path("d/a").c_str(), dir.Path("d/b").c_str()), 0);
  lumtest::MakeSparseFile(dir.Path("d/holes"), 3000000);
  ASSERT_EQ(PackDirectory(dir.Path("d")), 0);
  const UnpackedArchive archive(dir.Path("d.tar.gz"));
  ExpectSameTree(dir.Path("d"), archive.Path("d"));
  lumtest::WriteFile(archive.Path("d/a"), "changed");
  EXPECT_EQ(ReadFile(archive.Path("d/b")), "shared");
}

TEST(LumArchiveDirectory, SlashAtTheEndPutsTheArchiveInsideAndItNeverPacksItself) {
  const TempDir dir;
  dir.MakeDir("d");
  dir.MakeDir("d/sub");
  dir.Write("d/file", Noise(600000));
  dir.Write("d/sub/.tar.gz", "another directory's file of that name");
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(PackDirectory(dir.Path("d/")), 0);
    EXPECT_THAT(NamesIn(dir.Path("d")), ElementsAre(".tar.gz", "file", "sub"));
    const UnpackedArchive archive(dir.Path("d/.tar.gz"));
    EXPECT_THAT(archive.Names(), ElementsAre("d/", "d/file", "d/sub/", "d/sub/.tar.gz"));
    EXPECT_TRUE(ReadFile(archive.Path("d/file")) == Noise(600000));
  }
  ASSERT_EQ(PackDirectory(dir.Path("d///")), 0);
  EXPECT_THAT(UnpackedArchive(dir.Path("d/.tar.gz")).Names(), SizeIs(4));
  EXPECT_THAT(NamesIn(dir.Path()), ElementsAre("d"));
}

TEST(LumArchiveDirectory, DotsGoByTheNameOfWhatTheyMean) {
  const TempDir dir;
  dir.MakeDir("d");
  dir.MakeDir("d/e");
  dir.Write("d/file", "x");
  const WorkingDirectory here(dir.Path("d/e"));
  ASSERT_EQ(PackDirectory(".."), 0);
  EXPECT_THAT(UnpackedArchive("...tar.gz").Names(), ElementsAre("d/", "d/e/", "d/file"));
  ASSERT_EQ(PackDirectory("."), 0);
  EXPECT_THAT(UnpackedArchive("..tar.gz").Names(), ElementsAre("e/", "e/...tar.gz"));
}

TEST(LumArchiveDirectory, WorkingDirectoryThatIsGoneHasNoName) {
  const TempDir dir;
  const WorkingDirectory here(dir.MakeDir("d"));
  ASSERT_EQ(rmdir(dir.Path("d").c_str()), 0);
  EXPECT_EQ(PackDirectory("."), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(PackGroup(".", dir.Path("bundle")), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_THAT(NamesIn(dir.Path()), SizeIs(0));
}

TEST(LumArchiveDirectory, LinkToADirectoryIsFollowed) {
  const TempDir dir;
  dir.MakeDir("real");
  dir.MakeDir("real/sub");
  dir.Write("real/sub/file", "x");
  dir.Write("real/z", "after the way back up");
  Link("real", dir.Path("current"));
  ASSERT_EQ(PackDirectory(dir.Path("current")), 0);
  const UnpackedArchive archive(dir.Path("current.tar.gz"));
  EXPECT_THAT(archive.Names(),
              ElementsAre("current/", "current/sub/", "current/sub/file", "current/z"));
  ASSERT_EQ(PackDirectory(dir.Path("current/")), 0);
  EXPECT_THAT(NamesIn(dir.Path("real")), Contains(".tar.gz"));
}

TEST(LumArchiveDirectory, DepthNeedsNoDescriptors) {
  const TempDir dir;
  std::string path = "d";
  dir.MakeDir(path);
  for (int level = 0; level < 60; ++level) {
    path += "/s";
    dir.MakeDir(path);
    dir.Write(path + "/t", std::to_string(level));
  }
  ASSERT_EQ(WithFewDescriptors([&] { return PackDirectory(dir.Path("d")); }), 0);
  const UnpackedArchive archive(dir.Path("d.tar.gz"));
  EXPECT_THAT(archive.Names(), SizeIs(121));
  ExpectSameTree(dir.Path("d"), archive.Path("d"));
}

TEST(LumArchiveDirectory, WhatMayNotBeReadIsAFailure) {
  const TempDir dir;
  SetMode(dir.Path(), 0777);
  SetMode(dir.MakeDir("d"), 0755);
  SetMode(dir.MakeDir("d/sub"), 0755);
  dir.Write("d/sub/secret", "x");
  SetMode(dir.Write("d/a", Noise(1000000)), 0644);
  SetMode(dir.Path("d/sub/secret"), 0000);
  EXPECT_EQ(ErrorOfNobody(dir.Path("d")), EACCES);
  EXPECT_THAT(NamesIn(dir.Path()), ElementsAre("d"));
  SetMode(dir.Path("d/sub/secret"), 0644);
  SetMode(dir.Path("d/sub"), 0333);
  EXPECT_EQ(ErrorOfNobody(dir.Path("d")), EACCES);
  EXPECT_THAT(NamesIn(dir.Path()), ElementsAre("d"));
  SetMode(dir.Path("d/sub"), 0755);
  EXPECT_EQ(ErrorOfNobody(dir.Path("d")), 0);
  EXPECT_THAT(NamesIn(dir.Path()), ElementsAre("d", "d.tar.gz"));
}

TEST(LumArchiveDirectory, PlaceWithoutWritePermissionIsAFailure) {
  const TempDir dir;
  dir.MakeDir("d");
  SetMode(dir.Path(), 0555);
  EXPECT_EQ(ErrorOfNobody(dir.Path("d")), EACCES);
  SetMode(dir.Path(), 0755);
  EXPECT_THAT(NamesIn(dir.Path()), ElementsAre("d"));
}

// ---- A group ----

TEST(LumArchiveGroup, HoldsItsMembersInOrderUnderTheirBaseNames) {
  const TempDir dir;
  dir.MakeDir("x");
  dir.MakeDir("y");
  const std::string b = dir.Write("x/b.log", "b");
  const std::string a = dir.Write("y/a.log", "a");
  const std::string empty = dir.Write("y/empty", "");
  ASSERT_EQ(PackGroup(b + "\n" + a + "\n" + empty, dir.Path("bundle")), 0);
  const UnpackedArchive archive(dir.Path("bundle.tar.gz"));
  EXPECT_THAT(archive.Names(), ElementsAre("b.log", "a.log", "empty"));
  ExpectSameTree(b, archive.Path("b.log"));
  ExpectSameTree(a, archive.Path("a.log"));
  ExpectSameTree(empty, archive.Path("empty"));
}

TEST(LumArchiveGroup, EmptyLinesDoNotCount) {
  const TempDir dir;
  const std::string a = dir.Write("a", "a");
  const std::string b = dir.Write("b", "b");
  for (const std::string& group :
       {a + "\n" + b + "\n", "\n\n" + a + "\n\n\n" + b, "\n" + a + "\n" + b + "\n\n"}) {
    ASSERT_EQ(PackGroup(group, dir.Path("bundle")), 0) << group;
    EXPECT_THAT(UnpackedArchive(dir.Path("bundle.tar.gz")).Names(), ElementsAre("a", "b"));
  }
}

TEST(LumArchiveGroup, OnlyTheLineFeedEndsALine) {
  const TempDir dir;
  const std::string odd = dir.Write(" a\tb,c;d\r", "odd");
  ASSERT_EQ(PackGroup(odd + "\n", dir.Path("bundle")), 0);
  const UnpackedArchive archive(dir.Path("bundle.tar.gz"));
  EXPECT_EQ(ReadFile(archive.Path(" a\tb,c;d\r")), "odd");
}

TEST(LumArchiveGroup, DirectoriesAndLinksAreFollowedInto) {
  const TempDir dir;
  dir.MakeDir("logs");
  dir.MakeDir("logs/sub");
  dir.Write("logs/sub/inner", "inner");
  Link("inner", dir.Path("logs/sub/link"));
  const std::string file = dir.Write("file", "file");
  Link("file", dir.Path("current"));
  ASSERT_EQ(
      PackGroup(dir.Path("logs/") + "\n" + dir.Path("current") + "\n" + file, dir.Path("bundle")),
      0);
  const UnpackedArchive archive(dir.Path("bundle.tar.gz"));
  EXPECT_THAT(archive.Names(), ElementsAre("logs/", "logs/sub/", "logs/sub/inner", "logs/sub/link",
                                           "current", "file"));
  ExpectSameTree(dir.Path("logs"), archive.Path("logs"));
  EXPECT_EQ(ReadFile(archive.Path("current")), "file");
}

TEST(LumArchiveGroup, ArchiveInsideAMemberIsNotPacked) {
  const TempDir dir;
  dir.MakeDir("d");
  dir.MakeDir("d/sub");
  dir.Write("d/file", Noise(600000));
  dir.Write("d/bundle.tar.gz", "another one of that name");
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(PackGroup(dir.Path("d"), dir.Path("d/sub/../sub/bundle")), 0);
    EXPECT_THAT(UnpackedArchive(dir.Path("d/sub/bundle.tar.gz")).Names(),
                ElementsAre("d/", "d/bundle.tar.gz", "d/file", "d/sub/"));
  }
}

TEST(LumArchiveGroup, TwoMembersOfOneNameAreRefused) {
  const TempDir dir;
  dir.MakeDir("x");
  dir.MakeDir("y");
  const std::string a = dir.Write("x/same", "a");
  const std::string b = dir.Write("y/same", "b");
  dir.MakeDir("same");
  const std::string before = Listing(dir.Path());
  for (const std::string& group :
       {a + "\n" + b, a + "\n" + a, a + "\n" + dir.Path("same/"),
        dir.Path("x") + "\n" + dir.Path("y") + "\n" + dir.Path("x/../y")}) {
    EXPECT_EQ(PackGroup(group, dir.Path("bundle")), -1) << group;
    EXPECT_EQ(errno, EEXIST) << group;
  }
  EXPECT_EQ(Listing(dir.Path()), before);
}

TEST(LumArchiveGroup, ListsAndBasesThatNameNothing) {
  const TempDir dir;
  const std::string a = dir.Write("a", "a");
  const std::string base = dir.Path("bundle");
  for (const std::string group : {"", "\n", "\n\n\n"}) {
    EXPECT_EQ(PackGroup(group, base), -1);
    EXPECT_EQ(errno, EINVAL);
  }
  EXPECT_EQ(PackGroup(a, ""), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(LumCompressAndDeCompress::CompressFileGroup(nullptr, base.c_str()), -1);
  EXPECT_EQ(LumCompressAndDeCompress::CompressFileGroup(a.c_str(), nullptr), -1);
  EXPECT_EQ(LumCompressAndDeCompress::CompressFileGroup(nullptr, nullptr), -1);
  EXPECT_EQ(PackGroup(a, dir.Path("missing/bundle")), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(PackGroup(a, dir.Path("a/bundle")), -1);
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_THAT(NamesIn(dir.Path()), ElementsAre("a"));
}

TEST(LumArchiveGroup, OneMissingMemberFailsTheWhole) {
  const TempDir dir;
  const std::string a = dir.Write("a", Noise(900000));
  dir.Write("bundle.tar.gz", "old archive");
  EXPECT_EQ(PackGroup(a + "\n" + dir.Path("missing"), dir.Path("bundle")), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(ReadFile(dir.Path("bundle.tar.gz")), "old archive");
  EXPECT_THAT(NamesIn(dir.Path()), ElementsAre("a", "bundle.tar.gz"));
}

TEST(LumArchiveGroup, MayHoldTheArchiveThatItReplaces) {
  const TempDir dir;
  const std::string old = dir.Write("bundle.tar.gz", "old archive");
  ASSERT_EQ(PackGroup(old, dir.Path("bundle")), 0);
  EXPECT_EQ(ReadFile(UnpackedArchive(old).Path("bundle.tar.gz")), "old archive");
}

TEST(LumArchiveGroup, ManyMembersNeedFewDescriptors) {
  const TempDir dir;
  std::string group;
  for (int i = 0; i < 100; ++i) {
    group += dir.Write("file" + std::to_string(i), std::to_string(i)) + "\n";
  }
  ASSERT_EQ(WithFewDescriptors([&] { return PackGroup(group, dir.Path("bundle")); }), 0);
  EXPECT_THAT(UnpackedArchive(dir.Path("bundle.tar.gz")).Names(), SizeIs(100));
}

// ---- All forms ----

TEST(LumArchive, WhatIsOfAnotherKindIsRefused) {
  const TempDir dir;
  dir.MakeDir("sub");
  dir.Write("file", "x");
  ASSERT_EQ(mkfifo(dir.Path("pipe").c_str(), 0600), 0);
  Link("missing", dir.Path("dangling"));
  Link("loop", dir.Path("loop"));
  const struct {
    std::string path;
    int errorAsFile;
    int errorAsDirectory;  // 0: is one
  } kCases[] = {
      {dir.Path("missing"), ENOENT, ENOENT},
      {dir.Path("no/such"), ENOENT, ENOENT},
      {dir.Path("file/x"), ENOTDIR, ENOTDIR},
      {dir.Path("file/"), ENOTDIR, ENOTDIR},
      {dir.Path("file"), 0, ENOTDIR},
      {dir.Path("sub"), EISDIR, 0},
      {dir.Path("sub/"), EISDIR, 0},
      {dir.Path("dangling"), ENOENT, ENOENT},
      {dir.Path("loop"), ELOOP, ELOOP},
      {dir.Path("pipe"), EINVAL, EINVAL},
      {"", ENOENT, ENOENT},
      {"/dev/null", EINVAL, EINVAL},
      {dir.Path(std::string(300, 'n')), ENAMETOOLONG, ENAMETOOLONG},
  };
  const std::string before = Listing(dir.Path());
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
  EXPECT_EQ(Listing(dir.Path()), before);  // the directory was not even touched
}

TEST(LumArchive, DescriptorsAreClosed) {
  const TempDir dir;
  dir.MakeDir("d");
  dir.MakeDir("d/sub");
  const std::string file = dir.Write("d/sub/file", "x");
  const std::size_t before = lumtest::OpenDescriptors();
  EXPECT_EQ(PackFile(file), 0);
  EXPECT_EQ(PackDirectory(dir.Path("d")), 0);
  EXPECT_EQ(PackGroup(file, dir.Path("bundle")), 0);
  EXPECT_EQ(PackFile(dir.Path("d")), -1);
  EXPECT_EQ(PackDirectory(file), -1);
  EXPECT_EQ(PackGroup(file + "\n" + dir.Path("missing"), dir.Path("bundle")), -1);
  EXPECT_EQ(PackGroup(file, dir.Path("missing/bundle")), -1);
  EXPECT_EQ(lumtest::OpenDescriptors(), before);
}

TEST(LumArchive, ThreadsMayPackAtOnce) {
  const TempDir dir;
  dir.MakeDir("shared");
  dir.Write("shared/file", Noise(300000));
  std::vector<std::thread> threads;
  std::vector<int> results(4, -1);
  for (std::size_t id = 0; id < results.size(); ++id) {
    const std::string own = "own" + std::to_string(id);
    dir.MakeDir(own);
    dir.Write(own + "/file", Noise(100000 + id));
    threads.emplace_back([&dir, &results, own, id] {
      results[id] = 0;
      for (int i = 0; i < 5; ++i) {
        results[id] |= LumCompressAndDeCompress::CompressFilePath(dir.Path(own).c_str());
        results[id] |= LumCompressAndDeCompress::CompressFilePath(dir.Path("shared").c_str());
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_THAT(results, ElementsAre(0, 0, 0, 0));
  for (const std::string name : {"own0", "own1", "own2", "own3", "shared"}) {
    const UnpackedArchive archive(dir.Path(name + ".tar.gz"));
    ExpectSameTree(dir.Path(name), archive.Path(name));
  }
  EXPECT_THAT(NamesIn(dir.Path()), SizeIs(10));
}

}  // namespace

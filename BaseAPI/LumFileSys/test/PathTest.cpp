// Tests of LumDir and LumFile.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <string>

#include "LumFileSys.h"
#include "support/Files.h"

namespace {

using lumtest::Exists;
using lumtest::TempDir;

bool RealPath(const std::string& path) {
  return LumDir::LumRealPath(path.c_str(), static_cast<int>(path.size()));
}

class LumRealPath : public ::testing::Test {
 protected:
  const TempDir m_dir;
};

using LumRemoveFile = LumRealPath;

// ---- LumRealPath ----

TEST_F(LumRealPath, FileInADirectoryThatExists) {
  EXPECT_TRUE(RealPath(m_dir.Write("file", "x")));
  EXPECT_TRUE(RealPath(m_dir.Path("new")));
  EXPECT_TRUE(RealPath("no-such-file-in-the-working-directory"));
  EXPECT_TRUE(RealPath("/no-such-file-in-the-root"));
  EXPECT_TRUE(RealPath("//no-such-file-in-the-root"));
  EXPECT_TRUE(
      RealPath(m_dir.Path("./../") + m_dir.Path().substr(m_dir.Path().rfind('/') + 1) + "/new"));
  EXPECT_TRUE(RealPath(m_dir.Path("/new")));  // a doubled slash
  EXPECT_TRUE(RealPath("/dev/null"));
}

TEST_F(LumRealPath, NameOfOneByteIsAName) {
  EXPECT_TRUE(RealPath("#"));
}

TEST_F(LumRealPath, DirectoryIsNoFile) {
  m_dir.MakeDir("sub");
  for (const std::string& path :
       {m_dir.Path(), m_dir.Path("sub"), m_dir.Path("sub/"), m_dir.Path("sub/."),
        m_dir.Path("sub/.."), m_dir.Path(""), std::string("/"), std::string("."), std::string(".."),
        std::string("//")}) {
    EXPECT_FALSE(RealPath(path)) << path;
  }
}

TEST_F(LumRealPath, DirectoryOfTheFileMustExist) {
  m_dir.Write("file", "x");
  EXPECT_FALSE(RealPath(m_dir.Path("missing/new")));
  EXPECT_FALSE(RealPath(m_dir.Path("missing/")));
  EXPECT_FALSE(RealPath(m_dir.Path("file/new")));
  EXPECT_FALSE(RealPath(m_dir.Path("file/")));
  EXPECT_FALSE(RealPath("missing-in-the-working-directory/new"));
}

TEST_F(LumRealPath, NullAndLengths) {
  const std::string path = m_dir.Path("file");
  const int length = static_cast<int>(path.size());
  EXPECT_FALSE(LumDir::LumRealPath(nullptr, 4));
  EXPECT_FALSE(LumDir::LumRealPath(nullptr, 0));
  EXPECT_FALSE(LumDir::LumRealPath(path.c_str(), 0));
  EXPECT_FALSE(LumDir::LumRealPath(path.c_str(), -1));
  EXPECT_FALSE(LumDir::LumRealPath(path.c_str(), INT_MIN));
  EXPECT_FALSE(LumDir::LumRealPath(path.c_str(), length + 1));  // takes the terminator in
  EXPECT_FALSE(LumDir::LumRealPath(path.c_str(), INT_MAX));
  EXPECT_FALSE(LumDir::LumRealPath("", 0));
  EXPECT_FALSE(LumDir::LumRealPath("", 1));
}

TEST_F(LumRealPath, OnlyTheFirstBytesCount) {
  const std::string path = m_dir.Path("file");
  const std::string longer = path + "/missing/further";
  EXPECT_TRUE(LumDir::LumRealPath(longer.c_str(), static_cast<int>(path.size())));
  EXPECT_FALSE(RealPath(longer));
  const std::string directory = m_dir.Path() + "/file";
  EXPECT_FALSE(LumDir::LumRealPath(directory.c_str(), static_cast<int>(m_dir.Path().size())));
}

TEST_F(LumRealPath, ZeroByteIsRefusedWhereverItStands) {
  const std::string path = m_dir.Path("file");
  for (std::size_t at = 0; at < path.size(); ++at) {
    std::string broken = path;
    broken[at] = '\0';
    EXPECT_FALSE(RealPath(broken)) << at;
  }
}

TEST_F(LumRealPath, LengthsAroundPathMax) {
  std::string path;
  while (path.size() < PATH_MAX - 1) {
    path += "./";
  }
  path.resize(PATH_MAX - 1);
  path.back() = 'f';  // after a slash
  EXPECT_TRUE(RealPath(path));
  EXPECT_FALSE(RealPath(path + "f"));
  EXPECT_FALSE(RealPath(path + "ff"));
}

TEST_F(LumRealPath, BytesBeyondTheLengthAreNotRead) {
  const std::string path = "file-without-a-terminator";
  const std::unique_ptr<char[]> exact(new char[path.size()]);
  std::memcpy(exact.get(), path.data(), path.size());
  EXPECT_TRUE(LumDir::LumRealPath(exact.get(), static_cast<int>(path.size())));
}

TEST_F(LumRealPath, LinksAreFollowed) {
  m_dir.Write("file", "x");
  m_dir.MakeDir("sub");
  ASSERT_EQ(symlink("file", m_dir.Path("to-file").c_str()), 0);
  ASSERT_EQ(symlink("sub", m_dir.Path("to-sub").c_str()), 0);
  ASSERT_EQ(symlink("missing", m_dir.Path("dangling").c_str()), 0);
  ASSERT_EQ(symlink("loop", m_dir.Path("loop").c_str()), 0);
  EXPECT_TRUE(RealPath(m_dir.Path("to-file")));
  EXPECT_FALSE(RealPath(m_dir.Path("to-sub")));
  EXPECT_TRUE(RealPath(m_dir.Path("to-sub/new")));
  EXPECT_TRUE(RealPath(m_dir.Path("dangling")));
  EXPECT_FALSE(RealPath(m_dir.Path("dangling/new")));
  EXPECT_TRUE(RealPath(m_dir.Path("loop")));
  EXPECT_FALSE(RealPath(m_dir.Path("loop/new")));
}

TEST_F(LumRealPath, SaysNothingAboutPermissions) {
  m_dir.MakeDir("open");
  m_dir.MakeDir("closed");
  ASSERT_EQ(chmod(m_dir.Path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(m_dir.Path("open").c_str(), 0555), 0);    // nothing can be made in it
  ASSERT_EQ(chmod(m_dir.Path("closed").c_str(), 0000), 0);  // nothing can be looked at in it
  m_dir.MakeDir("closed/inner");
  const pid_t child = fork();
  if (child == 0) {
    if (getuid() == 0 && setuid(65534) != 0) {
      _exit(100);
    }
    _exit((RealPath(m_dir.Path("open/new")) ? 1 : 0) +
          (RealPath(m_dir.Path("closed/new")) ? 2 : 0) +
          (RealPath(m_dir.Path("closed/inner/new")) ? 4 : 0));
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), 1 + 2);
  ASSERT_EQ(chmod(m_dir.Path("closed").c_str(), 0755), 0);
}

TEST_F(LumRealPath, NameTooLongForAnyFileIsStillAName) {
  EXPECT_TRUE(RealPath(m_dir.Path(std::string(300, 'n'))));
  EXPECT_FALSE(RealPath(m_dir.Path(std::string(300, 'n') + "/new")));
}

// ---- RemoveFile ----

TEST_F(LumRemoveFile, RemovesAFile) {
  const std::string path = m_dir.Write("file", "x");
  EXPECT_EQ(LumFile::RemoveFile(path), 0);
  EXPECT_FALSE(Exists(path));
}

TEST_F(LumRemoveFile, RemovesTheLinkAndNotItsTarget) {
  const std::string path = m_dir.Write("file", "x");
  ASSERT_EQ(symlink("file", m_dir.Path("link").c_str()), 0);
  EXPECT_EQ(LumFile::RemoveFile(m_dir.Path("link")), 0);
  EXPECT_FALSE(Exists(m_dir.Path("link")));
  EXPECT_TRUE(Exists(path));
}

TEST_F(LumRemoveFile, WhatIsNotThereIsAFailure) {
  errno = 0;
  EXPECT_EQ(LumFile::RemoveFile(m_dir.Path("missing")), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(LumFile::RemoveFile(""), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(LumRemoveFile, DirectoryStays) {
  m_dir.MakeDir("sub");
  EXPECT_EQ(LumFile::RemoveFile(m_dir.Path("sub")), -1);
  EXPECT_TRUE(Exists(m_dir.Path("sub")));
}

TEST_F(LumRemoveFile, NameBeforeAZeroByteIsSafe) {
  const std::string path = m_dir.Write("file", "x");
  errno = 0;
  EXPECT_EQ(LumFile::RemoveFile(path + '\0' + "more"), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_TRUE(Exists(path));
}

}  // namespace

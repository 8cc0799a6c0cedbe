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
#include <utility>

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

TEST_F(LumRealPath, FileInADirectoryThatExistsAndNoDirectory) {
  m_dir.Write("file", "x");
  m_dir.MakeDir("sub");
  for (const auto& [target, link] : {std::pair("file", "to-file"), std::pair("sub", "to-sub"),
                                     std::pair("missing", "dangling"), std::pair("loop", "loop")}) {
    ASSERT_EQ(symlink(target, m_dir.Path(link).c_str()), 0);
  }
  const std::string ownName = m_dir.Path().substr(m_dir.Path().rfind('/') + 1);
  const std::string longName(300, 'n');  // for any file; it is still a name
  for (const std::string& path :
       {m_dir.Path("file"), m_dir.Path("new"), std::string("#"),
        std::string("no-such-file-in-the-working-directory"), std::string("/no-such-file"),
        std::string("//no-such-file"), m_dir.Path("./../") + ownName + "/new", m_dir.Path("/new"),
        std::string("/dev/null"), m_dir.Path("to-file"), m_dir.Path("to-sub/new"),
        m_dir.Path("dangling"), m_dir.Path("loop"), m_dir.Path(longName)}) {
    EXPECT_TRUE(RealPath(path)) << path;
  }
  for (const std::string& path :
       {m_dir.Path(), m_dir.Path("sub"), m_dir.Path("sub/"), m_dir.Path("sub/."),
        m_dir.Path("sub/.."), m_dir.Path(""), std::string("/"), std::string("."), std::string(".."),
        std::string("//"), m_dir.Path("missing/new"), m_dir.Path("missing/"),
        m_dir.Path("file/new"), m_dir.Path("file/"), std::string("missing-here/new"),
        m_dir.Path("to-sub"), m_dir.Path("dangling/new"), m_dir.Path("loop/new"),
        m_dir.Path(longName + "/new")}) {
    EXPECT_FALSE(RealPath(path)) << path;
  }
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

// ---- RemoveFile ----

TEST_F(LumRemoveFile, RemovesAFileOrALinkAndNotItsTarget) {
  const std::string path = m_dir.Write("file", "x");
  ASSERT_EQ(symlink("file", m_dir.Path("link").c_str()), 0);
  EXPECT_EQ(LumFile::RemoveFile(m_dir.Path("link")), 0);
  EXPECT_FALSE(Exists(m_dir.Path("link")));
  EXPECT_TRUE(Exists(path));
  EXPECT_EQ(LumFile::RemoveFile(path), 0);
  EXPECT_FALSE(Exists(path));
}

TEST_F(LumRemoveFile, FailureRemovesNothing) {
  const std::string file = m_dir.Write("file", "x");
  const std::string sub = m_dir.MakeDir("sub");
  for (const auto& [path, error] :
       {std::pair(m_dir.Path("missing"), ENOENT), std::pair(std::string(), ENOENT),
        std::pair(sub, EISDIR), std::pair(file + '\0' + "more", EINVAL)}) {
    errno = 0;
    EXPECT_EQ(LumFile::RemoveFile(path), -1) << path;
    EXPECT_EQ(errno, error) << path;
  }
  EXPECT_TRUE(Exists(file) && Exists(sub));
}

}  // namespace

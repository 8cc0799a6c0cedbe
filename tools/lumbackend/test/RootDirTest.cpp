// Reaching files by names that strangers choose.
#include "RootDir.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "support/Files.h"

namespace {

class RootDirTest : public testing::Test {
 protected:
  RootDirTest() {
    m_temp.MakeDir("root/sub");
    m_temp.Write("root/sub/file", "inside");
    m_temp.Write("outside", "secret");
  }

  lumtest::TempDir m_temp;
  const RootDir m_root{m_temp.Path("root")};  // makes it
};

TEST_F(RootDirTest, OpensFilesBelow) {
  const OpenedFile opened = m_root.Open({"sub", "file"});
  EXPECT_EQ(opened.error, 0);
  EXPECT_TRUE(opened.file);
  EXPECT_EQ(opened.size, 6u);
}

TEST_F(RootDirTest, NamesThatAreNotPlainAreRefused) {
  const std::string longName(256, 'a');
  for (const std::string& name :
       {std::string(""), std::string("."), std::string(".."), std::string("a/b"),
        std::string("../outside"), std::string("a\0b", 3), longName}) {
    EXPECT_FALSE(RootDir::IsPlainName(name)) << name;
    EXPECT_EQ(m_root.Open({name}).error, EINVAL) << name;
    EXPECT_EQ(m_root.Open({name, "file"}).error, EINVAL) << name;
  }
  EXPECT_EQ(m_root.Open({}).error, EINVAL);
  EXPECT_TRUE(RootDir::IsPlainName("..."));
  EXPECT_TRUE(RootDir::IsPlainName(longName.substr(1)));
}

TEST_F(RootDirTest, SymbolicLinksAreNotFollowed) {
  ASSERT_EQ(::symlink(m_temp.Path("outside").c_str(), m_temp.Path("root/link").c_str()), 0);
  ASSERT_EQ(::symlink(m_temp.Path().c_str(), m_temp.Path("root/up").c_str()), 0);
  ASSERT_EQ(::symlink("sub", m_temp.Path("root/inside").c_str()), 0);
  EXPECT_EQ(m_root.Open({"link"}).error, ELOOP);
  EXPECT_EQ(m_root.Open({"up", "outside"}).error, ELOOP);
  EXPECT_EQ(m_root.Open({"inside", "file"}).error, ELOOP);
}

TEST_F(RootDirTest, TheRootItselfMayBeALink) {
  ASSERT_EQ(::symlink("root", m_temp.Path("alias").c_str()), 0);
  EXPECT_EQ(RootDir(m_temp.Path("alias")).Open({"sub", "file"}).error, 0);
}

TEST_F(RootDirTest, OnlyRegularFilesAreOpened) {
  ASSERT_EQ(::mkfifo(m_temp.Path("root/pipe").c_str(), 0600), 0);
  EXPECT_EQ(m_root.Open({"pipe"}).error, EISDIR);
  EXPECT_EQ(m_root.Open({"sub"}).error, EISDIR);
  EXPECT_EQ(m_root.Open({"nothing"}).error, ENOENT);
  EXPECT_EQ(m_root.Open({"nothing", "file"}).error, ENOENT);
  EXPECT_EQ(m_root.Open({"sub", "file", "deeper"}).error, ENOTDIR);
}

TEST_F(RootDirTest, MakesParentsOnlyWhenAsked) {
  EXPECT_FALSE(m_root.OpenParent({"a", "b", "c"}, false));
  EXPECT_FALSE(lumtest::Exists(m_temp.Path("root/a")));
  EXPECT_TRUE(m_root.OpenParent({"a", "b", "c"}, true));
  EXPECT_TRUE(lumtest::Exists(m_temp.Path("root/a/b")));
  EXPECT_FALSE(lumtest::Exists(m_temp.Path("root/a/b/c")));
}

TEST_F(RootDirTest, MakesNoDirectoryBehindALink) {
  m_temp.MakeDir("elsewhere");
  ASSERT_EQ(::symlink(m_temp.Path("elsewhere").c_str(), m_temp.Path("root/out").c_str()), 0);
  EXPECT_FALSE(m_root.OpenParent({"out", "new", "x"}, true));
  EXPECT_EQ(errno, ELOOP);
  EXPECT_FALSE(lumtest::Exists(m_temp.Path("elsewhere/new")));
}

}  // namespace

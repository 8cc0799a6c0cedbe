// Temporary directories and file helpers.

#include "support/Files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace lumtest {
namespace {

TEST(TempDir, GoesWithAllThatIsInIt) {
  std::string path;
  {
    const TempDir directory;
    const TempDir other;
    path = directory.Path();
    EXPECT_NE(path, other.Path());
    EXPECT_EQ(FileMode(path), 0700u);
    EXPECT_EQ(directory.Path("a"), path + "/a");
    directory.Write("locked/file", "content");
    ASSERT_EQ(symlink("/", directory.Path("link").c_str()), 0);
    ASSERT_EQ(chmod(directory.Path("locked").c_str(), 0), 0);
  }
  EXPECT_FALSE(Exists(path));
  EXPECT_TRUE(Exists("/"));
}

TEST(TempDir, IsLeftAloneByAForkedChild) {
  static const TempDir directory;  // a child runs its destructor on the way out
  const std::string file = directory.Write("file", "content");
  const pid_t child = fork();
  if (child == 0) {
    std::exit(0);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(ReadFile(file), "content");
}

TEST(Files, TextsAreTakenApartAtTheirLinesEnds) {
  using Lines = std::vector<std::string>;
  EXPECT_EQ(LinesOf("a\n\nb c\n"), (Lines{"a", "", "b c"}));
  EXPECT_EQ(LinesOf("a\nb"), (Lines{"a", "b"}));
  EXPECT_EQ(LinesOf(std::string("a\n\0b\0", 5), '\0'), (Lines{"a\n", "b"}));
  EXPECT_EQ(LinesOf(""), Lines());
}

TEST(Files, SparseFilesTakeNoRoom) {
  const TempDir directory;
  const std::string path = directory.Path("sparse");
  MakeSparseFile(path, 5ull << 30);
  EXPECT_EQ(FileSize(path), 5ull << 30);
  struct stat status;
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_LT(status.st_blocks * 512, 1 << 20);
}

TEST(Files, ErrorsNameTheFile) {
  const TempDir directory;
  const std::string none = directory.Path("none/file");
  const auto message = [](auto call) -> std::string {
    try {
      call();
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "no error";
  };
  for (const std::string& text :
       {message([&] { ReadFile(none); }), message([&] { WriteFile(none, ""); }),
        message([&] { AppendFile(none, ""); }), message([&] { MakeSparseFile(none, 1); }),
        message([&] { FileSize(none); }), message([&] { FileMode(none); })}) {
    EXPECT_NE(text.find(none), std::string::npos) << text;
  }
  EXPECT_THROW(ReadFile(directory.Path()), std::runtime_error);
  EXPECT_THROW(WriteFile("/dev/full", "x"), std::runtime_error);
  directory.MakeDir("on/twice");
  EXPECT_THROW(directory.MakeDir("on/twice"), std::runtime_error);
}

}  // namespace
}  // namespace lumtest

// Compress-and-upload with real archives, looked into by GNU tar.

#include <functional>
#include <sstream>

#include "ServiceLiveTest.h"
#include "support/Process.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

// Unpacks what was uploaded into a directory; gives its members as tar lists them.
std::vector<std::string> Unpack(const std::string& archive, const TempDir& target) {
  const std::string file = target.Write("uploaded.tar.gz", archive);
  const ProcessResult listed = RunCommand({"tar", "-tzf", file});
  EXPECT_TRUE(listed.Succeeded()) << listed.Describe();
  const ProcessResult unpacked = RunCommand({"tar", "-xzf", file, "-C", target.Path()});
  EXPECT_TRUE(unpacked.Succeeded()) << unpacked.Describe();
  std::vector<std::string> members;
  std::istringstream lines(listed.out);
  for (std::string line; std::getline(lines, line);) {
    members.push_back(line);
  }
  return members;
}

// --- Inputs and archives that go missing, in each form ---

struct Form {
  const char* name;  // of the operation
  std::function<int(LumCurlOrvOps&, const std::string& url, const TempDir&)> run;
  const char* archive;
  bool keepsArchive;
};

void PrintTo(const Form& form, std::ostream* out) {
  *out << form.name;
}

class CompressLiveTest : public ServiceLiveTest, public ::testing::WithParamInterface<Form> {
 protected:
  CompressLiveTest() {
    directory.Write("a.log", "a");
    directory.Write("b.log", "b");
    directory.MakeDir("logs");
    directory.Write("logs/one", "1");
  }

  int Run() { return GetParam().run(client, server.Url("/x"), directory); }
  std::string Archive() const { return directory.Path(GetParam().archive); }

  // A server that takes the archive away.
  void Serve(int status) {
    server.SetHandler([this, status](const WireRequest&) {
      EXPECT_EQ(std::remove(Archive().c_str()), 0);
      return StatusReply(status);
    });
  }
};

TEST_P(CompressLiveTest, RefusedUploadOfAnArchiveThatCannotBeRemoved) {
  Serve(403);

  EXPECT_EQ(Run(), -10000);

  if (GetParam().keepsArchive) {
    EXPECT_THAT(log.Messages(),
                ElementsAre("UploadLog failed, code=403, body=", "upload file failed"));
  } else {
    EXPECT_THAT(log.Messages(), ElementsAre("UploadLog failed, code=403, body=",
                                            "upload file failed", "remove file failed"));
  }
}

TEST_P(CompressLiveTest, UploadedArchiveThatCannotBeRemoved) {
  Serve(200);

  EXPECT_EQ(Run(), -10000);

  EXPECT_THAT(log.Messages(), ElementsAre("remove file failed"));
  EXPECT_EQ(log.Last().function, GetParam().name);
  EXPECT_EQ(server.Request(0).Header("Content-Type"), "application/zip");
}

TEST_P(CompressLiveTest, InputThatIsNotThereIsNotUploaded) {
  const TempDir empty;

  EXPECT_EQ(GetParam().run(client, server.Url("/x"), empty), -10000);

  EXPECT_THAT(log.Messages(), ElementsAre("compress file failed"));
  EXPECT_EQ(server.Connections().size(), 0U);
  EXPECT_FALSE(Exists(empty.Path(GetParam().archive)));
}

INSTANTIATE_TEST_SUITE_P(
    Forms, CompressLiveTest,
    ::testing::Values(Form{"UploadLogFileGorupForCompress",
                           [](LumCurlOrvOps& c, const std::string& url, const TempDir& d) {
                             return c.UploadLogFileGorupForCompress(
                                 url, d.Path("a.log") + "\n" + d.Path("b.log") + "\n",
                                 d.Path("group"));
                           },
                           "group.tar.gz", false},
                      Form{"UploadLogDirPathForCompress",
                           [](LumCurlOrvOps& c, const std::string& url, const TempDir& d) {
                             return c.UploadLogDirPathForCompress(url, d.Path("logs"));
                           },
                           "logs.tar.gz", true},
                      Form{"UploadLogFileForCompress",
                           [](LumCurlOrvOps& c, const std::string& url, const TempDir& d) {
                             return c.UploadLogFileForCompress(url, d.Path("a.log"));
                           },
                           "a.log.tar.gz", false}),
    [](const ::testing::TestParamInfo<Form>& instance) { return instance.param.name; });

// --- What is in the archives; odd names, lists and trees are LumFileSys's own tests' ---

class ArchiveLiveTest : public ServiceLiveTest {
 protected:
  ArchiveLiveTest() { server.SetHandler(Always(200)); }

  TempDir target;
};

TEST_F(ArchiveLiveTest, FileIsItsArchivesOnlyMember) {
  const std::string path = directory.Write("a.log", GeneratedBytes(7, 300000));

  EXPECT_EQ(client.UploadLogFileForCompress(server.Url(), path), 0);

  EXPECT_THAT(Unpack(server.Request(0).body, target), ElementsAre("a.log"));
  EXPECT_EQ(ReadFile(target.Path("a.log")), GeneratedBytes(7, 300000));
}

TEST_F(ArchiveLiveTest, GroupHoldsItsFilesAndDirectories) {
  directory.MakeDir("d");
  directory.Write("d/x", "x");
  const std::string group = "\n" + directory.Write("one.log", "1") + "\n\n" +
                            directory.Write("two.log", "2") + "\n" + directory.Path("d") + "\n";

  EXPECT_EQ(client.UploadLogFileGorupForCompress(server.Url(), group, directory.Path("g")), 0);

  EXPECT_THAT(Unpack(server.Request(0).body, target),
              ElementsAre("one.log", "two.log", "d/", "d/x"));
  EXPECT_EQ(ReadFile(target.Path("two.log")), "2");
}

TEST_F(ArchiveLiveTest, DirectoryIsPackedWithAllBelowIt) {
  const std::string logs = directory.MakeDir("logs");
  directory.MakeDir("logs/empty");
  directory.Write("logs/a", GeneratedBytes(0, 70000));
  directory.Write("logs/.hidden", "h");
  ASSERT_TRUE(RunCommand({"ln", "-s", "a", logs + "/link"}).Succeeded());

  EXPECT_EQ(client.UploadLogDirPathForCompress(server.Url(), logs), 0);

  EXPECT_THAT(Unpack(server.Request(0).body, target),
              UnorderedElementsAre("logs/", "logs/.hidden", "logs/a", "logs/empty/", "logs/link"));
  const ProcessResult same = RunCommand({"diff", "-r", logs, target.Path("logs")});
  EXPECT_TRUE(same.Succeeded()) << same.Describe();
}

TEST_F(ArchiveLiveTest, OlderArchiveOfAFailedCompressionIsLeftAlone) {
  const std::string older = directory.Write("gone.log.tar.gz", "an older archive");

  EXPECT_EQ(client.UploadLogFileForCompress(server.Url(), directory.Path("gone.log")), -10000);

  EXPECT_EQ(ReadFile(older), "an older archive");
}

}  // namespace
}  // namespace lumtest

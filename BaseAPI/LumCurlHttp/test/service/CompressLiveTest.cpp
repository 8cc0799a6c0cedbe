// Compress-and-upload with real archives, looked into by GNU tar.

#include <functional>
#include <sstream>
#include <thread>

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

// Whether two trees hold the same, by diff.
void ExpectSameTree(const std::string& one, const std::string& other) {
  const ProcessResult result = RunCommand({"diff", "-r", one, other});
  EXPECT_TRUE(result.Succeeded()) << result.Describe();
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

// --- What is in the archives ---

class ArchiveLiveTest : public ServiceLiveTest {
 protected:
  ArchiveLiveTest() { server.SetHandler(Always(200)); }

  const std::string& Uploaded() { return m_uploaded = server.Request(0).body; }

  TempDir target;

 private:
  std::string m_uploaded;
};

TEST_F(ArchiveLiveTest, FileIsItsArchivesOnlyMember) {
  const std::string path = directory.Write("a.log", GeneratedBytes(7, 300000));

  EXPECT_EQ(client.UploadLogFileForCompress(server.Url(), path), 0);

  EXPECT_THAT(Unpack(Uploaded(), target), ElementsAre("a.log"));
  EXPECT_EQ(ReadFile(target.Path("a.log")), GeneratedBytes(7, 300000));
}

TEST_F(ArchiveLiveTest, GroupHoldsItsFilesAndDirectories) {
  directory.MakeDir("d");
  directory.Write("d/x", "x");
  const std::string group = "\n" + directory.Write("one.log", "1") + "\n\n" +
                            directory.Write("two.log", "2") + "\n" + directory.Path("d") + "\n";

  EXPECT_EQ(client.UploadLogFileGorupForCompress(server.Url(), group, directory.Path("g")), 0);

  EXPECT_THAT(Unpack(Uploaded(), target), ElementsAre("one.log", "two.log", "d/", "d/x"));
  EXPECT_EQ(ReadFile(target.Path("two.log")), "2");
}

TEST_F(ArchiveLiveTest, DirectoryIsPackedWithAllBelowIt) {
  const std::string logs = directory.MakeDir("logs");
  directory.MakeDir("logs/empty");
  directory.Write("logs/a", GeneratedBytes(0, 70000));
  directory.Write("logs/.hidden", "h");
  ASSERT_TRUE(RunCommand({"ln", "-s", "a", logs + "/link"}).Succeeded());

  EXPECT_EQ(client.UploadLogDirPathForCompress(server.Url(), logs), 0);

  EXPECT_THAT(Unpack(Uploaded(), target),
              UnorderedElementsAre("logs/", "logs/.hidden", "logs/a", "logs/empty/", "logs/link"));
  ExpectSameTree(logs, target.Path("logs"));
}

TEST_F(ArchiveLiveTest, DirectoryWithASlashHasItsArchiveInsideAndNotInIt) {
  const std::string logs = directory.MakeDir("logs");
  directory.Write("logs/a", "a");
  bool inside = false;
  server.SetHandler([&](const WireRequest&) {
    inside = Exists(logs + "/.tar.gz");
    return StatusReply(200);
  });

  EXPECT_EQ(client.UploadLogDirPathForCompress(server.Url(), logs + "/"), 0);

  EXPECT_TRUE(inside);
  EXPECT_FALSE(Exists(logs + "/.tar.gz"));
  EXPECT_FALSE(Exists(logs + ".tar.gz"));
  EXPECT_THAT(Unpack(Uploaded(), target), UnorderedElementsAre("logs/", "logs/a"));
  ExpectSameTree(logs, target.Path("logs"));
}

TEST_F(ArchiveLiveTest, PathThatEndsInTarGzGetsTheEndingAgain) {
  const std::string path = directory.Write("a.tar.gz", "not one");

  EXPECT_EQ(client.UploadLogFileForCompress(server.Url(), path), 0);

  EXPECT_THAT(Unpack(Uploaded(), target), ElementsAre("a.tar.gz"));
  EXPECT_EQ(ReadFile(path), "not one");
  EXPECT_FALSE(Exists(path + ".tar.gz"));
}

TEST_F(ArchiveLiveTest, OlderArchiveOfAFailedCompressionIsLeftAlone) {
  const std::string older = directory.Write("gone.log.tar.gz", "an older archive");

  EXPECT_EQ(client.UploadLogFileForCompress(server.Url(), directory.Path("gone.log")), -10000);

  EXPECT_EQ(ReadFile(older), "an older archive");
}

TEST_F(ArchiveLiveTest, ListsThatCannotBePackedAreNotUploaded) {
  const std::string a = directory.Write("a", "1");
  directory.MakeDir("d");
  const std::string other = directory.Write("d/a", "2");
  for (const std::string& group : {std::string(), std::string("\n\n"), a + "\n" + other,
                                   a + "\n" + directory.Path("missing")}) {
    log.Clear();
    EXPECT_EQ(client.UploadLogFileGorupForCompress(server.Url(), group, directory.Path("g")),
              -10000);
    EXPECT_THAT(log.Messages(), ElementsAre("compress file failed"));
  }
  EXPECT_EQ(client.UploadLogFileGorupForCompress(server.Url(), a, ""), -10000);
  EXPECT_EQ(server.Connections().size(), 0U);
}

TEST_F(ArchiveLiveTest, TwoObjectsInTwoThreadsEachUploadTheirOwn) {
  constexpr int kRuns = 10;
  const auto work = [this](const std::string& name) {
    LumCurlOrvOps own;
    own.CurlGlobalInit();
    for (int i = 0; i < kRuns; ++i) {
      const std::string path =
          directory.Write(name + std::to_string(i), name + std::to_string(i) + " content");
      EXPECT_EQ(own.UploadLogFileForCompress(server.Url("/" + name + std::to_string(i)), path), 0);
      EXPECT_FALSE(Exists(path + ".tar.gz"));
    }
  };
  std::thread one(work, "one");
  std::thread two(work, "two");
  one.join();
  two.join();

  ASSERT_EQ(server.RequestCount(), 2U * kRuns);
  for (const WireRequest& request : server.Requests()) {
    const TempDir own;
    const std::string name = request.target.substr(1);
    EXPECT_THAT(Unpack(request.body, own), ElementsAre(name));
    EXPECT_EQ(ReadFile(own.Path(name)), name + " content");
  }
}

}  // namespace
}  // namespace lumtest

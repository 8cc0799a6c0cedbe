// Compress, upload, remove: each outcome of the three steps for each of the three forms.

#include <functional>
#include <ostream>

#include "ServiceTest.h"
#include "support/Files.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kUrl = "https://store.example/bucket/x";

struct Form {
  const char* name;  // of the operation
  std::function<int(LumCurlOrvOps&, const std::string&)> run;
  const char* compression;  // the event before the path
  bool keepsArchive;        // after an upload that failed
};

void PrintTo(const Form& form, std::ostream* out) {
  *out << form.name;
}

class CompressTest : public ServiceTest, public ::testing::WithParamInterface<Form> {
 protected:
  CompressTest() { Forget(); }

  int Run() { return GetParam().run(client, base); }

  Events Compression() const { return {GetParam().compression + base}; }
  Events Upload(const Lines& lines = {"Content-Type: application/zip"}) const {
    return UploadEvents(kUrl, archive, 7, lines, "60");
  }
  Events Removal() const { return {"RemoveFile " + archive}; }
  std::string Log(const std::string& text) const {
    return std::string("log 1 ") + GetParam().name + ": " + text;
  }

  TempDir directory;
  const std::string base = directory.Path("a.log");
  const std::string archive = directory.Write("a.log.tar.gz", "archive");
};

INSTANTIATE_TEST_SUITE_P(Forms, CompressTest,
                         ::testing::Values(Form{"UploadLogFileGorupForCompress",
                                                [](LumCurlOrvOps& c, const std::string& base) {
                                                  return c.UploadLogFileGorupForCompress(
                                                      kUrl, "/x\n/y", base);
                                                },
                                                "CompressFileGroup /x\n/y ", false},
                                           Form{"UploadLogDirPathForCompress",
                                                [](LumCurlOrvOps& c, const std::string& base) {
                                                  return c.UploadLogDirPathForCompress(kUrl, base);
                                                },
                                                "CompressFilePath ", true},
                                           Form{"UploadLogFileForCompress",
                                                [](LumCurlOrvOps& c, const std::string& base) {
                                                  return c.UploadLogFileForCompress(kUrl, base);
                                                },
                                                "CompressFile ", false}),
                         [](const ::testing::TestParamInfo<Form>& instance) {
                           return instance.param.name;
                         });

TEST_P(CompressTest, AllStepsSucceed) {
  EXPECT_EQ(Run(), 0);

  EXPECT_EQ(recorder.Events(), Compression() + Upload() + Removal());
  EXPECT_EQ(recorder.Transfers().at(0).uploaded, "archive");
  EXPECT_THAT(Logs(), IsEmpty());
}

TEST_P(CompressTest, FailedCompressionUploadsAndRemovesNothing) {
  for (const int result : {-1, 1, 200}) {
    Forget();
    recorder.compress = result;

    EXPECT_EQ(Run(), -10000);

    EXPECT_EQ(recorder.Events(), Compression() + Events{Log("compress file failed")});
    EXPECT_THAT(Logs(), ElementsAre(ClientLog(1, GetParam().name, "compress file failed")));
  }
}

TEST_P(CompressTest, FailedUploadKeepsADirectorysArchiveAndRemovesTheOthers) {
  recorder.NextPerform(Answer(403));

  EXPECT_EQ(Run(), GetParam().keepsArchive ? -10000 : 0);

  EXPECT_EQ(recorder.Events(), Compression() + Upload() +
                                   Events({"log 1 UploadLog: UploadLog failed, code=403, body=",
                                           Log("upload file failed")}) +
                                   (GetParam().keepsArchive ? Events() : Removal()));
  EXPECT_EQ(Logs().at(1), ClientLog(1, GetParam().name, "upload file failed"));
}

TEST_P(CompressTest, FailedUploadAndRemovalFail) {
  recorder.NextPerform(Answer(201));
  recorder.removeFile = -1;

  EXPECT_EQ(Run(), -10000);

  Events expected =
      Compression() + Upload() +
      Events({"log 1 UploadLog: UploadLog failed, code=201, body=", Log("upload file failed")});
  if (!GetParam().keepsArchive) {
    expected = expected + Removal() + Events{Log("remove file failed")};
    EXPECT_EQ(Logs().at(2), ClientLog(1, GetParam().name, "remove file failed"));
  }
  EXPECT_EQ(recorder.Events(), expected);
}

TEST_P(CompressTest, FailedRemovalOfAnUploadedArchiveFails) {
  for (const int result : {-1, 1}) {
    Forget();
    recorder.removeFile = result;

    EXPECT_EQ(Run(), -10000);

    EXPECT_EQ(recorder.Events(),
              Compression() + Upload() + Removal() + Events{Log("remove file failed")});
    EXPECT_THAT(Logs(), ElementsAre(ClientLog(1, GetParam().name, "remove file failed")));
  }
}

TEST_P(CompressTest, OnlyStatus200IsAnUpload) {
  client.UpdateLastError("before");
  for (int status = 100; status <= 599; ++status) {
    Forget();
    recorder.NextPerform(Answer(status));

    EXPECT_EQ(Run(), GetParam().keepsArchive && status != 200 ? -10000 : 0) << status;
    EXPECT_EQ(Logs().size(), status == 200 ? 0U : 2U) << status;
  }
  EXPECT_EQ(client.GetLastErrorBody(), "before") << "no report failed";
}

TEST_P(CompressTest, WithoutAPrivateObjectItStillCompressesAndRemoves) {
  DropPrivate();

  EXPECT_EQ(Run(), GetParam().keepsArchive ? -10000 : 0);

  EXPECT_EQ(recorder.Events(), Compression() + Events{Log("upload file failed")} +
                                   (GetParam().keepsArchive ? Events() : Removal()));
}

TEST_P(CompressTest, ArchiveThatIsNotThereIsAFailedUpload) {
  recorder.FailFopen();

  EXPECT_EQ(Run(), GetParam().keepsArchive ? -10000 : 0);

  EXPECT_EQ(Logs().at(0), EngineLog(1, "Upload", "read file error"));
  EXPECT_EQ(Logs().at(1),
            ClientLog(1, "UploadLog", "UploadLog failed, code=%d, body=%s", {"-1", ""}));
  EXPECT_EQ(Logs().at(2), ClientLog(1, GetParam().name, "upload file failed"));
}

TEST_P(CompressTest, UploadIsSignedByTheSettings) {
  client.SetUploadLogDate("date");
  client.SetUploadLogAuthorisation("auth");
  client.SetSecurityToken("token");
  Forget();

  EXPECT_EQ(Run(), 0);

  EXPECT_EQ(recorder.Events(),
            Compression() +
                Upload({"Authorization: auth", "Date: date", "x-zun-security-token: token"}) +
                Removal());
}

TEST_P(CompressTest, EndingIsAddedWhateverThePathEndsIn) {
  for (const std::string ending : {"/", ".tar.gz", ""}) {
    Forget();
    recorder.realPath = false;  // no such file is needed

    GetParam().run(client, "/dir" + ending);

    const Events events = recorder.EventsWithout({"memset_s", "curl_easy", "log"});
    ASSERT_GE(events.size(), 2U);
    EXPECT_EQ(events[0], GetParam().compression + ("/dir" + ending));
    EXPECT_EQ(events[1],
              "LumRealPath /dir" + ending + ".tar.gz " + std::to_string(ending.size() + 11));
  }
}

TEST_P(CompressTest, StreamOfTheCallerIsUploadedInTheArchivesPlace) {
  // SetFp serves the next upload, whichever that is.
  FILE* stream = fmemopen(const_cast<char*>("stream"), 6, "r");
  client.SetFp(stream);

  EXPECT_EQ(Run(), 0);

  EXPECT_EQ(recorder.Transfers().at(0).uploaded, "stream");
  std::fclose(stream);
  ++recorder.m_liveFiles;  // the test's own
}

}  // namespace
}  // namespace lumtest

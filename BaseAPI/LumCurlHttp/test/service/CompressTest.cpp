// Compress, upload, remove: the three steps of each of the three forms.

#include <functional>
#include <ostream>

#include "ServiceTest.h"
#include "support/Files.h"

namespace lumtest {
namespace {

const std::string kUrl = "https://store.example/bucket/x";

struct Form {
  const char* name;         // of the operation
  const char* compression;  // the event before the path
  bool keepsArchive;        // after an upload that failed
  std::function<int(LumCurlOrvOps&, const std::string&)> run;
};

void PrintTo(const Form& form, std::ostream* out) {
  *out << form.name;
}

const Form kForms[] = {
    {"UploadLogFileGorupForCompress", "CompressFileGroup /x\n/y ", false,
     [](auto& c, const auto& base) {
       return c.UploadLogFileGorupForCompress(kUrl, "/x\n/y", base);
     }},
    {"UploadLogDirPathForCompress", "CompressFilePath ", true,
     [](auto& c, const auto& base) { return c.UploadLogDirPathForCompress(kUrl, base); }},
    {"UploadLogFileForCompress", "CompressFile ", false,
     [](auto& c, const auto& base) { return c.UploadLogFileForCompress(kUrl, base); }},
};

class CompressTest : public ServiceTest, public ::testing::WithParamInterface<Form> {
 protected:
  CompressTest() { Forget(); }

  int Run() { return GetParam().run(client, base); }

  Events Compression() const { return {GetParam().compression + base}; }
  Events Upload(const Lines& lines = {"Content-Type: application/zip"}) const {
    return UploadEvents(kUrl, archive, 7, lines, "60");
  }
  Events Removal() const { return {"RemoveFile " + archive}; }
  Events LogOf(const std::string& text) const { return {Log(1, GetParam().name, text)}; }

  TempDir directory;
  const std::string base = directory.Path("a.log");
  const std::string archive = base + ".tar.gz";
};

INSTANTIATE_TEST_SUITE_P(Forms, CompressTest, ::testing::ValuesIn(kForms),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(CompressTest, AllStepsSucceed) {
  EXPECT_EQ(Run(), 0);

  ExpectEvents(Compression() + Upload() + Removal());
  EXPECT_EQ(TheTransfer().uploaded, "archive");
}

TEST_P(CompressTest, FailedCompressionUploadsAndRemovesNothing) {
  for (const int result : {-1, 1, 200}) {
    Forget();
    recorder.compress = result;

    EXPECT_EQ(Run(), -10000);

    ExpectEvents(Compression() + LogOf("compress file failed"));
  }
}

TEST_P(CompressTest, FailedUploadKeepsADirectorysArchiveAndRemovesTheOthers) {
  recorder.NextPerform(Answer(403));

  EXPECT_EQ(Run(), GetParam().keepsArchive ? -10000 : 0);

  ExpectEvents(Compression() + Upload() +
               Events{Log(1, "UploadLog", "UploadLog failed, code=403, body=")} +
               LogOf("upload file failed") + (GetParam().keepsArchive ? Events() : Removal()));
}

TEST_P(CompressTest, FailedRemovalFailsBehindAFailedUploadToo) {
  for (const int result : {-1, 1}) {
    Forget();
    recorder.removeFile = result;
    recorder.NextPerform(Answer(200));
    recorder.NextPerform(Answer(201));

    EXPECT_EQ(Run(), -10000);

    const Events removal = Removal() + LogOf("remove file failed");
    const Events upload = Compression() + Upload() + removal;
    ExpectEvents(upload);

    EXPECT_EQ(Run(), -10000);

    ExpectEvents(upload + Compression() + Upload() +
                 Events{Log(1, "UploadLog", "UploadLog failed, code=201, body=")} +
                 LogOf("upload file failed") + (GetParam().keepsArchive ? Events() : removal));
  }
}

TEST_P(CompressTest, UploadIsSignedByTheSettings) {
  client.SetUploadLogDate("date");
  client.SetUploadLogAuthorisation("auth");
  client.SetSecurityToken("token");
  Forget();

  EXPECT_EQ(Run(), 0);

  ExpectEvents(Compression() +
               Upload({"Authorization: auth", "Date: date", "x-zun-security-token: token"}) +
               Removal());
}

TEST_P(CompressTest, EndingIsAddedWhateverThePathEndsIn) {
  directory.MakeDir("dir");
  for (const std::string ending : {"/", ".tar.gz", ""}) {
    const std::string path = directory.Path("dir" + ending);
    Forget();
    recorder.realPath = false;  // no such file is needed

    GetParam().run(client, path);

    const Events events = recorder.EventsWithout({"memset_s", "curl_easy", "log"});
    ASSERT_GE(events.size(), 2U);
    EXPECT_EQ(events[0], GetParam().compression + path);
    EXPECT_EQ(events[1], "LumRealPath " + path + ".tar.gz " + std::to_string(path.size() + 7));
  }
}

}  // namespace
}  // namespace lumtest

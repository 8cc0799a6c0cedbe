// The log address query and the uploads of log archives and videos.

#include <functional>
#include <ostream>

#include "ServiceTest.h"
#include "support/Files.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kUrl = "https://backend.example/address";
const Lines kZip = {"Content-Type: application/zip"};
const Lines kTokenLines = {"Content-Type: application/json", "X-Auth-Token: t"};

// --- The address ---

class LogAddressTest : public ServiceTest {};

TEST_F(LogAddressTest, AppendsItsQueryToTheUrl) {
  recorder.NextPerform(Answer(200, R"({"url": "https://store.example/x"})"));

  const LumJson::Value answer = client.GetLogAddress(kUrl, "a1", "t", "x.log");

  EXPECT_EQ(recorder.Events(), GetEvents(kUrl + "?access_id=a1&file_name=x.log", kTokenLines));
  EXPECT_EQ(answer.JsonValueToString(), R"({"url":"https://store.example/x"})");
}

TEST_F(LogAddressTest, EncodesNothingAndAddsASecondQuestionMark) {
  client.GetLogAddress(kUrl + "?v=1", "a&b=c d", "t", "x y&z#%2F\xC3\xBC.log");

  EXPECT_EQ(recorder.Transfers().at(0).texts.at(CURLOPT_URL),
            kUrl + "?v=1?access_id=a&b=c d&file_name=x y&z#%2F\xC3\xBC.log");
}

TEST_F(LogAddressTest, EmptyPartsKeepTheirPlaces) {
  recorder.NextPerform(Answer(200, "{}"));

  client.GetLogAddress("", "", "", "");

  EXPECT_EQ(recorder.Events(), GetEvents("?access_id=&file_name=",
                                         {"Content-Type: application/json", "X-Auth-Token: "}));
  EXPECT_THAT(recorder.Transfers().at(0).headers,
              ElementsAre("Content-Type: application/json", "X-Auth-Token;"));
}

TEST_F(LogAddressTest, RefusalIsLoggedWithTheBareUrl) {
  recorder.NextPerform(Answer(403, "no"));

  EXPECT_TRUE(client.GetLogAddress(kUrl, "a1", "t", "x.log").IsNull());

  EXPECT_EQ(recorder.Events(),
            GetEvents(kUrl + "?access_id=a1&file_name=x.log", kTokenLines) +
                Events{"log 1 GetLogAddress: Get from " + kUrl + " failed, json body: no"});
  EXPECT_THAT(Logs(), ElementsAre(ClientLog(1, "GetLogAddress", "Get from %s failed, json body: %s",
                                            {kUrl, "no"})));
}

TEST_F(LogAddressTest, WithoutAHandleIsNull) {
  recorder.FailInit();

  EXPECT_TRUE(client.GetLogAddress(kUrl, "a1", "t", "x.log").IsNull());

  EXPECT_THAT(Logs(), ElementsAre(EngineLog(1, "Get", "GET curl init failed"),
                                  ClientLog(1, "GetLogAddress", "Get from %s failed, json body: %s",
                                            {kUrl, ""})));
}

TEST_F(LogAddressTest, AnswerThatIsNoJsonIsLoggedAndNull) {
  recorder.NextPerform(Answer(200, "no json"));

  EXPECT_TRUE(client.GetLogAddress(kUrl, "a1", "t", "x.log").IsNull());

  EXPECT_THAT(Logs(), ElementsAre(ClientLog(1, "GetLogAddress",
                                            "parse json body failed, json body: %s", {"no json"})));
}

TEST_F(LogAddressTest, OnlyStatus200IsParsed) {
  client.UpdateLastError("before");
  for (int status = 100; status <= 599; ++status) {
    Forget();
    recorder.NextPerform(Answer(status, "[7]"));

    EXPECT_EQ(client.GetLogAddress(kUrl, "a1", "t", "x").IsNull(), status != 200) << status;
    EXPECT_EQ(Logs().size(), status == 200 ? 0U : 1U);
  }
  EXPECT_EQ(client.GetLastErrorBody(), "before") << "no report failed";
}

TEST_F(LogAddressTest, FailedTransferIsLoggedTwiceAndNull) {
  recorder.NextPerform(Broken(CURLE_COULDNT_CONNECT, 0, "refused"));

  EXPECT_TRUE(client.GetLogAddress(kUrl, "a1", "t", "x").IsNull());

  EXPECT_THAT(
      Logs(),
      ElementsAre(EngineLog(1, "Get", "GET failed for %s, resOps: %d, code: %ld, errorBuf: %s",
                            {"strerror 7", "7", "0", "refused"}),
                  ClientLog(1, "GetLogAddress", "Get from %s failed, json body: %s",
                            {kUrl, "GET failed for: refused ."})));
}

TEST_F(LogAddressTest, WithoutAPrivateObjectTheAnswerIsAnEmptyText) {
  DropPrivate();

  const LumJson::Value answer = client.GetLogAddress(kUrl, "a1", "t", "x.log");

  EXPECT_TRUE(answer.IsString());
  EXPECT_EQ(answer.JsonValueToString(), "");
  EXPECT_THAT(recorder.Events(), IsEmpty());
}

// --- The uploads ---

class UploadTest : public ServiceTest {
 protected:
  UploadTest() { Forget(); }

  int Upload() { return client.UploadLog(kUrl, path); }

  // The events of the two-argument upload with these lines.
  Events SignedEvents(const Lines& lines) const { return UploadEvents(kUrl, path, 4, lines, "60"); }

  TempDir directory;
  const std::string path = directory.Write("log.tar.gz", "data");
};

TEST_F(UploadTest, CallersLinesAreSentAndNoOther) {
  const Lines lines = {"X-B: 2", "Content-Type: text/plain", "X-A: 1"};

  EXPECT_EQ(client.UploadLog(kUrl, path, 7, lines), 0);

  EXPECT_EQ(recorder.Events(), UploadEvents(kUrl, path, 4, lines, "7"));
  EXPECT_EQ(recorder.Transfers().at(0).uploaded, "data");
}

TEST_F(UploadTest, EmptyListOfLinesSendsNoneOfItsOwn) {
  EXPECT_EQ(client.UploadLog(kUrl, path, 7, {}), 0);

  EXPECT_EQ(recorder.Events(), UploadEvents(kUrl, path, 4, {}, "7"));
}

TEST_F(UploadTest, ArchiveWithATimeLimitIsAZip) {
  EXPECT_EQ(client.UploadLog(kUrl, path, 0), 0);

  EXPECT_EQ(recorder.Events(), UploadEvents(kUrl, path, 4, kZip, "0"));
}

TEST_F(UploadTest, VideoIsAnMp4) {
  EXPECT_EQ(client.UploadVideoFile(kUrl, path, 0xFFFFFFFF), 0);

  EXPECT_EQ(recorder.Events(),
            UploadEvents(kUrl, path, 4, {"Content-Type: video/mp4"}, "4294967295"));
}

TEST_F(UploadTest, LineWithoutAValueOfTheCallersIsKept) {
  client.UploadLog(kUrl, path, 7, {"X-Empty: "});

  EXPECT_THAT(recorder.Transfers().at(0).headers, ElementsAre("X-Empty;"));
}

TEST_F(UploadTest, SettingsAreNotReadByTheFormsThatNameTheirLines) {
  client.SetUploadLogAuthorisation("auth");
  client.SetUploadLogDate("date");
  client.SetSecurityToken("token");
  Forget();

  client.UploadLog(kUrl, path, 7, {});
  client.UploadLog(kUrl, path, 7);
  client.UploadVideoFile(kUrl, path, 7);

  EXPECT_EQ(recorder.Events(), UploadEvents(kUrl, path, 4, {}, "7") +
                                   UploadEvents(kUrl, path, 4, kZip, "7") +
                                   UploadEvents(kUrl, path, 4, {"Content-Type: video/mp4"}, "7"));
}

// --- The upload that the settings sign ---

TEST_F(UploadTest, UnsignedUploadIsAZipWithinSixtySeconds) {
  EXPECT_EQ(Upload(), 0);

  EXPECT_EQ(recorder.Events(), SignedEvents(kZip));
}

TEST_F(UploadTest, SignedUploadSendsAuthorisationThenDateAndNoContentType) {
  client.SetUploadLogDate("Sat, 21 Nov 2026 13:00:00 GMT");
  client.SetUploadLogAuthorisation("AWS key:signature");
  Forget();

  EXPECT_EQ(Upload(), 0);

  EXPECT_EQ(recorder.Events(), SignedEvents({"Authorization: AWS key:signature",
                                             "Date: Sat, 21 Nov 2026 13:00:00 GMT"}));
}

TEST_F(UploadTest, SecurityTokenComesLastInASignedUpload) {
  client.SetSecurityToken("token");
  client.SetUploadLogDate("date");
  client.SetUploadLogAuthorisation("auth");
  Forget();

  EXPECT_EQ(Upload(), 0);

  EXPECT_EQ(recorder.Events(),
            SignedEvents({"Authorization: auth", "Date: date", "x-zun-security-token: token"}));
}

TEST_F(UploadTest, WithoutADateOrAnAuthorisationNothingOfTheSignatureIsSent) {
  client.SetSecurityToken("token");
  client.SetUploadLogAuthorisation("auth");
  Forget();
  Upload();
  EXPECT_EQ(recorder.Events(), SignedEvents(kZip));

  LumCurlOrvOps other;
  other.SetSecurityToken("token");
  other.SetUploadLogDate("date");
  Forget();
  other.UploadLog(kUrl, path);
  EXPECT_EQ(recorder.Events(), SignedEvents(kZip));
}

TEST_F(UploadTest, DateTakenBackMakesTheUploadUnsignedAgain) {
  client.SetUploadLogAuthorisation("auth");
  client.SetUploadLogDate("date");
  client.SetUploadLogDate("");
  Forget();

  Upload();

  EXPECT_EQ(recorder.Events(), SignedEvents(kZip));
}

TEST_F(UploadTest, FailureOfTheSignedUploadIsLoggedWithStatusAndBody) {
  recorder.NextPerform(Answer(403, "the reply goes to standard output"));
  recorder.NextPerform(Broken(CURLE_SEND_ERROR, 0, "reset"));

  EXPECT_EQ(Upload(), -10000);
  EXPECT_EQ(Upload(), -10000);

  EXPECT_THAT(
      Logs(),
      ElementsAre(ClientLog(1, "UploadLog", "UploadLog failed, code=%d, body=%s", {"403", ""}),
                  EngineLog(1, "Upload", "PUT failed for %s, resOps: %d, code: %ld, errorBuf: %s",
                            {"strerror 55", "55", "0", "reset"}),
                  ClientLog(1, "UploadLog", "UploadLog failed, code=%d, body=%s",
                            {"0", "PUT failed for: reset ."})));
}

// --- All four forms ---

struct Form {
  const char* name;
  std::function<int(LumCurlOrvOps&, const std::string&)> upload;
  const char* function;
  bool logsStatus;
};

void PrintTo(const Form& form, std::ostream* out) {
  *out << form.name;
}

class EveryUpload : public UploadTest, public ::testing::WithParamInterface<Form> {
 protected:
  int Run(const std::string& file) { return GetParam().upload(client, file); }
  int Run() { return Run(path); }

  std::string Failure(int code, const std::string& body) const {
    return GetParam().logsStatus
               ? ClientLog(1, GetParam().function, "UploadLog failed, code=%d, body=%s",
                           {std::to_string(code), body})
               : ClientLog(1, GetParam().function, "UploadLog failed");
  }
};

INSTANTIATE_TEST_SUITE_P(Forms, EveryUpload,
                         ::testing::Values(Form{"CallersLines",
                                                [](LumCurlOrvOps& c, const std::string& file) {
                                                  return c.UploadLog(kUrl, file, 7, {"X: 1"});
                                                },
                                                "UploadLog", false},
                                           Form{"Zip",
                                                [](LumCurlOrvOps& c, const std::string& file) {
                                                  return c.UploadLog(kUrl, file, 7);
                                                },
                                                "UploadLog", false},
                                           Form{"Video",
                                                [](LumCurlOrvOps& c, const std::string& file) {
                                                  return c.UploadVideoFile(kUrl, file, 7);
                                                },
                                                "UploadVideoFile", false},
                                           Form{"Signed",
                                                [](LumCurlOrvOps& c, const std::string& file) {
                                                  return c.UploadLog(kUrl, file);
                                                },
                                                "UploadLog", true}),
                         [](const ::testing::TestParamInfo<Form>& instance) {
                           return instance.param.name;
                         });

TEST_P(EveryUpload, OnlyStatus200IsSuccess) {
  client.UpdateLastError("before");
  for (int status = 100; status <= 599; ++status) {
    Forget();
    recorder.NextPerform(Answer(status, "reply"));

    EXPECT_EQ(Run(), status == 200 ? 0 : -10000) << status;

    if (status == 200) {
      EXPECT_THAT(Logs(), IsEmpty());
    } else {
      EXPECT_THAT(Logs(), ElementsAre(Failure(status, "")));
    }
  }
  EXPECT_EQ(client.GetLastErrorBody(), "before") << "no report failed";
}

TEST_P(EveryUpload, FileThatIsMissingFailsWithoutATransfer) {
  EXPECT_EQ(Run(directory.Path("missing")), -10000);

  EXPECT_THAT(Logs(), ElementsAre(EngineLog(1, "Upload", "read file error"), Failure(-1, "")));
  EXPECT_THAT(recorder.Transfers(), IsEmpty());
}

TEST_P(EveryUpload, RefusedPathFailsWithoutATransfer) {
  recorder.realPath = false;

  EXPECT_EQ(Run(), -10000);

  EXPECT_THAT(Logs(), ElementsAre(Failure(-1, "")));
  EXPECT_THAT(recorder.Transfers(), IsEmpty());
}

TEST_P(EveryUpload, WithoutAHandleFails) {
  recorder.FailInit();

  EXPECT_EQ(Run(), -10000);

  EXPECT_THAT(Logs(),
              ElementsAre(EngineLog(1, "Upload", "POST curl init failed"), Failure(-1, "")));
}

TEST_P(EveryUpload, TransferThatBreaksAfterStatus200CountsAsDone) {
  recorder.NextPerform(Broken(CURLE_RECV_ERROR, 200, "cut off"));

  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Logs().size(), 1U);
}

TEST_P(EveryUpload, WithoutAPrivateObjectReturnsAtOnce) {
  DropPrivate();

  EXPECT_EQ(Run(), -9999);
  EXPECT_THAT(recorder.Events(), IsEmpty());
}

TEST_P(EveryUpload, UsesTheSettingsOfTheObject) {
  UseCertificate();
  client.SetBindInterface("eth1");
  client.SetSwiftIp("10.0.0.5");
  client.SetLimitSpeed(1000);
  keptLists = 1;

  Run();

  const Transfer transfer = recorder.Transfers().at(0);
  EXPECT_EQ(transfer.texts.at(CURLOPT_INTERFACE), "eth1");
  EXPECT_EQ(transfer.texts.at(CURLOPT_KEYPASSWD), "secret");
  EXPECT_EQ(transfer.numbers.at(CURLOPT_MAX_SEND_SPEED_LARGE), 1000);
  EXPECT_THAT(transfer.resolve, ElementsAre("backend.example:443:10.0.0.5"));
}

TEST_P(EveryUpload, ReadsTheCallersStreamOnce) {
  FILE* stream = fmemopen(const_cast<char*>("stream"), 6, "r");
  client.SetFp(stream);

  Run();
  Run();

  EXPECT_EQ(recorder.Transfers().at(0).uploaded, "stream");
  EXPECT_EQ(recorder.Transfers().at(1).uploaded, "data");
  std::fclose(stream);
  ++recorder.m_liveFiles;  // the test's own
}

}  // namespace
}  // namespace lumtest

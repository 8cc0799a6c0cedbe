// What every operation returns and logs, however its transfer ends or for want of what none begins:
// as endings.txt has it.

#include "RunRecorded.h"
#include "recording/RecordingTest.h"

namespace lumtest {
namespace {

const std::string kUrl = "https://backend.example:8443/a";

class EndingsTest : public RecordingTest, public ::testing::WithParamInterface<Operation> {
 protected:
  EndingsTest() {
    caller.MakeFiles(GetParam().name);
    Forget();
  }

  // Runs the operation once, to this end.
  void Meet(Ending ending, const Script& script = Script()) {
    for (const std::string& chunk : script.chunks) {
      ending.received += chunk;
    }
    ending.code = script.result;
    ending.status = script.status;
    const Outcome outcome = RunRecorded(caller, GetParam(), kUrl, script);
    EXPECT_TRUE(Fits(GetParam(), kUrl, outcome, ending))
        << ShownBlocks(GetParam(), kUrl, outcome, ending);
    EXPECT_EQ(ErrorTextOf(outcome), script.errorText);
    EXPECT_EQ(caller.service.GetLastErrorBody(), "") << "a report's has been taken";
    ExpectReleased(ending);
    Forget();
  }

  // What is kept on purpose is the handle of a download to a refused path, and the header list of
  // each request of LumApollo.
  void ExpectReleased(const Ending& ending) const {
    const bool refused = GetParam().kind == Kind::kDownload && ending.lacks == "path";
    const bool apollo = GetParam().kind == Kind::kApollo && ending.lacks.empty();
    EXPECT_EQ(recorder.LiveHandles(), refused ? 1 : 0);
    EXPECT_EQ(recorder.LiveLists(), apollo ? 1 : 0);
    EXPECT_EQ(recorder.LiveFiles(), 0);
  }

  // Nothing is sent when this is missing.
  void Lack(const std::string& what) {
    Ending ending;
    ending.lacks = what;
    Meet(ending);
  }

  // The download has no buffer for libcurl's reason.
  std::string Reason() const {
    return GetParam().kind == Kind::kDownload ? "" : "took 100%s too long";
  }

  Caller caller;
};

INSTANTIATE_TEST_SUITE_P(Operations, EndingsTest, ::testing::ValuesIn(Operations()),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(EndingsTest, OfEveryStatusWithADocumentAndWithout) {
  for (long status = 100; status < 600; ++status) {
    SCOPED_TRACE(status);
    Meet({}, Answer(status, R"({"a": ["100%s"]})"));
    Meet({}, Answer(status, "<html>100%s"));
  }
}

TEST_P(EndingsTest, OfEveryKindOfDocument) {
  for (const char* body : {"{}", "[1, 2]", "17", "-0.5e3", R"("text")", "true", "false", "null", "",
                           " ", "{\"a\":", "{} x"}) {
    SCOPED_TRACE(body);
    Meet({}, Answer(200, body));
  }
}

TEST_P(EndingsTest, OfABodyOfManyPieces) {
  Script script;
  for (std::size_t i = 0; i < 100; ++i) {
    script.chunks.push_back(std::to_string(i) + std::string(i * 70, '\xff'));
  }
  script.chunks.emplace_back("\0\r\nlast", 7);
  Meet({}, script);
}

TEST_P(EndingsTest, OfEveryErrorOfLibcurl) {
  for (int code = 1; code < CURL_LAST; ++code) {
    SCOPED_TRACE(code);
    Meet({}, Broken(static_cast<CURLcode>(code), 0, Reason()));
  }
}

TEST_P(EndingsTest, OfATransferThatBreaksBehindAStatus) {
  for (const long status : {100, 200, 201, 204, 206, 404, 503}) {
    SCOPED_TRACE(status);
    Meet({}, Broken(CURLE_PARTIAL_FILE, status, Reason(), {"{}", "par"}));
    Meet({}, Broken(CURLE_RECV_ERROR, status, ""));
  }
}

TEST_P(EndingsTest, WithoutAPrivatePart) {
  const WithoutPrivate<LumCurlHttp> general(caller.general);
  const WithoutPrivate<LumCurlOrvOps> service(caller.service);
  const WithoutPrivate<LumCurlOrvOps> signedService(caller.signedService);
  const WithoutPrivate<LumApollo> apollo(caller.apollo);

  Lack("private part");
}

TEST_P(EndingsTest, WithoutAHandle) {
  recorder.failInit = true;
  Lack("handle");
}

class FileEndingsTest : public EndingsTest {};

INSTANTIATE_TEST_SUITE_P(Operations, FileEndingsTest,
                         ::testing::ValuesIn(OperationsWhere([](const Operation& each) {
                           return each.Uploads() || each.kind == Kind::kDownload;
                         })),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(FileEndingsTest, WithoutAPathThatIsTaken) {
  recorder.realPath = false;
  Lack("path");
}

TEST_P(FileEndingsTest, WithoutAFileThatCanBeOpened) {
  recorder.failFopen = true;
  Lack("file");
}

}  // namespace
}  // namespace lumtest

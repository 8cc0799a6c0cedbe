// Data reports, plain and gzip-compressed: what they send, what they log, what becomes the last
// error, and what they return.

#include <algorithm>
#include <atomic>
#include <climits>
#include <fstream>
#include <functional>
#include <ostream>

#include "ServiceTest.h"

namespace {

// The free() of this buffer is an event, "free the buffer", once.
std::atomic<const void*> g_watched{nullptr};

}  // namespace

// free() as the linker wraps it (see CMakeLists.txt).
extern "C" {

void __real_free(void* buffer);
void __wrap_free(void* buffer) {
  const void* freed = buffer;
  if (buffer != nullptr && g_watched.compare_exchange_strong(freed, nullptr)) {
    const lumtest::InDouble exempt;
    lumtest::Recorder::Get().Add("free the buffer");
  }
  __real_free(buffer);
}

}  // extern "C"

namespace lumtest {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kUrl = "https://backend.example/report";
const Lines kPlainLines = {"Content-Type: application/json", "X-Auth-Token: t"};

Lines GzipLines(const std::string& token, const std::string& accessId) {
  return {"Content-Type: application/json", "X-Auth-Token: " + token,
          "X-ORV-ACCESS-ID: " + accessId, "Content-Encoding: gzip"};
}

LumJson::Value Document(const std::string& text = R"({"b": 1, "a": ["x"], "accessId": "id7"})") {
  LumJson::Value document;
  EXPECT_TRUE(document.Parse(text));
  return document;
}

std::string WithTopic(LumJson::Value document, const std::string& topic) {
  document.AddJsonValue("topic_name", topic);
  return document.ToStyledString();
}

class ReportTest : public ServiceTest {
 protected:
  ReportTest() {
    // Keeps what was to be compressed; "packed" is what it comes to.
    recorder.gzip = [this](const std::string& text, char* destination, int capacity) {
      compressed = text;
      g_watched = destination;
      EXPECT_GE(capacity, 6);
      return static_cast<int>(std::string("packed").copy(destination, 6));
    };
  }

  // The events of a gzip report of `text` whose transfer succeeds.
  static Events GzipEvents(const std::string& text, const Lines& lines) {
    return GzipStart(text) + PostEvents(kUrl, 6, lines, "4") + Events{"free the buffer"};
  }

  static Events GzipStart(const std::string& text) {
    const std::string capacity = std::to_string(2 * text.size());
    return {"memset_s " + capacity + " 0 " + capacity,
            "GzipCompress " + std::to_string(text.size()) + " into " + capacity + " zero bytes"};
  }

  static std::string GzipSuccess(const std::string& text) {
    return Log(3, "ReportDataWithGzip",
               "Post to url=" + kUrl + " success, src Length=" + std::to_string(text.size()) +
                   ", gzip length=6");
  }

  std::string SentBody() const { return recorder.Transfers().at(0).body; }

  std::string compressed;
};

// --- Plain reports ---

TEST_F(ReportTest, PlainReportSendsTheStyledDocumentWithinFiveSeconds) {
  const std::string body = Document().ToStyledString();

  EXPECT_EQ(client.ReportData(kUrl, Document(), "t", ""), 0);

  ExpectEvents(PostEvents(kUrl, body.size(), kPlainLines, "5"));
  EXPECT_EQ(SentBody(), body);
}

TEST_F(ReportTest, PlainReportTakesItsTimeLimitFromTheCall) {
  const std::string body = Document().ToStyledString();
  for (const auto& [limit, text] : {std::pair<unsigned int, const char*>{0, "0"},
                                    {1, "1"},
                                    {77, "77"},
                                    {UINT_MAX, "4294967295"}}) {
    Forget();
    EXPECT_EQ(client.ReportData(kUrl, Document(), "t", limit, ""), 0);
    ExpectEvents(PostEvents(kUrl, body.size(), kPlainLines, text));
    EXPECT_EQ(SentBody(), body);
  }
}

TEST_F(ReportTest, PlainReportPutsItsTopicIntoItsOwnCopy) {
  const LumJson::Value document = Document();
  const std::string before = document.ToStyledString();

  EXPECT_EQ(client.ReportData(kUrl, document, "t", "t1"), 0);
  EXPECT_EQ(client.ReportData(kUrl, document, "t", 9, "t1"), 0);

  const std::string body = WithTopic(document, "t1");
  ExpectEvents(PostEvents(kUrl, body.size(), kPlainLines, "5") +
               PostEvents(kUrl, body.size(), kPlainLines, "9"));
  for (const Transfer& transfer : recorder.Transfers()) {
    EXPECT_EQ(transfer.body, body);
  }
  LumJson::Value sent;
  ASSERT_TRUE(sent.Parse(body));
  EXPECT_EQ(sent["topic_name"].JsonValueToString(), "t1");
  EXPECT_EQ(document.ToStyledString(), before);
}

TEST_F(ReportTest, TopicReplacesAMemberOfTheDocument) {
  client.ReportData(kUrl, Document(R"({"topic_name": "old", "a": 1})"), "t", "new");

  EXPECT_EQ(SentBody(), WithTopic(Document(R"({"topic_name": "old", "a": 1})"), "new"));
  EXPECT_EQ(SentBody().find("old"), std::string::npos);
}

TEST_F(ReportTest, EmptyTokenIsStillAHeaderLine) {
  EXPECT_EQ(client.ReportData(kUrl, Document(), "", ""), 0);

  ExpectEvents(PostEvents(kUrl, Document().ToStyledString().size(),
                          {"Content-Type: application/json", "X-Auth-Token: "}, "5"));
}

// --- The gzip worker ---

TEST_F(ReportTest, GzipReportCompressesSendsFreesAndLogs) {
  const std::string text = Document().ToStyledString();

  EXPECT_EQ(client.ReportDataWithGzip(kUrl, Document(), "t", "id9"), 0);

  ExpectEvents(GzipEvents(text, GzipLines("t", "id9")) + Events{GzipSuccess(text)});
  EXPECT_EQ(compressed, text);
  EXPECT_EQ(SentBody(), "packed");
}

TEST_F(ReportTest, GzipReportWithEmptyTokenAndIdentifierSendsBothLines) {
  client.ReportDataWithGzip(kUrl, Document(), "", "");

  EXPECT_THAT(recorder.Transfers().at(0).headers,
              ElementsAre("Content-Type: application/json", "X-Auth-Token;", "X-ORV-ACCESS-ID;",
                          "Content-Encoding: gzip"));
  EXPECT_EQ(Logs().size(), 1U) << "the worker does not warn";
}

TEST_F(ReportTest, GzipReportWithoutMemoryForItsBufferSendsNothing) {
  const std::string text = Document().ToStyledString();
  const std::string capacity = std::to_string(2 * text.size());
  client.UpdateLastError("before");
  recorder.FailMalloc(2 * text.size());

  EXPECT_EQ(client.ReportDataWithGzip(kUrl, Document(), "t", "id9"), -10000);

  ExpectLogs({Log(1, "ReportDataWithGzip", "malloc error, len=" + capacity)});
  EXPECT_EQ(recorder.Events(), Logs());
  EXPECT_EQ(client.GetLastErrorBody(), "before");
}

TEST_F(ReportTest, GzipReportThatCannotBeCompressedFreesItsBufferAndSendsNothing) {
  const std::string text = Document().ToStyledString();
  for (const int result : {0, -1, INT_MIN}) {
    Forget();
    client.UpdateLastError("before");
    recorder.gzip = [result](const std::string&, char* destination, int) {
      g_watched = destination;
      return result;
    };

    EXPECT_EQ(client.ReportDataWithGzip(kUrl, Document(), "t", "id9"), -10000);

    Events events = recorder.Events();
    std::sort(events.begin() + 2, events.end());  // log and release come in either order
    EXPECT_EQ(events, GzipStart(text) + Events({"free the buffer",
                                                "log 1 ReportDataWithGzip: gzip compress error"}));
    EXPECT_EQ(client.GetLastErrorBody(), "before");
  }
}

TEST_F(ReportTest, GzipReportSendsFromItsBufferWithoutACopy) {
  const void* buffer = nullptr;
  recorder.gzip = [&buffer](const std::string&, char* destination, int) {
    buffer = destination;
    return 1;
  };

  client.ReportDataWithGzip(kUrl, Document(), "t", "id9");

  EXPECT_EQ(recorder.Transfers().at(0).pointers.at(CURLOPT_POSTFIELDS), buffer);
}

// Not even 1 is a success: one byte would be sent, and the report counted as taken.
TEST_F(ReportTest, GzipBufferThatNoIntCountsIsAFailedCompression) {
  char destination[1];

  EXPECT_EQ(LumCurlOrvOpsPrivate::Gzip("text", destination, std::size_t{INT_MAX} + 1), 0);

  EXPECT_THAT(recorder.Events(), IsEmpty());
}

// The advice to use large pages would outlive the report: the heap's pages are every caller's.
TEST_F(ReportTest, LargeGzipReportLeavesNoAdviceAboutTheHeap) {
  const auto advised = [] {
    std::ifstream map("/proc/self/smaps");
    std::size_t count = 0;
    for (std::string line; std::getline(map, line);) {
      count += line.compare(0, 8, "VmFlags:") == 0 && line.find(" hg") != std::string::npos ? 1 : 0;
    }
    return count;
  };
  const std::size_t before = advised();
  LumJson::Value document;
  document["text"] = std::string(5'000'003, 'x');
  std::size_t during = before;
  recorder.gzip = [&](const std::string&, char*, int) {
    during = advised();
    return 1;
  };

  client.ReportDataWithGzip(kUrl, document, "t", "id9");

  EXPECT_EQ(during, before);
}

// --- The forms that end in the worker ---

TEST_F(ReportTest, IdentifierOfTheDocumentIsTakenForTheHeader) {
  const std::string text = Document().ToStyledString();

  EXPECT_EQ(client.ReportDataWithGzip(kUrl, Document(), "t"), 0);

  ExpectEvents(GzipEvents(text, GzipLines("t", "id7")) + Events{GzipSuccess(text)});
  EXPECT_EQ(compressed, text);
}

TEST_F(ReportTest, IdentifierThatIsNoTextIsWrittenAsJson) {
  const std::pair<const char*, const char*> kIdentifiers[] = {
      {R"({"accessId": 17})", "17"},
      {R"({"accessId": true})", "true"},
      {R"({"accessId": [1,2]})", "[1,2]"},
      {R"({"accessId": {"a":1}})", R"({"a":1})"}};
  for (const auto& [document, identifier] : kIdentifiers) {
    Forget();
    client.ReportDataWithGzip(kUrl, Document(document), "t");
    EXPECT_THAT(recorder.Transfers().at(0).headers,
                ::testing::Contains(std::string("X-ORV-ACCESS-ID: ") + identifier));
    EXPECT_EQ(Logs().size(), 1U);
  }
}

TEST_F(ReportTest, MissingIdentifierIsWarnedAboutAndTheReportIsSent) {
  LumJson::Value looked = Document(R"({"a": 1})");
  looked["accessId"];  // what the look-up leaves
  const std::string text = looked.ToStyledString();

  EXPECT_EQ(client.ReportDataWithGzip(kUrl, Document(R"({"a": 1})"), "t"), 0);

  ExpectEvents(Events{"log 2 ReportDataWithGzip: accessId is Empty"} +
               GzipEvents(text, GzipLines("t", "")) + Events{GzipSuccess(text)});
  EXPECT_EQ(compressed, text);
}

TEST_F(ReportTest, EmptyOrNullIdentifierIsWarnedAboutAndStaysWhatItIs) {
  for (const char* document : {R"({"accessId": ""})", R"({"accessId": null})"}) {
    Forget();
    EXPECT_EQ(client.ReportDataWithGzip(kUrl, Document(document), "t"), 0);
    EXPECT_EQ(Logs().at(0), Log(2, "ReportDataWithGzip", "accessId is Empty"));
    EXPECT_THAT(recorder.Transfers().at(0).headers, ::testing::Contains("X-ORV-ACCESS-ID;"));
    const std::string size = std::to_string(Document(document).ToStyledString().size());
    EXPECT_THAT(recorder.Events(),
                Contains(::testing::StartsWith("GzipCompress " + size + " into ")));
  }
}

TEST_F(ReportTest, IgnoredNumberMakesNoDifference) {
  std::vector<Events> runs;
  for (const unsigned int number : {0U, 1U, 5U, 4096U, UINT_MAX}) {
    Forget();
    EXPECT_EQ(client.ReportDataWithGzip(kUrl, Document(R"({"a": 1})"), "t", number), 0);
    runs.push_back(recorder.Events());
    EXPECT_THAT(recorder.Transfers().at(0).headers, ::testing::Contains("X-Auth-Token: t"));
  }
  Forget();
  EXPECT_EQ(client.ReportDataWithGzip(kUrl, Document(R"({"a": 1})"), "t"), 0);
  for (const Events& run : runs) {
    EXPECT_EQ(run, recorder.Events());
  }
}

TEST_F(ReportTest, GzipReportPutsItsTopicIntoItsOwnCopy) {
  const LumJson::Value document = Document();
  const std::string before = document.ToStyledString();
  const std::string text = WithTopic(document, "t1");

  EXPECT_EQ(client.ReportDataWithGzip(kUrl, document, "t", "id9", "t1"), 0);

  ExpectEvents(GzipEvents(text, GzipLines("t", "id9")) + Events{GzipSuccess(text)});
  EXPECT_EQ(compressed, text);
  EXPECT_EQ(document.ToStyledString(), before);
}

TEST_F(ReportTest, GzipReportWithATopicTakesItsIdentifierFromTheCallAlone) {
  client.ReportDataWithGzip(kUrl, Document(), "t", "", "t1");

  EXPECT_THAT(recorder.Transfers().at(0).headers, ::testing::Contains("X-ORV-ACCESS-ID;"));
  EXPECT_THAT(Logs().size(), 1U);
}

// --- All six forms ---

struct Form {
  const char* name;
  bool compresses;
  std::function<int(LumCurlOrvOps&, const LumJson::Value&)> report;
};

void PrintTo(const Form& form, std::ostream* out) {
  *out << form.name;
}

class EveryReport : public ReportTest, public ::testing::WithParamInterface<Form> {
 protected:
  int Report(const LumJson::Value& document = Document()) {
    return GetParam().report(client, document);
  }
};

const Form kForms[] = {
    {"Plain", false, [](auto& c, const auto& d) { return c.ReportData(kUrl, d, "t", "topic"); }},
    {"PlainTimed", false,
     [](auto& c, const auto& d) { return c.ReportData(kUrl, d, "t", 9, "topic"); }},
    {"GzipWorker", true,
     [](auto& c, const auto& d) { return c.ReportDataWithGzip(kUrl, d, "t", "id9"); }},
    {"GzipOwnIdentifier", true,
     [](auto& c, const auto& d) { return c.ReportDataWithGzip(kUrl, d, "t"); }},
    {"GzipIgnoredNumber", true,
     [](auto& c, const auto& d) { return c.ReportDataWithGzip(kUrl, d, "t", 9U); }},
    {"GzipTopic", true,
     [](auto& c, const auto& d) { return c.ReportDataWithGzip(kUrl, d, "t", "id9", "topic"); }},
};

INSTANTIATE_TEST_SUITE_P(Forms, EveryReport, ::testing::ValuesIn(kForms),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(EveryReport, SuccessKeepsTheLastErrorAndAMissingHandleEmptiesIt) {
  client.UpdateLastError("before");

  EXPECT_EQ(Report(), 0);
  EXPECT_EQ(client.GetLastErrorBody(), "before");

  recorder.failInit = true;
  EXPECT_EQ(Report(), -10000);
  EXPECT_EQ(client.GetLastErrorBody(), "");
}

TEST_P(EveryReport, RefusedIsLoggedThenRecordedAndKeepsNoBufferMeanwhile) {
  recorder.NextPerform(Answer(503, "later"));
  recorder.WatchMutex(&client.lastErrorMutex);

  EXPECT_EQ(Report(), -10000);

  const Events events = recorder.Events();
  const std::string released = GetParam().compresses ? "free the buffer" : "curl_easy_cleanup";
  EXPECT_THAT(Events(events.end() - 4, events.end()),
              ElementsAre(released, ::testing::StartsWith("log 1 "), "lock", "unlock"));
}

TEST_P(EveryReport, SendsADocumentThatIsNoObjectAsItStands) {
  for (const char* text : {"[1, 2]", R"("text of some length")", "17.5", "true"}) {
    Forget();
    std::string body;
    recorder.gzip = [&body](const std::string& styled, char* destination, int) {
      body = styled;
      destination[0] = '!';
      return 1;
    };

    EXPECT_EQ(Report(Document(text)), 0) << text;

    if (!GetParam().compresses) {
      body = SentBody();
    }
    EXPECT_EQ(body, Document(text).ToStyledString());
  }
}

TEST_P(EveryReport, LockFailureOfTheLastErrorPassesThroughAndLeaksNothing) {
  recorder.WatchMutex(&client.lastErrorMutex, true);
  recorder.NextPerform(Answer(500, "body"));

  EXPECT_THROW(Report(), std::system_error);
}

}  // namespace
}  // namespace lumtest

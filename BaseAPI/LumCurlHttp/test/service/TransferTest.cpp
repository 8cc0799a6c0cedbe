// The engine's five transfers: every option, release, copy and log line, in order.

#include <cstring>
#include <functional>
#include <map>
#include <ostream>

#include "ServiceTest.h"
#include "support/Files.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;

const std::string kUrl = "https://store.example/v1/x?y=z";
const Lines kLines = {"Content-Type: application/json", "X-Auth-Token: t"};

// --- What all of them share ---

using Private = LumCurlOrvOpsPrivate;
using Path = const std::string&;  // of a file of four bytes

struct Kind {
  const char* name;
  std::function<HttpResult(Private&, const Lines&, Path)> run;
  std::function<Events(const Lines&, const Added&, Path)> events;
  const char* function;  // in log lines, and below the words of it there
  const char* verb;
  const char* initVerb;
};

const Kind kGet = {
    "Get",
    [](Private& engine, const Lines& lines, Path) { return engine.Get(kUrl, lines); },
    [](const Lines& lines, const Added& added, Path) { return GetEvents(kUrl, lines, added); },
    "Get",
    "GET",
    "GET"};

const Kind kPut = {
    "Put",
    [](Private& engine, const Lines& lines, Path) { return engine.Put(kUrl, "body", lines); },
    [](const Lines& lines, const Added& added, Path) { return PutEvents(kUrl, 4, lines, added); },
    "Put",
    "PUT",
    "PUT"};

const Kind kRawPost = {
    "RawPost",
    [](Private& engine, const Lines& lines, Path) { return engine.Post(kUrl, "data", 4, lines); },
    [](const Lines& lines, const Added& added, Path) {
      return PostEvents(kUrl, 4, lines, "4", added);
    },
    "Post",
    "POST",
    "POST"};

const Kind kStringPost = {"StringPost",
                          [](Private& engine, const Lines& lines, Path) {
                            return engine.Post(kUrl, std::string("body"), lines, 17);
                          },
                          [](const Lines& lines, const Added& added, Path) {
                            return PostEvents(kUrl, 4, lines, "17", added);
                          },
                          "Post",
                          "POST",
                          "POST"};

// Its failure speaks of PUT, and the lack of a handle of POST.
const Kind kUpload = {"Upload",
                      [](Private& engine, const Lines& lines, Path path) {
                        return engine.Upload(kUrl, path, lines, 30);
                      },
                      [](const Lines& lines, const Added& added, Path path) {
                        return UploadEvents(kUrl, path, 4, lines, "30", added);
                      },
                      "Upload",
                      "PUT",
                      "POST"};

void PrintTo(const Kind& kind, std::ostream* out) {
  *out << kind.name;
}

class EveryTransfer : public ServiceTest, public ::testing::WithParamInterface<Kind> {
 protected:
  EveryTransfer() { Forget(); }

  HttpResult Run(const Lines& lines = kLines) { return GetParam().run(Engine(), lines, path); }

  Events Expected(const Lines& lines, const Added& added = kNothing) const {
    return GetParam().events(lines, added, path);
  }

  std::string LogOf(const std::string& message) const {
    return Log(1, GetParam().function, message);
  }

  TempDir directory;
  const std::string path = directory.Write("a.zip", "1234");
};

INSTANTIATE_TEST_SUITE_P(Kinds, EveryTransfer,
                         ::testing::Values(kGet, kPut, kRawPost, kStringPost, kUpload),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(EveryTransfer, CallsThisAndNoMoreWithNothingSet) {
  EXPECT_EQ(Run({}).code, 200);
  ExpectEvents(Expected({}));
}

TEST_P(EveryTransfer, CallsThisAndNoMoreWithEverythingSet) {
  UseEverything();
  recorder.NextPerform(Answer(404));
  keptLists = std::string(GetParam().name) == "Upload" ? 1 : 0;  // the pinned host

  EXPECT_EQ(Run().code, 404);

  ExpectEvents(Expected(kLines, kEverything));
}

TEST_P(EveryTransfer, LogsAFailureThenReplacesTheBodyThenReleasesTheHandle) {
  recorder.NextPerform(Broken(CURLE_OPERATION_TIMEDOUT, 206, "too slow"));

  const HttpResult result = Run();

  const std::string failed = std::string(GetParam().verb) + " failed for";
  EXPECT_EQ(result.code, 206);
  EXPECT_EQ(result.body, failed + ": too slow .");
  ExpectEvents(Failing(Expected(kLines),
                       LogOf(failed + " strerror 28, resOps: 28, code: 206, errorBuf: too slow")));
}

TEST_P(EveryTransfer, WithoutAHandleLogsAndDoesNothingElse) {
  UseEverything();
  recorder.failInit = true;

  const HttpResult result = Run();

  EXPECT_EQ(result.code, -1);
  EXPECT_EQ(result.body, "");
  ExpectEvents({"memset_s 4096 0 4096", "curl_easy_init",
                LogOf(std::string(GetParam().initVerb) + " curl init failed")});
}

TEST_P(EveryTransfer, TruncatesTheStatusToThirtyTwoBits) {
  recorder.NextPerform(Answer(0x1000000C9));

  EXPECT_EQ(Run().code, 0xC9);
}

// libcurl would leave "Name: " out; "Name;" is its word for a header without a value.
TEST_P(EveryTransfer, KeepsALineWhoseValueIsEmptyInTheRequest) {
  const Lines lines = {"B: 2", "A: ", "", "no colon", "Accept:", "X-Blanks: \t ", "X: a: ", "B: 2"};
  Lines given = lines;

  Run(given);

  EXPECT_EQ(given, lines);
  EXPECT_THAT(TheTransfer().headers,
              ElementsAre("B: 2", "A;", "", "no colon", "Accept:", "X-Blanks;", "X: a: ", "B: 2"));
}

TEST_P(EveryTransfer, TakesTheLongestErrorTextWhole) {
  const std::string text(4095, 'e');
  recorder.NextPerform(Broken(CURLE_SSL_CONNECT_ERROR, 0, text));

  EXPECT_EQ(Run().body, std::string(GetParam().verb) + " failed for: " + text + " .");
  EXPECT_EQ(recorder.Logs().at(0).arguments.at(3), text);
}

// Those that have none of their own, and are given none.
TEST_P(EveryTransfer, ReadsItsTimeLimitsFromTheObject) {
  Engine().connectTimeout = 11;
  Engine().requestTimeout = 12;

  Run();

  const std::string name = GetParam().name;
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_CONNECTTIMEOUT), name == "Upload" ? 10 : 11);
  const std::map<std::string, int> given = {{"StringPost", 17}, {"Upload", 30}};
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_TIMEOUT),
            given.count(name) != 0 ? given.at(name) : 12);
}

// --- The body that is sent ---

class TransferTest : public ServiceTest {};

TEST_F(TransferTest, ZeroBytesAreSentToo) {
  const std::string body("a\0b", 3);

  Engine().Put(kUrl, body, kLines);
  Engine().Post(kUrl, body.data(), 3, kLines);
  Engine().Post(kUrl, body, kLines, 5);

  ExpectEvents(PutEvents(kUrl, 3, kLines) + PostEvents(kUrl, 3, kLines, "4") +
               PostEvents(kUrl, 3, kLines, "5"));
  for (const Transfer& transfer : recorder.Transfers()) {
    EXPECT_EQ(transfer.body, body);
    EXPECT_EQ(transfer.pointers.at(CURLOPT_POSTFIELDS), body.data()) << "the data was copied";
  }
}

TEST_F(TransferTest, AnEmptyBodyIsSentAsSuch) {
  Engine().Put(kUrl, "", kLines);
  Engine().Post(kUrl, "unread", 0, kLines);
  Engine().Post(kUrl, std::string(), kLines, 5);

  ExpectEvents(PutEvents(kUrl, 0, kLines) + PostEvents(kUrl, 0, kLines, "4") +
               PostEvents(kUrl, 0, kLines, "5"));
  for (const Transfer& transfer : recorder.Transfers()) {
    EXPECT_EQ(transfer.body, "");
  }
}

// --- The certificate and its pass phrase on their way to libcurl ---

TEST_F(TransferTest, CertificateWithoutAPassPhraseIsNotOffered) {
  client.SetSslInfo("/ca.pem", "/client.pem", "/client.key", nullptr, 0);
  Forget();

  Engine().Get(kUrl, kLines);

  ExpectEvents(GetEvents(kUrl, kLines));
}

TEST_F(TransferTest, EmptyPathsAreHandedOnOnceAPassPhraseIsStored) {
  unsigned char none[] = "";
  client.SetSslInfo("", "", "", none, 0);

  Engine().Get(kUrl, {});

  for (const CURLoption option :
       {CURLOPT_CAINFO, CURLOPT_SSLCERT, CURLOPT_SSLKEY, CURLOPT_KEYPASSWD}) {
    ASSERT_EQ(TheTransfer().texts.count(option), 1U) << option;
    EXPECT_EQ(TheTransfer().texts.at(option), "");
  }
}

TEST_F(TransferTest, PassPhraseServesEveryRequestAndIsNotWiped) {
  UseCertificate("secret");

  Engine().Get(kUrl, {});
  Engine().Put(kUrl, "", {});
  Engine().Post(kUrl, "", 0, Lines());

  for (const Transfer& transfer : recorder.Transfers()) {
    EXPECT_EQ(transfer.texts.at(CURLOPT_KEYPASSWD), "secret");
  }
  EXPECT_EQ(recorder.Transfers().size(), 3U);
  EXPECT_EQ(std::memcmp(Engine().keyPassword, "secret\0", 7), 0);
}

}  // namespace
}  // namespace lumtest

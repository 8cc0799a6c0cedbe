// Access tokens, fetched by POST and renewed by PUT, JSON requests with exactly the caller's header
// lines, and the log address query: what they send. What they return and log is EndingsTest's.

#include <functional>
#include <ostream>

#include "ServiceTest.h"

namespace lumtest {
namespace {

const std::string kUrl = "https://backend.example/a?x=1";
const Lines kJson = {"Content-Type: application/json"};
const Lines kJsonAndToken = {"Content-Type: application/json", "X-Auth-Token: t"};
const Lines kJsonAndEmptyToken = {"Content-Type: application/json", "X-Auth-Token: "};
const Lines kGiven = {"X-B: 2", "X-A: 1", "X-B: 3"};
const std::string kBytes("no json \0\r\n", 11);

LumJson::Value Document() {
  LumJson::Value document;
  document.AddJsonValue("user", "u");
  document.AddJsonValue("password", "p");
  return document;
}

struct Call {
  const char* name;
  std::function<void(LumCurlOrvOps&, int& status)> call;
  Events events;
  std::string body;
};

void PrintTo(const Call& call, std::ostream* out) {
  *out << call.name;
}

std::vector<Call> Calls() {
  const std::string body = Document().ToStyledString();
  return {
      {"GetToken", [](auto& c, int&) { c.GetToken(kUrl, Document()); },
       PostEvents(kUrl, body.size(), kJson, "5"), body},
      {"RefreshToken", [](auto& c, int&) { c.RefreshToken(kUrl, Document(), "t"); },
       PutEvents(kUrl, body.size(), kJsonAndToken), body},
      {"RefreshTokenThatIsEmpty", [](auto& c, int&) { c.RefreshToken(kUrl, Document(), ""); },
       PutEvents(kUrl, body.size(), kJsonAndEmptyToken), body},
      {"Get", [](auto& c, int& status) { c.Get(kUrl, kGiven, status); }, GetEvents(kUrl, kGiven),
       ""},
      {"GetWithoutLines", [](auto& c, int& status) { c.Get(kUrl, {}, status); },
       GetEvents(kUrl, {}), ""},
      {"Post", [](auto& c, int& status) { c.Post(kUrl, kBytes, kGiven, status); },
       PostEvents(kUrl, kBytes.size(), kGiven, "5"), kBytes},
      {"PostOfNothing", [](auto& c, int& status) { c.Post(kUrl, "", {}, status); },
       PostEvents(kUrl, 0, {}, "5"), ""},
      {"GetLogAddress", [](auto& c, int&) { c.GetLogAddress("https://h/a", "a1", "t", "x.log"); },
       GetEvents("https://h/a?access_id=a1&file_name=x.log", kJsonAndToken), ""},
      // Nothing is encoded, and a second question mark is added.
      {"GetLogAddressOfOddNames",
       [](auto& c, int&) { c.GetLogAddress(kUrl, "a&b=c d", "t", "x y&z#%2F\xC3\xBC.log"); },
       GetEvents(kUrl + "?access_id=a&b=c d&file_name=x y&z#%2F\xC3\xBC.log", kJsonAndToken), ""},
      {"GetLogAddressOfNothing", [](auto& c, int&) { c.GetLogAddress("", "", "", ""); },
       GetEvents("?access_id=&file_name=", kJsonAndEmptyToken), ""},
  };
}

class JsonRequestTest : public ServiceTest, public ::testing::WithParamInterface<Call> {};

INSTANTIATE_TEST_SUITE_P(Calls, JsonRequestTest, ::testing::ValuesIn(Calls()),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(JsonRequestTest, SendsThisAndNoMore) {
  recorder.NextPerform(Answer(200, "{}"));
  int status = 0;

  GetParam().call(client, status);

  ExpectEvents(GetParam().events);
  EXPECT_EQ(TheTransfer().body, GetParam().body);
}

using TokenTest = ServiceTest;

TEST_F(TokenTest, RequestOfAnyKindIsSentAsItStands) {
  for (const char* json : {"[]", "null", "\"text\""}) {
    Forget();
    LumJson::Value request;
    ASSERT_TRUE(request.Parse(json));
    client.GetToken(kUrl, request);
    client.RefreshToken(kUrl, request, "t");

    for (const Transfer& transfer : recorder.Transfers()) {
      EXPECT_EQ(transfer.body, request.ToStyledString());
    }
  }
}

}  // namespace
}  // namespace lumtest

// Access tokens, fetched by POST and renewed by PUT, and JSON requests with exactly the caller's
// header lines: what they send. What they return and log is EndingsTest's.

#include "ServiceTest.h"

namespace lumtest {
namespace {

const std::string kUrl = "https://backend.example/token?x=1";
const Lines kGetLines = {"Content-Type: application/json"};
const Lines kRefreshLines = {"Content-Type: application/json", "X-Auth-Token: t"};

LumJson::Value Request() {
  LumJson::Value request;
  request.AddJsonValue("user", "u");
  request.AddJsonValue("password", "p");
  return request;
}

class TokenTest : public ServiceTest {
 protected:
  TokenTest() { recorder.NextPerform(Answer(200, R"({"token": "abc", "expires": 3600})")); }

  const std::string body = Request().ToStyledString();
  const std::string reply = R"({"token":"abc","expires":3600})";
};

TEST_F(TokenTest, GetTokenPostsTheStyledRequestWithinFiveSeconds) {
  const LumJson::Value answer = client.GetToken(kUrl, Request());

  ExpectEvents(PostEvents(kUrl, body.size(), kGetLines, "5"));
  EXPECT_EQ(TheTransfer().body, body);
  EXPECT_EQ(answer.JsonValueToString(), reply);
}

TEST_F(TokenTest, RefreshTokenPutsTheStyledRequestWithinTheEnginesLimit) {
  const LumJson::Value answer = client.RefreshToken(kUrl, Request(), "t");

  ExpectEvents(PutEvents(kUrl, body.size(), kRefreshLines));
  EXPECT_EQ(TheTransfer().body, body);
  EXPECT_EQ(answer.JsonValueToString(), reply);
}

TEST_F(TokenTest, EmptyTokenIsStillAHeaderLine) {
  client.RefreshToken(kUrl, Request(), "");

  ExpectEvents(PutEvents(kUrl, body.size(), {"Content-Type: application/json", "X-Auth-Token: "}));
}

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

class JsonRequestTest : public TokenTest {
 protected:
  const Lines lines = {"X-B: 2", "X-A: 1", "X-B: 3"};
  int status = -7;  // the caller's, before
};

TEST_F(JsonRequestTest, GetSendsTheCallersLinesAndNoOther) {
  const LumJson::Value answer = client.Get(kUrl, lines, status);

  ExpectEvents(GetEvents(kUrl, lines));
  EXPECT_EQ(status, 200);
  EXPECT_EQ(answer.JsonValueToString(), reply);
}

TEST_F(JsonRequestTest, PostSendsTheBodyAsItStandsWithinFiveSeconds) {
  const std::string text("no json \0\r\n", 11);

  const LumJson::Value answer = client.Post(kUrl, text, lines, status);

  ExpectEvents(PostEvents(kUrl, text.size(), lines, "5"));
  EXPECT_EQ(TheTransfer().body, text);
  EXPECT_EQ(status, 200);
  EXPECT_EQ(answer.JsonValueToString(), reply);
}

TEST_F(JsonRequestTest, EmptyListAddsNoLine) {
  recorder.NextPerform(Answer(200, "{}"));

  client.Get(kUrl, {}, status);
  client.Post(kUrl, "", {}, status);

  ExpectEvents(GetEvents(kUrl, {}) + PostEvents(kUrl, 0, {}, "5"));
}

}  // namespace
}  // namespace lumtest

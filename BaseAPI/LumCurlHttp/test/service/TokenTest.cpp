// Access tokens: fetching one by POST, renewing one by PUT.

#include "ServiceTest.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kUrl = "https://backend.example/token";
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
  const std::string body = Request().ToStyledString();
};

TEST_F(TokenTest, GetTokenPostsTheStyledRequestWithinFiveSeconds) {
  recorder.NextPerform(Answer(200, R"({"token": "abc", "expires": 3600})"));

  const LumJson::Value answer = client.GetToken(kUrl, Request());

  EXPECT_EQ(recorder.Events(), PostEvents(kUrl, body.size(), kGetLines, "5"));
  EXPECT_EQ(recorder.Transfers().at(0).body, body);
  EXPECT_EQ(answer.JsonValueToString(), R"({"token":"abc","expires":3600})");
}

TEST_F(TokenTest, RefreshTokenPutsTheStyledRequestWithinTheEnginesLimit) {
  recorder.NextPerform(Answer(200, R"({"token": "def"})"));

  const LumJson::Value answer = client.RefreshToken(kUrl, Request(), "t");

  EXPECT_EQ(recorder.Events(), PutEvents(kUrl, body.size(), kRefreshLines));
  EXPECT_EQ(recorder.Transfers().at(0).body, body);
  EXPECT_EQ(answer.JsonValueToString(), R"({"token":"def"})");
}

TEST_F(TokenTest, EmptyTokenIsStillAHeaderLine) {
  client.RefreshToken(kUrl, Request(), "");

  EXPECT_EQ(recorder.EventsWithout({"log"}),
            PutEvents(kUrl, body.size(), {"Content-Type: application/json", "X-Auth-Token: "}));
  EXPECT_THAT(recorder.Transfers().at(0).headers,
              ElementsAre("Content-Type: application/json", "X-Auth-Token;"));
}

TEST_F(TokenTest, AnswersOfAnyKindAreReturnedAsParsed) {
  for (const char* json : {"{}", "[]", "17", "\"text\"", "true", "null", R"({"a":{"b":[1]}})"}) {
    Forget();
    recorder.NextPerform(Answer(200, json));
    recorder.NextPerform(Answer(200, json));
    LumJson::Value parsed;
    ASSERT_TRUE(parsed.Parse(json));

    EXPECT_EQ(client.GetToken(kUrl, Request()), parsed) << json;
    EXPECT_EQ(client.RefreshToken(kUrl, Request(), "t"), parsed) << json;
    EXPECT_THAT(Logs(), IsEmpty());
  }
}

TEST_F(TokenTest, AnswerThatIsNoJsonIsLoggedAndNull) {
  for (const std::string text : {"", "no json", "{\"a\":", "{} x"}) {
    Forget();
    recorder.NextPerform(Answer(200, text));
    recorder.NextPerform(Answer(200, text));

    EXPECT_TRUE(client.GetToken(kUrl, Request()).IsNull());
    EXPECT_TRUE(client.RefreshToken(kUrl, Request(), "t").IsNull());

    EXPECT_EQ(recorder.Events(),
              PostEvents(kUrl, body.size(), kGetLines, "5") +
                  Events{"log 1 GetToken: parse json body failed, json body: " + text} +
                  PutEvents(kUrl, body.size(), kRefreshLines) +
                  Events{"log 1 RefreshToken: parse json body failed, json body: " + text});
    EXPECT_THAT(
        Logs(),
        ElementsAre(ClientLog(1, "GetToken", "parse json body failed, json body: %s", {text}),
                    ClientLog(1, "RefreshToken", "parse json body failed, json body: %s", {text})));
  }
}

TEST_F(TokenTest, RefusedGetTokenLogsUrlRequestStatusAndBody) {
  recorder.NextPerform(Answer(401, "who are you"));

  EXPECT_TRUE(client.GetToken(kUrl, Request()).IsNull());

  EXPECT_EQ(recorder.Events(), PostEvents(kUrl, body.size(), kGetLines, "5") +
                                   Events{"log 1 GetToken: Post failed, url=" + kUrl +
                                          ", request=" + body + ", result=401, who are you"});
  EXPECT_THAT(Logs(),
              ElementsAre(ClientLog(1, "GetToken", "Post failed, url=%s, request=%s, result=%d, %s",
                                    {kUrl, body, "401", "who are you"})));
}

TEST_F(TokenTest, RefusedRefreshTokenLogsStatusAndBodyAlone) {
  recorder.NextPerform(Answer(401, "who are you"));

  EXPECT_TRUE(client.RefreshToken(kUrl, Request(), "t").IsNull());

  EXPECT_EQ(recorder.Events(), PutEvents(kUrl, body.size(), kRefreshLines) +
                                   Events{"log 1 RefreshToken: Put failed error:401, who are you"});
  EXPECT_THAT(Logs(), ElementsAre(ClientLog(1, "RefreshToken", "Put failed error:%d, %s",
                                            {"401", "who are you"})));
}

TEST_F(TokenTest, OnlyStatus200IsSuccess) {
  client.UpdateLastError("before");
  for (int status = 100; status <= 599; ++status) {
    Forget();
    recorder.NextPerform(Answer(status, "[7]"));
    recorder.NextPerform(Answer(status, "[7]"));

    EXPECT_EQ(client.GetToken(kUrl, Request()).IsNull(), status != 200) << status;
    EXPECT_EQ(client.RefreshToken(kUrl, Request(), "t").IsNull(), status != 200) << status;

    EXPECT_EQ(Logs().size(), status == 200 ? 0U : 2U) << status;
  }
  EXPECT_EQ(client.GetLastErrorBody(), "before") << "no report failed";
}

TEST_F(TokenTest, FailedTransferIsLoggedTwiceAndNull) {
  recorder.NextPerform(Broken(CURLE_COULDNT_RESOLVE_HOST, 0, "no such host"));
  recorder.NextPerform(Broken(CURLE_COULDNT_RESOLVE_HOST, 0, "no such host"));

  EXPECT_TRUE(client.GetToken(kUrl, Request()).IsNull());
  EXPECT_TRUE(client.RefreshToken(kUrl, Request(), "t").IsNull());

  EXPECT_THAT(
      Logs(),
      ElementsAre(EngineLog(1, "Post", "POST failed for %s, resOps: %d, code: %ld, errorBuf: %s",
                            {"strerror 6", "6", "0", "no such host"}),
                  ClientLog(1, "GetToken", "Post failed, url=%s, request=%s, result=%d, %s",
                            {kUrl, body, "0", "POST failed for: no such host ."}),
                  EngineLog(1, "Put", "PUT failed for %s, resOps: %d, code: %ld, errorBuf: %s",
                            {"strerror 6", "6", "0", "no such host"}),
                  ClientLog(1, "RefreshToken", "Put failed error:%d, %s",
                            {"0", "PUT failed for: no such host ."})));
}

TEST_F(TokenTest, TransferThatBreaksAfterStatus200HasTheFailureTextParsed) {
  recorder.NextPerform(Broken(CURLE_PARTIAL_FILE, 200, "cut off", {"{}"}));

  EXPECT_TRUE(client.GetToken(kUrl, Request()).IsNull());

  EXPECT_EQ(Logs().at(1), ClientLog(1, "GetToken", "parse json body failed, json body: %s",
                                    {"POST failed for: cut off ."}));
}

TEST_F(TokenTest, WithoutAHandleTheStatusIsMinusOne) {
  recorder.FailInit();

  EXPECT_TRUE(client.GetToken(kUrl, Request()).IsNull());
  EXPECT_TRUE(client.RefreshToken(kUrl, Request(), "t").IsNull());

  EXPECT_THAT(Logs(),
              ElementsAre(EngineLog(1, "Post", "POST curl init failed"),
                          ClientLog(1, "GetToken", "Post failed, url=%s, request=%s, result=%d, %s",
                                    {kUrl, body, "-1", ""}),
                          EngineLog(1, "Put", "PUT curl init failed"),
                          ClientLog(1, "RefreshToken", "Put failed error:%d, %s", {"-1", ""})));
}

TEST_F(TokenTest, WithoutAPrivateObjectTheAnswerIsAnEmptyText) {
  DropPrivate();

  for (const LumJson::Value& answer :
       {client.GetToken(kUrl, Request()), client.RefreshToken(kUrl, Request(), "t")}) {
    EXPECT_TRUE(answer.IsString());
    EXPECT_EQ(answer.JsonValueToString(), "");
  }
  EXPECT_THAT(recorder.Events(), IsEmpty());
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

}  // namespace
}  // namespace lumtest

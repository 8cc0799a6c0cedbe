// JSON GET and POST with exactly the caller's header lines.

#include "ServiceTest.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kUrl = "https://any.example/json?x=1";
const Lines kLines = {"X-B: 2", "X-A: 1", "X-B: 3"};

class JsonRequestTest : public ServiceTest {
 protected:
  int status = -7;  // the caller's, before
};

TEST_F(JsonRequestTest, GetSendsTheCallersLinesAndNoOther) {
  recorder.NextPerform(Answer(200, R"({"a": 1})"));

  const LumJson::Value answer = client.Get(kUrl, kLines, status);

  EXPECT_EQ(recorder.Events(), GetEvents(kUrl, kLines));
  EXPECT_EQ(status, 200);
  EXPECT_EQ(answer.JsonValueToString(), R"({"a":1})");
}

TEST_F(JsonRequestTest, PostSendsTheBodyAsItStandsWithinFiveSeconds) {
  const std::string body("no json \0\r\n", 11);
  recorder.NextPerform(Answer(200, "[1]"));

  const LumJson::Value answer = client.Post(kUrl, body, kLines, status);

  EXPECT_EQ(recorder.Events(), PostEvents(kUrl, body.size(), kLines, "5"));
  EXPECT_EQ(recorder.Transfers().at(0).body, body);
  EXPECT_EQ(status, 200);
  EXPECT_EQ(answer.JsonValueToString(), "[1]");
}

TEST_F(JsonRequestTest, EmptyListAddsNoLine) {
  client.Get(kUrl, {}, status);
  client.Post(kUrl, "", {}, status);

  EXPECT_EQ(recorder.EventsWithout({"log"}), GetEvents(kUrl, {}) + PostEvents(kUrl, 0, {}, "5"));
}

TEST_F(JsonRequestTest, CallersListIsNotChanged) {
  const Lines given = {"X-Empty: ", "X-B: 2"};
  Lines list = given;

  client.Get(kUrl, list, status);
  client.Post(kUrl, "", list, status);

  EXPECT_EQ(list, given);
}

TEST_F(JsonRequestTest, AnswersOfAnyKindAreReturnedAsParsed) {
  for (const char* json : {"[]", "17", "-0.5e3", "\"text\"", "false", "null", "{}"}) {
    Forget();
    recorder.NextPerform(Answer(200, json));
    recorder.NextPerform(Answer(200, json));
    LumJson::Value parsed;
    ASSERT_TRUE(parsed.Parse(json));

    EXPECT_EQ(client.Get(kUrl, kLines, status), parsed) << json;
    EXPECT_EQ(client.Post(kUrl, "", kLines, status), parsed) << json;
    EXPECT_THAT(Logs(), IsEmpty());
  }
}

TEST_F(JsonRequestTest, AnswerThatIsNoJsonIsLoggedAndNullWith200) {
  recorder.NextPerform(Answer(200, "<html>"));
  recorder.NextPerform(Answer(200, ""));

  EXPECT_TRUE(client.Get(kUrl, kLines, status).IsNull());
  EXPECT_EQ(status, 200);
  status = -7;
  EXPECT_TRUE(client.Post(kUrl, "b", kLines, status).IsNull());
  EXPECT_EQ(status, 200);

  EXPECT_EQ(recorder.Events(), GetEvents(kUrl, kLines) +
                                   Events{"log 1 Get: parse json body failed, json body: <html>"} +
                                   PostEvents(kUrl, 1, kLines, "5") +
                                   Events{"log 1 Post: parse json body failed, json body: "});
  EXPECT_THAT(Logs(),
              ElementsAre(ClientLog(1, "Get", "parse json body failed, json body: %s", {"<html>"}),
                          ClientLog(1, "Post", "parse json body failed, json body: %s", {""})));
}

TEST_F(JsonRequestTest, OnlyStatus200IsParsed) {
  client.UpdateLastError("before");
  for (int answered = 100; answered <= 599; ++answered) {
    Forget();
    recorder.NextPerform(Answer(answered, "[7]"));
    recorder.NextPerform(Answer(answered, "[7]"));

    EXPECT_EQ(client.Get(kUrl, kLines, status).IsNull(), answered != 200) << answered;
    EXPECT_EQ(status, answered);
    status = -7;
    EXPECT_EQ(client.Post(kUrl, "b", kLines, status).IsNull(), answered != 200) << answered;
    EXPECT_EQ(status, answered);

    if (answered == 200) {
      EXPECT_THAT(Logs(), IsEmpty());
    } else {
      const Events arguments = {kUrl, std::to_string(answered), "[7]"};
      EXPECT_THAT(
          Logs(),
          ElementsAre(ClientLog(1, "Get", "Get failed, url=%s, result=%d, %s", arguments),
                      ClientLog(1, "Post", "Post failed, url=%s, result=%d, %s", arguments)));
    }
  }
  EXPECT_EQ(client.GetLastErrorBody(), "before") << "no report failed";
}

TEST_F(JsonRequestTest, NoContentIsAFailureWithItsStatus) {
  recorder.NextPerform(Answer(204));

  EXPECT_TRUE(client.Get(kUrl, kLines, status).IsNull());

  EXPECT_EQ(status, 204);
  EXPECT_EQ(recorder.Events(), GetEvents(kUrl, kLines) +
                                   Events{"log 1 Get: Get failed, url=" + kUrl + ", result=204, "});
}

TEST_F(JsonRequestTest, FailedTransferHandsBackStatusZeroAndLogsTheFailureText) {
  recorder.NextPerform(Broken(CURLE_OPERATION_TIMEDOUT, 0, "too slow"));
  recorder.NextPerform(Broken(CURLE_OPERATION_TIMEDOUT, 0, "too slow"));

  EXPECT_TRUE(client.Get(kUrl, kLines, status).IsNull());
  EXPECT_EQ(status, 0);
  status = -7;
  EXPECT_TRUE(client.Post(kUrl, "b", kLines, status).IsNull());
  EXPECT_EQ(status, 0);

  EXPECT_THAT(
      Logs(),
      ElementsAre(EngineLog(1, "Get", "GET failed for %s, resOps: %d, code: %ld, errorBuf: %s",
                            {"strerror 28", "28", "0", "too slow"}),
                  ClientLog(1, "Get", "Get failed, url=%s, result=%d, %s",
                            {kUrl, "0", "GET failed for: too slow ."}),
                  EngineLog(1, "Post", "POST failed for %s, resOps: %d, code: %ld, errorBuf: %s",
                            {"strerror 28", "28", "0", "too slow"}),
                  ClientLog(1, "Post", "Post failed, url=%s, result=%d, %s",
                            {kUrl, "0", "POST failed for: too slow ."})));
}

TEST_F(JsonRequestTest, WithoutAHandleTheStatusIsMinusOne) {
  recorder.FailInit();

  EXPECT_TRUE(client.Get(kUrl, kLines, status).IsNull());
  EXPECT_EQ(status, -1);
  status = -7;
  EXPECT_TRUE(client.Post(kUrl, "b", kLines, status).IsNull());
  EXPECT_EQ(status, -1);

  EXPECT_THAT(
      Logs(),
      ElementsAre(EngineLog(1, "Get", "GET curl init failed"),
                  ClientLog(1, "Get", "Get failed, url=%s, result=%d, %s", {kUrl, "-1", ""}),
                  EngineLog(1, "Post", "POST curl init failed"),
                  ClientLog(1, "Post", "Post failed, url=%s, result=%d, %s", {kUrl, "-1", ""})));
}

TEST_F(JsonRequestTest, WithoutAPrivateObjectTheStatusStaysTheCallers) {
  DropPrivate();

  EXPECT_TRUE(client.Get(kUrl, kLines, status).IsNull());
  EXPECT_EQ(status, -7);
  EXPECT_TRUE(client.Post(kUrl, "b", kLines, status).IsNull());
  EXPECT_EQ(status, -7);
  EXPECT_THAT(recorder.Events(), IsEmpty());
}

}  // namespace
}  // namespace lumtest

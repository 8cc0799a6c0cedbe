// Reports and exchanges in the database: through the routes, and by hand.
#include "Store.h"

#include <gmock/gmock.h>

#include "BackendFixture.h"
#include "support/Threads.h"

namespace lumtest {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class StoreTest : public BackendFixture {
 protected:
  // Numbers of the exchanges that a list holds.
  std::vector<std::int64_t> Ids(const std::string& query) {
    std::vector<std::int64_t> ids;
    const LumJson::Value list = Json("/exchanges?" + query);
    for (const LumJson::Value& row : list["rows"].Elements()) {
      ids.push_back(row["id"].AsInt64());
    }
    return ids;
  }

  std::string Reports() { return Streamed(Ask("GET", "/reports")); }
};

TEST_F(StoreTest, KeepsOneCompactDocumentALine) {
  EXPECT_EQ(Ask("POST", "/report", "{\n \"a\" : [1, 2.5,\"x\\ny\"]}").body,
            "{\n    \"stored\": 1\n}\n");
  Ask("POST", "/report", "\"text \\\"quoted\\\"\"");
  Ask("POST", "/report", "null");
  EXPECT_EQ(Ask("POST", "/report", "[]").body, "{\n    \"stored\": 4\n}\n");
  EXPECT_EQ(Reports(), "{\"a\":[1,2.5,\"x\\ny\"]}\n\"text \\\"quoted\\\"\"\nnull\n[]\n");
}

TEST_F(StoreTest, CanAnswer204) {
  const Reply reply = Ask("POST", "/report?status=204", "1");
  EXPECT_EQ(reply.status, 204);
  EXPECT_EQ(reply.body, "");
  EXPECT_EQ(Ask("POST", "/report?status=201", "2").status, 400);
  EXPECT_EQ(Reports(), "1\n");
}

TEST_F(StoreTest, GoesOnWhereItEnded) {
  Ask("POST", "/report", "1");
  Restart();
  EXPECT_EQ(Ask("POST", "/report", "2").body, "{\n    \"stored\": 2\n}\n");
  EXPECT_EQ(Reports(), "1\n2\n");
  EXPECT_THAT(Ids("kind=report"), ElementsAre(2, 1));
}

TEST_F(StoreTest, ReportsOfAnOlderRootAreTakenOverOnce) {
  m_temp.Write("reports.jsonl", "{\"old\":1}\n2\n{\"cut");
  Ask("POST", "/report", "3");
  EXPECT_EQ(Reports(), "{\"old\":1}\n2\n3\n");
  m_temp.Write("reports.jsonl", "4\n");
  Restart();
  EXPECT_EQ(Reports(), "{\"old\":1}\n2\n3\n");
  EXPECT_EQ(ReadFile(m_temp.Path("reports.jsonl.old")), "{\"old\":1}\n2\n{\"cut");
}

TEST_F(StoreTest, AListKnowsWhatAnExchangeWasAbout) {
  Ask("POST", "/report?token=s3cret&a=b", R"({"accessId":"d-1","topic_name":"climate"})",
      {"Content-Encoding: identity", "X-Auth-Token: s3cret"});
  const std::string list = Ask("GET", "/exchanges").body;
  EXPECT_THAT(list, StartsWith(R"({"rows":[{"id":1,"time":)"));
  EXPECT_THAT(
      list, EndsWith(R"(,"kind":"report","method":"POST","path":"/report","query":"token=***&a=b",)"
                     R"("status":200,"bytesIn":41,"bytesOut":123,"device":"d-1","topic":"climate",)"
                     R"("object":"","gzip":false,"signed":false,"tls":false,)"
                     R"("text":"{\"accessId\":\"d-1\",\"topic_name\":\"climate\"}","refusal":""}],)"
                     R"("more":false,"total":1,"totalIsExact":true,"last":1})"));
  const LumJson::Value whole = Json("/exchanges/1");
  EXPECT_EQ(whole["head"].At(1)["name"].AsString(), "X-Auth-Token");
  EXPECT_EQ(whole["head"].At(1)["value"].AsString(), "***");
  EXPECT_TRUE(whole["bodyIsWhole"].AsBool());
  EXPECT_EQ(Ask("GET", "/exchanges/1/body").body, R"({"accessId":"d-1","topic_name":"climate"})");
  EXPECT_EQ(Ask("GET", "/exchanges/2").status, 404);
  EXPECT_EQ(Ask("GET", "/exchanges/x").status, 404);
}

TEST_F(StoreTest, ShowsTheStartOfADocument) {
  // 199 bytes, then a character of two bytes across the limit.
  const std::string text = "\"" + std::string(198, 'a') + "\xC3\xA9zzz\"";
  Ask("POST", "/report", text);
  EXPECT_EQ(Json("/exchanges")["rows"].At(0)["text"].AsString(), text.substr(0, 199) + "...");
}

TEST_F(StoreTest, NeitherTokensNorWhatTheyWereAskedForWithIsKept) {
  Ask("POST", "/token", R"({"device":"d-2","password":"s3cret"})");
  Ask("POST", "/token", R"(["s3cret"])");
  for (const char* target : {"/exchanges/1", "/exchanges/2"}) {
    const std::string text = Ask("GET", target).body;
    EXPECT_EQ(text.find("s3cret"), std::string::npos) << text;
    EXPECT_EQ(text.find("expiresIn"), std::string::npos) << text;
    EXPECT_EQ(Ask("GET", std::string(target) + "/body").status, 204);
  }
  EXPECT_THAT(Ids("device=d-2&kind=token"), ElementsAre(1));
  EXPECT_THAT(Ids("text=s3cret"), IsEmpty());
}

// Another writer is ahead of what the back end has counted, as its own one is in mid-transaction.
TEST_F(StoreTest, LastIsTheNewestExchangeThatTheAnswerHolds) {
  Ask("POST", "/report", "1");
  Database(m_temp.Path("lumbackend.db"))
      .Run(
          "CREATE TEMP TABLE copy AS SELECT * FROM exchange; UPDATE copy SET id = 9; "
          "INSERT INTO exchange SELECT * FROM copy;");
  EXPECT_THAT(Ids("limit=1"), ElementsAre(9));
  EXPECT_EQ(Json("/exchanges?limit=1")["last"].AsInt64(), 9);
  EXPECT_EQ(Json("/totals")["last"].AsInt64(), 9);
}

TEST_F(StoreTest, EveryFilterAndAllOfThemTogether) {
  Ask("POST", "/report", R"({"accessId":"d-1","topic_name":"climate","note":"Größer 21.5"})");
  Ask("POST", "/report", R"({"accessId":"d-2","topic_name":"climate"})");
  Ask("POST", "/report", "{broken");
  Ask("PUT", "/objects/logs/d-1.zip", "zip");
  Ask("GET", "/nothing");
  EXPECT_THAT(Ids(""), ElementsAre(5, 4, 3, 2, 1));
  EXPECT_THAT(Ids("kind=report"), ElementsAre(2, 1));
  EXPECT_THAT(Ids("kind=refusal"), ElementsAre(5, 3));
  EXPECT_THAT(Ids("status=4"), ElementsAre(5, 3));
  EXPECT_THAT(Ids("status=2"), ElementsAre(4, 2, 1));
  EXPECT_THAT(Ids("kind=report%22&status=2.0"), IsEmpty());
  EXPECT_THAT(Ids("device=d-1"), ElementsAre(1));
  EXPECT_THAT(Ids("topic=climate"), ElementsAre(2, 1));
  EXPECT_THAT(Ids("text=gr%C3%B6sse"), IsEmpty());
  EXPECT_THAT(Ids("text=GR%C3%96%C3%9F"), ElementsAre(1));
  EXPECT_THAT(Ids("text=d-1"), ElementsAre(4, 1));
  EXPECT_THAT(Ids("text=brok"), ElementsAre(3));
  EXPECT_THAT(Ids("text=zip%20logs"), ElementsAre(4));
  EXPECT_THAT(Ids("text=%22*()%20AND%20'"), IsEmpty());
  EXPECT_THAT(Ids("text=there%20is&kind=refusal&status=4"), ElementsAre(5));
  EXPECT_THAT(Ids("text=report&kind=report&status=2&device=d-2&topic=climate"), ElementsAre(2));
  EXPECT_THAT(Ids("limit=2"), ElementsAre(5, 4));
  EXPECT_THAT(Ids("limit=2&before=4"), ElementsAre(3, 2));
  EXPECT_THAT(Ids("after=3"), ElementsAre(5, 4));
  EXPECT_THAT(Ids("status=2&before=4"), ElementsAre(2, 1));
  const LumJson::Value list = Json("/exchanges?limit=1&kind=report");
  EXPECT_TRUE(list["more"].AsBool());
  EXPECT_EQ(list["total"].AsInt64(), 2);
  EXPECT_EQ(Json("/exchanges?text=climate&kind=report&limit=1")["total"].AsInt64(), 2);
  EXPECT_EQ(Ask("GET", "/exchanges?limit=0").status, 400);
  EXPECT_EQ(Ask("GET", "/exchanges?before=x").status, 400);
}

TEST_F(StoreTest, TotalsAndChartCountEverything) {
  Ask("POST", "/report", R"({"accessId":"d-1"})");
  Ask("POST", "/report", R"({"accessId":"d-2","topic_name":"t"})");
  Ask("POST", "/report", R"({"accessId":"d-2"})");
  Ask("GET", "/nothing");
  const LumJson::Value totals = Json("/totals");
  EXPECT_EQ(totals["all"].AsInt64(), 4);
  EXPECT_EQ(totals["kinds"].JsonValueToString(), R"({"refusal":1,"report":3})");
  EXPECT_EQ(totals["devices"].JsonValueToString(), R"(["d-2","d-1"])");
  EXPECT_EQ(totals["topics"].JsonValueToString(), R"(["t"])");
  const LumJson::Value chart = Json("/chart");
  EXPECT_EQ(chart["all"].Size(), 60u);
  std::int64_t sums[3] = {};
  for (std::size_t i = 0; i < 60; ++i) {
    sums[0] += chart["all"].At(i).AsInt64();
    sums[1] += chart["reports"].At(i).AsInt64();
    sums[2] += chart["refusals"].At(i).AsInt64();
  }
  EXPECT_THAT(sums, ElementsAre(4, 3, 1));
  EXPECT_EQ(Ask("GET", "/chart?minutes=61").status, 400);
}

TEST_F(StoreTest, KeepsTheNewest) {
  m_options.keep = 10;
  for (int i = 1; i <= 30; ++i) {
    Ask("POST", "/report", std::to_string(i));
  }
  EXPECT_THAT(Ids(""), ElementsAre(30, 29, 28, 27, 26, 25, 24, 23, 22, 21));
  EXPECT_EQ(Reports(), "21\n22\n23\n24\n25\n26\n27\n28\n29\n30\n");
  EXPECT_EQ(Json("/totals")["all"].AsInt64(), 10);
  EXPECT_THAT(Ids("kind=report&text=22"), ElementsAre(22));
  EXPECT_THAT(Ids("text=20"), IsEmpty());
}

TEST_F(StoreTest, LongBodiesAreKeptInPartAndReportsWhole) {
  const std::string text = "\"" + std::string(100'000, 'x') + "\"";
  Ask("POST", "/echo", text);
  Ask("POST", "/report", text);
  EXPECT_FALSE(Json("/exchanges/1")["bodyIsWhole"].AsBool(true));
  EXPECT_EQ(Json("/exchanges/1")["bodySize"].AsInt64(), 65536);
  EXPECT_EQ(Ask("GET", "/exchanges/1/body").body, text.substr(0, 65536));
  EXPECT_TRUE(Json("/exchanges/2")["bodyIsWhole"].AsBool());
  EXPECT_EQ(Ask("GET", "/exchanges/2/body").body, text);
}

TEST_F(StoreTest, ManyThreadsReportAtOnce) {
  Subject();
  OnThreads(4, [this](int i) {
    for (int j = 0; j < 50; ++j) {
      FakeBody body("\"" + std::string(1000, static_cast<char>('a' + i)) + "\"");
      EXPECT_EQ(Await(m_backend->Handle(MakeCall("POST", "/report"), body)).status, 200);
    }
  });
  const std::string content = Reports();
  ASSERT_EQ(content.size(), 200u * 1003);
  for (std::size_t at = 0; at < content.size(); at += 1003) {
    EXPECT_EQ(content.substr(at, 1003), "\"" + std::string(1000, content[at + 1]) + "\"\n");
  }
}

TEST_F(StoreTest, TheStreamTellsOfNewExchanges) {
  Ask("GET", "/nothing");
  const Reply reply = Ask("GET", "/stream");
  EXPECT_EQ(reply.contentType, "text/event-stream");
  EXPECT_THAT(std::string(Await(reply.stream->Next())),
              HasSubstr("data: {\"rows\":[],\"skipped\":0"));
  Ask("GET", "/echo");
  const std::string event(Await(reply.stream->Next()));
  EXPECT_THAT(event, HasSubstr("event: rows\nid: 2\ndata: {\"rows\":[{\"id\":2,"));
  EXPECT_THAT(event, HasSubstr("\"totals\":{\"all\":2,"));
  const Reply again = Ask("GET", "/stream?after=0", "", {"Last-Event-ID: 1"});
  EXPECT_THAT(std::string(Await(again.stream->Next())), HasSubstr("data: {\"rows\":[{\"id\":2,"));
  for (int i = 0; i < 150; ++i) {
    Ask("GET", "/echo");
  }
  EXPECT_THAT(std::string(Await(again.stream->Next())), HasSubstr("\"skipped\":50,"));
}

}  // namespace
}  // namespace lumtest

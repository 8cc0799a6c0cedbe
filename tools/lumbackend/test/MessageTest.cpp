// Reading of request heads.
#include "Message.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Fakes.h"

namespace {

using lumtest::ErrorOf;
using lumtest::MakeCall;
using testing::ElementsAre;

std::string ProblemOf(const std::string& head) {
  Call call;
  return ParseHead(head, call);
}

TEST(Message, SplitsTheTargetBeforeDecodingIt) {
  const Call call = MakeCall("GET", "/files/a%2Fb/c%20d?x=1?2&y=%26");
  EXPECT_EQ(call.path, "/files/a%2Fb/c%20d");
  EXPECT_EQ(call.query, "x=1?2&y=%26");
  EXPECT_THAT(call.names, ElementsAre("files", "a/b", "c d"));
}

TEST(Message, EmptySegmentsAreKept) {
  EXPECT_THAT(MakeCall("GET", "/").names, ElementsAre(""));
  EXPECT_THAT(MakeCall("GET", "/a//b/").names, ElementsAre("a", "", "b", ""));
}

TEST(Message, KeepsHeadersInOrderAndTrimsTheirValues) {
  const Call call = MakeCall("GET", "/", {"B: 2", "A:\t 1 % \t", "b: 3", "E:"});
  ASSERT_EQ(call.headers.size(), 4u);
  EXPECT_EQ(call.headers[1].value, "1 %");
  EXPECT_EQ(*call.Header("b"), "2");
  EXPECT_EQ(*call.Header("e"), "");
  EXPECT_EQ(call.Header("C"), nullptr);
}

TEST(Message, FindsQueryValues) {
  const Call call = MakeCall("GET", "/?a=1&b&c=%41&d=%zz&a=2&=x");
  EXPECT_EQ(call.QueryValue("a"), "1");
  EXPECT_EQ(call.QueryValue("b"), "");
  EXPECT_EQ(call.QueryValue("c"), "A");
  EXPECT_EQ(call.QueryValue("d"), std::nullopt);
  EXPECT_EQ(call.QueryValue("e"), std::nullopt);
}

TEST(Message, KnowsWhetherThereIsABody) {
  EXPECT_FALSE(MakeCall("PUT", "/").HasBody());
  EXPECT_FALSE(MakeCall("PUT", "/", {"Content-Length: 0"}).HasBody());
  EXPECT_TRUE(MakeCall("PUT", "/", {"Content-Length: 5", "content-length: 5"}).HasBody());
  EXPECT_TRUE(MakeCall("PUT", "/", {"Transfer-Encoding: Chunked"}).HasBody());
  EXPECT_EQ(MakeCall("PUT", "/", {"Content-Length: 18446744073709551615"}).contentLength,
            18446744073709551615u);
}

TEST(Message, RefusesBodiesWithoutAnEnd) {
  for (const char* line :
       {"Content-Length:", "Content-Length: -1", "Content-Length: 5x", "Content-Length: 5, 5",
        "Content-Length: 18446744073709551616", "Content-Length: 1\r\nContent-Length: 2"}) {
    EXPECT_EQ(ProblemOf("PUT / HTTP/1.1\r\n" + std::string(line) + "\r\n\r\n"),
              "Content-Length is no single number")
        << line;
  }
  for (const char* line : {"Transfer-Encoding: gzip", "Transfer-Encoding: gzip, chunked",
                           "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked"}) {
    EXPECT_EQ(ProblemOf("PUT / HTTP/1.1\r\n" + std::string(line) + "\r\n\r\n"),
              "Transfer-Encoding is not 'chunked'")
        << line;
  }
  EXPECT_EQ(ProblemOf("PUT / HTTP/1.1\r\nTransfer-Encoding: chunked\r\nContent-Length: 1\r\n\r\n"),
            "both Transfer-Encoding and Content-Length");
}

TEST(Message, RefusesMalformedHeads) {
  for (const char* line : {"", "GET", "GET /", "GET / b HTTP/1.1"}) {
    EXPECT_EQ(ProblemOf(std::string(line) + "\r\n\r\n"), "malformed request line") << line;
  }
  EXPECT_EQ(ProblemOf("GET http://a/ HTTP/1.1\r\n\r\n"),
            "the request target does not begin with '/'");
  EXPECT_EQ(ProblemOf("GET /%zz HTTP/1.1\r\n\r\n"),
            "the path holds a '%' without two hex digits behind it");
  for (const std::string& line :
       {std::string("no colon"), std::string(": no name"), std::string("blank : 1"),
        std::string("A: 1\n B: 2"), std::string(" fold: 1"), std::string("A: \0", 4),
        std::string("A: \rb")}) {
    EXPECT_EQ(ProblemOf("GET / HTTP/1.1\r\n" + line + "\r\n\r\n"), "malformed header line") << line;
  }
}

TEST(Message, UnderstandsAsMuchOfABrokenHeadAsThereIs) {
  Call call;
  EXPECT_NE(ParseHead("PUT /objects/x HTTP/1.1\r\nbroken", call), "");
  EXPECT_EQ(call.method, "PUT");
  EXPECT_EQ(call.path, "/objects/x");
}

TEST(Message, AProblemIsPrintableJson) {
  const Reply reply = Problem(418, "bad \x1B\xFF \"name\"");
  EXPECT_EQ(reply.status, 418);
  EXPECT_EQ(reply.contentType, "application/json");
  EXPECT_EQ(ErrorOf(reply.body), "bad \\x1b\\xff \"name\"");
  EXPECT_EQ(reply.note.text, "bad \\x1b\\xff \"name\"");
}

}  // namespace

// Reading of request heads and chunks.
#include "RequestParser.h"

#include <gmock/gmock.h>

#include "BackendFixture.h"

namespace {

using lumtest::ErrorOf;
using lumtest::MakeCall;
using testing::ElementsAre;

// What a parser makes of a request that it gets `bytes` at a time.
struct Fed {
  int status = 0;
  std::string refusal;
  std::string body;
  bool whole = false;
};

Fed Feed(const std::string& request, std::size_t bytes = 4096) {
  Call call;
  RequestParser parser(call);
  Fed fed;
  std::string waiting;
  for (std::size_t at = 0; at < request.size() && parser.RefusalStatus() == 0; at += bytes) {
    waiting += request.substr(at, bytes);
    for (bool more = true; more && !waiting.empty() && !parser.is_done();) {
      const std::size_t taken = parser.Take(waiting);
      fed.body += parser.Piece();
      waiting.erase(0, taken);
      more = taken > 0 && parser.RefusalStatus() == 0;
    }
  }
  fed.status = parser.RefusalStatus();
  fed.refusal = parser.Refusal();
  fed.whole = parser.is_done();
  return fed;
}

const std::string kChunked = "PUT /objects/a HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n";

TEST(Message, SplitsTheTargetBeforeDecodingIt) {
  const Call call = MakeCall("GET", "/files/a%2Fb/c%20d?x=1?2&y=%26");
  EXPECT_EQ(call.path, "/files/a%2Fb/c%20d");
  EXPECT_EQ(call.query, "x=1?2&y=%26");
  EXPECT_THAT(call.names, ElementsAre("files", "a/b", "c d"));
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

TEST(Message, KnowsHowLongABodyIs) {
  EXPECT_EQ(MakeCall("PUT", "/").contentLength, std::nullopt);
  EXPECT_EQ(MakeCall("PUT", "/", {"Content-Length: 0"}).contentLength, 0u);
  EXPECT_EQ(MakeCall("PUT", "/", {"Content-Length: 5", "content-length: 5"}).contentLength, 5u);
  EXPECT_EQ(MakeCall("PUT", "/", {"Transfer-Encoding: Chunked"}).contentLength, std::nullopt);
  EXPECT_EQ(MakeCall("PUT", "/", {"Content-Length: 18446744073709551615"}).contentLength,
            18446744073709551615u);
}

void ExpectRefusal(const std::string& reason, const std::string& start,
                   const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    EXPECT_EQ(Feed(start + line + "\r\n\r\n").refusal, reason) << line;
  }
}

TEST(Message, RefusesBodiesWithoutAnEnd) {
  const std::string start = "PUT / HTTP/1.1\r\n";
  ExpectRefusal(
      "Content-Length is no single number", start,
      {"Content-Length:", "Content-Length: -1", "Content-Length: +1", "Content-Length: 5x",
       "Content-Length: 18446744073709551616", "Content-Length: 1\r\nContent-Length: 2"});
  ExpectRefusal("Transfer-Encoding is not 'chunked'", start,
                {"Transfer-Encoding: gzip", "Transfer-Encoding: gzip, chunked",
                 "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked"});
  ExpectRefusal("both Transfer-Encoding and Content-Length", start,
                {"Transfer-Encoding: chunked\r\nContent-Length: 1",
                 "Content-Length: 1\r\nTransfer-Encoding: chunked"});
}

TEST(Message, RefusesMalformedHeads) {
  ExpectRefusal("malformed request", "",
                {"", "GET", "GET /", "GET / b HTTP/1.1", "GET / HTTP/3.0", "G=T / HTTP/1.1"});
  ExpectRefusal("the request target does not begin with '/'", "GET http://a/ HTTP/1.1", {""});
  ExpectRefusal("the path holds a '%' without two hex digits behind it", "GET /%zz HTTP/1.1", {""});
  ExpectRefusal("malformed header line", "GET / HTTP/1.1\r\n",
                {"no colon", ": no name", "blank : 1", "A: 1\n B: 2", " fold: 1",
                 std::string("A: \0", 4), "A: \rb", "A: 1\r\n\tfold"});
}

TEST(Message, LongHeadsAreRefused) {
  const std::string line = "A: " + std::string(8000, 'a') + "\r\n";
  std::string lines;
  for (int i = 0; i < 9; ++i) {
    lines += line;
  }
  EXPECT_EQ(Feed("GET / HTTP/1.1\r\n" + line + "\r\n").refusal, "");
  EXPECT_EQ(Feed("GET / HTTP/1.1\r\n" + lines + "\r\n").status, 431);
  EXPECT_EQ(Feed("GET / HTTP/1.1\r\n" + lines).status, 431);
  EXPECT_EQ(Feed("GET /" + std::string(9000, 'a')).status, 414);
  EXPECT_EQ(Feed("GET / HTTP/1.1\r\nA: " + std::string(9000, 'a') + "\r\n\r\n").status, 400);
}

TEST(Message, ABodyIsTheSameInPiecesOfAnySize) {
  const std::string chunks = "3;x=y\r\nabc\r\nA\r\n0123456789\r\n0\r\nTrailer: t\r\n\r\n";
  for (const std::size_t bytes : {1, 2, 3, 7, 1000}) {
    const Fed chunked = Feed(kChunked + chunks, bytes);
    EXPECT_EQ(chunked.body, "abc0123456789") << bytes;
    EXPECT_TRUE(chunked.whole) << bytes;
    const Fed counted = Feed("PUT / HTTP/1.1\r\nContent-Length: 5\r\n\r\nabcde", bytes);
    EXPECT_EQ(counted.body, "abcde") << bytes;
    EXPECT_TRUE(counted.whole) << bytes;
  }
}

TEST(Message, OddChunkSizesAreRefused) {
  for (const char* size : {"0x2", " 2", "+2", "2g", "-2", "", "2 2", "g", "11111111111111112"}) {
    for (const std::size_t bytes : {1, 1000}) {
      const Fed fed = Feed(kChunked + size + "\r\nab\r\n0\r\n\r\n", bytes);
      EXPECT_EQ(fed.status, 400) << size;
      EXPECT_EQ(fed.body, "") << size;
    }
  }
}

TEST(Message, LongChunkLinesAreRefused) {
  const std::string fits = kChunked + "2;x=" + std::string(4000, 'x') + "\r\nab\r\n0\r\n\r\n";
  EXPECT_TRUE(Feed(fits, 1000).whole);
  for (const std::string& line : {std::string("2;x=" + std::string(4100, 'x') + "\r\nab\r\n"),
                                  "2;x=" + std::string(20'000, 'x'), std::string(20'000, '0'),
                                  "0\r\nA: " + std::string(20'000, 'x')}) {
    for (const std::size_t bytes : {std::size_t{1000}, line.size() + kChunked.size()}) {
      EXPECT_EQ(Feed(kChunked + line, bytes).status, 400) << line.substr(0, 20);
    }
  }
}

TEST(Message, AProblemIsPrintableJson) {
  const Reply reply = Problem(418, "bad \x1B\xFF \"name\"");
  EXPECT_EQ(reply.status, 418);
  EXPECT_EQ(reply.contentType, "application/json");
  EXPECT_EQ(ErrorOf(reply), "bad \\x1b\\xff \"name\"");
  EXPECT_EQ(reply.note.text, "bad \\x1b\\xff \"name\"");
}

}  // namespace

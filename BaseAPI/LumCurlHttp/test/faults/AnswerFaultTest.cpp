// Answers that are wrong in themselves, and what every operation makes of them. What libcurl says
// of each is that of versions 7.88, 8.14 and 8.23, which go apart.

#include <set>

#include "FaultTest.h"

namespace lumtest {
namespace {

constexpr long kNone = -1;  // no status arrived

struct AnswerFault {
  const char* name;
  std::string bytes;  // after which the connection is closed
  Ending ending;
};

// The answer with its body, its head ending in these lines.
std::string Ok(const std::vector<std::string>& lines) {
  return WireHead(200, lines) + kReply;
}

std::vector<AnswerFault> AnswerFaults() {
  const std::string json = kReply;
  const std::string length = "Content-Length: 13";
  const std::string chunked = "Transfer-Encoding: chunked";
  const std::string crLf = "\r\n";
  const std::string good = Ok({length});
  const char badStatus[] = "Unsupported response code in HTTP response";
  const char noStatus[] = "Unsupported HTTP/1 subversion in response";
  return {
      // --- Lengths
      {"LengthTooLong", Ok({"Content-Length: 100"}), {18, 200, json, CurlBytesMissing(87)}},
      {"LengthTooShort", Ok({"Content-Length: 5"}), {0, 200, "{\"tok"}},
      {"LengthZero", Ok({"Content-Length: 0"}), {0, 200, ""}},
      {"LengthNegative",
       Ok({"Content-Length: -13"}),
       {8, 200, "", "Invalid Content-Length: value"}},
      {"LengthNoNumber",
       Ok({"Content-Length: much"}),
       {8, 200, "", "Invalid Content-Length: value"}},
      {"LengthBeyond64Bits", Ok({"Content-Length: 99999999999999999999"}), {0, 200, json}},
      {"LengthsThatDiffer", Ok({length, "Content-Length: 5"}),
       ByCurl(Ending{0, 200, "{\"tok"}, Ending{0, 200, "{\"tok"},
              Ending{8, 200, "", "Invalid Content-Length: value"})},
      {"LengthMissing", Ok({}), {0, 200, json}},
      // --- Chunks
      {"ChunkedWithALength",
       WireHead(200, {"Content-Length: 5", chunked}) + WireChunk(json) + WireChunk(""),
       {0, 200, json}},
      {"ChunkSizeNoNumber",
       WireHead(200, {chunked}) + "size\r\n" + json,
       {56, 200, "",
        ByCurl("Illegal or missing hexadecimal sequence in chunked-encoding",
               "chunk hex-length char not a hex digit: 0x73")}},
      {"ChunkSizeBeyond64Bits",
       WireHead(200, {chunked}) + "FFFFFFFFFFFFFFFFF\r\n" + json,
       {56, 200, "",
        ByCurl("Too long hexadecimal number in chunked-encoding", "chunk hex-length longer than 16",
               "invalid chunk size: 'FFFFFFFFFFFFFFFFF'")}},
      {"ChunkLongerThanItsSize",
       WireHead(200, {chunked}) + "5\r\n" + json,
       {56, 200, "{\"tok", "Malformed encoding found in chunked-encoding"}},
      {"ChunkedWithoutAnEnd",
       WireHead(200, {chunked}) + WireChunk(json),
       {18, 200, json, "transfer closed with outstanding read data remaining"}},
      {"CodingUnknown",
       Ok({"Transfer-Encoding: braided"}),
       {61, 200, "",
        ByCurl("Unrecognized content encoding type.*",
               "Unsolicited Transfer-Encoding \\(braided\\) found")}},
      // --- Status lines
      {"ProtocolMisspelt",
       "HTP/1.1 200 OK\r\n\r\n" + json,
       {1, kNone, "", "Received HTTP/0.9 when not allowed"}},
      {"VersionUnknown",
       "HTTP/9.9 200 OK\r\n\r\n" + json,
       {1, kNone, "",
        ByCurl("Unsupported HTTP version \\(9.9\\) in response",
               "Unsupported HTTP version in response")}},
      {"StatusOfTwoDigits",
       "HTTP/1.1 20 OK\r\n\r\n" + json,
       {1, kNone, "", ByCurl(badStatus, noStatus)}},
      {"StatusOfFourDigits", "HTTP/1.1 2000 OK\r\n\r\n" + json,
       ByCurl(Ending{1, kNone, "", badStatus}, Ending{0, 200, json})},
      {"StatusNoNumber",
       "HTTP/1.1 two OK\r\n\r\n" + json,
       {1, kNone, "", ByCurl("Unsupported HTTP version in response", noStatus)}},
      {"StatusNegative",
       "HTTP/1.1 -20 OK\r\n\r\n" + json,
       {1, kNone, "", ByCurl(badStatus, noStatus)}},
      {"StatusZero", "HTTP/1.1 000 OK\r\n\r\n" + json, {1, kNone, "", badStatus}},
      {"StatusWithoutAReason", "HTTP/1.1 200\r\n" + length + "\r\n\r\n" + json, {0, 200, json}},
      {"StatusOf999", "HTTP/1.1 999 OK\r\n" + length + "\r\n\r\n" + json, {0, 999, json}},
      // --- Header lines
      {"LineFeedsAlone", "HTTP/1.1 200 OK\n" + length + "\n\n" + json, {0, 200, json}},
      {"HeaderWithoutAColon",
       "HTTP/1.1 200 OK\r\nheader\r\n\r\n" + json,
       {8, 200, "", "Header without colon"}},
      {"HeaderWithAZeroByte",
       "HTTP/1.1 200 OK\r\nX: a" + std::string(1, '\0') + "b\r\n\r\n" + json,
       {8, 200, "", "(Nul|NUL) byte in header"}},
      {"HeaderFoldedFromNothing",
       "HTTP/1.1 200 OK\r\n folded\r\n\r\n" + json,
       {8, 200, "", "Header without colon"}},
      {"HeaderOf200Kilobytes",
       Ok({"X: " + std::string(200000, 'x'), length}),
       {ByCurl(27, 100), 200, "", ""}},
      {"HundredThousandHeaders",
       "HTTP/1.1 200 OK\r\n" + Times(100000, "X: a\r\n") + length + "\r\n\r\n" + json,
       {ByCurl(56, 100), 200, "",
        ByCurl("Too large response headers: [0-9]+ > 307200",
               "Too many response headers, 5000 is max")}},
      // --- Interim answers and answers without a body
      {"ThousandContinues", Times(1000, WireContinue()) + good, {0, 200, json}},
      {"ThousandEarlyHints",
       Times(1000, "HTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n") + good,
       {0, 200, json}},
      {"InterimAnswersAlone",
       Times(10, "HTTP/1.1 102 Processing\r\n\r\n"),
       {52, 102, "", "Empty reply from server"}},
      {"SwitchingProtocols",
       "HTTP/1.1 101 Switching Protocols\r\nUpgrade: x\r\n\r\n" + good,
       {0, 101, good}},
      {"NoContentWithABody",
       "HTTP/1.1 204 No Content\r\n" + length + "\r\n\r\n" + json,
       {0, 204, ""}},
      {"NotModifiedWithABody",
       "HTTP/1.1 304 Not Modified\r\n" + length + "\r\n\r\n" + json,
       {0, 304, ""}},
      // --- More than was asked for
      {"TwoAnswers", good + good, {0, 200, json}},
      {"EncodingNobodyAskedFor", Ok({"Content-Encoding: gzip", length}), {0, 200, json}},
      {"ErrorStatusBrokenOff",
       WireHead(500, {"Content-Length: 100"}) + json,
       {18, 500, json, CurlBytesMissing(87)}},
  };
}

class AnswerFaultTest : public FaultTest {};

TEST_P(AnswerFaultTest, EachWrongAnswerHasItsEnding) {
  for (const AnswerFault& fault : AnswerFaults()) {
    SCOPED_TRACE(fault.name);
    server->Script(WireReply(fault.bytes).Close());
    Ending ending = fault.ending;
    if (ending.status == kNone) {
      ending.status = NoStatus();
    }
    Fault({ending});
  }
}

// Nothing stands in its block that is never held against a run.
TEST_P(AnswerFaultTest, EveryEndingOfItsBlockHappens) {
  std::set<std::string> seen;
  const auto meet = [&](const WireReply& reply, const Ending& ending) {
    server->Script(WireReply(reply).Close());
    seen.insert(HeadFor(GetParam(), Fault({ending})));
  };
  for (const int status : {200, 204, 500}) {
    const std::string body = status == 204 ? "" : kReply;
    meet(StatusReply(status, body), {0, status, body});
  }
  for (const int status : {200, 500}) {
    meet(StatusReply(status, "no document"), {0, status, "no document"});
    meet(WireReply(WireHead(status, {"Content-Length: 100"}) + kReply),
         {18, status, kReply, CurlBytesMissing(87)});
  }
  meet(WireReply("HTTP/1.1 204 No Content\r\nheader\r\n\r\n"),
       {8, 204, "", "Header without colon"});
  EXPECT_THAT(HeadsOf(GetParam()), ::testing::UnorderedElementsAreArray(seen));
}

TEST_P(AnswerFaultTest, NoRedirectIsFollowed) {
  for (const int status : {300, 301, 302, 303, 305, 307, 308}) {
    SCOPED_TRACE(status);
    server->Script(StatusReply(status, kReply, {"Location: " + server->Url("/there")}));
    const std::size_t requests = server->RequestCount();
    Fault({{0, status, kReply}});
    EXPECT_EQ(server->RequestCount(), requests + 1);
  }
}

TEST_P(AnswerFaultTest, NobodyListens) {
  const RefusedPort refused;
  const std::string scheme = GetParam().NeedsTls() ? "https" : "http";
  FaultAt(refused.Url(scheme, "/x"), {{7, 0, "", CurlRefused("127.0.0.1")}});
}

INSTANTIATE_TEST_SUITE_P(Operations, AnswerFaultTest, ::testing::ValuesIn(Operations()), NameOf);

}  // namespace
}  // namespace lumtest

// Connections that break at every single byte of a small exchange.

#include "FaultTest.h"

namespace lumtest {
namespace {

const std::string kLostReceiving =
    ".*(Connection reset by peer|" + CurlErrorPattern(7) + "|not connected).*";

class ResetFaultTest : public FaultTest {
 protected:
  const std::string reply = WireAnswer(200, kReply);
  const std::size_t statusLine = reply.find("\r\n") + 2;
  const std::size_t head = reply.size() - std::string(kReply).size();
};

TEST_P(ResetFaultTest, AtEveryByteOfTheRequest) {
  const WireRequest whole = server->Request(0);
  const std::size_t headSize = whole.head.size();
  const std::size_t size = whole.Raw().size();
  ASSERT_GT(size, 50u);
  for (std::size_t n = 0; n < size && !HasFailure(); ++n) {
    SCOPED_TRACE("reset after byte " + std::to_string(n) + " of " + std::to_string(size));
    if (Uploads() && n > headSize) {
      server->Script(
          WireReply().At(WireStart::kHead).Send(WireContinue()).ReadBytes(n - headSize).Reset());
    } else {
      server->Script(WireReply().AtBytes(n).Reset());
    }
    std::vector<Ending> endings;
    // An upload has been told "100 Continue", asked for or not.
    for (const long status : {0L, Uploads() ? 100L : 0L}) {
      for (const int code : {56, 55, 7, 35}) {
        endings.push_back({code, status, "", kLostReceiving});
      }
    }
    Fault(endings);
  }
}

TEST_P(ResetFaultTest, AtEveryByteOfTheReply) {
  for (std::size_t n = 0; n <= reply.size() && !HasFailure(); ++n) {
    SCOPED_TRACE("reset after byte " + std::to_string(n) + " of " + std::to_string(reply.size()));
    server->Script(WireReply(reply.substr(0, n)).Reset());
    const std::string received = n > head ? reply.substr(head, n - head) : "";
    if (n == reply.size()) {
      Fault({{0, 200, kReply}});
    } else if (n >= statusLine) {
      Fault({{56, 200, received, kLostReceiving}});
    } else {
      Fault({{56, NoStatus(), "", kLostReceiving}});
    }
  }
}

// A connection that is closed in order, on both sides or on the server's alone.
TEST_P(ResetFaultTest, ClosedAtEveryByteOfTheReply) {
  for (std::size_t n = 0; n <= reply.size() && !HasFailure(); ++n) {
    SCOPED_TRACE("closed after byte " + std::to_string(n) + " of " + std::to_string(reply.size()));
    for (const bool half : {false, true}) {
      WireReply script(reply.substr(0, n));
      server->Script(half ? script.HalfClose() : script.Close());
      const std::string received = n > head ? reply.substr(head, n - head) : "";
      if (n == reply.size()) {
        Fault({{0, 200, kReply}});
      } else if (n >= head - ByCurl(2, 2, 1)) {  // libcurl knows the length
        Fault({{18, 200, received,
                CurlBytesMissing(std::min(reply.size() - head, reply.size() - n))}});
      } else if (n >= statusLine) {
        Fault({{0, 200, ""}});
      } else {
        // 8.23 tells a status line that is whole but for its line feed.
        Fault({{52, NoStatus(), "",
                IsCurl823() && n + 1 == statusLine ? "Invalid response header"
                                                   : "Empty reply from server"}});
      }
    }
  }
}

// A server that says at once that it will say nothing, and then listens.
TEST_P(ResetFaultTest, HalfClosedFromTheStart) {
  server->Script(WireReply().At(WireStart::kHandshake).HalfClose().ReadBody());
  Fault({{52, 0, "", "Empty reply from server"}});
}

INSTANTIATE_TEST_SUITE_P(Operations, ResetFaultTest, ::testing::ValuesIn(Operations()), NameOf);

}  // namespace
}  // namespace lumtest

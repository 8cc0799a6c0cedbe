// Documents in bodies: limits, gzip, JSON. What an echo does with them is what all routes do.
#include "Body.h"

#include <functional>

#include "BackendFixture.h"
#include "support/Process.h"

namespace lumtest {
namespace {

// One gzip member.
std::string Gzip(const std::string& text) {
  ProcessOptions options;
  options.input = text;
  return RunCommand({"gzip", "-9n"}, options).out;
}

class BodyTest : public BackendFixture {
 protected:
  Reply Read(const std::string& text, const std::string& line = "X: y") {
    return Ask("POST", "/echo", text, {line});
  }
  Reply Unpack(const std::string& packed) { return Read(packed, "Content-Encoding: gzip"); }

  static std::string DocumentOf(const Reply& reply) {
    return Parsed(reply)["body"].JsonValueToString();
  }
};

TEST_F(BodyTest, ReadsJsonOfAnyKind) {
  for (const char* method : {"POST", "PUT"}) {
    for (const char* text : {R"({"n":[18446744073709551615,0.1,"two"]})", "[null]", "17"}) {
      EXPECT_EQ(DocumentOf(Ask(method, "/echo", text)), text);
    }
  }
  EXPECT_EQ(DocumentOf(Read("\"text\"")), "text");
  EXPECT_EQ(Read("null").status, 200);
}

TEST_F(BodyTest, SaysWhatIsWrong) {
  EXPECT_EQ(ErrorOf(Read("")), "the body is empty, a JSON document is expected");
  EXPECT_EQ(ErrorOf(Read("{")), "the body is no valid JSON");
  EXPECT_EQ(ErrorOf(Read("{\"a\":\"\xFF\"}")), "the body is no valid JSON");
  EXPECT_EQ(Read("{").status, 400);
  FakeBody cut("{\"a\"", false);
  EXPECT_EQ(ErrorOf(Ask("POST", "/echo", cut)), "the body ends after 4 bytes, too early");
  const Reply unknown = Read("{", "Content-Encoding: br");
  EXPECT_EQ(unknown.status, 415);
  EXPECT_EQ(ErrorOf(unknown), "Content-Encoding 'br' is not understood, 'gzip' is");
}

TEST_F(BodyTest, LimitsWhatIsReceived) {
  m_options.maxBody = 1000;
  EXPECT_EQ(Read("\"" + std::string(998, 'a') + "\"").status, 200);
  const Reply longer = Read("\"" + std::string(999, 'a') + "\"");
  EXPECT_EQ(longer.status, 413);
  EXPECT_EQ(ErrorOf(longer), "the body is longer than 1000 bytes");
  // What says that it is too long is not read.
  FakeBody body("1");
  EXPECT_EQ(Ask("POST", "/echo", body, {"Content-Length: 1001"}).status, 413);
  EXPECT_EQ(body.given, 0u);
}

TEST_F(BodyTest, LimitsTheNumberOfValues) {
  std::string many = "[0";
  while (many.size() < 2 * kMostValues) {
    many += ",0";
  }
  EXPECT_EQ(Read(many + "]").status, 200);
  EXPECT_EQ(ErrorOf(Read(many + ",0]")), "the document is made of too many values");
  EXPECT_EQ(Read("\"" + std::string(3'000'000, ',') + "\"").status, 200);
}

TEST_F(BodyTest, LimitsTheDepth) {
  const auto nested = [&](std::size_t depth) {
    return Read(std::string(depth, '[') + std::string(depth, ']'));
  };
  EXPECT_EQ(nested(512).status, 200);
  EXPECT_EQ(nested(513).status, 413);
  EXPECT_EQ(ErrorOf(nested(513)), "the document is nested too deeply");
}

TEST_F(BodyTest, AllDocumentsShareABudget) {
  // A body at whose end others are read.
  class Waiting final : public FakeBody {
   public:
    Waiting(const std::string& text, std::function<void()> meanwhile)
        : FakeBody(text), m_meanwhile(std::move(meanwhile)) {}
    Task<std::string_view> Next() override {
      if (IsWhole()) {
        m_meanwhile();
      }
      return FakeBody::Next();
    }

   private:
    const std::function<void()> m_meanwhile;
  };
  const std::string large = std::string(60 << 20, ' ') + "1";
  Waiting body(large, [&] {
    const Reply refused = Read(large);
    EXPECT_EQ(refused.status, 413);
    EXPECT_EQ(ErrorOf(refused), "too much is being read at once");
    ASSERT_EQ(refused.headers.size(), 1u);
    EXPECT_EQ(refused.headers[0].name, "Retry-After");
  });
  EXPECT_EQ(Ask("POST", "/echo", body).status, 200);
  EXPECT_EQ(Read(large).status, 200);
}

TEST_F(BodyTest, KeepsTheBeginningUnpacked) {
  const std::string text = "\"" + std::string(100'000, 'x') + "\"";
  const Reply reply = Unpack(Gzip(text));
  EXPECT_EQ(reply.note.body, text.substr(0, 65536));
  EXPECT_EQ(reply.note.size, text.size());
  EXPECT_EQ(Read("no JSON").note.body, "no JSON");
  std::string accents = "a";
  while (accents.size() < 80'000) {
    accents += "\xC3\xA9";
  }
  EXPECT_EQ(Read(accents).note.body.size(), 65535u);
}

// --- gzip.

TEST_F(BodyTest, UnpacksEveryMember) {
  const std::string packed = Gzip("[1,") + Gzip("") + Gzip("2]");
  for (const char* encoding : {"gzip", "x-gzip", "GZIP"}) {
    EXPECT_EQ(DocumentOf(Read(packed, std::string("Content-Encoding: ") + encoding)), "[1,2]");
  }
  EXPECT_EQ(ErrorOf(Unpack(Gzip("{"))), "the unpacked body is no valid JSON");
  EXPECT_EQ(ErrorOf(Unpack(Gzip(""))), "the unpacked body is no valid JSON");
}

TEST_F(BodyTest, LimitsWhatIsUnpacked) {
  m_options.maxBody = 1000;
  EXPECT_EQ(Unpack(Gzip("\"" + std::string(998, 'a') + "\"")).status, 200);
  for (const std::string& packed :
       {Gzip(std::string(100'000, ' ')), Gzip("[1,") + Gzip(std::string(1000, ' '))}) {
    const Reply bomb = Unpack(packed);
    EXPECT_EQ(bomb.status, 413);
    EXPECT_EQ(ErrorOf(bomb), "the gzip body unpacks to more than 1000 bytes");
  }
}

TEST_F(BodyTest, TellsWhatIsWrongWithGzip) {
  const std::string packed = Gzip("\"some text that is to be damaged in every byte\"");
  for (std::size_t size = 1; size < packed.size(); ++size) {
    EXPECT_EQ(ErrorOf(Unpack(packed.substr(0, size))), "the gzip body ends too early") << size;
  }
  std::string damaged = packed;
  damaged[damaged.size() - 6] ^= 1;  // of the check sum
  const std::string zlib("\x78\x9c\x2b\x49\xad\x28\x01\x00\x04\x67\x01\xc6", 12);  // of "text"
  for (const std::string& bad :
       {std::string("{\"a\":1}"), packed + "xx", packed + std::string(20, '\0'), damaged, zlib}) {
    EXPECT_EQ(ErrorOf(Unpack(bad)), "the body is no gzip data, or damaged");
  }
}

}  // namespace
}  // namespace lumtest

// Bodies in memory: limits, gzip, JSON.
#include "Body.h"

#include <gtest/gtest.h>

#include <functional>

#include "Fakes.h"

namespace {

using lumtest::Await;
using lumtest::ErrorOf;
using lumtest::FakeBody;
using lumtest::Gzip;
using lumtest::MakeCall;

constexpr std::uint64_t kLimit = 1000;

struct Outcome {
  int status = 0;  // 0: no refusal
  std::string error;
  LumJson::Value document;
  std::string kept;
  std::uint64_t size = 0;
};

Outcome Read(FakeBody body, const std::vector<std::string>& lines = {},
             std::uint64_t limit = kLimit) {
  Outcome outcome;
  const Call call = MakeCall("POST", "/", lines);
  Document document = Await(ReadJson(call, body, limit));
  if (document.refusal) {
    outcome.status = document.refusal->status;
    outcome.error = ErrorOf(document.refusal->body);
  }
  outcome.document = std::move(document.value);
  outcome.kept = document.kept;
  outcome.size = document.size;
  return outcome;
}

TEST(Body, ReadsJsonOfAnyKind) {
  const Outcome object = Read(FakeBody(R"({"a": [1, "two"]})"));
  EXPECT_EQ(object.status, 0) << object.error;
  EXPECT_EQ(object.document.JsonValueToString(), R"({"a":[1,"two"]})");
  EXPECT_EQ(Read(FakeBody("\"text\"")).document.AsString(), "text");
  EXPECT_EQ(Read(FakeBody("null")).status, 0);
}

TEST(Body, UnpacksGzip) {
  for (const char* encoding : {"gzip", "x-gzip", "GZIP"}) {
    const Outcome outcome =
        Read(FakeBody(Gzip("{\"a\":1}")), {std::string("Content-Encoding: ") + encoding});
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    EXPECT_EQ(outcome.document["a"].AsInt64(), 1);
  }
}

TEST(Body, IdentityIsNoEncoding) {
  EXPECT_EQ(Read(FakeBody("1"), {"Content-Encoding: identity"}).status, 0);
}

TEST(Body, SaysWhatIsWrong) {
  const std::vector<std::string> gzip = {"Content-Encoding: gzip"};
  EXPECT_EQ(Read(FakeBody("")).error, "the body is empty, a JSON document is expected");
  EXPECT_EQ(Read(FakeBody("{")).error, "the body is no valid JSON");
  EXPECT_EQ(Read(FakeBody("{\"a\":\"\xFF\"}")).error, "the body is no valid JSON");
  EXPECT_EQ(Read(FakeBody("{\"a\"", false)).error, "the body ends after 4 bytes, too early");
  EXPECT_EQ(Read(FakeBody(Gzip("{")), gzip).error, "the unpacked body is no valid JSON");
  EXPECT_EQ(Read(FakeBody(Gzip("")), gzip).error, "the unpacked body is no valid JSON");
  EXPECT_EQ(Read(FakeBody("{\"a\":1}"), gzip).error, "the body is no gzip data, or damaged");
  EXPECT_EQ(Read(FakeBody("{"), {"Content-Encoding: br"}).error,
            "Content-Encoding 'br' is not understood, 'gzip' is");
  EXPECT_EQ(Read(FakeBody("{"), {"Content-Encoding: br"}).status, 415);
  EXPECT_EQ(Read(FakeBody("{")).status, 400);
}

TEST(Body, LimitsWhatIsReceived) {
  EXPECT_EQ(Read(FakeBody("\"" + std::string(kLimit - 2, 'a') + "\"")).status, 0);
  const Outcome longer = Read(FakeBody("\"" + std::string(kLimit - 1, 'a') + "\""));
  EXPECT_EQ(longer.status, 413);
  EXPECT_EQ(longer.error, "the body is longer than 1000 bytes");
}

TEST(Body, DoesNotReadWhatSaysThatItIsTooLong) {
  FakeBody body("1");
  const Call call = MakeCall("POST", "/", {"Content-Length: 1001"});
  const Document document = Await(ReadJson(call, body, kLimit));
  ASSERT_TRUE(document.refusal.has_value());
  EXPECT_EQ(document.refusal->status, 413);
  EXPECT_EQ(body.reads, 0);
}

TEST(Body, LimitsWhatIsUnpacked) {
  const std::vector<std::string> gzip = {"Content-Encoding: gzip"};
  EXPECT_EQ(Read(FakeBody(Gzip("\"" + std::string(kLimit - 2, 'a') + "\"")), gzip).status, 0);
  const Outcome bomb = Read(FakeBody(Gzip(std::string(100'000, ' '))), gzip);
  EXPECT_EQ(bomb.status, 413);
  EXPECT_EQ(bomb.error, "the gzip body unpacks to more than 1000 bytes");
}

TEST(Body, LimitsTheNumberOfValues) {
  const std::uint64_t limit = 64 << 20;
  std::string many = "[0";
  while (many.size() < 2 * kMostValues) {
    many += ",0";
  }
  EXPECT_EQ(Read(FakeBody(many + "]", true, 65536), {}, limit).status, 0);
  for (const char* piece : {"0,", "[],", "{\"\":0},"}) {
    std::string bomb = "[";
    while (bomb.size() < 20'000'000) {
      bomb += piece;
    }
    const Outcome outcome =
        Read(FakeBody(Gzip(bomb), true, 65536), {"Content-Encoding: gzip"}, limit);
    EXPECT_EQ(outcome.status, 413) << piece;
    EXPECT_EQ(outcome.error, "the document is made of too many values") << piece;
  }
  EXPECT_EQ(
      Read(FakeBody("\"" + std::string(3'000'000, ',') + "\"", true, 65536), {}, limit).status, 0);
}

TEST(Body, LimitsTheDepth) {
  const auto nested = [](std::size_t depth) {
    return Read(FakeBody(std::string(depth, '[') + std::string(depth, ']'), true, 4096), {}, 4096);
  };
  EXPECT_EQ(nested(512).status, 0);
  EXPECT_EQ(nested(513).status, 413);
  EXPECT_EQ(nested(513).error, "the document is nested too deeply");
}

TEST(Body, AllDocumentsShareABudget) {
  // A body that waits in its middle until others have been read.
  class Waiting final : public FakeBody {
   public:
    explicit Waiting(std::function<void()> meanwhile)
        : FakeBody(std::string(60 << 20, ' ') + "1", true, 60 << 20), m_meanwhile(meanwhile) {}
    Task<std::string_view> Next() override {
      if (reads == 1) {
        m_meanwhile();
      }
      return FakeBody::Next();
    }

   private:
    const std::function<void()> m_meanwhile;
  };
  const std::uint64_t limit = 64 << 20;
  Outcome other;
  Waiting body([&] {
    FakeBody second(std::string(60 << 20, ' ') + "2", true, 60 << 20);
    const Call call = MakeCall("POST", "/");
    const Document document = Await(ReadJson(call, second, limit));
    ASSERT_TRUE(document.refusal.has_value());
    EXPECT_EQ(document.refusal->status, 413);
    EXPECT_EQ(ErrorOf(document.refusal->body), "too much is being read at once");
    ASSERT_EQ(document.refusal->headers.size(), 1u);
    EXPECT_EQ(document.refusal->headers[0].name, "Retry-After");
  });
  const Call call = MakeCall("POST", "/");
  EXPECT_FALSE(Await(ReadJson(call, body, limit)).refusal.has_value());
  EXPECT_EQ(Read(FakeBody(std::string(60 << 20, ' ') + "3", true, 60 << 20), {}, limit).status, 0);
}

TEST(Body, KeepsTheBeginningUnpacked) {
  const std::string text = "\"" + std::string(100'000, 'x') + "\"";
  const Outcome outcome =
      Read(FakeBody(Gzip(text), true, 4096), {"Content-Encoding: gzip"}, 200'000);
  EXPECT_EQ(outcome.kept, text.substr(0, 65536));
  EXPECT_EQ(outcome.size, text.size());
  EXPECT_EQ(Read(FakeBody("no JSON")).kept, "no JSON");
  std::string accents = "a";
  while (accents.size() < 80'000) {
    accents += "\xC3\xA9";
  }
  EXPECT_EQ(Read(FakeBody(accents), {}, 100'000).kept.size(), 65535u);
}

const std::vector<std::string> kPacked = {"Content-Encoding: gzip"};

TEST(Body, UnpacksEveryMember) {
  const std::string packed = Gzip("[1,") + Gzip("") + Gzip("2]");
  EXPECT_EQ(Read(FakeBody(packed), kPacked, 100).document.JsonValueToString(), "[1,2]");
  EXPECT_EQ(Read(FakeBody(Gzip("[1,") + Gzip(std::string(100, ' '))), kPacked, 100).error,
            "the gzip body unpacks to more than 100 bytes");
}

TEST(Body, TellsWhatIsWrongWithGzip) {
  const std::string packed = Gzip("\"some text that is to be damaged in every byte\"");
  for (std::size_t size = 1; size < packed.size(); ++size) {
    EXPECT_EQ(Read(FakeBody(packed.substr(0, size)), kPacked).error, "the gzip body ends too early")
        << size;
  }
  std::string damaged = packed;
  damaged[damaged.size() - 6] ^= 1;  // of the check sum
  uLongf size = 100;
  std::string zlib(size, '\0');
  ASSERT_EQ(compress(reinterpret_cast<Bytef*>(zlib.data()), &size,
                     reinterpret_cast<const Bytef*>("text"), 4),
            Z_OK);
  for (const std::string& bad :
       {packed + "xx", packed + std::string(20, '\0'), damaged, zlib.substr(0, size)}) {
    EXPECT_EQ(Read(FakeBody(bad), kPacked).error, "the body is no gzip data, or damaged");
  }
}

}  // namespace

// Bodies in memory: limits, gzip, JSON.
#include "Body.h"

#include <gtest/gtest.h>

#include "Fakes.h"
#include "Gunzip.h"

namespace {

using lumtest::ErrorOf;
using lumtest::FakeBody;
using lumtest::Gzip;
using lumtest::MakeCall;

constexpr std::uint64_t kLimit = 1000;

struct Outcome {
  int status = 0;  // 0: no refusal
  std::string error;
  LumJson::Value document;
};

Outcome Read(FakeBody body, const std::vector<std::string>& lines = {}) {
  Outcome outcome;
  if (const auto refusal = ReadJson(MakeCall("POST", "/", lines), body, kLimit, outcome.document)) {
    outcome.status = refusal->status;
    outcome.error = ErrorOf(refusal->body);
  }
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
  EXPECT_EQ(Read(FakeBody("{\"a\"", BodySource::End::kCut)).error,
            "the body ends after 4 bytes, too early");
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
  LumJson::Value document;
  const auto refusal =
      ReadJson(MakeCall("POST", "/", {"Content-Length: 1001"}), body, kLimit, document);
  ASSERT_TRUE(refusal.has_value());
  EXPECT_EQ(refusal->status, 413);
  EXPECT_EQ(body.reads, 0);
}

TEST(Body, LimitsWhatIsUnpacked) {
  const std::vector<std::string> gzip = {"Content-Encoding: gzip"};
  EXPECT_EQ(Read(FakeBody(Gzip("\"" + std::string(kLimit - 2, 'a') + "\"")), gzip).status, 0);
  const Outcome bomb = Read(FakeBody(Gzip(std::string(100'000, ' '))), gzip);
  EXPECT_EQ(bomb.status, 413);
  EXPECT_EQ(bomb.error, "the gzip body unpacks to more than 1000 bytes");
}

TEST(Gunzip, UnpacksEveryMember) {
  std::string plain;
  EXPECT_EQ(Gunzip(Gzip("one") + Gzip("") + Gzip("two"), 6, plain), GunzipResult::kDone);
  EXPECT_EQ(plain, "onetwo");
  EXPECT_EQ(Gunzip(Gzip("one") + Gzip("two"), 5, plain), GunzipResult::kTooLong);
}

TEST(Gunzip, TellsWhatIsWrong) {
  const std::string packed = Gzip("some text that is to be damaged in every byte");
  std::string plain;
  for (std::size_t size = 0; size < packed.size(); ++size) {
    EXPECT_EQ(Gunzip(packed.substr(0, size), 1000, plain), GunzipResult::kCut) << size;
  }
  EXPECT_EQ(Gunzip(packed + "xx", 1000, plain), GunzipResult::kBad);
  EXPECT_EQ(Gunzip(packed + std::string(20, '\0'), 1000, plain), GunzipResult::kBad);
  std::string damaged = packed;
  damaged[damaged.size() - 6] ^= 1;  // of the check sum
  EXPECT_EQ(Gunzip(damaged, 1000, plain), GunzipResult::kBad);
}

TEST(Gunzip, TakesNoOtherFormat) {
  uLongf size = 100;
  std::string zlib(size, '\0');
  ASSERT_EQ(compress(reinterpret_cast<Bytef*>(zlib.data()), &size,
                     reinterpret_cast<const Bytef*>("text"), 4),
            Z_OK);
  std::string plain;
  EXPECT_EQ(Gunzip(zlib.substr(0, size), 1000, plain), GunzipResult::kBad);
}

}  // namespace

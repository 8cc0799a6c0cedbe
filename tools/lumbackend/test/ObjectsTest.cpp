// The object storage and the files.
#include "Objects.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <ctime>

#include "Fakes.h"
#include "Signature.h"
#include "support/Files.h"
#include "support/Threads.h"

namespace {

using lumtest::Await;
using lumtest::ErrorOf;
using lumtest::FakeBody;
using lumtest::MakeCall;
using lumtest::ReadFile;
using testing::ElementsAre;
using testing::IsEmpty;

class ObjectsTest : public testing::Test {
 protected:
  Reply Put(const std::string& target, FakeBody body = FakeBody("content")) const {
    return Await(m_objects.Put(MakeCall("PUT", target), body));
  }

  // Everything in the store.
  std::vector<std::string> Stored() const { return lumtest::FilesBelow(m_temp.Path("objects")); }

  lumtest::TempDir m_temp;
  const RootDir m_root{m_temp.Path()};
  const Objects m_objects{m_root, "", std::nullopt};
};

TEST_F(ObjectsTest, StoresTheBodyUnderItsName) {
  const Reply reply = Put("/objects/logs/a%20b.zip");
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.body, "{\n    \"stored\": \"/objects/logs/a%20b.zip\",\n    \"bytes\": 7\n}\n");
  EXPECT_EQ(reply.note.kind, std::string("upload"));
  EXPECT_EQ(reply.note.object, "logs/a b.zip");
  EXPECT_THAT(Stored(), ElementsAre("logs", "logs/a b.zip"));
  EXPECT_EQ(ReadFile(m_temp.Path("objects/logs/a b.zip")), "content");
}

TEST_F(ObjectsTest, StoresLargeAndEmptyBodies) {
  std::string large(3'000'001, 'x');
  large.back() = 'y';
  EXPECT_EQ(Put("/objects/large", FakeBody(large, true, 4096)).status, 200);
  EXPECT_EQ(Put("/objects/empty", FakeBody("")).status, 200);
  EXPECT_TRUE(ReadFile(m_temp.Path("objects/large")) == large);
  EXPECT_EQ(ReadFile(m_temp.Path("objects/empty")), "");
}

TEST_F(ObjectsTest, ReplacesAnObject) {
  Put("/objects/a", FakeBody("a longer first version"));
  EXPECT_EQ(Put("/objects/a", FakeBody("second")).status, 200);
  EXPECT_EQ(ReadFile(m_temp.Path("objects/a")), "second");
}

TEST_F(ObjectsTest, ASymbolicLinkIsReplacedNotFollowed) {
  const std::string outside = m_temp.Write("outside", "untouched");
  ASSERT_EQ(::symlink(outside.c_str(), m_temp.Path("objects/a").c_str()), 0);
  EXPECT_EQ(Put("/objects/a").status, 200);
  EXPECT_EQ(ReadFile(outside), "untouched");
  EXPECT_EQ(ReadFile(m_temp.Path("objects/a")), "content");
}

TEST_F(ObjectsTest, AnUploadThatEndsEarlyLeavesNothingBehind) {
  Put("/objects/old", FakeBody("old"));
  const Reply reply = Put("/objects/old", FakeBody("ne", false));
  EXPECT_EQ(reply.status, 400);
  EXPECT_EQ(ErrorOf(reply.body), "the upload ends after 2 bytes, too early");
  EXPECT_EQ(Put("/objects/new/dir/x", FakeBody("ne", false)).status, 400);
  EXPECT_THAT(Stored(), ElementsAre("old"));
  EXPECT_EQ(ReadFile(m_temp.Path("objects/old")), "old");
}

TEST_F(ObjectsTest, NamesThatLeadOutAreRefused) {
  for (const char* target : {"/objects/", "/objects/..", "/objects/../x", "/objects/a/../../x",
                             "/objects/%2e%2e/x", "/objects/..%2fx", "/objects/a//b", "/objects/a/",
                             "/objects/a%00b", "/objects/.", "/objects/.upload-0123"}) {
    FakeBody body("content");
    EXPECT_EQ(Await(m_objects.Put(MakeCall("PUT", target), body)).status, 400) << target;
    EXPECT_EQ(body.reads, 0) << target;
  }
  EXPECT_EQ(Put("/objects/" + std::string(256, 'a')).status, 400);
  EXPECT_THAT(Stored(), IsEmpty());
  EXPECT_FALSE(lumtest::Exists(m_temp.Path("x")));
}

TEST_F(ObjectsTest, ObjectsAndDirectoriesDoNotTakeEachOthersPlace) {
  Put("/objects/a/b");
  EXPECT_EQ(Put("/objects/a").status, 409);
  EXPECT_EQ(Put("/objects/a/b/c").status, 409);
  EXPECT_THAT(Stored(), ElementsAre("a", "a/b"));
}

TEST_F(ObjectsTest, LinkedDirectoriesAreNotEntered) {
  m_temp.MakeDir("elsewhere");
  ASSERT_EQ(::symlink(m_temp.Path("elsewhere").c_str(), m_temp.Path("objects/link").c_str()), 0);
  EXPECT_EQ(Put("/objects/link/x").status, 403);
  EXPECT_FALSE(lumtest::Exists(m_temp.Path("elsewhere/x")));
}

TEST_F(ObjectsTest, AFullFileSystemIsSaid) {
  rlimit before = {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit = {1000, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const Reply reply = Put("/objects/a", FakeBody(std::string(2000, 'x')));
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(reply.status, 507);
  EXPECT_EQ(ErrorOf(reply.body), "cannot store the object: File too large");
  EXPECT_THAT(Stored(), IsEmpty());
}

TEST_F(ObjectsTest, LimitsTheLength) {
  const Objects limited(m_root, "", 7);
  FakeBody fits("content");
  EXPECT_EQ(Await(limited.Put(MakeCall("PUT", "/objects/a"), fits)).status, 200);
  FakeBody longer("content+", true, 3);
  EXPECT_EQ(Await(limited.Put(MakeCall("PUT", "/objects/b"), longer)).status, 413);
  FakeBody announced("content+");
  const Call tooLong = MakeCall("PUT", "/objects/c", {"Content-Length: 8"});
  EXPECT_EQ(Await(limited.Put(tooLong, announced)).status, 413);
  EXPECT_EQ(announced.reads, 0);
  EXPECT_THAT(Stored(), ElementsAre("a"));
}

TEST_F(ObjectsTest, AsksForSignaturesWhenThereIsAKey) {
  const Objects strict(m_root, "secret", std::nullopt);
  FakeBody unsignedBody("content");
  const Reply refused = Await(strict.Put(MakeCall("PUT", "/objects/a"), unsignedBody));
  EXPECT_EQ(refused.status, 403);
  EXPECT_EQ(ErrorOf(refused.body), "no Authorization");
  EXPECT_EQ(unsignedBody.reads, 0);

  const std::time_t now = std::time(nullptr);
  char date[64];
  std::strftime(date, sizeof date, "%a, %d %b %Y %H:%M:%S GMT", std::gmtime(&now));
  FakeBody body("content");
  const Call call = MakeCall("PUT", "/objects/a",
                             {std::string("Date: ") + date,
                              "Authorization: " + Signature("secret", "PUT", date, "/objects/a")});
  EXPECT_EQ(Await(strict.Put(call, body)).status, 200);
}

TEST_F(ObjectsTest, WhatAnEarlierRunLeftUnfinishedIsRemoved) {
  m_temp.Write("objects/.upload-0123", "half");
  m_temp.Write("objects/whole", "content");
  const Objects again(m_root, "", std::nullopt);
  EXPECT_THAT(Stored(), ElementsAre("whole"));
}

TEST_F(ObjectsTest, UploadsToOneNameDoNotMix) {
  lumtest::OnThreads(4, [this](int i) {
    for (int j = 0; j < 20; ++j) {
      EXPECT_EQ(Put("/objects/dir/same",
                    FakeBody(std::string(600'000, static_cast<char>('a' + i)), true, 65536))
                    .status,
                200);
    }
  });
  const std::string content = ReadFile(m_temp.Path("objects/dir/same"));
  EXPECT_TRUE(content == std::string(600'000, content[0]));
  EXPECT_THAT(Stored(), ElementsAre("dir", "dir/same"));
}

TEST_F(ObjectsTest, SendsFiles) {
  Put("/objects/a/data.json", FakeBody("{}"));
  const Reply reply = m_objects.Get(MakeCall("GET", "/objects/a/data.json"));
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.contentType, "application/json");
  ASSERT_TRUE(reply.stream);
  EXPECT_EQ(reply.length, 2u);
  EXPECT_EQ(Await(reply.stream->Next()), "{}");
  // What somebody has uploaded is not for a browser to run.
  Put("/objects/page.html");
  EXPECT_EQ(m_objects.Get(MakeCall("GET", "/objects/page.html")).contentType,
            "application/octet-stream");
}

TEST_F(ObjectsTest, SendsNothingElse) {
  Put("/objects/a/b");
  m_temp.Write("secret", "secret");
  m_temp.Write("objects/.upload-1", "half");
  ASSERT_EQ(::symlink(m_temp.Path("secret").c_str(), m_temp.Path("objects/link").c_str()), 0);
  EXPECT_EQ(m_objects.Get(MakeCall("GET", "/objects/none")).status, 404);
  EXPECT_EQ(m_objects.Get(MakeCall("GET", "/objects/a")).status, 404);
  EXPECT_EQ(m_objects.Get(MakeCall("GET", "/objects/a/b/c")).status, 404);
  EXPECT_EQ(m_objects.Get(MakeCall("GET", "/objects/.upload-1")).status, 404);
  EXPECT_EQ(m_objects.Get(MakeCall("GET", "/objects/link")).status, 403);
  for (const char* target : {"/objects/../secret", "/objects/%2e%2e/secret", "/objects/..%2fsecret",
                             "/objects/a//b", "/objects/"}) {
    EXPECT_EQ(m_objects.Get(MakeCall("GET", target)).status, 400) << target;
  }
}

// --- Signed uploads.

constexpr char kKey[] = "key of the tests";
constexpr char kDate[] = "Sun, 06 Nov 1994 08:49:37 GMT";
constexpr std::time_t kThen = 784111777;
// printf 'PUT\nSun, 06 Nov 1994 08:49:37 GMT\n/objects/logs/a%%20b.zip' |
//   openssl dgst -sha1 -hmac 'key of the tests' -binary | base64
constexpr char kSigned[] = "LUM uWPPn5EimFQGf3x3D7tLPo7cej8=";

Call SignedCall(const std::string& date, const std::string& authorization,
                const std::string& target = "/objects/logs/a%20b.zip") {
  return MakeCall("PUT", target, {"Date: " + date, "Authorization: " + authorization});
}

TEST(SignatureCheck, IsAcceptedWithinTheWindow) {
  const Call call = SignedCall(kDate, kSigned);
  EXPECT_EQ(CheckSignature(kKey, call, kThen), "");
  EXPECT_EQ(CheckSignature(kKey, call, kThen - kDateWindow), "");
  EXPECT_EQ(CheckSignature(kKey, call, kThen + kDateWindow), "");
  EXPECT_EQ(CheckSignature(kKey, call, kThen - kDateWindow - 1),
            "Date is more than 15 minutes from now");
  EXPECT_EQ(CheckSignature(kKey, call, kThen + kDateWindow + 1),
            "Date is more than 15 minutes from now");
}

TEST(SignatureCheck, TheQueryIsNotPartOfIt) {
  EXPECT_EQ(CheckSignature(kKey, SignedCall(kDate, kSigned, "/objects/logs/a%20b.zip?x=1"), kThen),
            "");
}

TEST(SignatureCheck, EveryPartOfItCounts) {
  const std::string mismatch = "the signature does not match";
  EXPECT_EQ(CheckSignature("another key", SignedCall(kDate, kSigned), kThen), mismatch);
  EXPECT_EQ(CheckSignature(kKey, SignedCall("Sun, 06 Nov 1994 08:49:38 GMT", kSigned), kThen),
            mismatch);
  EXPECT_EQ(CheckSignature(kKey, SignedCall(kDate, kSigned, "/objects/logs/b.zip"), kThen),
            mismatch);
  // The same path, encoded in another way, is another text.
  EXPECT_EQ(CheckSignature(kKey, SignedCall(kDate, kSigned, "/objects/logs/%61%20b.zip"), kThen),
            mismatch);
  const Call post =
      MakeCall("POST", "/objects/logs/a%20b.zip",
               {std::string("Date: ") + kDate, std::string("Authorization: ") + kSigned});
  EXPECT_EQ(CheckSignature(kKey, post, kThen), mismatch);
  EXPECT_EQ(CheckSignature(kKey, SignedCall(kDate, std::string(kSigned) + "="), kThen), mismatch);
  EXPECT_EQ(CheckSignature(kKey, SignedCall(kDate, "LUM "), kThen),
            "Authorization does not begin with 'LUM '");
}

TEST(SignatureCheck, SaysWhatIsMissing) {
  EXPECT_EQ(CheckSignature(kKey, MakeCall("PUT", "/a"), kThen), "no Authorization");
  EXPECT_EQ(CheckSignature(kKey, MakeCall("PUT", "/a", {"Authorization: LUM x"}), kThen),
            "no Date");
  EXPECT_EQ(CheckSignature(kKey, SignedCall("yesterday", kSigned), kThen), "Date is no HTTP date");
  EXPECT_EQ(CheckSignature(kKey, SignedCall(kDate, "AWS abc"), kThen),
            "Authorization does not begin with 'LUM '");
}

}  // namespace

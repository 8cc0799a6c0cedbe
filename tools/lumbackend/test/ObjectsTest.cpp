// The object storage.
#include "Objects.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <ctime>

#include "BackendFixture.h"
#include "Signature.h"

namespace lumtest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ObjectsTest : public BackendFixture {
 protected:
  ObjectsTest() { m_temp.MakeDir("objects"); }

  Reply Put(const std::string& target, const std::string& content = "content") {
    return Ask("PUT", target, content);
  }

  // Everything in the store.
  std::vector<std::string> Stored() const { return FilesBelow(m_temp.Path("objects")); }
};

TEST_F(ObjectsTest, StoresAndReplacesTheBodyUnderItsName) {
  std::string large(3'000'001, 'x');
  large.back() = 'y';
  for (const std::string& content : {std::string("content"), large, std::string()}) {
    const Reply reply = Put("/objects/logs/a%20b.zip", content);
    EXPECT_EQ(reply.body, "{\n    \"stored\": \"/objects/logs/a%20b.zip\",\n    \"bytes\": " +
                              std::to_string(content.size()) + "\n}\n");
    EXPECT_EQ(reply.note.kind, std::string("upload"));
    EXPECT_EQ(reply.note.object, "logs/a b.zip");
    EXPECT_THAT(Stored(), ElementsAre("logs", "logs/a b.zip"));
    EXPECT_TRUE(ReadFile(m_temp.Path("objects/logs/a b.zip")) == content);
  }
}

TEST_F(ObjectsTest, ASymbolicLinkIsReplacedNotFollowed) {
  const std::string outside = m_temp.Write("outside", "untouched");
  ASSERT_EQ(::symlink(outside.c_str(), m_temp.Path("objects/a").c_str()), 0);
  EXPECT_EQ(Put("/objects/a").status, 200);
  EXPECT_EQ(ReadFile(outside), "untouched");
  EXPECT_EQ(ReadFile(m_temp.Path("objects/a")), "content");
}

TEST_F(ObjectsTest, NamesThatLeadOutAreRefused) {
  for (const char* target : {"/objects/", "/objects/..", "/objects/../x", "/objects/a/../../x",
                             "/objects/%2e%2e/x", "/objects/..%2fx", "/objects/a//b", "/objects/a/",
                             "/objects/a%00b", "/objects/.", "/objects/.upload-0123"}) {
    FakeBody body("content");
    EXPECT_EQ(Ask("PUT", target, body).status, 400) << target;
    EXPECT_EQ(body.given, 0u) << target;
  }
  EXPECT_EQ(Put("/objects/" + std::string(256, 'a')).status, 400);
  EXPECT_THAT(Stored(), IsEmpty());
  EXPECT_FALSE(Exists(m_temp.Path("x")));
}

TEST_F(ObjectsTest, LinkedDirectoriesAreNotEntered) {
  m_temp.MakeDir("elsewhere");
  ASSERT_EQ(::symlink(m_temp.Path("elsewhere").c_str(), m_temp.Path("objects/link").c_str()), 0);
  for (const char* target : {"/objects/link/x", "/objects/link/new/x"}) {
    EXPECT_EQ(Put(target).status, 403) << target;
  }
  EXPECT_THAT(FilesBelow(m_temp.Path("elsewhere")), IsEmpty());
}

// --- Signed uploads.

TEST_F(ObjectsTest, AsksForSignaturesWhenThereIsAKey) {
  m_signKey = "secret";
  FakeBody body("content");
  const Reply refused = Ask("PUT", "/objects/a", body);
  EXPECT_EQ(refused.status, 403);
  EXPECT_EQ(ErrorOf(refused), "no Authorization");
  EXPECT_EQ(body.given, 0u);
  const std::string date = HttpDate(std::time(nullptr));
  const std::string signature = Signature("secret", "PUT", date, "/objects/a");
  EXPECT_EQ(Ask("PUT", "/objects/a", body, {"Date: " + date, "Authorization: " + signature}).status,
            200);
}

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

std::string ProblemOf(const Call& call, std::time_t now = kThen) {
  return CheckSignature(kKey, call, now);
}

TEST(SignatureCheck, IsAcceptedWithinTheWindow) {
  const Call call = SignedCall(kDate, kSigned);
  const std::string late = "Date is more than 15 minutes from now";
  EXPECT_EQ(ProblemOf(call), "");
  EXPECT_EQ(ProblemOf(call, kThen - kDateWindow), "");
  EXPECT_EQ(ProblemOf(call, kThen + kDateWindow), "");
  EXPECT_EQ(ProblemOf(call, kThen - kDateWindow - 1), late);
  EXPECT_EQ(ProblemOf(call, kThen + kDateWindow + 1), late);
}

TEST(SignatureCheck, EveryPartOfItCountsButTheQuery) {
  const std::string mismatch = "the signature does not match";
  EXPECT_EQ(CheckSignature("another key", SignedCall(kDate, kSigned), kThen), mismatch);
  EXPECT_EQ(ProblemOf(SignedCall("Sun, 06 Nov 1994 08:49:38 GMT", kSigned)), mismatch);
  EXPECT_EQ(ProblemOf(SignedCall(kDate, kSigned, "/objects/logs/b.zip")), mismatch);
  // The same path, encoded in another way, is another text.
  EXPECT_EQ(ProblemOf(SignedCall(kDate, kSigned, "/objects/logs/%61%20b.zip")), mismatch);
  Call post = SignedCall(kDate, kSigned);
  post.method = "POST";
  EXPECT_EQ(ProblemOf(post), mismatch);
  EXPECT_EQ(ProblemOf(SignedCall(kDate, std::string(kSigned) + "=")), mismatch);
  EXPECT_EQ(ProblemOf(SignedCall(kDate, kSigned, "/objects/logs/a%20b.zip?x=1")), "");
}

TEST(SignatureCheck, SaysWhatIsMissing) {
  const std::string scheme = "Authorization does not begin with 'LUM '";
  EXPECT_EQ(ProblemOf(MakeCall("PUT", "/a")), "no Authorization");
  EXPECT_EQ(ProblemOf(MakeCall("PUT", "/a", {"Authorization: LUM x"})), "no Date");
  EXPECT_EQ(ProblemOf(SignedCall("yesterday", kSigned)), "Date is no HTTP date");
  EXPECT_EQ(ProblemOf(SignedCall(kDate, "AWS abc")), scheme);
  EXPECT_EQ(ProblemOf(SignedCall(kDate, "LUM ")), scheme);
}

}  // namespace
}  // namespace lumtest

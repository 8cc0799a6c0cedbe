// What holds for every client or every operation alike, or for every operation of LumCurlOrvOps.

#include <type_traits>

#include "LumApolloPrivate.h"
#include "LumCurlHttpPrivate.h"
#include "LumCurlOrvOpsPrivate.h"
#include "Operations.h"
#include "recording/Latch.h"
#include "recording/RecordingTest.h"
#include "support/Alloc.h"

namespace lumtest {
namespace {

const std::string kUrl = "https://backend.example/a";

template <typename Client>
class ClientTest : public RecordingTest {
  static_assert(!std::is_copy_constructible<Client>::value &&
                    !std::is_copy_assignable<Client>::value &&
                    !std::is_move_constructible<Client>::value &&
                    !std::is_move_assignable<Client>::value,
                "one object owns its private part");
  static_assert(!std::is_polymorphic<Client>::value, "");
};

using Clients = ::testing::Types<LumCurlHttp, LumCurlOrvOps, LumApollo>;
TYPED_TEST_SUITE(ClientTest, Clients, );

TYPED_TEST(ClientTest, ReleasesItsPrivatePart) {
  { const TypeParam once; }  // the recorder keeps room for the events of one
  this->recorder.Reset();
  const std::size_t before = LiveNews();
  {
    const TypeParam made;
    EXPECT_GT(LiveNews(), before);
  }
  this->recorder.Reset();
  EXPECT_EQ(LiveNews(), before);
}

TYPED_TEST(ClientTest, CanBeDestroyedWithoutItsPrivatePart) {
  {
    const TypeParam whole;
    this->recorder.Reset();
  }
  const Events usual = this->recorder.Events();
  {
    TypeParam made;
    delete made.d_pointer;
    made.d_pointer = nullptr;
    this->recorder.Reset();
  }
  this->ExpectEvents(usual);
}

class OperationTest : public RecordingTest, public ::testing::WithParamInterface<Operation> {
 protected:
  OperationTest() { Forget(); }

  std::string Run(const std::string& directory) {
    return GetParam().run(caller, kUrl, caller.MakeFiles(directory));
  }

  Caller caller;
};

class ServiceOperationTest : public OperationTest {};

INSTANTIATE_TEST_SUITE_P(Operations, ServiceOperationTest,
                         ::testing::ValuesIn(OperationsWhere([](const Operation& each) {
                           return each.kind == Kind::kDocument || each.kind == Kind::kReport ||
                                  each.Uploads();
                         })),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(ServiceOperationTest, UsesTheSettingsOfItsObject) {
  caller.OfferCertificate("/ca.pem", "/client.pem", "/client.key", "secret");
  for (LumCurlOrvOps* each : {&caller.service, &caller.signedService}) {
    each->SetBindInterface("eth1");
    each->SetSwiftIp("10.0.0.5");
    each->SetLimitSpeed(1000);
  }

  Run("files");

  const Transfer transfer = TheTransfer();
  const std::size_t uploads = GetParam().Uploads() ? 1 : 0;
  EXPECT_EQ(transfer.texts.at(CURLOPT_INTERFACE), "eth1");
  EXPECT_EQ(transfer.texts.at(CURLOPT_KEYPASSWD), "secret");
  EXPECT_EQ(transfer.numbers.count(CURLOPT_MAX_SEND_SPEED_LARGE), uploads);
  EXPECT_EQ(transfer.resolve, Events(uploads, "backend.example:443:10.0.0.5"));
  keptLists = static_cast<int>(uploads);
}

TEST_P(ServiceOperationTest, LeavesTheStreamOfTheCallerToTheNextUpload) {
  FILE* stream = fmemopen(const_cast<char*>("stream"), 6, "r");
  for (LumCurlOrvOps* each : {&caller.service, &caller.signedService}) {
    each->SetFp(stream);
  }

  Run("files");

  const bool uploads = GetParam().Uploads();
  EXPECT_EQ(TheTransfer().uploaded, uploads ? "stream" : "");
  int holders = 0;
  for (LumCurlOrvOps* each : {&caller.service, &caller.signedService}) {
    holders += each->d_pointer->uploadFp == stream ? 1 : 0;
  }
  EXPECT_EQ(holders, uploads ? 1 : 2);
  CloseOwn(stream);
}

// The requests of LumCurlHttp, which come one after the other on one object (../http), on two.
class SideBySideTest : public OperationTest {};

INSTANTIATE_TEST_SUITE_P(Operations, SideBySideTest, ::testing::ValuesIn(Operations()),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(SideBySideTest, RunsBesideAnother) {
  Latch both(2);
  Script script = Answer(200, "{}");
  script.during = [&both](const Transfer&) { EXPECT_TRUE(both.CountDownAndWait()); };
  Caller another;
  Caller& second = GetParam().kind == Kind::kJson ? another : caller;
  caller.shared = true;
  caller.MakeFiles("one");
  const std::string files = second.MakeFiles("other");
  Forget();
  recorder.NextPerform(script);
  recorder.NextPerform(script);

  RunBoth(
      both, [this] { Run("one"); }, [&] { GetParam().run(second, kUrl, files); });

  EXPECT_EQ(recorder.Transfers().size(), 2U);
  keptLists = GetParam().NeedsTls() ? 2 : 0;
}

}  // namespace
}  // namespace lumtest

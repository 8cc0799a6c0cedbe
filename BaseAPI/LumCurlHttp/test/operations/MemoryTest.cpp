// What each operation leaves when memory runs out at any point of it: std::bad_alloc for the
// caller, and nothing kept.

#include <new>
#include <set>

#include "LumCurlHttpPrivate.h"
#include "LumCurlOrvOpsPrivate.h"
#include "Operations.h"
#include "recording/FailingAllocation.h"
#include "recording/RecordingTest.h"

namespace lumtest {
namespace {

const std::string kUrl = "https://backend.example/a/path/of/some/length";

// The operations that send a request, with arguments that have to be allocated.
class MemoryTest : public RecordingTest, public ::testing::WithParamInterface<Operation> {
 protected:
  MemoryTest() {
    caller.useSsl = true;
    caller.general.SetHeaders("X: " + caller.text);
    caller.signedService.SetUploadLogAuthorisation("an authorisation of some length");
    caller.signedService.SetSecurityToken("a security token of more than fifteen characters");
    for (LumCurlOrvOps* each : Clients()) {
      each->SetBindInterface("eth1");
    }
    caller.document.AddJsonValue("accessId", "an identifier that is too long for a value itself");
    caller.document.AddJsonValue("text", std::string(200, 'x'));
    caller.token = caller.identifier = caller.fileName = caller.text;
    caller.topic = "topic";
    caller.lines = {"X: " + caller.text, "Y: 1"};
    Prepare();
  }

  // Each of them is at an end with a list that is kept, of LumApollo's requests.
  void TearDown() override {
    keptLists = recorder.LiveLists();
    RecordingTest::TearDown();
  }

  std::vector<LumCurlOrvOps*> Clients() { return {&caller.service, &caller.signedService}; }

  void Run() { GetParam().run(caller, kUrl, directory); }

  // Starts over: a pass phrase of LumCurlHttp serves one request.
  void Prepare(const Script& script = Script(), const std::string& phrase = "secret") {
    caller.OfferCertificate("/ca.pem", "/client.pem", "/client.key", phrase);
    Forget();
    recorder.NextPerform(script);
  }

  // Nothing is kept but, by LumApollo, each list that has become an option.
  void ExpectNothingLeft() {
    int options = 0;
    for (const std::string& event : recorder.Events()) {
      options += event.rfind("CURLOPT_HTTPHEADER", 0) == 0 ? 1 : 0;
    }
    const bool refused = recorder.OptionResult(CURLOPT_HTTPHEADER) != CURLE_OK;
    EXPECT_EQ(recorder.LiveLists(), GetParam().NeedsTls() && !refused ? options : 0);
    EXPECT_EQ(recorder.LiveHandles(), 0);
    EXPECT_EQ(recorder.LiveFiles(), 0);
    EXPECT_TRUE(caller.general.d_pointer->m_mutex.try_lock());
    caller.general.d_pointer->m_mutex.unlock();
  }

  // Lets each of the operation's allocations fail, one at a time.
  void FailEach(const Script& script) {
    const std::size_t failed =
        FailEachAllocation([&] { Prepare(script); }, [&] { Run(); }, [&] { ExpectNothingLeft(); });
    EXPECT_GT(failed, 0U);
  }

  Caller caller;
  const std::string directory = caller.MakeFiles("files");
};

INSTANTIATE_TEST_SUITE_P(Operations, MemoryTest, ::testing::ValuesIn(Operations()),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(MemoryTest, EveryAllocationOfASuccessMayFail) {
  FailEach(Answer(200, R"({"a": "text that is too long for a value itself", "b": [1]})"));
}

TEST_P(MemoryTest, EveryAllocationOfARefusalMayFail) {
  FailEach(Answer(500, "an answer that is too long for a string's own buffer"));
}

TEST_P(MemoryTest, EveryAllocationOfAFailedTransferMayFail) {
  const bool hasBuffer = GetParam().kind != Kind::kDownload;
  FailEach(Broken(CURLE_RECV_ERROR, 0, hasBuffer ? "an error text that is not short at all" : ""));
}

TEST_P(MemoryTest, EveryAppendedLineMayFail) {
  Run();
  int lines = 0;
  for (const std::string& event : recorder.Events()) {
    lines += event.rfind("curl_slist_append ", 0) == 0 ? 1 : 0;
  }
  ASSERT_GE(lines, 1);

  for (int nth = 1; nth <= lines; ++nth) {
    Prepare();
    recorder.FailAppend(nth);

    EXPECT_THROW(Run(), std::bad_alloc) << "line " << nth;

    ExpectNothingLeft();
    EXPECT_TRUE(recorder.Transfers().empty());
  }
}

TEST_P(MemoryTest, EveryOptionMayBeRefusedForWantOfMemory) {
  Run();
  const Transfer usual = TheTransfer();
  std::set<CURLoption> options;
  for (const auto& [option, value] : usual.texts) {
    options.insert(option);
  }
  for (const auto& [option, value] : usual.numbers) {
    options.insert(option);
  }
  for (const auto& [option, value] : usual.pointers) {
    options.insert(option);
  }
  EXPECT_GE(options.size(), 11U);

  for (const CURLoption option : options) {
    Prepare();
    recorder.FailOption(option, CURLE_OUT_OF_MEMORY);

    EXPECT_THROW(Run(), std::bad_alloc) << "option " << option;

    ExpectNothingLeft();
    EXPECT_TRUE(recorder.Transfers().empty()) << "a request without option " << option;
  }
}

TEST_P(MemoryTest, OptionRefusedForAnotherReasonLeavesItToTheTransfer) {
  for (const CURLoption option : {CURLOPT_URL, CURLOPT_INTERFACE, CURLOPT_KEYPASSWD}) {
    Prepare();
    recorder.FailOption(option, CURLE_BAD_FUNCTION_ARGUMENT);

    Run();

    EXPECT_EQ(recorder.Transfers().size(), 1U) << option;
  }
}

TEST_P(MemoryTest, StreamOfTheCallerSurvivesAndStaysForTheNextUpload) {
  FILE* stream = fmemopen(const_cast<char*>("stream"), 6, "r");
  for (LumCurlOrvOps* each : Clients()) {
    each->SetFp(stream);
  }
  recorder.FailOption(CURLOPT_URL, CURLE_OUT_OF_MEMORY);

  EXPECT_THROW(Run(), std::bad_alloc);

  for (LumCurlOrvOps* each : Clients()) {
    EXPECT_EQ(each->d_pointer->uploadFp, stream);
  }
  EXPECT_EQ(std::fgetc(stream), 's') << "it is closed";
  CloseOwn(stream);
}

// Those that offer a client certificate.
class PassPhraseMemoryTest : public MemoryTest {};

INSTANTIATE_TEST_SUITE_P(Operations, PassPhraseMemoryTest,
                         ::testing::ValuesIn(OperationsWhere([](const Operation& each) {
                           return each.kind != Kind::kDownload && each.kind != Kind::kApollo;
                         })),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(PassPhraseMemoryTest, AFullOneRefusedForWantOfMemoryIsWipedBeforeTheThrow) {
  Prepare(Script(), std::string(2048, 'p'));
  recorder.FailOption(CURLOPT_KEYPASSWD, CURLE_OUT_OF_MEMORY);

  EXPECT_THROW(Run(), std::bad_alloc);

  EXPECT_THAT(recorder.Events(), ::testing::Contains("memset_s 2049 0 2049"));
  ExpectNothingLeft();
}

// --- What is not an operation of the catalogue ---

class MemoryOfOthers : public RecordingTest {
 protected:
  MemoryOfOthers() { Forget(); }

  LumCurlOrvOps client;
};

TEST_F(MemoryOfOthers, PinnedUploadWithoutMemoryForItsEntryKeepsNothing) {
  TempDir directory;
  const std::string path = directory.Write("f", "data");
  client.SetDomainIp("10.0.0.5");
  Forget();
  recorder.FailAppend(1);

  EXPECT_THROW(client.UploadLog(kUrl, path, 5), std::bad_alloc);

  ExpectNothingKept();
}

TEST_F(MemoryOfOthers, ClientThatCannotBeMadeKeepsNothing) {
  const auto made = [](auto make) { return FailEachAllocation([] {}, make, [] {}); };
  EXPECT_EQ(made([] { LumCurlOrvOps other; }), 1U);
  EXPECT_EQ(made([] { LumCurlHttp other; }), 2U) << "its private part, the user agent in that";
  EXPECT_EQ(made([] { LumApollo other; }), 1U);
}

TEST_F(MemoryOfOthers, SettingThatCannotBeStoredKeepsItsValue) {
  client.SetBindInterface("eth1");
  const std::string longer(100, 'x');
  const auto check = [&] {
    const std::string& stored = client.d_pointer->bindInterface;
    EXPECT_TRUE(stored == "eth1" || stored == longer);
  };
  EXPECT_EQ(FailEachAllocation([] {}, [&] { client.SetBindInterface(longer); }, check), 1U);
}

TEST_F(MemoryOfOthers, LastErrorThatCannotBeCopiedLeavesTheLockFree) {
  client.UpdateLastError(std::string(100, 'a'));
  const auto check = [&] {
    EXPECT_TRUE(client.lastErrorMutex.try_lock());
    client.lastErrorMutex.unlock();
  };
  EXPECT_EQ(FailEachAllocation([] {}, [&] { client.GetLastErrorBody(); }, check), 1U);
  const std::string longer(1000, 'b');
  EXPECT_EQ(FailEachAllocation([] {}, [&] { client.UpdateLastError(longer); }, check), 1U);
}

}  // namespace
}  // namespace lumtest

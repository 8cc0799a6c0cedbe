// What each operation leaves when memory runs out at any point of it: std::bad_alloc for the
// caller, and nothing kept.

#include <new>

#include "../service/ServiceTest.h"
#include "Operations.h"
#include "recording/FailingAllocation.h"
#include "support/Files.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;

const std::string kUrl = "https://backend.example/a/path/of/some/length";

// LumCurlOrvOps's operations that send a request, with arguments that have to be allocated.
class MemoryTest : public ServiceTest, public ::testing::WithParamInterface<Operation> {
 protected:
  MemoryTest() {
    caller.signedService.SetUploadLogAuthorisation("an authorisation of some length");
    caller.signedService.SetSecurityToken("a security token of more than fifteen characters");
    caller.OfferCertificate("/ca.pem", "/client.pem", "/client.key", "secret");
    for (LumCurlOrvOps* each : Clients()) {
      each->SetBindInterface("eth1");
    }
    caller.document.AddJsonValue("accessId", "an identifier that is too long for a value itself");
    caller.document.AddJsonValue("text", std::string(200, 'x'));
    caller.token = caller.identifier = caller.fileName = caller.text;
    caller.topic = "topic";
    caller.lines = {"X: " + caller.text, "Y: 1"};
    directory.MakeDir("logs");
    Forget();
  }

  std::vector<LumCurlOrvOps*> Clients() { return {&caller.service, &caller.signedService}; }

  // Its answer.
  std::string Run() { return GetParam().run(caller, kUrl, directory.Path()); }

  // Starts over with a pinned host where one is used: a kept list is part of what is looked at.
  void Prepare(Script script) {
    Forget();
    recorder.NextPerform(std::move(script));
  }

  void ExpectNothingLeft() const {
    EXPECT_EQ(recorder.LiveHandles(), 0);
    EXPECT_EQ(recorder.LiveLists(), 0);
    EXPECT_EQ(recorder.LiveFiles(), 0);
  }

  Caller caller;
  TempDir directory;
  const std::string path = directory.Write("a.log", "data");
  // The double makes none.
  const std::string archives[3] = {directory.Write("a.log.tar.gz", "archive"),
                                   directory.Write("logs.tar.gz", "archive"),
                                   directory.Write("group.tar.gz", "archive")};
};

INSTANTIATE_TEST_SUITE_P(
    Operations, MemoryTest, ::testing::ValuesIn(OperationsWhere([](const Operation& each) {
      return each.kind == Kind::kDocument || each.kind == Kind::kReport || each.Uploads();
    })),
    [](const ::testing::TestParamInfo<Operation>& instance) { return instance.param.name; });

TEST_P(MemoryTest, EveryAllocationOfASuccessMayFail) {
  const Script answer =
      Answer(200, R"({"a": "text that is too long for a value itself", "b": [1]})");
  const std::size_t failed =
      FailEachAllocation([&] { Prepare(answer); }, [&] { Run(); }, [&] { ExpectNothingLeft(); });
  EXPECT_GT(failed, 0U);
}

TEST_P(MemoryTest, EveryAllocationOfARefusalMayFail) {
  const Script answer = Answer(500, "an answer that is too long for a string's own buffer");
  const std::size_t failed =
      FailEachAllocation([&] { Prepare(answer); }, [&] { Run(); }, [&] { ExpectNothingLeft(); });
  EXPECT_GT(failed, 0U);
}

TEST_P(MemoryTest, EveryAllocationOfAFailedTransferMayFail) {
  const Script broken = Broken(CURLE_RECV_ERROR, 0, "an error text that is not short at all");
  const std::size_t failed =
      FailEachAllocation([&] { Prepare(broken); }, [&] { Run(); }, [&] { ExpectNothingLeft(); });
  EXPECT_GT(failed, 0U);
}

TEST_P(MemoryTest, EveryAppendedLineMayFail) {
  Forget();
  Run();
  int lines = 0;
  for (const std::string& event : recorder.Events()) {
    lines += event.rfind("curl_slist_append ", 0) == 0 ? 1 : 0;
  }
  ASSERT_GE(lines, 1);

  for (int nth = 1; nth <= lines; ++nth) {
    Forget();
    recorder.FailAppend(nth);

    EXPECT_THROW(Run(), std::bad_alloc) << "line " << nth;

    ExpectNothingLeft();
    EXPECT_TRUE(recorder.Transfers().empty());
  }
}

TEST_P(MemoryTest, EveryOptionMayBeRefusedForWantOfMemory) {
  const CURLoption kOptions[] = {CURLOPT_URL,
                                 CURLOPT_HTTPHEADER,
                                 CURLOPT_POST,
                                 CURLOPT_CUSTOMREQUEST,
                                 CURLOPT_POSTFIELDS,
                                 CURLOPT_POSTFIELDSIZE,
                                 CURLOPT_WRITEDATA,
                                 CURLOPT_WRITEFUNCTION,
                                 CURLOPT_NOSIGNAL,
                                 CURLOPT_ERRORBUFFER,
                                 CURLOPT_TIMEOUT,
                                 CURLOPT_CONNECTTIMEOUT,
                                 CURLOPT_INTERFACE,
                                 CURLOPT_SSL_VERIFYHOST,
                                 CURLOPT_CAINFO,
                                 CURLOPT_SSL_VERIFYPEER,
                                 CURLOPT_SSLCERT,
                                 CURLOPT_SSLKEY,
                                 CURLOPT_SSLKEYTYPE,
                                 CURLOPT_SSLCERTTYPE,
                                 CURLOPT_KEYPASSWD,
                                 CURLOPT_READFUNCTION,
                                 CURLOPT_READDATA,
                                 CURLOPT_UPLOAD,
                                 CURLOPT_INFILESIZE_LARGE};
  Forget();
  Run();
  Transfer usual = recorder.Transfers().at(0);
  if (!GetParam().Uploads()) {
    usual.numbers.erase(CURLOPT_UPLOAD);  // the double looks it up
  }

  int refused = 0;
  for (const CURLoption option : kOptions) {
    if (usual.texts.count(option) + usual.numbers.count(option) + usual.pointers.count(option) ==
        0) {
      continue;
    }
    ++refused;
    Forget();
    recorder.FailOption(option, CURLE_OUT_OF_MEMORY);

    EXPECT_THROW(Run(), std::bad_alloc) << "option " << option;

    ExpectNothingLeft();
    EXPECT_TRUE(recorder.Transfers().empty()) << "a request without option " << option;
  }
  EXPECT_GE(refused, 18);
}

TEST_P(MemoryTest, OptionRefusedForAnotherReasonLeavesItToTheTransfer) {
  Forget();
  recorder.FailOption(CURLOPT_INTERFACE, CURLE_UNKNOWN_OPTION);
  recorder.FailOption(CURLOPT_TIMEOUT, CURLE_BAD_FUNCTION_ARGUMENT);
  recorder.FailOption(CURLOPT_KEYPASSWD, CURLE_NOT_BUILT_IN);

  Run();

  EXPECT_EQ(recorder.Transfers().size(), 1U);
}

TEST_P(MemoryTest, FullPassPhraseRefusedForWantOfMemoryIsWipedBeforeTheThrow) {
  caller.OfferCertificate("/ca.pem", "/client.pem", "/client.key", std::string(2048, 'p'));
  Forget();
  recorder.FailOption(CURLOPT_KEYPASSWD, CURLE_OUT_OF_MEMORY);

  EXPECT_THROW(Run(), std::bad_alloc);

  EXPECT_THAT(recorder.Events(), ::testing::Contains("memset_s 2049 0 2049"));
  ExpectNothingLeft();
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
  std::fclose(stream);
  ++recorder.m_liveFiles;  // the test's own
}

// --- What is not an operation of the table ---

class MemoryOfOthers : public ServiceTest {};

TEST_F(MemoryOfOthers, PinnedUploadWithoutMemoryForItsEntryKeepsNothing) {
  TempDir directory;
  const std::string path = directory.Write("f", "data");
  client.SetDomainIp("10.0.0.5");
  Forget();
  recorder.FailAppend(1);

  EXPECT_THROW(client.UploadLog(kUrl, path, 5), std::bad_alloc);

  EXPECT_EQ(recorder.LiveHandles(), 0);
  EXPECT_EQ(recorder.LiveLists(), 0);
}

TEST_F(MemoryOfOthers, BodyThatDoesNotFitIntoMemoryStopsTheTransferAndIsRethrownAfterAllIsFreed) {
  Script script = Answer(200, std::string(100000, 'b'));
  bool failed = false;
  script.during = [&failed](const Transfer& transfer) {
    const auto write =
        reinterpret_cast<curl_write_callback>(transfer.pointers.at(CURLOPT_WRITEFUNCTION));
    std::string piece(5000, 'b');
    FailNextNew(1);
    const std::size_t taken =
        write(piece.data(), 1, piece.size(), transfer.pointers.at(CURLOPT_WRITEDATA));
    failed = AllocationHasFailed();
    FailNextNew(0);
    EXPECT_EQ(taken, 0U) << "libcurl is to give up";
  };
  recorder.NextPerform(script);

  EXPECT_THROW(Engine().Get(kUrl, {"A: 1"}), std::bad_alloc);

  EXPECT_TRUE(failed);
  const Events events = recorder.Events();
  EXPECT_THAT(Events(events.end() - 4, events.end()),
              ElementsAre("curl_easy_perform", "CURLINFO_RESPONSE_CODE",
                          "curl_slist_free_all [A: 1]", "curl_easy_cleanup"));
}

TEST_F(MemoryOfOthers, ClientThatCannotBeMadeKeepsNothing) {
  const std::size_t failed = FailEachAllocation([] {}, [] { LumCurlOrvOps other; }, [] {});
  EXPECT_EQ(failed, 1U);
}

TEST_F(MemoryOfOthers, SettingThatCannotBeStoredKeepsItsValue) {
  client.SetBindInterface("eth1");
  const std::string longer(100, 'x');
  const std::size_t failed = FailEachAllocation([] {}, [&] { client.SetBindInterface(longer); },
                                                [&] {
                                                  if (Engine().bindInterface != longer) {
                                                    EXPECT_EQ(Engine().bindInterface, "eth1");
                                                  }
                                                });
  EXPECT_EQ(failed, 1U);
}

TEST_F(MemoryOfOthers, LastErrorThatCannotBeCopiedLeavesTheLockFree) {
  client.UpdateLastError(std::string(100, 'a'));
  const std::size_t read = FailEachAllocation([] {}, [&] { client.GetLastErrorBody(); },
                                              [&] {
                                                EXPECT_TRUE(client.lastErrorMutex.try_lock());
                                                client.lastErrorMutex.unlock();
                                              });
  EXPECT_EQ(read, 1U);
  const std::string longer(1000, 'b');
  const std::size_t written = FailEachAllocation([] {}, [&] { client.UpdateLastError(longer); },
                                                 [&] {
                                                   EXPECT_TRUE(client.lastErrorMutex.try_lock());
                                                   client.lastErrorMutex.unlock();
                                                 });
  EXPECT_EQ(written, 1U);
}

}  // namespace
}  // namespace lumtest

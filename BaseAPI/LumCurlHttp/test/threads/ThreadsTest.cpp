// Every operation from sixteen threads, on objects of their own and on one, while others of these
// objects come and go. For the thread sanitizer above all, but answers that go astray show
// anywhere.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <regex>

#include "../http/LiveTest.h"
#include "../operations/RunOperation.h"
#include "support/ProcessState.h"
#include "support/Threads.h"

namespace lumtest {
namespace {

constexpr int kThreads = 16;

// What the servers answer: each request's own target, so that an answer to another shows.
std::string AnswerTo(const std::string& target) {
  return "{\"target\":\"" + target + "\"}";
}

void Offer(Caller& caller, const TlsMaterial& tls) {
  caller.OfferCertificate(tls.caCertificate, tls.clientCertificate, tls.clientEncryptedKey,
                          kPassPhrase);
}

class ThreadsTest : public ::testing::Test {
 protected:
  // The server asks for no certificate, though the clients load theirs: OpenSSL would check them
  // all against one CA, guarded by atomics that the thread sanitizer cannot see in it.
  ThreadsTest() : secure(TlsOptions()) {
    for (WireServer* server : {&plain, &secure}) {
      // What an upload is answered goes to standard output, all of them mixed.
      server->SetHandler([](const WireRequest& request) {
        const bool isUpload = request.target.find("Upload") != std::string::npos;
        return StatusReply(200, isUpload ? "" : AnswerTo(request.target));
      });
    }
  }

  void TearDown() override {
    EXPECT_EQ(output.Stop(), "");
    EXPECT_TRUE(plain.WaitIdle());
    EXPECT_TRUE(secure.WaitIdle());
  }

  // Runs one operation; its answer must be the one to its own request. On a machine that is busy
  // with so many threads a request may run into its time limit: then it is sent again.
  void RunOne(Caller& caller, const Operation& operation, const WireServer& server,
              const std::string& owner) {
    const bool apollo = operation.NeedsTls();
    const std::string target = "/" + owner + operation.name;
    const std::string url = (apollo ? secure : server).Url(target);
    std::string asked = target;
    if (apollo) {
      asked = "/configs/app/default/space";
    } else if (std::string(operation.name) == "GetLogAddress") {
      asked += "?access_id=id&file_name=a.log";
    }
    const std::string received = operation.Uploads() ? "" : AnswerTo(asked);
    const std::vector<Ending> endings = {
        {0, 200, received}, {28, 0, "", ".*"}, {28, 100, "", ".*"}};
    constexpr int kAttempts = 10;
    for (int i = 0; i < kAttempts; ++i) {
      const Ending ending =
          ExpectEnding(operation, url, RunOperation(caller, operation, url, owner), endings);
      if (ending.code == 0) {
        return;
      }
    }
    ADD_FAILURE() << operation.name << " does not succeed";
  }

  // All operations, each thread in an order of its own.
  void RunAll(Caller& caller, const WireServer& server, int thread) {
    const std::size_t count = Operations().size();
    for (std::size_t i = 0; i < count; ++i) {
      RunOne(caller, Operations()[(i + static_cast<std::size_t>(thread) * 7) % count], server,
             "t" + std::to_string(thread) + "_");
    }
  }

  const ThreadLogs logs;
  CaptureStdout output;
  WireServer plain;
  WireServer secure;
};

TEST_F(ThreadsTest, EveryOperationOnObjectsOfTheirOwn) {
  OnThreads(kThreads, [this](int thread) {
    Caller caller;
    RunAll(caller, plain, thread);
    Offer(caller, Tls());
    RunAll(caller, secure, thread);
  });
  EXPECT_GE(plain.RequestCount() + secure.RequestCount(), 2 * kThreads * Operations().size());
}

TEST_F(ThreadsTest, EveryOperationOnOneObject) {
  Caller caller;
  caller.shared = true;
  // Settings are made before there are threads, and all of them read.
  Offer(caller, Tls());
  caller.service.SetDomainIp("127.0.0.1");
  caller.service.SetLimitSpeed(100000000);
  caller.service.SetDomainIp("");
  OnThreads(kThreads,
            [&](int thread) { RunAll(caller, thread % 2 == 0 ? plain : secure, thread); });
  EXPECT_GE(plain.RequestCount() + secure.RequestCount(), kThreads * Operations().size());
}

// Half of the threads transfer, the others make objects and let them go, whose destructors clean
// libcurl up. The process's own initialisation keeps it in place.
TEST_F(ThreadsTest, ObjectsComeAndGoWhileOthersTransfer) {
  std::atomic<int> transferring{kThreads / 2};
  std::atomic<int> gone{0};
  OnThreads(kThreads, [&](int thread) {
    if (thread < kThreads / 2) {
      Caller caller;
      RunAll(caller, plain, thread);
      --transferring;
      return;
    }
    for (int i = 0; i == 0 || transferring > 0; ++i) {
      LumCurlHttp general;
      LumApollo apollo;
      LumCurlOrvOps service;
      service.CurlGlobalInit();
      if (i % 8 == 0) {
        Caller caller;
        RunOne(caller, Operations()[static_cast<std::size_t>(i / 8) % Operations().size()], secure,
               "c" + std::to_string(thread) + "_");
      }
      ++gone;
    }
  });
  EXPECT_GE(gone, kThreads / 2);
}

// The last error of one object: readers see one whole text or another, never parts of two.
TEST_F(ThreadsTest, TheLastErrorIsAlwaysWhole) {
  constexpr std::size_t kSize = 20000;
  constexpr int kRounds = 10;
  plain.SetHandler([](const WireRequest& request) {
    return StatusReply(500, std::string(kSize, request.target.back()));
  });
  LumJson::Value document;
  document.AddJsonValue("accessId", "a document of some length");
  LumCurlOrvOps service;
  service.CurlGlobalInit();
  std::atomic<int> reporting{kThreads / 2};
  std::atomic<int> seen{0};
  OnThreads(kThreads, [&](int thread) {
    if (thread < kThreads / 2) {
      const std::string url = plain.Url("/" + std::string(1, static_cast<char>('a' + thread)));
      for (int i = 0; i < kRounds; ++i) {
        EXPECT_EQ(i % 2 == 0 ? service.ReportData(url, document, "t", "")
                             : service.ReportDataWithGzip(url, document, "t"),
                  -10000);
      }
      --reporting;
      return;
    }
    bool more = true;
    while (more) {
      more = reporting > 0;  // once again when the last report is done
      const std::string text = service.GetLastErrorBody();
      if (!text.empty()) {
        // A report may also have run into its time limit, on a busy machine.
        const bool isAnswer = text == std::string(kSize, text.front());
        EXPECT_TRUE(isAnswer || std::regex_match(text, std::regex("POST failed for: [^.]* \\.")))
            << text;
        ++seen;
      }
    }
  });
  EXPECT_GE(seen, kThreads / 2);
}

}  // namespace
}  // namespace lumtest

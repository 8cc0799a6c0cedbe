// What the fault tests share: one operation of the table against a server that misbehaves, with
// every result, log line, descriptor and byte of standard output accounted for.

#ifndef LUM_TEST_FAULTS_FAULTTEST_H
#define LUM_TEST_FAULTS_FAULTTEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "../http/LiveTest.h"
#include "../operations/RunOperation.h"
#include "support/ProcessState.h"

namespace lumtest {

// An answer that suits every operation.
const char kReply[] = "{\"token\":\"t\"}";

// LumApollo speaks TLS only.
inline WireOptions OptionsFor(const Operation& operation) {
  return operation.NeedsTls() ? TlsOptions() : WireOptions();
}

// Test names of operations.
inline std::string NameOf(const ::testing::TestParamInfo<Operation>& info) {
  return info.param.name;
}

// One caller and one server. When a test ends, nothing of the failures is left open, and the
// objects serve a normal request.
class FaultTest : public ::testing::TestWithParam<Operation> {
 protected:
  void SetUp() override { Serve(OptionsFor(GetParam())); }

  void Serve(const WireOptions& options) {
    server = std::make_unique<WireServer>(options);
    url = server->Url("/x");
    // Whatever is made once for all requests is made now.
    NormalRequest();
    before = Descriptors();
  }

  void TearDown() override {
    NormalRequest();
    EXPECT_EQ(Descriptors(), before) << ::testing::PrintToString(DescribeDescriptors());
    const std::string caught = output.Stop();
    if (HasFailure()) {
      std::cerr << caught;  // with the failures that were printed meanwhile
    } else {
      EXPECT_EQ(caught, expectedOutput);
    }
  }

  bool Uploads() const { return GetParam().Uploads(); }

  // The status where no answer came: an upload may have been told "100 Continue" before.
  long NoStatus() const { return Uploads() && CurlAsksBefore(0) ? 100 : 0; }

  void NormalRequest() {
    server->Script(JsonReply(kReply));
    Fault({{0, 200, kReply}});
  }

  // Runs the operation, which must come to one of these endings.
  Ending Fault(const std::vector<Ending>& endings) { return FaultAt(url, endings); }

  Ending FaultAt(const std::string& where, std::vector<Ending> endings) {
    if (Uploads()) {
      // libcurl waits a second for "100 Continue", which a busy machine may miss.
      const std::vector<Ending> given = endings;
      for (Ending ending : given) {
        if (ending.status == NoStatus()) {
          ending.status = 0;
          endings.push_back(ending);
        }
      }
    }
    const Ending ending =
        ExpectEnding(GetParam(), where, RunOperation(caller, GetParam(), where), endings);
    if (Uploads()) {
      expectedOutput += ending.received;
    }
    return ending;
  }

  std::size_t Descriptors() {
    EXPECT_TRUE(server->WaitIdle());
    return OpenDescriptors();
  }

  ThreadLogs logs;
  CaptureStdout output;
  std::string expectedOutput;
  Caller caller;
  std::unique_ptr<WireServer> server;
  std::string url;
  std::size_t before = 0;
};

}  // namespace lumtest

#endif  // LUM_TEST_FAULTS_FAULTTEST_H

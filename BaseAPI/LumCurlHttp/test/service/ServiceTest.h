// What the unit tests of the service client share: an object over the recording double, checks that
// hold for every log line and every operation, and the events of the engine's plain transfers.

#ifndef LUM_TEST_SERVICE_SERVICETEST_H
#define LUM_TEST_SERVICE_SERVICETEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <list>
#include <string>
#include <vector>

#include "LumCurlOrvOps.h"
#include "LumCurlOrvOpsPrivate.h"
#include "recording/Recorder.h"
#include "recording/RecordingTest.h"

namespace lumtest {

using Lines = std::list<std::string>;

Events operator+(Events first, const Events& second);

// One client over a recorder that starts empty. When a test ends, no handle, list or file may be
// left over, and every log line must have come from the statement that it names.
class ServiceTest : public RecordingTest {
 protected:
  ServiceTest();
  void TearDown() override;

  LumCurlOrvOpsPrivate& Engine() { return *client.d_pointer; }

  // Takes the private object away, as no constructor does.
  void DropPrivate();

  // The log lines so far, in the form of ClientLog and EngineLog below.
  Events Logs() const;

  // Forgets what has been recorded and keeps the client with its settings.
  void Forget() { recorder.Reset(); }

  // Offers a client certificate from now on, and forgets the events of that.
  void UseCertificate(const std::string& passPhrase = "secret");

  LumCurlOrvOps client;
  int keptLists = 0;  // lists that the test's subject keeps on purpose
};

// A log line as Logs() shows it: file, level, function, format and arguments.
std::string ClientLog(int level, const std::string& function, const std::string& format,
                      const Events& arguments = {});
std::string EngineLog(int level, const std::string& function, const std::string& format,
                      const Events& arguments = {});

// The line as it is on its way to libcurl when the transfer starts: "Name;" stands for a value that
// is empty.
std::string Sent(const std::string& line);

// The events of one transfer that succeeds, without interface, certificate, pinning or speed cap.
// TransferTest and UploadTransferTest spell them out.
Events GetEvents(const std::string& url, const Lines& lines);
Events PutEvents(const std::string& url, std::size_t length, const Lines& lines);
Events PostEvents(const std::string& url, std::size_t length, const Lines& lines,
                  const std::string& timeout);
Events UploadEvents(const std::string& url, const std::string& path, std::size_t size,
                    const Lines& lines, const std::string& timeout);

// The events of a transfer that fails: `log` stands before its last event.
Events Failing(Events events, const std::string& log);

// A transfer that libcurl gives up with `result` after `status` has arrived.
Script Broken(CURLcode result, long status, const std::string& errorText,
              const std::vector<std::string>& chunks = {});

// A transfer that succeeds.
Script Answer(long status, const std::string& body = "");

}  // namespace lumtest

#endif  // LUM_TEST_SERVICE_SERVICETEST_H

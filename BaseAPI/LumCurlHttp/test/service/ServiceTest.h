// What the unit tests of the service client share: an object over the recording double, and the
// events of its transfers.

#ifndef LUM_TEST_SERVICE_SERVICETEST_H
#define LUM_TEST_SERVICE_SERVICETEST_H

#include <cstddef>
#include <string>

#include "LumCurlOrvOps.h"
#include "LumCurlOrvOpsPrivate.h"
#include "recording/RecordingTest.h"

namespace lumtest {

class ServiceTest : public RecordingTest {
 protected:
  ServiceTest() { recorder.Reset(); }

  LumCurlOrvOpsPrivate& Engine() { return *client.d_pointer; }

  // Offers a client certificate from now on, and forgets the events of that.
  void UseCertificate(const std::string& passPhrase = "secret");

  // Gives every setting that a transfer may use, as kEverything has it, and forgets that.
  void UseEverything();

  LumCurlOrvOps client;
};

// What settings add to a transfer, each at its place.
struct Added {
  Events pin;  // of uploads alone, and so is the cap
  Events cap;
  Events interface;
  Events certificate;
};

extern const Added kNothing;
extern const Added kEverything;  // the pinned host is "store.example"

// The events of one transfer that succeeds: for each transfer of the engine the one list of its
// options in their order.
Events GetEvents(const std::string& url, const Lines& lines, const Added& added = kNothing);
Events PutEvents(const std::string& url, std::size_t length, const Lines& lines,
                 const Added& added = kNothing);
Events PostEvents(const std::string& url, std::size_t length, const Lines& lines,
                  const std::string& timeout, const Added& added = kNothing);
Events UploadEvents(const std::string& url, const std::string& path, std::size_t size,
                    const Lines& lines, const std::string& timeout, const Added& added = kNothing);

// The events of a transfer that fails: `log` stands before its last event.
Events Failing(Events events, const std::string& log);

}  // namespace lumtest

#endif  // LUM_TEST_SERVICE_SERVICETEST_H

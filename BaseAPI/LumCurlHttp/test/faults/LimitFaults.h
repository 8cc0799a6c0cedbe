// What keeps a request waiting, met by many operations at once, each with a caller and a thread of
// its own, and the time that each of them takes.

#ifndef LUM_TEST_FAULTS_LIMITFAULTS_H
#define LUM_TEST_FAULTS_LIMITFAULTS_H

#include <string>
#include <vector>

#include "../operations/RunOperation.h"

namespace lumtest {

// Seconds that an operation may take beyond its limit: hundreds of them share the machine, and what
// the limit fails to end goes on for a minute and more.
constexpr double kBeyondLimit = 10;

// One operation, what it meets, and what it must come to.
struct Encounter {
  std::string name;
  Operation operation;
  std::string url;
  double limit;  // seconds
  std::vector<Ending> endings;
  double earliest = -1;      // seconds before which libcurl's time-out must not come; -1: `limit`
  std::string content = "";  // of files to upload, in place of the usual one
};

// Runs all of them at once. Checks results, log lines and times: an ending in libcurl's time-out
// comes at the limit and not before, any other within it. What uploads got for an answer, blanks
// only, is on standard output, and no descriptor stays open; those of servers that never hear that
// their clients are gone are the caller's to look after, with `serversNotice` false.
void RunAtOnce(const std::vector<Encounter>& encounters, bool serversNotice = true);

}  // namespace lumtest

#endif  // LUM_TEST_FAULTS_LIMITFAULTS_H

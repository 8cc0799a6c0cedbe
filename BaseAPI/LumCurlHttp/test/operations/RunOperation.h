// Runs the operations of the catalogue over the real library and holds them against endings.txt.

#ifndef LUM_TEST_OPERATIONS_RUNOPERATION_H
#define LUM_TEST_OPERATIONS_RUNOPERATION_H

#include <string>
#include <vector>

#include "Endings.h"

namespace lumtest {

// Hands each thread's log records to that thread's Outcome for as long as it lives. One at a time.
class ThreadLogs {
 public:
  ThreadLogs();
  ~ThreadLogs();
  ThreadLogs(const ThreadLogs&) = delete;
  ThreadLogs& operator=(const ThreadLogs&) = delete;
};

// Runs an operation on this thread, with files in a directory whose name begins with `owner`. `url`
// begins with http or https and a host; LumApollo, which makes its own URL, takes the host from it.
Outcome RunOperation(Caller& caller, const Operation& operation, const std::string& url,
                     const std::string& owner = "");

// Expects that `outcome` is, to the letter, what one of `endings` leads to; gives that ending, or
// the first. What arrived of an upload's reply went to standard output.
const Ending& ExpectEnding(const Operation& operation, const std::string& url,
                           const Outcome& outcome, const std::vector<Ending>& endings);

}  // namespace lumtest

#endif  // LUM_TEST_OPERATIONS_RUNOPERATION_H

// How a transfer may end, and what an operation returns and logs then: as endings.txt has it.

#ifndef LUM_TEST_OPERATIONS_ENDINGS_H
#define LUM_TEST_OPERATIONS_ENDINGS_H

#include <string>
#include <vector>

#include "Operations.h"

namespace lumtest {

// What an operation gave back, and what it logged from beginning to end ("file function level:
// message", the file without its directory).
struct Outcome {
  std::string value;  // the result, an out-parameter and what became of the files
  std::vector<std::string> lines;
  double seconds = 0;     // by the clock of the thread that called it
  std::string directory;  // of its files
};

// The end of a transfer, as libcurl tells it.
struct Ending {
  static constexpr char kBlanks[] = "<blanks>";  // `received`: any number of blanks, but some

  int code = 0;            // CURLcode
  long status = 200;       // HTTP status; 0 where none arrived
  std::string received;    // what arrived of the body
  std::string error = "";  // POSIX regular expression of libcurl's error text
};

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

// The heads of an operation's block, and the one among them that an ending falls under.
std::vector<std::string> HeadsOf(const Operation& operation);
const std::string& HeadFor(const Operation& operation, const Ending& ending);

}  // namespace lumtest

#endif  // LUM_TEST_OPERATIONS_ENDINGS_H

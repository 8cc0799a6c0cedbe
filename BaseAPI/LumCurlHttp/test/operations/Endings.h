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

// The end of a transfer, as libcurl tells it, or what keeps an operation from having one.
struct Ending {
  static constexpr char kBlanks[] = "<blanks>";  // `received`: any number of blanks, but some

  int code = 0;            // CURLcode
  long status = 200;       // HTTP status; 0 where none arrived
  std::string received;    // what arrived of the body
  std::string error = "";  // POSIX regular expression of libcurl's error text
  std::string lacks = "";  // of what there is none, so that no transfer begins
};

// A log record as Outcome has it.
std::string LogText(const std::string& file, const std::string& function, int level,
                    const std::string& message);

// Adds what became of the operation's files to the value.
void AddFiles(const Operation& operation, Outcome& outcome);

// Whether `outcome` is, to the letter, what the ending leads to, for an error text whatever it is.
bool Fits(const Operation& operation, const std::string& url, const Outcome& outcome,
          const Ending& ending);

// libcurl's error text, as the lines have it.
std::string ErrorTextOf(const Outcome& outcome);

// Of the operation's block: the heads of transfers, and the one that an ending falls under.
std::vector<std::string> HeadsOf(const Operation& operation);
const std::string& HeadFor(const Operation& operation, const Ending& ending);

// What `outcome` is, and what it should have been.
std::string ShownBlocks(const Operation& operation, const std::string& url, const Outcome& outcome,
                        const Ending& ending);

}  // namespace lumtest

#endif  // LUM_TEST_OPERATIONS_ENDINGS_H

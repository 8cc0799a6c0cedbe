// Every operation of the three clients that sends a request, as a table: how to run it, its time
// limits, and what result and log lines it must give for an ending of its transfer.

#ifndef LUM_TEST_OPERATIONS_OPERATIONS_H
#define LUM_TEST_OPERATIONS_OPERATIONS_H

#include <LumApollo.h>
#include <LumCurlHttp.h>
#include <LumCurlOrvOps.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "support/Files.h"

namespace lumtest {

// The clients and files of one caller. A thread has one of its own, or shares one where that is
// allowed.
class Caller {
 public:
  Caller();
  Caller(const Caller&) = delete;
  Caller& operator=(const Caller&) = delete;

  LumCurlHttp general;
  LumCurlOrvOps service;
  LumCurlOrvOps signedService;  // with the settings of a signed upload
  LumApollo apollo;
  bool shared = false;  // by threads: the last error may be another's, and is not looked at
  std::string content = "the content of a log\n";  // of the files to upload

  // The files of one operation lie in a directory named after it, so that operations may run side
  // by side; of one thread, in a directory of its own.
  std::string MakeFiles(const std::string& name) const;

 private:
  TempDir m_directory;
};

enum class Kind { kGeneral, kDownload, kService, kUpload, kApollo };

// What an operation gave back, and what it logged from beginning to end ("file function level
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

struct Operation {
  const char* name;
  Kind kind;
  const char* verb;      // in the engine's texts
  const char* function;  // the engine's own, in log lines
  double connectLimit;   // seconds
  double limit;          // seconds; of the uploads that take one, kUploadLimit

  // Runs it on `directory`'s files; the text of what it gave.
  std::string (*run)(Caller&, const std::string& url, const std::string& directory);

  // What it makes of a status and a body: the text of the result, and log lines added to `lines`.
  std::string (*finish)(const Operation&, const std::string& url, int status,
                        const std::string& body, std::vector<std::string>& lines);

  bool Is60Seconds() const { return limit > 30; }
};

// The limit that the table gives to the operations that take one, in seconds.
constexpr unsigned int kUploadLimit = 3;

std::ostream& operator<<(std::ostream& out, const Operation& operation);

const std::vector<Operation>& Operations();
const Operation& OperationNamed(const std::string& name);

// Operations for which `wanted` holds.
std::vector<Operation> OperationsWhere(const std::function<bool(const Operation&)>& wanted);

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

#endif  // LUM_TEST_OPERATIONS_OPERATIONS_H

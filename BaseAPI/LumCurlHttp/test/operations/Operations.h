// The one catalogue of the public operations of the three classes: how each is called, what it
// needs and how long it may take. Every suite that is about all operations walks it.

#ifndef LUM_TEST_OPERATIONS_OPERATIONS_H
#define LUM_TEST_OPERATIONS_OPERATIONS_H

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "Caller.h"

namespace lumtest {

enum class Kind {
  kJson,      // LumCurlHttp's requests, which parse every answer
  kDownload,  // into a file
  kDocument,  // LumCurlOrvOps's requests, which parse an answer of 200
  kReport,    // to which no document is answered
  kUpload,    // of a file; the reply goes to standard output
  kArchive,   // likewise, of an archive that is made and removed
  kApollo,    // over TLS alone
  kSetting,   // sends nothing
};

// The limit, in seconds, that the operations are given which take one.
constexpr unsigned int kGivenLimit = 3;

struct Operation {
  const char* name;       // as tests are named after it
  const char* signature;  // as the library exports it
  Kind kind;
  double connectLimit;  // seconds
  double limit;         // seconds

  // Calls it once, by Caller::Try, on `directory`'s files; the text of what it gave.
  std::string (*run)(Caller&, const std::string& url, const std::string& directory);

  // Comes before each run: what a call uses up.
  void (*prepare)(Caller&) = nullptr;

  bool Uploads() const { return kind == Kind::kUpload || kind == Kind::kArchive; }
  bool NeedsTls() const { return kind == Kind::kApollo; }
  bool Is60Seconds() const { return limit > 30; }
};

std::ostream& operator<<(std::ostream& out, const Operation& operation);

// Those that send a request.
const std::vector<Operation>& Operations();

// All others.
const std::vector<Operation>& Settings();

const Operation& OperationNamed(const std::string& name);

// Operations that send a request and for which `wanted` holds.
std::vector<Operation> OperationsWhere(const std::function<bool(const Operation&)>& wanted);

// Where one operation's file to upload and its download lie in its directory.
std::string UploadPath(const std::string& directory);
std::string DownloadPath(const std::string& directory);

// A document that an operation gave back.
std::string TextOf(const LumJson::Value& value);

// "config.example:8443" of a URL.
std::string HostOf(const std::string& url);

}  // namespace lumtest

#endif  // LUM_TEST_OPERATIONS_OPERATIONS_H

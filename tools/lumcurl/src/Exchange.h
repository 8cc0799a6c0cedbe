// One call of the library with everything around it: what -v shows, the log lines that tell how it
// went, and the message when it failed.

#ifndef LUM_LUMCURL_EXCHANGE_H
#define LUM_LUMCURL_EXCHANGE_H

#include <optional>
#include <string>
#include <vector>

#include "Console.h"
#include "LumCurlOrvOps.h"
#include "Options.h"
#include "Outcome.h"

// What the library is about to send, as far as its interface says.
struct Request {
  std::string method;
  std::string url;                 // as given to the library
  std::vector<std::string> lines;  // header lines in their order
  unsigned int timeLimit;          // seconds; 0: none
  std::string document = {};       // the styled text of a document that is sent
  std::string howToVerify = {};    // what would have an https server verified; "": nothing
};

// While it lives, the library's log lines come here: errors and warnings always, all levels when
// verbose. One at a time. Not for use by two threads.
class Exchange {
 public:
  // Warns of what is not safe about the request, and shows its head when verbose. `options` must
  // outlive it.
  Exchange(const Options& options, Console& console, Request request);
  ~Exchange();
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;

  const Facts& Told() const { return m_reader.Told(); }

  // Shows the status when verbose; nothing: it is not visible.
  void ShowStatus(std::optional<int> status);

  // The end of a call that did what it should. Warns when the log tells of a connection that broke
  // all the same.
  Exit Succeed();

  // The end of a call that failed: one message out of what the log told and, where the library
  // handed it back, the status; then the start of the reply that the log or the library (`reply`)
  // has. `otherwise` is the verdict when neither says anything.
  Exit Fail(std::optional<int> status, const Verdict& otherwise, const std::string& reply = "");

  // The message "COMMAND URL: reason; advice", and a reply unless it is empty.
  Exit Report(const Verdict& verdict, const std::string& reply = "");

 private:
  void WarnOfUrl();
  void WarnOfInterface();

  const Options& m_options;
  Console& m_console;
  const Request m_request;
  FactReader m_reader;
};

// One call of the service client: a client with the settings of the command line, and what stands
// around its one request.
struct ServiceCall {
  // Throws Failure for files that cannot be read and pass phrases that cannot be used.
  ServiceCall(const Options& options, Console& console, Request request);

  Exchange exchange;  // first: the library logs what it makes of the settings
  LumCurlOrvOps client;
};

#endif  // LUM_LUMCURL_EXCHANGE_H

// What became of a call of the library. Where the library returns only "failed", its log lines say
// the rest: libcurl's result, the HTTP status, the step. This file is the one place that knows
// their wording, which the library keeps (docs/compatibility.md, log-exit).

#ifndef LUM_LUMCURL_OUTCOME_H
#define LUM_LUMCURL_OUTCOME_H

#include <optional>
#include <string>

#include "Failure.h"

// What log lines told.
struct Facts {
  int curlResult = 0;         // libcurl's result of a transfer that failed
  std::string curlText;       // its words
  std::optional<int> status;  // HTTP; 0 when no answer came, -1 when nothing was sent
  std::string reply;          // the start of an answer that was refused
  bool refused = false;       // the log told of a status that does not count, or of none
  bool notJson = false;       // an answer that should have been JSON was not
  bool fileNotOpened = false;
  bool compressFailed = false;
  bool uploadFailed = false;  // the upload step of a compress-and-upload
  bool removeFailed = false;
  bool noInterface = false;  // the MAC address is nobody's
};

// Reads log lines of one request. `url` is the request's, `document` the styled text that it sends:
// some lines hold them in front of what matters.
class FactReader {
 public:
  FactReader(std::string url, std::string document);

  void Read(const std::string& message);

  const Facts& Told() const { return m_facts; }

 private:
  bool ReadTransferFailure(const std::string& message);
  bool ReadStatus(const std::string& message, const std::string& prefix);
  bool ReadReply(const std::string& message, const std::string& prefix);

  const std::string m_url;
  const std::string m_document;
  Facts m_facts;
};

// Whether a warning that `function` logs tells what became of a file while it was packed.
bool TellsOfPacking(const std::string& function);

// An exit status with its reason, and what a person should do next.
struct Verdict {
  Exit exit = Exit::kOther;
  std::string reason;
  std::string advice;
};

// The verdict on a result of libcurl other than 0. `timeLimit` in seconds; 0: none.
Verdict JudgeTransfer(int curlResult, const std::string& text, unsigned int timeLimit);

// The verdict on an HTTP status that did not count as done.
Verdict JudgeStatus(int status);

// Whether what came from `url` looks like a page or document that tells of an error, by its start.
bool LooksLikeErrorPage(const std::string& url, const std::string& start);

#endif  // LUM_LUMCURL_OUTCOME_H

#include "Outcome.h"

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <map>
#include <utility>
#include <vector>

#include "Text.h"

namespace {

// Enough of a reply to understand it; some are gigabytes.
constexpr std::size_t kKeptReply = 4096;

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// A download logs libcurl's words alone.
int ResultOfText(const std::string& text) {
  for (int result = 1; result < CURL_LAST; ++result) {
    if (text == curl_easy_strerror(static_cast<CURLcode>(result))) {
      return result;
    }
  }
  return CURL_LAST;
}

int NumberAt(const std::string& text, std::size_t place) {
  return static_cast<int>(std::strtol(text.c_str() + place, nullptr, 10));
}

struct Judgement {
  std::vector<int> numbers;
  Exit exit;
  const char* advice;
};

// The first row that has `number`; null when none has.
const Judgement* Find(const std::vector<Judgement>& table, int number) {
  const auto row = std::find_if(table.begin(), table.end(), [number](const Judgement& candidate) {
    const std::vector<int>& numbers = candidate.numbers;
    return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
  });
  return row == table.end() ? nullptr : &*row;
}

}  // namespace

FactReader::FactReader(std::string url, std::string document)
    : m_url(std::move(url)), m_document(std::move(document)) {}

void FactReader::Read(const std::string& message) {
  static const std::map<std::string, bool Facts::*> kSteps = {
      {"fopen failed", &Facts::fileNotOpened},
      {"read file error", &Facts::fileNotOpened},
      {"compress file failed", &Facts::compressFailed},
      {"gzip compress error", &Facts::compressFailed},
      {"upload file failed", &Facts::uploadFailed},
      {"remove file failed", &Facts::removeFailed},
      {"Update interface name=", &Facts::noInterface}};
  if (ReadTransferFailure(message) ||                                   // the engines
      ReadStatus(message, "Post failed url=" + m_url + ", result=") ||  // reports
      ReadStatus(message, "Post failed, url=" + m_url + ", request=" + m_document +
                              ", result=") ||                              // GetToken
      ReadStatus(message, "Put failed error:") ||                          // RefreshToken
      ReadStatus(message, "Get failed, url=" + m_url + ", result=") ||     // JSON requests
      ReadStatus(message, "Post failed, url=" + m_url + ", result=") ||    // JSON requests
      ReadStatus(message, "UploadLog failed, code=") ||                    // signed uploads
      ReadReply(message, "Get from " + m_url + " failed, json body: ")) {  // log address
    m_facts.refused = true;
  } else if (ReadReply(message, "json parse(") ||
             ReadReply(message, "parse json body failed, json body: ")) {
    m_facts.notJson = true;
  } else if (const auto step = kSteps.find(message); step != kSteps.end()) {
    m_facts.*step->second = true;
  }
}

// "GET failed for WORDS, ret: 7, code: 0, errorBuf: TEXT". The service client says "resOps" for
// "ret"; that of the configuration centre "rps", and the URL behind the method. A download:
// "curl_easy_perform() failed: WORDS".
bool FactReader::ReadTransferFailure(const std::string& message) {
  static const std::string kDownload = "curl_easy_perform() failed: ";
  static const std::string kFailed = " failed for ";
  static const std::string kStatus = ", code: ";
  static const std::string kDetail = ", errorBuf: ";
  if (StartsWith(message, kDownload)) {
    m_facts.curlText = message.substr(kDownload.size());
    m_facts.curlResult = ResultOfText(m_facts.curlText);
    return true;
  }
  const std::string withUrl = "POST(" + m_url + ")";
  const std::size_t method = StartsWith(message, withUrl) ? withUrl.size() : message.find(' ');
  if (method == std::string::npos || message.compare(method, kFailed.size(), kFailed) != 0) {
    return false;
  }
  const std::size_t words = method + kFailed.size();
  const std::size_t status = message.find(kStatus, words);
  const std::size_t detail = message.find(kDetail, status);
  if (detail == std::string::npos) {
    return false;
  }
  m_facts.status = NumberAt(message, status + kStatus.size());
  m_facts.curlResult = NumberAt(message, message.rfind(' ', status) + 1);
  m_facts.curlText = message.substr(detail + kDetail.size());
  if (m_facts.curlText.empty()) {
    m_facts.curlText = message.substr(words, message.rfind(", ", status - 1) - words);
  }
  return true;
}

// PREFIX, the status, one character or two, the reply.
bool FactReader::ReadStatus(const std::string& message, const std::string& prefix) {
  if (!StartsWith(message, prefix)) {
    return false;
  }
  char* stop = nullptr;  // the library has written the number with %d or %ld
  m_facts.status = static_cast<int>(std::strtol(message.c_str() + prefix.size(), &stop, 10));
  const auto end = static_cast<std::size_t>(stop - message.c_str());
  static const std::array<std::string, 3> kSeparators = {", body=", ", ", ":"};
  for (const std::string& separator : kSeparators) {
    if (message.compare(end, separator.size(), separator) == 0) {
      m_facts.reply = message.substr(end + separator.size(), kKeptReply);
      break;
    }
  }
  return true;
}

bool FactReader::ReadReply(const std::string& message, const std::string& prefix) {
  if (!StartsWith(message, prefix)) {
    return false;
  }
  m_facts.reply = message.substr(prefix.size(), kKeptReply);
  static constexpr char kEnd[] = ") failed";  // of "json parse(REPLY) failed"
  if (prefix.back() == '(' && message.size() - prefix.size() <= kKeptReply) {
    m_facts.reply.resize(m_facts.reply.size() - (sizeof(kEnd) - 1));
  }
  return true;
}

bool TellsOfPacking(const std::string& function) {
  return function == "PackMember" || function == "AddFile";
}

Verdict JudgeTransfer(int curlResult, const std::string& text, unsigned int timeLimit) {
  static const std::vector<Judgement> kTable = {
      {{CURLE_URL_MALFORMAT}, Exit::kUsage, "correct the URL"},
      {{CURLE_OPERATION_TIMEDOUT},
       Exit::kTimeout,
       "the server is slow or out of reach: check the address and try again"},
      {{CURLE_COULDNT_RESOLVE_HOST, CURLE_COULDNT_RESOLVE_PROXY},
       Exit::kNetwork,
       "check the host name"},
      {{CURLE_COULDNT_CONNECT},
       Exit::kNetwork,
       "check host and port, and that the server is running"},
      {{CURLE_INTERFACE_FAILED},
       Exit::kNetwork,
       "check --interface: 'ip link' lists those there are"},
      // An answer without a status line counts as HTTP/0.9, an unsupported protocol.
      {{CURLE_UNSUPPORTED_PROTOCOL, CURLE_WEIRD_SERVER_REPLY},
       Exit::kNetwork,
       "check that the port speaks HTTP"},
      {{CURLE_GOT_NOTHING, CURLE_SEND_ERROR, CURLE_RECV_ERROR, CURLE_PARTIAL_FILE, CURLE_HTTP2,
        CURLE_HTTP2_STREAM, CURLE_HTTP3, CURLE_QUIC_CONNECT_ERROR, CURLE_PROXY,
        CURLE_SEND_FAIL_REWIND, CURLE_NO_CONNECTION_AVAILABLE},
       Exit::kNetwork,
       "the connection broke: try again, and look at the server's log"},
      {{CURLE_WRITE_ERROR}, Exit::kFile, "check that the disk is not full"},
      {{CURLE_READ_ERROR, CURLE_FILE_COULDNT_READ_FILE, CURLE_ABORTED_BY_CALLBACK},
       Exit::kFile,
       "check that the file can still be read"},
      {{CURLE_SSL_CERTPROBLEM},
       Exit::kTls,
       "check that --cert and --key belong together and that the pass phrase is the key's"},
      {{CURLE_PEER_FAILED_VERIFICATION},
       Exit::kTls,
       "the server's certificate must chain to the authorities in --cacert and be in date"},
      {{CURLE_SSL_CACERT_BADFILE}, Exit::kTls, "--cacert must name a PEM file of certificates"},
      {{CURLE_SSL_CONNECT_ERROR, CURLE_SSL_ENGINE_NOTFOUND, CURLE_SSL_ENGINE_SETFAILED,
        CURLE_SSL_CIPHER, CURLE_USE_SSL_FAILED, CURLE_SSL_ENGINE_INITFAILED,
        CURLE_SSL_SHUTDOWN_FAILED, CURLE_SSL_CRL_BADFILE, CURLE_SSL_ISSUER_ERROR,
        CURLE_SSL_PINNEDPUBKEYNOTMATCH, CURLE_SSL_INVALIDCERTSTATUS, CURLE_SSL_CLIENTCERT},
       Exit::kTls,
       "check that the port speaks TLS, and whether the server asks for a client certificate"}};
  // Connecting has a limit of its own, which libcurl's words tell.
  const bool isWhole = curlResult == CURLE_OPERATION_TIMEDOUT && timeLimit != 0 &&
                       (StartsWith(text, "Operation timed out") || StartsWith(text, "Timeout was"));
  const std::string limit =
      isWhole ? "; the limit is " + std::to_string(timeLimit) + " s" : std::string();
  const std::string reason = text + " (libcurl " + std::to_string(curlResult) + limit + ")";
  int cause = curlResult;
  if ((cause == CURLE_RECV_ERROR || cause == CURLE_SEND_ERROR) &&
      text.find(" alert ") != std::string::npos) {
    cause = CURLE_SSL_CONNECT_ERROR;  // a TLS 1.3 server refuses a certificate after the handshake
  } else if (cause == CURLE_BAD_FUNCTION_ARGUMENT &&
             StartsWith(text, "unable to set private key")) {
    cause = CURLE_SSL_CERTPROBLEM;  // so libcurl 8.23 for a key whose pass phrase is another one
  }
  const Judgement* row = Find(kTable, cause);
  return row == nullptr ? Verdict{Exit::kOther, reason, "-v shows the exchange"}
                        : Verdict{row->exit, reason, row->advice};
}

Verdict JudgeStatus(int status) {
  // A single digit stands for its class.
  static const std::vector<Judgement> kTable = {
      {{401, 403},
       Exit::kClientError,
       "check the token, signature or client certificate that the server asks for"},
      {{404}, Exit::kClientError, "check the path of the URL"},
      {{413}, Exit::kClientError, "send less at once"},
      {{408, 429}, Exit::kClientError, "try again later"},
      {{3}, Exit::kOther, "redirects are not followed: give the final URL"},
      {{4}, Exit::kClientError, "correct the request: the reply may say what is wrong"},
      {{5}, Exit::kServerError, "try again later, and look at the server's log"}};
  const Judgement* row = Find(kTable, status);
  if (row == nullptr) {
    row = Find(kTable, status / 100);
  }
  const std::string reason = "the server answered " + std::to_string(status);
  return row == nullptr
             ? Verdict{Exit::kOther, reason, "this status does not count as done for this command"}
             : Verdict{row->exit, reason, row->advice};
}

bool LooksLikeErrorPage(const std::string& url, const std::string& start) {
  static constexpr std::size_t kLongestRemark = 300;  // bytes of an answer in plain words
  static constexpr std::array<const char*, 10> kWords = {
      "not found",      "forbidden",   "unauthorized",    "bad request",         "not allowed",
      "internal error", "bad gateway", "gateway timeout", "service unavailable", "server error"};
  const std::string text = LowerCase(start);
  const std::size_t begin = text.find_first_not_of(" \t\r\n\xEF\xBB\xBF");  // a mark of order too
  const auto beginsWith = [&text, begin](const std::string& words) {
    return begin != std::string::npos && text.compare(begin, words.size(), words) == 0;
  };
  const auto holds = [&text](const char* word) { return text.find(word) != std::string::npos; };
  const bool tellsOfAnError = std::any_of(kWords.begin(), kWords.end(), holds);
  if (beginsWith("<!doctype html") || beginsWith("<html")) {
    const std::string path = LowerCase(url.substr(0, url.find_first_of("?#")));
    const bool isAskedFor =
        path.size() > 4 && path.find(".htm", path.size() - 5) != std::string::npos;
    return tellsOfAnError || !isAskedFor;
  }
  if (beginsWith("<?xml") || beginsWith("<error")) {
    return holds("<error>");
  }
  if (beginsWith("{")) {
    return holds("\"error\"") || holds("\"errors\"");
  }
  return start.size() <= kLongestRemark && tellsOfAnError;
}

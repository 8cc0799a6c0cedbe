// What became of a call of the library.

#include "Outcome.h"

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

#include "Text.h"

namespace {

// Enough of a reply to understand it; some are gigabytes.
constexpr std::size_t kKeptReply = 4096;

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// The number behind `position`, and where it ends. The log has written it with %d or %ld.
int NumberAt(const std::string& text, std::size_t position, std::size_t* end) {
  char* stop = nullptr;
  const long number = std::strtol(text.c_str() + position, &stop, 10);
  *end = static_cast<std::size_t>(stop - text.c_str());
  return static_cast<int>(number);
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

Verdict TlsVerdict(int result, std::string reason) {
  switch (result) {
    case CURLE_SSL_CERTPROBLEM:
      return {Exit::kTls, std::move(reason),
              "check that --cert and --key belong together and that the pass phrase is the key's"};
    case CURLE_PEER_FAILED_VERIFICATION:
      return {Exit::kTls, std::move(reason),
              "the server's certificate must chain to the authorities in --cacert and be in date"};
    case CURLE_SSL_CACERT_BADFILE:
      return {Exit::kTls, std::move(reason), "--cacert must name a PEM file of certificates"};
    default:
      return {Exit::kTls, std::move(reason),
              "check that the port speaks TLS, and whether the server asks for a client "
              "certificate"};
  }
}

// Connecting has a limit of its own, which libcurl's words tell.
std::string TimeoutReason(const std::string& text, unsigned int timeLimit) {
  const bool isWhole = StartsWith(text, "Operation timed out") || StartsWith(text, "Timeout was");
  return text + " (libcurl 28" +
         (isWhole && timeLimit != 0 ? "; the limit is " + std::to_string(timeLimit) + " s)" : ")");
}

}  // namespace

FactReader::FactReader(std::string url, std::string document)
    : m_url(std::move(url)), m_document(std::move(document)) {}

void FactReader::Read(const std::string& function, const std::string& message) {
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
    return;
  }
  if (ReadReply(message, "json parse(") ||
      ReadReply(message, "parse json body failed, json body: ")) {
    m_facts.notJson = true;
  } else if (message == "fopen failed" || message == "read file error") {
    m_facts.fileNotOpened = true;
  } else if (message == "compress file failed" || message == "gzip compress error") {
    m_facts.compressFailed = true;
  } else if (message == "upload file failed") {
    m_facts.uploadFailed = true;
  } else if (message == "remove file failed") {
    m_facts.removeFailed = true;
  } else if (function == "UpdateInterfaceNameFromMac" && message == "Update interface name=") {
    m_facts.noInterface = true;
  }
}

// "GET failed for WORDS, ret: 7, code: 0, errorBuf: TEXT", "... resOps: 7 ..." and, with the URL in
// front, "POST(URL) failed for WORDS, rps: 7 ...". A download: "curl_easy_perform() failed: WORDS".
bool FactReader::ReadTransferFailure(const std::string& message) {
  static constexpr char kDownload[] = "curl_easy_perform() failed: ";
  if (StartsWith(message, kDownload)) {
    m_facts.curlText = message.substr(sizeof(kDownload) - 1);
    m_facts.curlResult = ResultOfText(m_facts.curlText);
    return true;
  }
  std::size_t words = std::string::npos;
  for (const std::string& prefix :
       {std::string("GET failed for "), std::string("POST failed for "),
        std::string("PUT failed for "), "POST(" + m_url + ") failed for "}) {
    if (StartsWith(message, prefix)) {
      words = prefix.size();
    }
  }
  if (words == std::string::npos) {
    return false;
  }
  // libcurl's words hold none of these.
  for (const char* mark : {", ret: ", ", resOps: ", ", rps: "}) {
    const std::size_t found = message.find(mark, words);
    if (found == std::string::npos) {
      continue;
    }
    m_facts.curlText = message.substr(words, found - words);
    std::size_t end = 0;
    m_facts.curlResult = NumberAt(message, found + std::string(mark).size(), &end);
    static constexpr char kStatus[] = ", code: ";
    if (message.compare(end, sizeof(kStatus) - 1, kStatus) == 0) {
      m_facts.status = NumberAt(message, end + sizeof(kStatus) - 1, &end);
    }
    static constexpr char kDetail[] = ", errorBuf: ";
    const std::size_t detail = message.find(kDetail, end);
    if (detail != std::string::npos && detail + sizeof(kDetail) - 1 < message.size()) {
      m_facts.curlText = message.substr(detail + sizeof(kDetail) - 1);
    }
    return true;
  }
  return false;
}

// PREFIX, the status, one character or two, the reply.
bool FactReader::ReadStatus(const std::string& message, const std::string& prefix) {
  if (!StartsWith(message, prefix)) {
    return false;
  }
  std::size_t end = 0;
  m_facts.status = NumberAt(message, prefix.size(), &end);
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
  const std::string reason = text + " (libcurl " + std::to_string(curlResult) + ")";
  // With TLS 1.3 a server refuses a client's certificate after the handshake.
  if ((curlResult == CURLE_RECV_ERROR || curlResult == CURLE_SEND_ERROR) &&
      text.find(" alert ") != std::string::npos) {
    return TlsVerdict(curlResult, reason);
  }
  // What libcurl 8.23 gives for a key whose pass phrase is another one.
  if (curlResult == CURLE_BAD_FUNCTION_ARGUMENT && StartsWith(text, "unable to set private key")) {
    return TlsVerdict(CURLE_SSL_CERTPROBLEM, reason);
  }
  switch (curlResult) {
    case CURLE_URL_MALFORMAT:
      return {Exit::kUsage, reason, "correct the URL"};
    case CURLE_OPERATION_TIMEDOUT:
      return {Exit::kTimeout, TimeoutReason(text, timeLimit),
              "the server is slow or out of reach: check the address and try again"};
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return {Exit::kNetwork, reason, "check the host name"};
    case CURLE_COULDNT_CONNECT:
      return {Exit::kNetwork, reason, "check host and port, and that the server is running"};
    case CURLE_INTERFACE_FAILED:
      return {Exit::kNetwork, reason, "check --interface: 'ip link' lists those there are"};
    case CURLE_UNSUPPORTED_PROTOCOL:  // an answer without a status line counts as HTTP/0.9
    case CURLE_WEIRD_SERVER_REPLY:
      return {Exit::kNetwork, reason, "check that the port speaks HTTP"};
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
    case CURLE_HTTP3:
    case CURLE_QUIC_CONNECT_ERROR:
    case CURLE_PROXY:
    case CURLE_SEND_FAIL_REWIND:
    case CURLE_NO_CONNECTION_AVAILABLE:
      return {Exit::kNetwork, reason,
              "the connection broke: try again, and look at the server's log"};
    case CURLE_WRITE_ERROR:
      return {Exit::kFile, reason, "check that the disk is not full"};
    case CURLE_READ_ERROR:
    case CURLE_FILE_COULDNT_READ_FILE:
    case CURLE_ABORTED_BY_CALLBACK:
      return {Exit::kFile, reason, "check that the file can still be read"};
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_USE_SSL_FAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_SSL_CLIENTCERT:
      return TlsVerdict(curlResult, reason);
    default:
      return {Exit::kOther, reason, "-v shows the exchange"};
  }
}

Verdict JudgeStatus(int status) {
  const std::string reason = "the server answered " + std::to_string(status);
  if (status == 401 || status == 403) {
    return {Exit::kClientError, reason,
            "check the token, signature or client certificate that the server asks for"};
  }
  if (status == 404) {
    return {Exit::kClientError, reason, "check the path of the URL"};
  }
  if (status == 413) {
    return {Exit::kClientError, reason, "send less at once"};
  }
  if (status == 408 || status == 429) {
    return {Exit::kClientError, reason, "try again later"};
  }
  if (status >= 400 && status < 500) {
    return {Exit::kClientError, reason, "correct the request: the reply may say what is wrong"};
  }
  if (status >= 500 && status < 600) {
    return {Exit::kServerError, reason, "try again later, and look at the server's log"};
  }
  if (status >= 300 && status < 400) {
    return {Exit::kOther, reason, "redirects are not followed: give the final URL"};
  }
  return {Exit::kOther, reason, "this status does not count as done for this command"};
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

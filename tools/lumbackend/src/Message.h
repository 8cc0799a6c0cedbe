// Requests and answers as the handlers of the back end see them, without any socket.
#ifndef LUM_BACKEND_MESSAGE_H
#define LUM_BACKEND_MESSAGE_H

#include <LumJson.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "RootDir.h"

struct HeaderField {
  std::string name;
  std::string value;  // without surrounding blanks
};

// The head of one request, as it was sent.
struct Call {
  std::string method;
  std::string target;                // path and query, still percent-encoded
  std::string path;                  // the target up to its first '?'
  std::string query;                 // what follows it
  std::vector<std::string> names;    // the path's segments, each one decoded by itself
  std::vector<HeaderField> headers;  // in the order of sending
  bool chunked = false;              // the body comes in chunks
  std::optional<std::uint64_t> contentLength;

  std::string authority;  // host and port under which the client reached the back end
  bool tls = false;
  std::string clientSubject;  // of the client's certificate, or ""

  // First header of that name, in any case, or null.
  const std::string* Header(const std::string& name) const;
  // Value of `key` in the query, decoded, or nothing.
  std::optional<std::string> QueryValue(const std::string& key) const;
  bool HasBody() const { return chunked || contentLength.value_or(0) > 0; }
};

// Reads a head, from the request line to the empty line, into `call`. Returns "" or what is wrong
// with it; the fields that were understood are set in either case.
std::string ParseHead(const std::string& head, Call& call);

// The body of one request, handed out piece by piece.
class BodySource {
 public:
  enum class End {
    kComplete,  // everything was handed out
    kRefused,   // `receive` returned false
    kCut,       // the connection ended or broke the rules first
  };
  virtual ~BodySource() = default;
  // Calls `receive` for each piece until it returns false. To be called once at most.
  virtual End Read(const std::function<bool(const char* data, std::size_t size)>& receive) = 0;
};

// What the page at / and the access log learn about a request beyond its status.
struct Note {
  enum class Kind { kNone, kReport, kUpload };
  Kind kind = Kind::kNone;
  std::string text;  // valid UTF-8
};

// One answer. An answer with a `file` has no `body`.
struct Reply {
  int status = 200;
  std::string contentType = "application/json";
  std::string body;
  std::vector<HeaderField> headers;
  std::shared_ptr<OpenedFile> file;  // streamed as the body
  Note note;
};

// An answer with a JSON body.
Reply JsonReply(const LumJson::Value& document, int status = 200);

// {"error": text}; `text` may hold any bytes and is made printable.
Reply Problem(int status, const std::string& text);

#endif  // LUM_BACKEND_MESSAGE_H

// Requests and answers as the handlers of the back end see them, without any socket.
#ifndef LUM_BACKEND_MESSAGE_H
#define LUM_BACKEND_MESSAGE_H

#include <LumJson.h>

#include <boost/asio/awaitable.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

template <typename T>
using Task = boost::asio::awaitable<T>;

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
  std::optional<std::uint64_t> contentLength;

  std::string authority;  // host and port under which the client reached the back end
  std::string client;     // its own address and port
  bool tls = false;
  std::string clientSubject;  // of the client's certificate, or ""

  // First header of that name, in any case, or null.
  const std::string* Header(const std::string& name) const;
  // Value of `key` in the query, decoded, or nothing.
  std::optional<std::string> QueryValue(const std::string& key) const;
  // The path's segments behind the first one.
  std::vector<std::string> NamesBehindFirst() const { return {names.begin() + 1, names.end()}; }
  // True for a body that says it is gzip.
  bool IsPacked() const;
};

// Takes the target of a request apart. Returns "" or what is wrong with it; what was understood is
// set in either case.
std::string SplitTarget(Call& call);

// The header fields as JSON, [{"name", "value"}, ...], with "***" in place of secrets.
LumJson::Value ShownHead(const std::vector<HeaderField>& headers);

// The body of a request, or of an answer that is made while it goes out, piece by piece.
class BodySource {
 public:
  virtual ~BodySource() = default;
  // The next piece, good until the next call; empty at the end.
  virtual Task<std::string_view> Next() = 0;
  // False when the connection ended or broke the rules before the body's end.
  virtual bool IsWhole() const { return true; }
  // The back end ends: a piece that has yet to come is not waited for.
  virtual void End() {}
};

// What the history and the access log learn about a request beyond its status.
struct Note {
  const char* kind = "other";  // "report", "upload" ...: the kind of exchange
  std::string text;            // what was stored, or the reason of a refusal; valid UTF-8
  std::string device;          // that the request is about, as far as it says so
  std::string topic;
  std::string object;       // name of a stored or fetched file
  std::int64_t report = 0;  // number of the stored report
  std::string body;         // the request's, unpacked, as far as it is worth keeping
  std::uint64_t size = 0;   // of that body as a whole
};

// One answer. An answer with a `stream` has no `body`.
struct Reply {
  int status = 200;
  std::string contentType = "application/json";
  std::string body;
  std::vector<HeaderField> headers;
  std::shared_ptr<BodySource> stream;
  std::optional<std::uint64_t> length;  // of the stream, where it is known
  Note note;
};

// An answer with a JSON body.
Reply JsonReply(const LumJson::Value& document, int status = 200);

// An answer that is good for this moment, and nothing but what its type says.
Reply LiveReply(const std::string& contentType);

// {"error": text}; `text` may hold any bytes and is made printable.
Reply Problem(int status, const std::string& text);

#endif  // LUM_BACKEND_MESSAGE_H

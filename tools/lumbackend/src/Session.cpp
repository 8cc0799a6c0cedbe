// From connection to back end and back.
#include "Session.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <vector>

#include "Text.h"

namespace {

constexpr std::chrono::milliseconds kIdleLimit(30'000);  // between two requests
constexpr std::size_t kFilePiece = 262144;               // bytes read from a file at once

// cpp-httplib's reader of one body.
class HttpBody : public BodySource {
 public:
  // `bytes` counts what arrives, `left` turns false when the body has been read to its end.
  HttpBody(const httplib::ContentReader* reader, const Connection& connection, const Call& call,
           bool& left, std::uint64_t& bytes)
      : m_reader(reader), m_connection(connection), m_call(call), m_left(left), m_bytes(bytes) {}

  End Read(const std::function<bool(const char* data, std::size_t size)>& receive) override {
    // Without a body cpp-httplib would read until the connection ends.
    if (!m_call.HasBody()) {
      return End::kComplete;
    }
    if (m_reader == nullptr) {
      return End::kCut;
    }
    bool refused = false;
    const bool whole = (*m_reader)([&](const char* data, std::size_t size) {
      m_bytes += size;
      refused = !receive(data, size);
      return !refused;
    });
    if (refused) {
      return End::kRefused;
    }
    // cpp-httplib also takes a chunk that is longer than it says for the last one. A body in chunks
    // ends with an empty line, anything else ended early.
    if (!whole || (m_call.chunked && !m_connection.AtEmptyLine())) {
      return End::kCut;
    }
    m_left = false;
    return End::kComplete;
  }

 private:
  const httplib::ContentReader* m_reader;
  const Connection& m_connection;
  const Call& m_call;
  bool& m_left;
  std::uint64_t& m_bytes;
};

}  // namespace

Session::Session(Backend& backend, Connection& connection)
    : m_backend(backend), m_connection(connection) {
  const auto withoutBody = [this](const httplib::Request&, httplib::Response& response) {
    Answer(response, nullptr);
  };
  const auto withBody = [this](const httplib::Request&, httplib::Response& response,
                               const httplib::ContentReader& reader) { Answer(response, &reader); };
  Get("/", withoutBody);
  Options("/", withoutBody);
  Post("/", withBody);
  Put("/", withBody);
  Patch("/", withBody);
  Delete("/", withBody);

  set_error_handler([this](const httplib::Request&, httplib::Response& response) {
    if (response.body.empty()) {
      Send(OwnRefusal(response.status), response);
    }
  });
  set_post_routing_handler(
      [this](const httplib::Request&, httplib::Response& response) { BeforeAnswer(response); });
  set_exception_handler([this](const httplib::Request&, httplib::Response& response,
                               const std::exception_ptr& thrown) {
    try {
      std::rethrow_exception(thrown);
    } catch (const std::exception& failure) {
      Send(Problem(500, failure.what()), response);
    } catch (...) {
      Send(Problem(500, "unknown failure"), response);
    }
  });
  // cpp-httplib sends files only while it believes to be listening.
  svr_sock_ = m_connection.socket();
}

void Session::Run() {
  std::string problem;
  if (!m_connection.Handshake(problem)) {
    m_note.text = "TLS handshake failed: " + problem;
    Log(0);
    return;
  }
  while (m_connection.AwaitRequest(kIdleLimit) && Serve()) {
  }
  m_connection.Close();
}

bool Session::Serve() {
  m_headRead = false;
  m_call = Call();
  m_problem.clear();
  m_note = Note();
  m_status = 0;
  m_body = 0;
  m_bodyLeft = true;
  const std::uint64_t bytesOut = m_connection.BytesOut();
  m_connection.StartHead();
  bool closed = false;
  const bool written = process_request(m_connection, false, closed,
                                       [this](httplib::Request& request) { Prepare(request); });
  Log(m_connection.BytesOut() - bytesOut);
  return written && !closed && !Closing();
}

// Called when cpp-httplib has read the head. It goes on with what is left in `request`.
void Session::Prepare(httplib::Request& request) {
  m_headRead = true;
  m_problem = ParseHead(m_connection.TakeHead(), m_call);
  m_bodyLeft = m_problem.empty() ? m_call.HasBody() : true;
  m_call.authority = m_connection.LocalAuthority();
  m_call.tls = m_connection.IsTls();
  m_call.clientSubject = m_connection.Subject();

  request.path = "/";
  request.params.clear();
  request.ranges.clear();
  // Only what cpp-httplib needs to find the end of the body; the rest would make it unpack bodies,
  // split multipart forms and compress answers.
  httplib::Headers headers;
  if (m_call.contentLength) {
    headers.emplace("Content-Length", std::to_string(*m_call.contentLength));
  }
  if (m_call.chunked) {
    headers.emplace("Transfer-Encoding", "chunked");
  }
  if (const std::string* expect = m_call.Header("Expect");
      expect != nullptr && SameName(*expect, "100-continue") && m_problem.empty()) {
    headers.emplace("Expect", "100-continue");
  }
  request.headers = std::move(headers);
}

// What cpp-httplib refuses by itself gets a body like any other refusal.
Reply Session::OwnRefusal(int status) const {
  if (m_headRead) {
    return Problem(501, "the method is not known here");  // there is no route for it
  }
  if (m_connection.HeadTooLong()) {
    return Problem(431, "the request's head is too long");
  }
  return Problem(status, status == 414 ? "the request line is too long" : "malformed request");
}

void Session::Answer(httplib::Response& response, const httplib::ContentReader* reader) {
  if (!m_problem.empty()) {
    Send(Problem(400, m_problem), response);
    return;
  }
  HttpBody body(reader, m_connection, m_call, m_bodyLeft, m_body);
  Send(m_backend.Handle(m_call, body), response);
}

void Session::Send(Reply reply, httplib::Response& response) {
  response.status = reply.status;
  for (HeaderField& field : reply.headers) {
    response.headers.emplace(std::move(field.name), std::move(field.value));
  }
  m_note = std::move(reply.note);
  if (!reply.file || reply.file->size == 0) {
    response.body = std::move(reply.body);
    if (reply.status != 204 && reply.status != 304) {
      response.set_header("Content-Type", reply.contentType);
    }
    return;
  }
  auto piece = std::make_shared<std::vector<char>>(kFilePiece);
  response.set_content_provider(
      static_cast<std::size_t>(reply.file->size), reply.contentType,
      [file = reply.file, piece](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
        const ssize_t count = ::pread(file->file.Get(), piece->data(),
                                      std::min(length, piece->size()), static_cast<off_t>(offset));
        // A file that has become shorter cannot fill the length that was announced.
        return count > 0 && sink.write(piece->data(), static_cast<std::size_t>(count));
      });
}

// Called right before the head of the answer goes out.
void Session::BeforeAnswer(httplib::Response& response) {
  m_status = response.status;
  // cpp-httplib's promises are not ours: ranges are not served, connections last longer than it
  // says, and 204 and 304 have no body whose length could be told.
  response.headers.erase("Accept-Ranges");
  response.headers.erase("Keep-Alive");
  if (m_status == 204 || m_status == 304) {
    response.headers.erase("Content-Length");
  }
  if (Closing()) {
    response.headers.erase("Connection");
    response.set_header("Connection", "close");
  }
  if (m_backend.IsMonitor(m_call)) {
    return;
  }
  const ::Options& options = m_backend.Settings();
  m_connection.Pause(std::chrono::milliseconds(options.delay));
  if (options.cutAfter) {
    m_connection.CutAfter(*options.cutAfter);
  }
}

bool Session::Closing() const {
  if (!m_headRead || m_bodyLeft || m_connection.Stopping()) {
    return true;
  }
  const std::string* connection = m_call.Header("Connection");
  return connection != nullptr && SameName(*connection, "close");
}

void Session::Log(std::uint64_t bytesOut) {
  if (!m_headRead) {
    ParseHead(m_connection.TakeHead(), m_call);  // as much of it as can be understood
  }
  m_backend.Finished(m_call, m_status, m_note, m_body, bytesOut);
}

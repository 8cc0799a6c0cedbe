// What Beast finds in a request, and what its errors mean to a client.
#include "RequestParser.h"

#include <algorithm>

#include "Text.h"

namespace {

using HttpError = boost::beast::http::error;

bool IsOneOf(const std::string& text, std::initializer_list<const char*> names) {
  return std::find(names.begin(), names.end(), text) != names.end();
}

}  // namespace

RequestParser::RequestParser(Call& call) : m_call(call) {
  header_limit(kLongestHead);
  body_limit(boost::none);  // what a body may be long is the business of its handler
}

std::size_t RequestParser::Take(std::string_view bytes) {
  m_piece = {};
  const bool inHead = !is_header_done();
  Error error;
  const std::size_t taken = put(boost::asio::buffer(bytes), error);
  if (inHead) {
    m_head.append(bytes.substr(0, taken));
    m_call.method = get().method_string();
    m_call.target = get().target();
    if (m_head.size() > kLongestHead) {
      Refuse(431, "the request's head is too long");
    } else if (m_call.target.empty() && bytes.size() > kLongestLine &&
               bytes.substr(0, kLongestLine).find('\n') == std::string_view::npos) {
      Refuse(414, "the request line is too long");
    } else if (is_header_done() && m_status == 0) {
      CheckHead();
    }
  } else if (taken == 0 && m_piece.empty() && bytes.size() > kLongestChunkLine) {
    Refuse(400, "a chunk's line is too long");
  }
  if (error && error != HttpError::need_more) {
    Judge(error);
  }
  return taken;
}

void RequestParser::Refuse(int status, const std::string& text) {
  if (m_status == 0) {
    m_status = status;
    m_refusal = text;
  }
}

void RequestParser::Judge(const Error& error) {
  const bool length = m_call.Header("Content-Length") != nullptr;
  const bool coding = m_call.Header("Transfer-Encoding") != nullptr;
  if (error == HttpError::header_limit) {
    Refuse(431, "the request's head is too long");
  } else if (error == HttpError::bad_transfer_encoding && !length) {
    Refuse(400, "Transfer-Encoding is not 'chunked'");
  } else if ((error == HttpError::bad_content_length ||
              error == HttpError::multiple_content_length) &&
             !coding) {
    Refuse(400, "Content-Length is no single number");
  } else if (error == HttpError::bad_content_length || error == HttpError::bad_transfer_encoding) {
    Refuse(400, "both Transfer-Encoding and Content-Length");
  } else if (error == HttpError::bad_field || error == HttpError::bad_value ||
             error == HttpError::bad_obs_fold ||
             (error == HttpError::bad_line_ending && !m_call.method.empty())) {
    Refuse(400, "malformed header line");
  } else {
    Refuse(400, "malformed request");
  }
}

// What Beast lets pass.
void RequestParser::CheckHead() {
  const std::string& method = m_call.method;
  const unsigned version = get().version();
  if (m_call.target.size() > kLongestLine) {
    Refuse(414, "the request line is too long");
  } else if (IsOneOf(method, {"TRACE", "CONNECT", "PRI"})) {
    Refuse(501, "the method is not known here");
  } else if (!IsOneOf(method, {"GET", "HEAD", "POST", "PUT", "PATCH", "DELETE", "OPTIONS"}) ||
             (version != 10 && version != 11)) {
    Refuse(400, "malformed request");
  }
  if (m_head.find("\n ") != std::string::npos || m_head.find("\n\t") != std::string::npos) {
    Refuse(400, "malformed header line");  // lines that go on in the next one are obsolete
  }
  // What says where the body ends must leave no doubt, or the rest of one request is taken for the
  // next one (RFC 9112, section 6).
  int codings = 0;
  for (const HeaderField& field : m_call.headers) {
    if (boost::beast::iequals(field.name, "Transfer-Encoding") &&
        (++codings > 1 || !boost::beast::iequals(field.value, "chunked"))) {
      Refuse(400, "Transfer-Encoding is not 'chunked'");
    }
  }
  const std::string problem = SplitTarget(m_call);
  if (!problem.empty()) {
    Refuse(400, problem);
  }
  if (const auto length = content_length()) {
    m_call.contentLength = *length;
  }
}

void RequestParser::on_field_impl(boost::beast::http::field /*field*/, Text name, Text value,
                                  Error& error) {
  if (is_header_done()) {
    return;  // behind the chunks, where nobody looks
  }
  if (name.size() + value.size() > kLongestLine) {
    Refuse(400, "a header line is too long");
    error = HttpError::bad_field;
    return;
  }
  m_call.headers.push_back({name, value});
}

std::size_t RequestParser::on_body_impl(Text piece, Error& /*error*/) {
  m_piece = {piece.data(), piece.size()};
  return piece.size();
}

void RequestParser::on_chunk_header_impl(std::uint64_t /*size*/, Text extension, Error& error) {
  if (extension.size() > kLongestChunkLine) {
    error = HttpError::bad_chunk_extension;
  }
}

std::size_t RequestParser::on_chunk_body_impl(std::uint64_t /*left*/, Text piece, Error& error) {
  return on_body_impl(piece, error);
}

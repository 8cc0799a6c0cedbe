// What Beast finds in a request, and what its errors mean to a client.
#include "RequestParser.h"

#include <boost/beast/http/impl/basic_parser.hpp>
#include <boost/none.hpp>

#include <algorithm>
#include <array>

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
    if (m_head.size() > kLongestHead) {
      RefuseHead(431, "the request's head is too long");
    } else if (m_version == 0 && bytes.size() > kLongestLine &&
               bytes.substr(0, kLongestLine).find('\n') == std::string_view::npos) {
      RefuseHead(414, "the request line is too long");
    } else if (is_header_done() && m_status == 0) {
      CheckHead();
    }
  } else if (taken == 0 && m_piece.empty() && bytes.size() > kLongestChunkLine) {
    RefuseHead(400, "a chunk's line is too long");
  }
  if (error && error != HttpError::need_more) {
    Judge(error);
  }
  return taken;
}

void RequestParser::RefuseHead(int status, const std::string& text) {
  if (m_status == 0) {
    m_status = status;
    m_refusal = text;
  }
}

void RequestParser::Judge(const Error& error) {
  const bool length = m_call.Header("Content-Length") != nullptr;
  const bool coding = m_call.Header("Transfer-Encoding") != nullptr;
  if (error == HttpError::header_limit) {
    RefuseHead(431, "the request's head is too long");
  } else if (error == HttpError::bad_transfer_encoding && !length) {
    RefuseHead(400, "Transfer-Encoding is not 'chunked'");
  } else if ((error == HttpError::bad_content_length ||
              error == HttpError::multiple_content_length) &&
             !coding) {
    RefuseHead(400, "Content-Length is no single number");
  } else if (error == HttpError::bad_content_length || error == HttpError::bad_transfer_encoding) {
    RefuseHead(400, "both Transfer-Encoding and Content-Length");
  } else if (error == HttpError::bad_field || error == HttpError::bad_value ||
             error == HttpError::bad_obs_fold ||
             (error == HttpError::bad_line_ending && !m_call.method.empty())) {
    RefuseHead(400, "malformed header line");
  } else {
    RefuseHead(400, "malformed request");
  }
}

// What Beast lets pass.
void RequestParser::CheckHead() {
  const std::string& method = m_call.method;
  if (IsOneOf(method, {"TRACE", "CONNECT", "PRI"})) {
    RefuseHead(501, "the method is not known here");
  } else if (!IsOneOf(method, {"GET", "HEAD", "POST", "PUT", "PATCH", "DELETE", "OPTIONS"}) ||
             (m_version != 10 && m_version != 11)) {
    RefuseHead(400, "malformed request");
  }
  if (m_head.find("\n ") != std::string::npos || m_head.find("\n\t") != std::string::npos) {
    RefuseHead(400, "malformed header line");  // lines that go on in the next one are obsolete
  }
  // What says where the body ends must leave no doubt, or the rest of one request is taken for the
  // next one (RFC 9112, section 6).
  int codings = 0;
  for (const HeaderField& field : m_call.headers) {
    if (SameName(field.name, "Transfer-Encoding") &&
        (++codings > 1 || !SameName(field.value, "chunked"))) {
      RefuseHead(400, "Transfer-Encoding is not 'chunked'");
    }
  }
  const std::string problem = SetTarget(std::string(m_call.target), m_call);
  if (!problem.empty()) {
    RefuseHead(400, problem);
  }
}

void RequestParser::on_request_impl(boost::beast::http::verb /*verb*/, Text method, Text target,
                                    int version, Error& error) {
  m_version = version;
  m_call.method.assign(method.data(), method.size());
  m_call.target.assign(target.data(), target.size());
  if (target.size() > kLongestLine) {
    RefuseHead(414, "the request line is too long");
    error = HttpError::bad_target;
  }
}

void RequestParser::on_response_impl(int /*status*/, Text /*reason*/, int /*version*/,
                                     Error& /*error*/) {}

void RequestParser::on_field_impl(Field /*field*/, Text name, Text value, Error& error) {
  if (is_header_done()) {
    return;  // behind the chunks, where nobody looks
  }
  if (name.size() + value.size() > kLongestLine) {
    RefuseHead(400, "a header line is too long");
    error = HttpError::bad_field;
    return;
  }
  m_call.headers.push_back({{name.data(), name.size()}, {value.data(), value.size()}});
}

void RequestParser::on_header_impl(Error& /*error*/) {
  if (const auto length = content_length()) {
    m_call.contentLength = *length;
  }
  m_call.hasBody = chunked() || m_call.contentLength.value_or(0) > 0;
}

void RequestParser::on_body_init_impl(const boost::optional<std::uint64_t>& /*length*/,
                                      Error& /*error*/) {}

std::size_t RequestParser::on_body_impl(Text piece, Error& /*error*/) {
  m_piece = {piece.data(), piece.size()};
  return piece.size();
}

void RequestParser::on_chunk_header_impl(std::uint64_t /*size*/, Text extension, Error& error) {
  if (extension.size() > kLongestChunkLine) {
    error = HttpError::bad_chunk_extension;
  }
}

std::size_t RequestParser::on_chunk_body_impl(std::uint64_t /*left*/, Text piece,
                                              Error& /*error*/) {
  m_piece = {piece.data(), piece.size()};
  return piece.size();
}

void RequestParser::on_finish_impl(Error& /*error*/) {}

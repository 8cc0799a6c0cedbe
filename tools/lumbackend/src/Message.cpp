// Reading request heads.
#include "Message.h"

#include <LumJson.h>

#include <algorithm>
#include <cctype>
#include <limits>

#include "Text.h"

namespace {

bool IsTokenByte(char byte) {
  static const std::string kOthers = "!#$%&'*+-.^_`|~";  // RFC 9110, section 5.6.2
  return std::isalnum(static_cast<unsigned char>(byte)) != 0 ||
         kOthers.find(byte) != std::string::npos;
}

bool IsToken(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), IsTokenByte);
}

std::string Trim(const std::string& text) {
  const std::size_t start = text.find_first_not_of(" \t");
  if (start == std::string::npos) {
    return {};
  }
  return text.substr(start, text.find_last_not_of(" \t") - start + 1);
}

std::optional<std::uint64_t> ParseLength(const std::string& text) {
  std::uint64_t value = 0;
  for (const char digit : text) {
    const auto step = static_cast<std::uint64_t>(digit - '0');
    if (digit < '0' || digit > '9' ||
        value > (std::numeric_limits<std::uint64_t>::max() - step) / 10) {
      return std::nullopt;
    }
    value = value * 10 + step;
  }
  return text.empty() ? std::nullopt : std::optional(value);
}

std::string ParseTarget(Call& call) {
  if (call.target.empty() || call.target[0] != '/') {
    return "the request target does not begin with '/'";
  }
  const std::size_t mark = call.target.find('?');
  call.path = call.target.substr(0, mark);
  call.query = mark == std::string::npos ? "" : call.target.substr(mark + 1);
  for (std::size_t start = 1; start <= call.path.size();) {
    const std::size_t end = std::min(call.path.find('/', start), call.path.size());
    const auto name = DecodePercent(call.path.substr(start, end - start));
    if (!name) {
      return "the path holds a '%' without two hex digits behind it";
    }
    call.names.push_back(*name);
    start = end + 1;
  }
  return {};
}

// RFC 9112, section 6: what says where the body ends must leave no doubt, or the rest of one
// request is taken for the next one.
std::string ParseBodyLength(Call& call) {
  for (const HeaderField& field : call.headers) {
    if (SameName(field.name, "Transfer-Encoding")) {
      if (call.chunked || !SameName(field.value, "chunked")) {
        return "Transfer-Encoding is not 'chunked'";
      }
      call.chunked = true;
    } else if (SameName(field.name, "Content-Length")) {
      const auto length = ParseLength(field.value);
      if (!length || (call.contentLength && *call.contentLength != *length)) {
        return "Content-Length is no single number";
      }
      call.contentLength = length;
    }
  }
  if (call.chunked && call.contentLength) {
    return "both Transfer-Encoding and Content-Length";
  }
  return {};
}

}  // namespace

const std::string* Call::Header(const std::string& name) const {
  const auto found = std::find_if(headers.begin(), headers.end(), [&](const HeaderField& field) {
    return SameName(field.name, name);
  });
  return found == headers.end() ? nullptr : &found->value;
}

std::optional<std::string> Call::QueryValue(const std::string& key) const {
  for (std::size_t start = 0; start < query.size();) {
    const std::size_t end = std::min(query.find('&', start), query.size());
    const std::string pair = query.substr(start, end - start);
    const std::size_t equals = std::min(pair.find('='), pair.size());
    if (pair.compare(0, equals, key) == 0) {
      return DecodePercent(equals == pair.size() ? "" : pair.substr(equals + 1));
    }
    start = end + 1;
  }
  return std::nullopt;
}

std::string ParseHead(const std::string& head, Call& call) {
  std::size_t end = head.find("\r\n");
  const std::string line = head.substr(0, end);
  const std::size_t first = line.find(' ');
  const std::size_t second = first == std::string::npos ? first : line.find(' ', first + 1);
  if (second == std::string::npos || line.find(' ', second + 1) != std::string::npos) {
    return "malformed request line";
  }
  call.method = line.substr(0, first);
  call.target = line.substr(first + 1, second - first - 1);
  std::string problem = ParseTarget(call);
  if (!problem.empty()) {
    return problem;
  }
  while (end != std::string::npos) {
    const std::size_t start = end + 2;
    end = head.find("\r\n", start);
    const std::string text = head.substr(start, end == std::string::npos ? end : end - start);
    if (text.empty()) {
      break;
    }
    const std::size_t colon = std::min(text.find(':'), text.size());
    HeaderField field{text.substr(0, colon), ""};
    if (colon == text.size() || !IsToken(field.name) ||
        text.find_first_of(std::string("\r\n\0", 3)) != std::string::npos) {
      return "malformed header line";
    }
    field.value = Trim(text.substr(colon + 1));
    call.headers.push_back(std::move(field));
  }
  return ParseBodyLength(call);
}

Reply JsonReply(const LumJson::Value& document, int status) {
  Reply reply;
  reply.status = status;
  reply.body = document.ToStyledString();
  return reply;
}

Reply Problem(int status, const std::string& text) {
  LumJson::Value document;
  document.AddJsonValue("error", Printable(text));
  Reply reply = JsonReply(document, status);
  reply.note.text = Printable(text);
  return reply;
}

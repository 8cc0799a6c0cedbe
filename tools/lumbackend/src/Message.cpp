// Targets, header fields and small answers.
#include "Message.h"

#include <LumSafeText.h>

#include <algorithm>
#include <array>
#include <boost/beast/core/string.hpp>

#include "Text.h"

using boost::beast::iequals;

namespace {

// Header values that nobody gets to see, neither in an echo nor in a log.
bool IsSecret(const std::string& name) {
  static const std::array<const char*, 5> kSecrets = {
      "Authorization", "Proxy-Authorization", "X-Auth-Token", "x-zun-security-token", "Cookie"};
  return std::any_of(kSecrets.begin(), kSecrets.end(),
                     [&](const char* secret) { return iequals(secret, name); });
}

}  // namespace

const std::string* Call::Header(const std::string& name) const {
  const auto found = std::find_if(headers.begin(), headers.end(), [&](const HeaderField& field) {
    return iequals(field.name, name);
  });
  return found == headers.end() ? nullptr : &found->value;
}

std::optional<std::string> Call::QueryValue(const std::string& key) const {
  for (const std::string& pair : Split(query, '&')) {
    const std::size_t equals = std::min(pair.find('='), pair.size());
    if (pair.compare(0, equals, key) == 0) {
      return DecodePercent(equals == pair.size() ? "" : pair.substr(equals + 1));
    }
  }
  return std::nullopt;
}

bool Call::IsPacked() const {
  const std::string* encoding = Header("Content-Encoding");
  return encoding != nullptr && (iequals(*encoding, "gzip") || iequals(*encoding, "x-gzip"));
}

std::string SplitTarget(Call& call) {
  if (!call.target.starts_with('/')) {
    return "the request target does not begin with '/'";
  }
  const std::size_t mark = call.target.find('?');
  call.path = call.target.substr(0, mark);
  call.query = mark == std::string::npos ? "" : call.target.substr(mark + 1);
  for (const std::string& segment : Split(call.path.substr(1), '/')) {
    const auto name = DecodePercent(segment);
    if (!name) {
      return "the path holds a '%' without two hex digits behind it";
    }
    call.names.push_back(*name);
  }
  return {};
}

LumJson::Value ShownHead(const std::vector<HeaderField>& headers) {
  LumJson::Value list = LumJson::Value::Array();
  for (const HeaderField& field : headers) {
    LumJson::Value item;
    item["name"] = field.name;
    item["value"] = IsSecret(field.name) && !field.value.empty() ? "***" : LumSafeText(field.value);
    list.Append(std::move(item));
  }
  return list;
}

Reply JsonReply(const LumJson::Value& document, int status) {
  Reply reply;
  reply.status = status;
  reply.body = document.ToStyledString();
  return reply;
}

Reply LiveReply(const std::string& contentType) {
  Reply reply;
  reply.contentType = contentType;
  reply.headers = {{"Cache-Control", "no-store"}, {"X-Content-Type-Options", "nosniff"}};
  return reply;
}

Reply Problem(int status, const std::string& text) {
  LumJson::Value document;
  document.AddJsonValue("error", LumSafeText(text));
  Reply reply = JsonReply(document, status);
  reply.note.text = LumSafeText(text);
  return reply;
}

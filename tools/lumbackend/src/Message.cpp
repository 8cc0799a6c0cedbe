// Targets, header fields and small answers.
#include "Message.h"

#include <algorithm>
#include <array>

#include "Text.h"

namespace {

// Header values that nobody gets to see, neither in an echo nor in a log.
bool IsSecret(const std::string& name) {
  static const std::array<const char*, 5> kSecrets = {
      "Authorization", "Proxy-Authorization", "X-Auth-Token", "x-zun-security-token", "Cookie"};
  return std::any_of(kSecrets.begin(), kSecrets.end(),
                     [&](const char* secret) { return SameName(secret, name); });
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

bool Call::IsPacked() const {
  const std::string* encoding = Header("Content-Encoding");
  return encoding != nullptr && (SameName(*encoding, "gzip") || SameName(*encoding, "x-gzip"));
}

std::string SetTarget(const std::string& target, Call& call) {
  call.target = target;
  if (target.empty() || target[0] != '/') {
    return "the request target does not begin with '/'";
  }
  const std::size_t mark = target.find('?');
  call.path = target.substr(0, mark);
  call.query = mark == std::string::npos ? "" : target.substr(mark + 1);
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

LumJson::Value ShownHead(const std::vector<HeaderField>& headers) {
  LumJson::Value list = LumJson::Value::Array();
  for (const HeaderField& field : headers) {
    LumJson::Value item;
    item["name"] = field.name;
    item["value"] = IsSecret(field.name) && !field.value.empty() ? "***" : Printable(field.value);
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

Reply Problem(int status, const std::string& text) {
  LumJson::Value document;
  document.AddJsonValue("error", Printable(text));
  Reply reply = JsonReply(document, status);
  reply.note.text = Printable(text);
  return reply;
}

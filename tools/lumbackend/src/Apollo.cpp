// Namespaces of properties and JSON out of files.
#include <openssl/evp.h>

#include <algorithm>
#include <boost/algorithm/hex.hpp>
#include <cerrno>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "Routes.h"
#include "Text.h"

namespace {

// --- java.util.Properties: natural lines are joined to logical ones, these are split.

constexpr char kBlanks[] = " \t\f";
constexpr char kEndsOfKeys[] = "=: \t\f";

// Takes one line off a text, up to its end, which is \n, \r or \r\n, without leading blanks.
std::string NaturalLine(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
  std::string line(text.substr(0, end));
  text.remove_prefix(end);
  text.remove_prefix(text.starts_with("\r\n") ? 2 : std::min<std::size_t>(text.size(), 1));
  return line;
}

// True for a line that the next one continues.
bool IsContinued(const std::string& line) {
  const std::size_t slashes = line.size() - (line.find_last_not_of('\\') + 1);  // npos + 1 is 0
  return slashes % 2 == 1;
}

// Undoes escapes. What these files and JSON have in common, \uXXXX with its surrogate pairs among
// it, is left to the reader of JSON.
bool Unescape(const std::string& text, std::string& plain) {
  std::string json;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool escaped = text[i] == '\\';
    if (escaped && ++i == text.size()) {
      break;  // a backslash at the end of the file stands for nothing
    }
    const auto byte = static_cast<unsigned char>(text[i]);
    if (escaped && std::string_view("tnrfu").find(text[i]) != std::string_view::npos) {
      json += {'\\', text[i]};
    } else if (byte < ' ' || byte == '"' || byte == '\\') {
      json += "\\u00" + boost::algorithm::hex(std::string(1, text[i]));
    } else {
      json += text[i];
    }
  }
  LumJson::Value value;
  const bool good = value.Parse('"' + json + '"');
  plain = value.AsString();
  return good;
}

// Where the key ends and where the value starts.
std::pair<std::size_t, std::size_t> SplitLine(const std::string& line) {
  std::size_t keyEnd = 0;
  while (keyEnd < line.size() && std::string_view(kEndsOfKeys).find(line[keyEnd]) == line.npos) {
    keyEnd += line[keyEnd] == '\\' ? 2 : 1;
  }
  keyEnd = std::min(keyEnd, line.size());
  const auto skipBlanks = [&](std::size_t at) {
    return std::min(line.find_first_not_of(kBlanks, at), line.size());
  };
  std::size_t value = skipBlanks(keyEnd);
  if (value < line.size() && (line[value] == '=' || line[value] == ':')) {
    value = skipBlanks(value + 1);
  }
  return {keyEnd, value};
}

// Adds keys and values to an object in the order of the file; the last value of a key counts, at
// its first place. Reads the line-oriented format of java.util.Properties: comments, continued
// lines, '=', ':' or blanks after the key, backslash escapes, \uXXXX with surrogate pairs. The text
// is UTF-8, as configuration centres keep it. Returns "" or what is wrong and in which line.
std::string ReadProperties(const std::string& text, LumJson::Value& properties) {
  std::string_view rest = text;
  for (std::size_t number = 1; !rest.empty(); ++number) {
    const std::string where = "line " + std::to_string(number) + ": ";
    std::string line = NaturalLine(rest);
    if (line.empty() || line[0] == '#' || line[0] == '!') {
      continue;
    }
    for (; IsContinued(line) && !rest.empty(); ++number) {
      line.pop_back();
      line += NaturalLine(rest);
    }
    if (!IsUtf8(line)) {
      return where + "not UTF-8";
    }
    const auto [keyEnd, valueStart] = SplitLine(line);
    std::string key;
    std::string value;
    if (!Unescape(line.substr(0, keyEnd), key) || !Unescape(line.substr(valueStart), value)) {
      return where + "malformed \\uXXXX";
    }
    properties.AddJsonValue(key, value);
  }
  return {};
}

// --- Namespaces.

constexpr char kDefaultCluster[] = "default";
constexpr std::size_t kLongestFile = 16 << 20;  // bytes
constexpr unsigned kKeyBytes = 16;              // of the digest that a release key shows

struct Namespace {
  std::string cluster;  // that the file was found in
  std::string file;     // its name
  OpenedFile opened;
};

// Looks for the namespace in the cluster, then in the default one. `opened.error` of the result is
// ENOENT when neither has it.
Namespace Find(const RootDir& directory, const std::string& appId, const std::string& cluster,
               const std::string& name) {
  std::vector<std::string> files{name + ".properties", name + ".json"};
  if (name.ends_with(".properties") || name.ends_with(".json")) {
    files.insert(files.begin(), name);
  }
  std::vector<std::string> clusters{cluster};
  if (cluster != kDefaultCluster) {
    clusters.emplace_back(kDefaultCluster);
  }
  for (const std::string& candidate : clusters) {
    for (const std::string& file : files) {
      OpenedFile opened = directory.Open({appId, candidate, file});
      if (opened.error != ENOENT && opened.error != ENOTDIR) {
        return {candidate, file, std::move(opened)};
      }
    }
  }
  Namespace none;
  none.opened.error = ENOENT;
  return none;
}

// The same for the same text, so that a client is told of changes and of nothing else.
std::string ReleaseKey(const std::string& text) {
  std::string digest(EVP_MAX_MD_SIZE, '\0');
  EVP_Digest(text.data(), text.size(), reinterpret_cast<unsigned char*>(digest.data()), nullptr,
             EVP_sha256(), nullptr);
  return boost::algorithm::hex_lower(digest.substr(0, kKeyBytes));
}

// Adds the configurations in a file's text to an object. Returns "" or what is wrong.
std::string ReadConfigurations(const std::string& file, const std::string& text,
                               LumJson::Value& configurations) {
  if (!file.ends_with(".json")) {
    return ReadProperties(text, configurations);
  }
  configurations.AddJsonValue("content", text);
  return IsUtf8(text) ? "" : "not UTF-8";
}

}  // namespace

Reply GetNamespace(const RootDir& directory, const Call& call) {
  if (call.names.size() != 4) {
    return Problem(404, "expected /configs/APPID/CLUSTER/NAMESPACE");
  }
  const std::string& appId = call.names[1];
  const std::string& name = call.names[3];
  const Namespace found = Find(directory, appId, call.names[2], name);
  if (found.opened.error == EINVAL) {
    return Problem(400, "application, cluster or namespace is no plain name");
  }
  if (found.opened.error == ENOENT) {
    return Problem(404, "no namespace '" + name + "' of application '" + appId + "' in cluster '" +
                            call.names[2] + "' or '" + kDefaultCluster + "'");
  }
  const auto text =
      found.opened.error == 0 ? ReadAll(found.opened.file.Get(), kLongestFile) : std::nullopt;
  if (!text) {
    return Problem(
        500, "cannot read " + found.file + ": " +
                 (found.opened.error == 0 ? "reading fails, or it is longer than 16 MiB"
                                          : std::generic_category().message(found.opened.error)));
  }
  LumJson::Value configurations = LumJson::Value::Object();
  const std::string problem = ReadConfigurations(found.file, *text, configurations);
  if (!problem.empty()) {
    return Problem(500, found.file + ": " + problem);
  }
  const std::string releaseKey = ReleaseKey(*text);
  if (call.QueryValue("releaseKey") == releaseKey) {
    Reply unchanged;
    unchanged.status = 304;
    unchanged.note.kind = "configuration";
    return unchanged;
  }
  LumJson::Value answer;
  answer["appId"] = appId;
  answer["cluster"] = found.cluster;
  answer["namespaceName"] = name;
  answer["configurations"] = std::move(configurations);
  answer["releaseKey"] = releaseKey;
  Reply reply = JsonReply(answer);
  reply.note.kind = "configuration";
  return reply;
}

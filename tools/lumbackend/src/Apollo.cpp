// Namespaces of properties and JSON out of files.
#include <openssl/evp.h>

#include <boost/algorithm/hex.hpp>
#include <cerrno>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "Properties.h"
#include "Routes.h"
#include "Text.h"

namespace {

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

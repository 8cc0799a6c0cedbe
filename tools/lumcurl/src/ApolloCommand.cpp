// apollo: one namespace of a configuration centre.

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <set>
#include <string>

#include "Commands.h"
#include "Exchange.h"
#include "HttpResult.h"
#include "LumApollo.h"
#include "LumJson.h"
#include "Text.h"

namespace {

constexpr unsigned int kTimeLimit = 5;     // seconds, the library's
constexpr std::size_t kLongestUrl = 4095;  // bytes, likewise

// A shell variable's name: what none may have becomes an underscore.
std::string VariableName(const std::string& property) {
  std::string name;
  for (const char c : property) {
    name += c == '_' || (static_cast<unsigned char>(c) < 0x80 &&
                         std::isalnum(static_cast<unsigned char>(c)) != 0)
                ? c
                : '_';
  }
  return name.empty() || std::isdigit(static_cast<unsigned char>(name[0])) != 0 ? "_" + name : name;
}

// Single quotes keep everything but themselves.
std::string ShellQuoted(const std::string& value) {
  std::string out = "'";
  for (const char c : value) {
    if (c == '\'') {
      out += "'\\''";
    } else {
      out += c;
    }
  }
  return out + "'";
}

// Variables that tell a shell, the loader or an interpreter what to run or where to find it, those
// that a shell lets nobody set, and those that say whom a client talks to and believes.
bool Steers(const std::string& variable) {
  static const std::set<std::string> kNames = {
      // Shells; zsh has some in small letters as well.
      "IFS", "ENV", "PATH", "CDPATH", "FPATH", "HOME", "SHELL", "SHELLOPTS", "GLOBIGNORE", "PS0",
      "PS1", "PS2", "PS3", "PS4", "PROMPT", "PROMPT2", "PROMPT3", "PROMPT4", "prompt", "RPS1",
      "RPS2", "RPROMPT", "RPROMPT2", "SPROMPT", "NULLCMD", "READNULLCMD", "ZDOTDIR", "TERM",
      "TERMINFO", "TERMCAP", "TMPDIR", "UID", "EUID", "PPID", "_", "path", "cdpath", "fpath",
      "manpath", "module_path",
      // What they start, and what that reads first.
      "EDITOR", "VISUAL", "FCEDIT", "PAGER", "BROWSER", "LESSOPEN", "LESSCLOSE", "SSH_ASKPASS",
      "SUDO_ASKPASS", "MAKEFLAGS", "CLASSPATH", "PHPRC", "PHP_INI_SCAN_DIR", "RUBYLIB", "RUBYOPT",
      "INPUTRC", "EXINIT", "VIMINIT",
      // The C library, its resolver among it.
      "GCONV_PATH", "LOCPATH", "NLSPATH", "HOSTALIASES", "LOCALDOMAIN", "RES_OPTIONS",
      "GLIBC_TUNABLES"};
  static constexpr std::array<const char*, 16> kBeginnings = {
      "LD_",   "BASH", "PROMPT_", "PYTHON", "PERL",     "NODE_", "NPM_", "JAVA_",
      "_JAVA", "JDK_", "GIT_",    "CURL_",  "OPENSSL_", "SSL",   "LUA_", "LUMCURL_"};
  static const std::set<std::string> kProxies = {"http_proxy",  "https_proxy", "ftp_proxy",
                                                 "rsync_proxy", "socks_proxy", "all_proxy",
                                                 "no_proxy"};  // in letters of any case
  return kNames.count(variable) != 0 || kProxies.count(LowerCase(variable)) != 0 ||
         std::any_of(kBeginnings.begin(), kBeginnings.end(), [&variable](const char* beginning) {
           return variable.rfind(beginning, 0) == 0;
         });
}

std::string EnvFile(const LumJson::Value& properties, const std::string& prefix) {
  std::string lines;
  std::string refused;
  std::map<std::string, std::string> origins;
  for (const LumJson::Member& member : properties.Members()) {
    const std::string name = VariableName(prefix + member.Name());
    if (Steers(name)) {
      refused += (refused.empty() ? "" : ", ") + name;
      continue;
    }
    const auto [origin, isNew] = origins.emplace(name, member.Name());
    if (!isNew) {
      throw Failure(Exit::kOther, "the properties '" + origin->second + "' and '" + member.Name() +
                                      "' would both become " + name +
                                      "; read them one by one with --key");
    }
    const std::string value = member.Item().JsonValueToString();
    if (value.find('\0') != std::string::npos) {
      throw Failure(Exit::kOther, "the property '" + member.Name() +
                                      "' holds a zero byte, which no variable can");
    }
    lines += name + "=" + ShellQuoted(value) + "\n";
  }
  if (!refused.empty()) {
    throw Failure(Exit::kOther,
                  "variables of these names steer a shell or what it starts: " + refused +
                      "; give --prefix, or read them one by one with --key");
  }
  return lines;
}

}  // namespace

Exit RunApollo(const Options& options, Console& console) {
  LumApolloEnv env;
  env.configServer = options.server;
  env.appId = options.appId;
  env.cluster = options.cluster;
  env.namespaceName = options.namespaceName;

  const std::string url = "https://" + env.configServer + "/configs/" + env.appId + "/" +
                          (env.cluster.empty() ? "default" : env.cluster) + "/" + env.namespaceName;
  if (url.size() > kLongestUrl) {
    throw Failure(Exit::kUsage, "the URL would be longer than " + std::to_string(kLongestUrl) +
                                    " bytes; nothing was sent");
  }
  Exchange exchange(
      options, console,
      {"GET", url, {"Content-Type: application/json", "charsets: utf-8"}, kTimeLimit});
  LumApollo apollo;
  const HttpResult result = apollo.GetPropertyString(env);
  exchange.ShowStatus(result.code);
  if (result.code != 200) {
    return exchange.Fail(result.code, {Exit::kOther, "no request could be made", "-v shows more"},
                         result.body);
  }
  LumJson::Value answer;
  const bool isJson = answer.Parse(result.body);
  const LumJson::Value* properties = answer.Find("configurations");
  if (!isJson || properties == nullptr || !properties->IsObject()) {
    return exchange.Report(
        {Exit::kOther, isJson ? "the answer has no 'configurations'" : "the answer is not JSON",
         "check that the server is a configuration centre"},
        result.body);
  }
  if (options.envFile) {
    console.Data(EnvFile(*properties, options.prefix));
  } else if (options.property) {
    const LumJson::Value* value = properties->Find(*options.property);
    if (value == nullptr) {
      return exchange.Report({Exit::kOther,
                              "the namespace '" + options.namespaceName + "' has no property '" +
                                  *options.property + "'",
                              "without --key all of them are printed"});
    }
    console.Data(value->JsonValueToString() + "\n");
  } else {
    console.Document(result.body);
  }
  return exchange.Succeed();
}

// WebDriver's requests, sent by curl.
#include "Browser.h"

#include <openssl/evp.h>

#include <stdexcept>

#include "BackendProcess.h"

namespace lumtest {

namespace {

// Starts chromedriver and returns its port. It takes one from the kernel for IPv6 and wants the
// same for IPv4, where somebody else may have it: then it ends, and another attempt gets another
// one.
std::string Start(std::unique_ptr<SpawnedProcess>& driver) {
  constexpr int kAttempts = 10;
  std::string failure;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    driver = std::make_unique<SpawnedProcess>(std::vector<std::string>{"chromedriver", "--port=0"});
    std::vector<std::string> groups;
    if (driver->WaitForLine("started successfully on port ([0-9]+)", &groups)) {
      return groups[1];
    }
    failure = driver->Stop().Describe();
    if (failure.find("port not available") == std::string::npos) {
      break;
    }
  }
  throw std::runtime_error("chromedriver does not start\n" + failure);
}

}  // namespace

Browser::Browser() {
  m_url = "http://127.0.0.1:" + Start(m_driver);

  LumJson::Value arguments = LumJson::Value::Array();
  for (const char* argument :
       {"--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--disable-quic",
        "--no-first-run", "--disable-background-networking", "--disable-component-update",
        "--disable-sync", "--no-proxy-server", "--window-size=1200,900"}) {
    arguments.Append(argument);
  }
  arguments.Append("--user-data-dir=" + m_profile.Path());
  LumJson::Value session;
  LumJson::Value& wanted = session["capabilities"]["alwaysMatch"];
  wanted["browserName"] = "chrome";
  wanted["goog:chromeOptions"]["args"] = std::move(arguments);
  wanted["goog:loggingPrefs"]["browser"] = "ALL";
  wanted["timeouts"]["script"] = 30'000;  // milliseconds
  m_url += "/session/" + Ask("POST", "/session", session)["sessionId"].AsString();
}

Browser::~Browser() {
  try {
    Ask("DELETE", "");
  } catch (const std::exception&) {
    // The driver is stopped in any case, and its whole process group with it.
  }
}

void Browser::Open(const std::string& url) {
  LumJson::Value body;
  body["url"] = url;
  Ask("POST", "/url", body);
}

LumJson::Value Browser::Run(const std::string& script) {
  return Execute("sync", script);
}

LumJson::Value Browser::RunAsync(const std::string& script) {
  return Execute("async", script);
}

LumJson::Value Browser::Execute(const std::string& way, const std::string& script) {
  LumJson::Value body;
  body["script"] = script;
  body["args"] = LumJson::Value::Array();
  return Ask("POST", "/execute/" + way, body);
}

bool Browser::Await(const std::string& expression) {
  return RunAsync(
             "const done = arguments[0];\n"
             "const holds = () => { return " +
             expression +
             "; };\n"
             "if (holds()) { done(true); return; }\n"
             "const timer = setTimeout(() => done(false), 25000);\n"
             "new MutationObserver((changes, self) => {\n"
             "  if (holds()) { self.disconnect(); clearTimeout(timer); done(true); }\n"
             "}).observe(document, {subtree: true, childList: true, attributes: true, "
             "characterData: true});")
      .AsBool();
}

void Browser::Press(const std::string& keys) {
  LumJson::Value keyboard;
  keyboard["type"] = "key";
  keyboard["id"] = "keyboard";
  for (std::size_t at = 0; at < keys.size();) {
    std::size_t end = at + 1;
    while (end < keys.size() && (static_cast<unsigned char>(keys[end]) & 0xC0) == 0x80) {
      ++end;
    }
    for (const char* type : {"keyDown", "keyUp"}) {
      LumJson::Value action;
      action["type"] = type;
      action["value"] = keys.substr(at, end - at);
      keyboard["actions"].Append(std::move(action));
    }
    at = end;
  }
  LumJson::Value body;
  body["actions"].Append(std::move(keyboard));
  Ask("POST", "/actions", body);
}

void Browser::Resize(int width, int height) {
  LumJson::Value parameters;
  parameters["width"] = width;
  parameters["height"] = height;
  parameters["deviceScaleFactor"] = 1;
  parameters["mobile"] = false;
  Tell("Emulation.setDeviceMetricsOverride", std::move(parameters));
}

void Browser::Prefer(const std::string& scheme, const std::string& motion) {
  LumJson::Value parameters;
  const auto add = [&](const char* name, const std::string& value) {
    LumJson::Value feature;
    feature["name"] = name;
    feature["value"] = value;
    parameters["features"].Append(std::move(feature));
  };
  add("prefers-color-scheme", scheme);
  add("prefers-reduced-motion", motion);
  Tell("Emulation.setEmulatedMedia", std::move(parameters));
}

void Browser::Tell(const std::string& command, LumJson::Value parameters) {
  LumJson::Value body;
  body["cmd"] = command;
  body["params"] = std::move(parameters);
  Ask("POST", "/goog/cdp/execute", body);
}

void Browser::Screenshot(const std::string& path) {
  const std::string base64 = Ask("GET", "/screenshot").AsString();
  std::string png(base64.size(), '\0');
  const int size = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(png.data()),
                                   reinterpret_cast<const unsigned char*>(base64.data()),
                                   static_cast<int>(base64.size()));
  if (size < 0) {
    throw std::runtime_error("the screenshot is not base64");
  }
  png.resize(static_cast<std::size_t>(size));
  WriteFile(path, png);
}

std::vector<std::string> Browser::Console() {
  LumJson::Value body;
  body["type"] = "browser";
  std::vector<std::string> messages;
  const LumJson::Value entries = Ask("POST", "/se/log", body);
  for (const LumJson::Value& entry : entries.Elements()) {
    messages.push_back(entry["level"].AsString() + ": " + entry["message"].AsString());
  }
  return messages;
}

LumJson::Value Browser::Ask(const std::string& method, const std::string& path,
                            const LumJson::Value& body) {
  std::vector<std::string> arguments{"-X", method, m_url + path};
  const TempDir temp;
  if (method == "POST") {
    arguments.insert(arguments.end(), {"-H", "Content-Type: application/json", "--data-binary",
                                       "@" + temp.Write("body", body.ToStyledString())});
  }
  const CurlAnswer answer = Curl(arguments);
  if (answer.status != 200) {
    throw std::runtime_error(method + " " + path + ": " + answer.problem + answer.body);
  }
  return answer.Json()["value"];
}

}  // namespace lumtest

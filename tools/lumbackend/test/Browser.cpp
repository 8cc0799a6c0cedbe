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

  const Json arguments = {"--headless",
                          "--no-sandbox",
                          "--disable-gpu",
                          "--disable-dev-shm-usage",
                          "--disable-quic",
                          "--no-first-run",
                          "--disable-background-networking",
                          "--disable-component-update",
                          "--disable-sync",
                          "--no-proxy-server",
                          "--window-size=1200,900",
                          "--user-data-dir=" + m_profile.Path()};
  const Json wanted = {{"browserName", "chrome"},
                       {"goog:chromeOptions", {{"args", arguments}}},
                       {"goog:loggingPrefs", {{"browser", "ALL"}}},
                       {"timeouts", {{"script", 30'000}}}};  // milliseconds
  const Json session = Ask("POST", "/session", {{"capabilities", {{"alwaysMatch", wanted}}}});
  m_url += "/session/" + session.at("sessionId").get<std::string>();
}

Browser::~Browser() {
  try {
    Ask("DELETE", "");
  } catch (const std::exception&) {
    // The driver is stopped in any case, and its whole process group with it.
  }
}

void Browser::Open(const std::string& url) {
  Ask("POST", "/url", {{"url", url}});
}

Json Browser::Run(const std::string& script) {
  return Execute("sync", script);
}

Json Browser::RunAsync(const std::string& script) {
  return Execute("async", script);
}

Json Browser::Execute(const std::string& way, const std::string& script) {
  return Ask("POST", "/execute/" + way, {{"script", script}, {"args", Json::array()}});
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
      .get<bool>();
}

void Browser::Press(const std::string& keys) {
  Json actions;
  for (std::size_t at = 0; at < keys.size();) {
    std::size_t end = at + 1;
    while (end < keys.size() && (static_cast<unsigned char>(keys[end]) & 0xC0) == 0x80) {
      ++end;
    }
    for (const char* type : {"keyDown", "keyUp"}) {
      actions.push_back({{"type", type}, {"value", keys.substr(at, end - at)}});
    }
    at = end;
  }
  const Json keyboard = {{"type", "key"}, {"id", "keyboard"}, {"actions", actions}};
  Ask("POST", "/actions", {{"actions", Json::array({keyboard})}});
}

void Browser::Resize(int width, int height) {
  Tell("Emulation.setDeviceMetricsOverride",
       {{"width", width}, {"height", height}, {"deviceScaleFactor", 1}, {"mobile", false}});
}

void Browser::Prefer(const std::string& scheme, const std::string& motion) {
  const Json colors = {{"name", "prefers-color-scheme"}, {"value", scheme}};
  const Json motions = {{"name", "prefers-reduced-motion"}, {"value", motion}};
  Tell("Emulation.setEmulatedMedia", {{"features", Json::array({colors, motions})}});
}

void Browser::Tell(const std::string& command, const Json& parameters) {
  Ask("POST", "/goog/cdp/execute", {{"cmd", command}, {"params", parameters}});
}

void Browser::Screenshot(const std::string& path) {
  const std::string base64 = Ask("GET", "/screenshot");
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
  std::vector<std::string> messages;
  for (const Json& entry : Ask("POST", "/se/log", {{"type", "browser"}})) {
    messages.push_back(entry.at("level").get<std::string>() + ": " +
                       entry.at("message").get<std::string>());
  }
  return messages;
}

Json Browser::Ask(const std::string& method, const std::string& path, const Json& body) {
  std::vector<std::string> arguments{"-X", method, m_url + path};
  const TempDir temp;
  if (method == "POST") {
    arguments.insert(arguments.end(), {"-H", "Content-Type: application/json", "--data-binary",
                                       "@" + temp.Write("body", body.dump())});
  }
  const CurlAnswer answer = Curl(arguments);
  if (answer.status != 200) {
    throw std::runtime_error(method + " " + path + ": " + answer.problem + answer.body);
  }
  return Json::parse(answer.body).at("value");
}

}  // namespace lumtest

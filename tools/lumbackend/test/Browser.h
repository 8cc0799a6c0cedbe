// A headless Chromium, driven over the WebDriver protocol.
#ifndef LUM_BACKEND_TEST_BROWSER_H
#define LUM_BACKEND_TEST_BROWSER_H

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/Files.h"
#include "support/Process.h"

namespace lumtest {

using Json = nlohmann::json;

// One chromedriver with one browser, and a profile of its own. What goes wrong throws
// std::runtime_error with the driver's message; an alert that a page opens is one such thing.
class Browser {
 public:
  Browser();
  ~Browser();
  Browser(const Browser&) = delete;
  Browser& operator=(const Browser&) = delete;

  void Open(const std::string& url);

  // Runs a function body in the page and returns what it returns.
  Json Run(const std::string& script);

  // Waits until an expression is true in the page; looks again when the page changes. False when it
  // does not become true within half a minute.
  bool Await(const std::string& expression);

  // Runs a function body whose last argument is a function: returns what that one is called with.
  Json RunAsync(const std::string& script);

  // Types on the keyboard: text, and the names below.
  void Press(const std::string& keys);
  static constexpr const char* kTab = "\xEE\x80\x84";  // WebDriver's code points, U+E004 and so on
  static constexpr const char* kEnter = "\xEE\x80\x87";
  static constexpr const char* kEscape = "\xEE\x80\x8C";
  static constexpr const char* kEnd = "\xEE\x80\x90";
  static constexpr const char* kHome = "\xEE\x80\x91";
  static constexpr const char* kUp = "\xEE\x80\x93";
  static constexpr const char* kDown = "\xEE\x80\x95";

  // Gives the window this size, in CSS pixels.
  void Resize(int width, int height);

  // Makes the page believe that the user prefers "light" or "dark", and "reduce" or "no-preference"
  // of motion.
  void Prefer(const std::string& scheme, const std::string& motion = "no-preference");

  // Writes what the window shows into a PNG file.
  void Screenshot(const std::string& path);

  // Messages of the console since the last call.
  std::vector<std::string> Console();

 private:
  Json Execute(const std::string& way, const std::string& script);
  void Tell(const std::string& command, const Json& parameters);
  Json Ask(const std::string& method, const std::string& path, const Json& body = {});

  TempDir m_profile;
  std::unique_ptr<SpawnedProcess> m_driver;
  std::string m_url;  // of the driver, then of the session
};

}  // namespace lumtest

#endif  // LUM_BACKEND_TEST_BROWSER_H

// A headless Chromium, driven over the WebDriver protocol.
#ifndef LUM_BACKEND_TEST_BROWSER_H
#define LUM_BACKEND_TEST_BROWSER_H

#include <LumJson.h>

#include <memory>
#include <string>
#include <vector>

#include "support/Files.h"
#include "support/Process.h"

namespace lumtest {

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
  LumJson::Value Run(const std::string& script);

  // Waits until an expression is true in the page; looks again when the page changes. False when it
  // does not become true within half a minute.
  bool Await(const std::string& expression);

  // Makes the page believe that the user prefers "light" or "dark".
  void Prefer(const std::string& scheme);

  // Writes what the window shows into a PNG file.
  void Screenshot(const std::string& path);

  // Messages of the console since the last call.
  std::vector<std::string> Console();

 private:
  LumJson::Value Ask(const std::string& method, const std::string& path,
                     const LumJson::Value& body = LumJson::Value::Object());

  TempDir m_profile;
  std::unique_ptr<SpawnedProcess> m_driver;
  std::string m_url;  // of the driver, then of the session
};

}  // namespace lumtest

#endif  // LUM_BACKEND_TEST_BROWSER_H

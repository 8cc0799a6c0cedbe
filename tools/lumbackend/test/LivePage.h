// What the tests of the page have in common.
#ifndef LUM_BACKEND_TEST_LIVE_PAGE_H
#define LUM_BACKEND_TEST_LIVE_PAGE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "BackendProcess.h"
#include "Browser.h"

namespace lumtest {

// The page in one browser for all tests. Each begins with an empty page, a window of 1280 to 900
// and light colours, and with a new back end that asks for no token.
class LivePage : public testing::Test {
 protected:
  static void SetUpTestSuite();
  static void TearDownTestSuite();
  LivePage();
  // The page wrote nothing on the console, whatever was done with it; the browser may have noted
  // that the back end has ended.
  void TearDown() override;

  std::string Url(const std::string& path) const { return m_backend.Url(path); }

  // Sends a report, of `document`, or gets what is not there, as often as `count` says.
  void Report(const std::string& document, int count = 1) const;
  void Miss(int count = 1) const;

  // Opens the page, its URL being `query` longer, and waits until it has shown what there is.
  void Open(const std::string& query = "") const;

  // The same, and for the exchange of this number in the detail.
  void Show(std::int64_t id) const;

  static bool Await(const std::string& expression) { return s_browser->Await(expression); }
  static bool AwaitDetail();

  // Waits until the line above the list ends so, as in "of 801".
  static bool AwaitRange(const std::string& end);

  // What a function body returns, and the value of an expression. The page's own names are known
  // to them.
  static Json Run(const std::string& script) { return s_browser->Run(script); }
  static int Number(const std::string& expression);
  static std::string String(const std::string& expression);

  // The text of the first element that a selector finds.
  static std::string Text(const std::string& selector);
  static bool IsShown(const std::string& selector);
  static void Click(const std::string& selector);
  // Replaces the text of an input, by the keys.
  static void Type(const std::string& selector, const std::string& text);

  // The rows that exist as elements, from the top: "STATUS METHOD PATH IN | DEVICE | ABOUT | ...".
  static std::vector<std::string> Rows();

  // For people: LUM_SCREENSHOTS names a directory that gets pictures of what was tested.
  static void Picture(const std::string& name);

  static inline const std::vector<std::string> kOpen{"--port", "0", "--open"};
  static Browser* s_browser;
  BackendProcess m_backend{kOpen};
  const TempDir m_temp;
};

}  // namespace lumtest

#endif  // LUM_BACKEND_TEST_LIVE_PAGE_H

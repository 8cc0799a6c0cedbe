// Looking at the page, and working it.
#include "LivePage.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace lumtest {

using testing::Each;
using testing::HasSubstr;

Browser* LivePage::s_browser = nullptr;

void LivePage::SetUpTestSuite() {
  s_browser = new Browser;
}

void LivePage::TearDownTestSuite() {
  delete s_browser;
  s_browser = nullptr;
}

LivePage::LivePage() {
  s_browser->Open("about:blank");
  s_browser->Resize(1280, 900);
  s_browser->Prefer("light");
  s_browser->Console();
}

void LivePage::TearDown() {
  EXPECT_THAT(s_browser->Console(), Each(HasSubstr("Failed to load resource: net::ERR_")));
}

void LivePage::Report(const std::string& document, int count) const {
  std::vector<std::string> arguments{"-H", "Content-Type: application/json", "-d", document};
  arguments.insert(arguments.end(), static_cast<std::size_t>(count), Url("/report"));
  Curl(arguments);
}

void LivePage::Miss(int count) const {
  Curl(std::vector<std::string>(static_cast<std::size_t>(count), Url("/files/none")));
}

void LivePage::Open(const std::string& query) const {
  s_browser->Open(Url("/" + query));
  ASSERT_TRUE(Await("byId('state').textContent === 'live'"));
  ASSERT_TRUE(Await("document.querySelector('#window .row, #empty:not([hidden])') !== null"));
}

void LivePage::Show(std::int64_t id) const {
  Open("?open=" + std::to_string(id));
  ASSERT_TRUE(AwaitDetail());
}

bool LivePage::AwaitDetail() {
  return Await("document.querySelector('#detail[open] .inside dl') !== null");
}

bool LivePage::AwaitRange(const std::string& end) {
  return Await("byId('range').textContent.endsWith('" + end + "')");
}

int LivePage::Number(const std::string& expression) {
  return Run("return " + expression + ";");
}

std::string LivePage::String(const std::string& expression) {
  return Run("return " + expression + ";");
}

std::string LivePage::Text(const std::string& selector) {
  return String("document.querySelector('" + selector + "').innerText");
}

bool LivePage::IsShown(const std::string& selector) {
  return Run("const node = document.querySelector('" + selector +
             "'); return node !== null && node.getClientRects().length > 0;");
}

void LivePage::Click(const std::string& selector) {
  Run("document.querySelector('" + selector + "').click();");
}

void LivePage::Type(const std::string& selector, const std::string& text) {
  Run("const input = document.querySelector('" + selector + "'); input.focus(); input.select();");
  s_browser->Press(text);
}

std::vector<std::string> LivePage::Rows() {
  return Run(R"(
    return [...document.querySelectorAll('#window .row')].map(row => {
      const text = name => row.querySelector('.' + name).innerText;
      const about = [...row.querySelector('.about').children].map(part => ' | ' + part.innerText);
      return ['status', 'method', 'path', 'in'].map(text).join(' ') + ' | ' + text('device') +
          about.join('');
    });)");
}

void LivePage::Picture(const std::string& name) {
  if (const char* directory = std::getenv("LUM_SCREENSHOTS")) {
    s_browser->Screenshot(std::string(directory) + "/" + name + ".png");
  }
}

}  // namespace lumtest

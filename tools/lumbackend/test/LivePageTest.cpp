// The page at /, as a browser shows it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "BackendProcess.h"
#include "Browser.h"

namespace {

using lumtest::BackendProcess;
using lumtest::Browser;
using lumtest::Curl;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class LivePage : public testing::Test {
 protected:
  static void SetUpTestSuite() { s_browser = new Browser; }
  static void TearDownTestSuite() {
    delete s_browser;
    s_browser = nullptr;
  }

  // Each test begins on an empty page with an empty console.
  LivePage() {
    s_browser->Open("about:blank");
    s_browser->Prefer("light");
    s_browser->Console();
  }

  // What the cells of a section's rows hold, row by row from the top, the time left out.
  static std::vector<std::string> Rows(const std::string& section) {
    const LumJson::Value rows =
        s_browser->Run("return [...document.querySelectorAll('#" + section + " tbody tr')].map(" +
                       "row => [...row.cells].slice(1).map(cell => cell.innerText).join(' | '));");
    std::vector<std::string> texts;
    for (const LumJson::Value& row : rows.Elements()) {
      texts.push_back(row.AsString());
    }
    return texts;
  }

  static bool AwaitCount(const std::string& section, int count) {
    return s_browser->Await("document.querySelector('#" + section + " .count').textContent === '" +
                            std::to_string(count) + "'");
  }

  static bool IsShown(const std::string& selector) {
    return s_browser
        ->Run("return document.querySelector('" + selector + "').getClientRects().length > 0;")
        .AsBool();
  }

  static bool AwaitLive() {
    return s_browser->Await("document.getElementById('state').textContent === 'live'");
  }

  // For people: LUM_SCREENSHOTS names a directory that gets pictures of what was tested.
  static void Picture(const std::string& name) {
    if (const char* directory = std::getenv("LUM_SCREENSHOTS")) {
      s_browser->Screenshot(std::string(directory) + "/" + name + ".png");
    }
  }

  static Browser* s_browser;
};

Browser* LivePage::s_browser = nullptr;

TEST_F(LivePage, SaysThatNothingHasComeIn) {
  BackendProcess backend;
  s_browser->Open(backend.Url("/"));
  ASSERT_TRUE(AwaitLive());
  for (const std::string section : {"#reports", "#uploads", "#refusals"}) {
    EXPECT_TRUE(IsShown(section + " .empty"));
    EXPECT_FALSE(IsShown(section + " table"));
  }
  Picture("empty-light");
  s_browser->Prefer("dark");
  Picture("empty-dark");
  EXPECT_THAT(s_browser->Console(), IsEmpty());
}

TEST_F(LivePage, ShowsWhatComesInWhileItIsOpen) {
  BackendProcess backend;
  s_browser->Open(backend.Url("/"));
  ASSERT_TRUE(AwaitLive());
  const std::string token =
      "X-Auth-Token: " + Curl({"-d", "{}", backend.Url("/token")}).Json()["token"].AsString();
  Curl({"-H", token, "-d", R"({"topic_name": "engine", "value": 17})", backend.Url("/report")});
  ASSERT_TRUE(AwaitCount("reports", 1));
  Curl({"-H", token, "-d", R"({"value": 18})", backend.Url("/report")});
  const lumtest::TempDir temp;
  Curl({"-T", temp.Write("log.zip", std::string(12'345, 'x')),
        backend.Url("/objects/logs/a%20b.zip")});
  Curl({"-d", "1", backend.Url("/report")});
  Curl({backend.Url("/files/none")});
  ASSERT_TRUE(AwaitCount("reports", 2));
  ASSERT_TRUE(AwaitCount("uploads", 1));
  ASSERT_TRUE(AwaitCount("refusals", 2));
  EXPECT_THAT(Rows("reports"),
              ElementsAre("{\"value\":18} | 13", "{\"topic_name\":\"engine\",\"value\":17} | 37"));
  EXPECT_THAT(Rows("uploads"), ElementsAre("logs/a b.zip | 12,345"));
  EXPECT_THAT(Rows("refusals"), ElementsAre("404 | GET /files/none | no such file",
                                            "401 | POST /report | no token in X-Auth-Token"));
  for (const std::string section : {"#reports", "#uploads", "#refusals"}) {
    EXPECT_FALSE(IsShown(section + " .empty"));
    EXPECT_TRUE(IsShown(section + " table"));
  }
  Picture("busy-light");
  s_browser->Prefer("dark");
  Picture("busy-dark");
  EXPECT_THAT(s_browser->Console(), IsEmpty());
}

TEST_F(LivePage, ShowsWhatCameInBeforeItWasOpened) {
  BackendProcess backend({"--port", "0", "--open"});
  Curl({"-d", "1", backend.Url("/report")});
  s_browser->Open(backend.Url("/"));
  EXPECT_TRUE(AwaitCount("reports", 1));
}

TEST_F(LivePage, HostileTextIsShownAsText) {
  BackendProcess backend({"--port", "0", "--open"});
  s_browser->Open(backend.Url("/"));
  ASSERT_TRUE(AwaitLive());
  const lumtest::TempDir temp;
  const std::string file = temp.Write("file", "x");
  Curl({"-T", file, backend.Url("/objects/%3Cimg%20src%3Dx%20onerror%3Dalert(1)%3E")});
  Curl({"-T", file, backend.Url("/objects/a%1B%5B31m%E2%80%AEb%E2%80%8F%FF%C3%A9")});
  Curl({"-d", R"({"<script>alert(2)</script>": "</td><svg onload=alert(3)>"})",
        backend.Url("/report")});
  Curl({"-g", "-X", "POST", "-d", "\"\"", backend.Url("/configs/<b>'\"&amp;/x/<svg>")});
  Curl({"-g", backend.Url("/configs/a/%3Cb%3Ebold/%3Csvg%20onload=alert(4)%3E")});
  ASSERT_TRUE(AwaitCount("uploads", 2));
  ASSERT_TRUE(AwaitCount("reports", 1));
  ASSERT_TRUE(AwaitCount("refusals", 2));
  EXPECT_THAT(Rows("uploads"), testing::Contains("<img src=x onerror=alert(1)> | 1"));
  EXPECT_THAT(Rows("uploads"),
              testing::Contains("a\\x1b[31m\\xe2\\x80\\xaeb\\xe2\\x80\\x8f\\xff\xC3\xA9 | 1"));
  EXPECT_THAT(Rows("reports"),
              ElementsAre(R"({"<script>alert(2)</script>":"</td><svg onload=alert(3)>"} | 59)"));
  EXPECT_THAT(Rows("refusals"),
              testing::Contains(HasSubstr("no namespace '<svg onload=alert(4)>'")));
  EXPECT_THAT(Rows("refusals"), testing::Contains("405 | POST /configs/<b>'\"&amp;/x/<svg> | "
                                                  "this path takes GET"));
  EXPECT_EQ(s_browser
                ->Run("return document.querySelectorAll('main img, main svg, main script, main b')"
                      ".length;")
                .AsInt64(-1),
            0);
  Picture("hostile");
  EXPECT_THAT(s_browser->Console(), IsEmpty());
}

TEST_F(LivePage, KeepsTheLastFiftyRowsAndCountsAll) {
  BackendProcess backend({"--port", "0", "--open"});
  s_browser->Open(backend.Url("/"));
  std::vector<std::string> urls;
  for (int i = 0; i < 60; ++i) {
    urls.push_back(backend.Url("/missing/" + std::to_string(i)));
  }
  Curl(urls);
  ASSERT_TRUE(AwaitCount("refusals", 60));
  const std::vector<std::string> rows = Rows("refusals");
  ASSERT_EQ(rows.size(), 50u);
  EXPECT_THAT(rows.front(), HasSubstr("/missing/59"));
  EXPECT_THAT(rows.back(), HasSubstr("/missing/10"));
  // Long tables do not make the page wider than the window.
  EXPECT_TRUE(
      s_browser->Run("return document.documentElement.scrollWidth <= innerWidth;").AsBool());
}

TEST_F(LivePage, LongTextDoesNotBreakTheLayout) {
  BackendProcess backend({"--port", "0", "--open"});
  s_browser->Open(backend.Url("/"));
  Curl({"-d", "\"" + std::string(5000, 'W') + "\"", backend.Url("/report")});
  Curl({backend.Url("/" + std::string(3000, 'W'))});
  ASSERT_TRUE(AwaitCount("reports", 1));
  ASSERT_TRUE(AwaitCount("refusals", 1));
  EXPECT_TRUE(
      s_browser->Run("return document.documentElement.scrollWidth <= innerWidth;").AsBool());
}

TEST_F(LivePage, SaysWhenTheBackEndIsGoneAndStartsOverWithTheNext) {
  auto first = std::make_unique<BackendProcess>(std::vector<std::string>{"--port", "0", "--open"});
  const std::string port = std::to_string(first->Port());
  s_browser->Open(first->Url("/"));
  Curl({"-d", "1", first->Url("/report")});
  ASSERT_TRUE(AwaitCount("reports", 1));
  ASSERT_EQ(first->Process().Stop().exitStatus, 0);
  ASSERT_TRUE(s_browser->Await("document.getElementById('state').className === 'gone'"));
  Picture("gone");
  first.reset();
  BackendProcess second({"--port", port, "--open"});
  ASSERT_TRUE(AwaitLive());
  ASSERT_TRUE(AwaitCount("reports", 0));
  EXPECT_TRUE(IsShown("#reports .empty"));
  Curl({"-d", "2", second.Url("/report")});
  ASSERT_TRUE(AwaitCount("reports", 1));
  EXPECT_THAT(Rows("reports"), ElementsAre("2 | 1"));
  // The browser itself says on the console what could not be loaded; the page adds nothing.
  EXPECT_THAT(s_browser->Console(), Each(HasSubstr("Failed to load resource")));
}

TEST_F(LivePage, MisbehaviourSparesThePage) {
  BackendProcess backend({"--port", "0", "--status", "500", "--cut-after", "10"});
  s_browser->Open(backend.Url("/"));
  ASSERT_TRUE(AwaitLive());
  Curl({backend.Url("/echo")});
  ASSERT_TRUE(AwaitCount("refusals", 1));
  EXPECT_THAT(s_browser->Console(), IsEmpty());
}

TEST_F(LivePage, IsReadableInLightAndDark) {
  BackendProcess backend({"--port", "0", "--open"});
  s_browser->Open(backend.Url("/"));
  Curl({"-d", "1", backend.Url("/report")});
  Curl({backend.Url("/nothing")});
  ASSERT_TRUE(AwaitCount("reports", 1));
  ASSERT_TRUE(AwaitCount("refusals", 1));
  // Contrast as WCAG 2 defines it; 4.5 is its limit for text of this size.
  const std::string contrast = R"(
    const light = colour => {
      const [r, g, b] = colour.match(/[0-9.]+/g).map(part => {
        const c = part / 255;
        return c <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4;
      });
      return 0.2126 * r + 0.7152 * g + 0.0722 * b;
    };
    const behind = node => {
      const colour = getComputedStyle(node).backgroundColor;
      return colour === 'rgba(0, 0, 0, 0)' ? behind(node.parentElement) : colour;
    };
    let worst = 21;
    for (const node of document.querySelectorAll('h1, h2, th, td, .count, .empty, #state')) {
      const [a, b] = [light(getComputedStyle(node).color), light(behind(node))];
      worst = Math.min(worst, (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05));
    }
    return [worst, behind(document.body)];)";
  std::vector<std::string> pages;
  for (const char* scheme : {"light", "dark"}) {
    s_browser->Prefer(scheme);
    const LumJson::Value result = s_browser->Run(contrast);
    EXPECT_GE(result.At(0).AsDouble(), 4.5) << scheme;
    pages.push_back(result.At(1).AsString());
  }
  EXPECT_NE(pages[0], pages[1]);
}

}  // namespace

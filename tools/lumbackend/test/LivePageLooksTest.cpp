// The page for everybody: widths, colours, keys, screen readers, and more rows than anybody reads.
#include <gmock/gmock.h>

#include <chrono>
#include <functional>

#include "Database.h"
#include "LivePage.h"

namespace lumtest {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class Looks : public LivePage {
 protected:
  // Puts exchanges into the database of the back end, which sees them when it has ended or another
  // one comes in: `refused` of a hundred refused, the rest reports, spread over the last day.
  void Fill(int rows, int refused) const {
    const Database database(m_backend.Root().Path("lumbackend.db"));
    database.Run(
        "INSERT INTO exchange (time, duration, kind, method, path, query, status, bytes_in,"
        " bytes_out, device, topic, object, gzip, signed, tls, text, refusal, client, authority,"
        " head, answer_head, answer_text, report, body, body_size, body_whole) "
        "WITH RECURSIVE n (i, bad) AS (VALUES (1, 0) UNION ALL SELECT i + 1, (i * 37) % 100 < " +
        std::to_string(refused) + " FROM n WHERE i < " + std::to_string(rows) +
        ") SELECT unixepoch() * 1000 - 86400000 + i * 86400000 / " + std::to_string(rows) +
        ", 300 + i * 7919 % 9000, iif(bad, 'refusal', 'report'), 'POST', '/report', '',"
        " iif(bad, iif(i % 3, 401, 400), 200), 60 + i * 31 % 4000, 91, 'robot-' || (i % 40),"
        " iif(bad, '', iif(i % 2, 'battery', 'climate')), '', i % 2, 0, i % 11 = 0,"
        " iif(bad, '', '{\"accessId\":\"robot-' || (i % 40) || '\",\"value\":' || i || '}'),"
        " iif(bad, iif(i % 3, 'the token has expired', 'the body is no JSON'), ''),"
        " '127.0.0.1:40000', '127.0.0.1:8080', '[]', '[]', '', 0, '', 0, 0 FROM n;");
  }

  void StartFilled(int rows, int refused) {
    m_backend.Process().Stop();
    Fill(rows, refused);
    m_backend.Start(kOpen);
  }

  // What axe-core finds wrong, a line each.
  static std::vector<std::string> Violations() {
    static const std::string axe = ReadFile(LUM_AXE);
    return s_browser->RunAsync(axe + R"(;
      const done = arguments[0];
      axe.run(document, {resultTypes: ['violations']}).then(result => done(
          result.violations.flatMap(({id, nodes}) => nodes.map(node => id + ': ' + node.html))),
          failure => done([String(failure)]));)");
  }

  // Looks at what `show` brings up in both schemes and three widths: nothing is wider than the
  // window, and nothing keeps anybody out.
  static void LookAt(const std::string& name, const std::function<void()>& show) {
    const std::pair<int, int> kWindows[] = {{360, 740}, {1280, 900}, {2560, 1300}};
    for (const auto& [width, height] : kWindows) {
      s_browser->Resize(width, height);
      show();
      for (const std::string scheme : {"light", "dark"}) {
        // Without motion: a colour that is on its way to another one has no contrast to be judged.
        s_browser->Prefer(scheme, "reduce");
        const std::string where = name + "-" + std::to_string(width) + "-" + scheme;
        EXPECT_EQ(Run("return document.documentElement.scrollWidth <= innerWidth;"), true) << where;
        EXPECT_THAT(Violations(), IsEmpty()) << where;
        Picture(where);
      }
    }
  }
};

TEST_F(Looks, EmptyPageIsForEverybody) {
  LookAt("empty", [this] { Open(); });
}

TEST_F(Looks, DayOfManyReportsIsForEverybody) {
  StartFilled(100'000, 0);
  LookAt("day", [this] { Open(); });
  EXPECT_THAT(Text("#range"), testing::EndsWith("of 100,000"));
  EXPECT_EQ(Text("#refused"), "nothing refused");
}

TEST_F(Looks, BadDayIsForEverybody) {
  StartFilled(2'000, 45);
  Miss(3);
  Report(R"({"accessId": "robot-7"})", 5);
  LookAt("bad", [this] { Open(); });
}

TEST_F(Looks, OpenedExchangeAndHelpAreForEverybody) {
  Report(R"({"accessId": "robot-7", "topic_name": "engine", "list": [1, 2, 3]})");
  LookAt("exchange", [this] { Show(1); });
  LookAt("help", [this] {
    Open();
    Click("#ask");
  });
  EXPECT_THAT(Text("#help"), testing::AllOf(HasSubstr("POST /report"), HasSubstr("Page Down")));
}

TEST_F(Looks, HeadingsStandAboveTheirColumns) {
  Miss();
  Open();
  const Json astray = Run(R"(
    const end = node => {
      const {left, right} = node.getBoundingClientRect();
      return getComputedStyle(node).textAlign + (node.matches('.in, .out, .duration') ? right : left);
    };
    return [...document.querySelectorAll('.head > *')].map(heading => heading.className)
        .filter(name => end(document.querySelector('.head .' + name)) !==
            end(document.querySelector('#window .' + name) ?? document.body));)");
  EXPECT_EQ(astray, Json::array());
}

TEST_F(Looks, RowsAreCardsOnAPhone) {
  Report(R"({"accessId": "robot-7", "topic_name": "engine"})");
  Open();
  const std::string height = "document.querySelector('#window .row').offsetHeight";
  EXPECT_EQ(Number(height), 34);
  s_browser->Resize(360, 740);
  ASSERT_TRUE(Await(height + " === 80"));
  // Whatever is in the row is in the card.
  for (const std::string part :
       {"time", "status", "method", "path", "duration", "in", "out", "device", "about"}) {
    EXPECT_TRUE(IsShown("#window ." + part)) << part;
  }
  EXPECT_FALSE(IsShown("#status"));
  Click("#fold");
  EXPECT_TRUE(IsShown("#status"));
}

TEST_F(Looks, WhatIsTooLongForARowEndsInDots) {
  const std::string text(150, 'x');
  Report(R"({"accessId": ")" + text + R"(", "topic_name": "engine", "text": ")" + text + "\"}");
  Open();
  for (const int width : {360, 1280}) {
    s_browser->Resize(width, 740);
    const Json astray = Run(R"(
      const row = document.querySelector('#window .row');
      const edge = row.getBoundingClientRect().right;
      return ['.path', '.device', '.about', '.start'].map(name => row.querySelector(name))
          .filter(node => node.getBoundingClientRect().right > edge ||
              (!node.matches('.about') && getComputedStyle(node).textOverflow !== 'ellipsis'))
          .map(node => node.className);)");
    EXPECT_EQ(astray, Json::array()) << width;
  }
}

TEST_F(Looks, MovesNothingForThoseWhoDoNotWantIt) {
  Open();
  const std::string name = "getComputedStyle(document.querySelector('.row.new')).animationName";
  Miss();
  ASSERT_TRUE(Await("document.querySelector('.row.new') !== null"));
  EXPECT_EQ(String(name), "arrive");
  s_browser->Prefer("light", "reduce");
  EXPECT_EQ(String(name), "none");
}

TEST_F(Looks, KeysAloneReachEverything) {
  Miss(300);
  Report("{}");
  Open();
  // From control to control, in the order of reading.
  Run("document.activeElement.blur();");
  std::string reached;
  for (int i = 0; i < 11; ++i) {
    s_browser->Press(Browser::kTab);
    Run("window.node = document.activeElement;");
    reached += String("node.id || node.name || node.type") + " ";
  }
  EXPECT_EQ(reached, "pause follow clear ask kind text status device topic reset grid ");
  // Through the rows, into one and out again.
  s_browser->Press(std::string(Browser::kDown) + Browser::kDown + Browser::kDown + Browser::kUp);
  ASSERT_TRUE(Await("document.querySelector('.active')?.id === 'x300'"));
  EXPECT_EQ(String("byId('grid').getAttribute('aria-activedescendant')"), "x300");
  EXPECT_EQ(String("document.querySelector('.active').ariaRowIndex"), "3");
  s_browser->Press(Browser::kEnter);
  ASSERT_TRUE(AwaitDetail());
  EXPECT_EQ(String("document.activeElement.id"), "detail-title");
  s_browser->Press(Browser::kEscape);
  ASSERT_TRUE(Await("!byId('detail').open"));
  EXPECT_EQ(String("document.activeElement.id"), "grid");
  // To the oldest and back.
  s_browser->Press(Browser::kEnd);
  ASSERT_TRUE(Await("document.querySelector('.active')?.id === 'x1'"));
  EXPECT_THAT(Text("#range"), testing::EndsWith("\u2013301 of 301"));
  s_browser->Press(Browser::kHome);
  ASSERT_TRUE(Await("document.querySelector('.active')?.id === 'x301'"));
  s_browser->Press("/needle");
  EXPECT_TRUE(AwaitRange("0 of 0 that match, 301 kept"));
}

TEST_F(Looks, CoveringExchangeHoldsTheKeysAndGivesThemBack) {
  Miss();
  s_browser->Resize(360, 740);
  Open();
  Click("#x1");
  ASSERT_TRUE(AwaitDetail());
  for (int i = 0; i < 20; ++i) {
    s_browser->Press(Browser::kTab);
    EXPECT_EQ(Run("const node = document.activeElement;"
                  "return node === document.body || node.closest('#detail') !== null;"),
              true);
  }
  s_browser->Press(Browser::kEscape);
  ASSERT_TRUE(Await("!byId('detail').open"));
}

// The stream tells of news four times a second: with 125 exchanges each time the page has 500 a
// second. They go into the database together, so that the page and not a client sets the pace.
TEST_F(Looks, MillionExchangesAndFiveHundredMoreASecondStaySmall) {
  constexpr int kEvents = 20;
  StartFilled(1'000'000, 2);
  Open();
  EXPECT_THAT(Text("#range"), testing::EndsWith("of 1,000,000"));
  Run(R"(
    window.longest = 0;
    let last = performance.now();
    const frame = now => {
      longest = Math.max(longest, now - last);
      last = now;
      requestAnimationFrame(frame);
    };
    requestAnimationFrame(frame);)");
  const auto start = std::chrono::steady_clock::now();
  for (int event = 1; event <= kEvents; ++event) {
    Fill(124, 20);
    Miss();
    ASSERT_TRUE(Await("totals.last === 1000000 + 125 * " + std::to_string(event)));
  }
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(Text("#range").substr(0, 4), "1\u2013");
  EXPECT_LT(Number("document.querySelectorAll('*').length"), 1000);
  EXPECT_LE(Number("rows.length"), 3000);
  EXPECT_LT(Number("performance.memory.usedJSHeapSize"), 32 << 20);
  // How long frames take is for people to judge, on a machine that does nothing else.
  RecordProperty("longest_frame_ms", Number("Math.round(longest)"));
  RecordProperty("exchanges_a_second", static_cast<int>(125 * kEvents / took.count()));
  Picture("million");
}

}  // namespace
}  // namespace lumtest

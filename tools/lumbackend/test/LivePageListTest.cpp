// The stream of exchanges on the page.
#include <gmock/gmock.h>

#include "LivePage.h"

namespace lumtest {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

TEST_F(LivePage, SaysThatNothingHasComeInAndWhatCan) {
  Open();
  EXPECT_THAT(Text("#empty"), AllOf(HasSubstr("Nothing has come in yet"), HasSubstr(Url("/echo")),
                                    HasSubstr("POST /report")));
  EXPECT_EQ(Text("#refused"), "nothing refused");
  EXPECT_EQ(Text("#reports") + ", " + Text("#refusals"), "0 reports, 0 refusals");
}

TEST_F(LivePage, ShowsWhatComesInWhileItIsOpen) {
  m_backend.Start({"--port", "0"});
  Open();
  const std::string token =
      "X-Auth-Token: " + Curl({"-d", "{}", Url("/token")}).Json()["token"].AsString();
  Curl({"-H", token, "-d", R"({"accessId": "機器人-7", "topic_name": "מנוע", "note": "Grüße"})",
        Url("/report")});
  Curl({"-T", m_temp.Write("log.zip", std::string(12'345, 'x')), Url("/objects/logs/a%20b.zip")});
  Curl({"-d", "1", Url("/report?status=204")});
  Curl({Url("/files/none")});
  ASSERT_TRUE(AwaitRange("1\u20135 of 5"));
  EXPECT_THAT(Rows(),
              ElementsAre("404 GET /files/none 0 B |  | no such file",
                          "401 POST /report?status=204 0 B |  | no token in X-Auth-Token",
                          "200 PUT /objects/logs/a%20b.zip 12 KiB |  | logs/a b.zip | unsigned",
                          R"(200 POST /report 72 B | 機器人-7 | מנוע | {"accessId":"機器人-7",)"
                          R"("topic_name":"מנוע","note":"Grüße"})",
                          "200 POST /token 2 B | "));
  EXPECT_EQ(Number("document.querySelectorAll('#window .refusal').length"), 2);
  EXPECT_EQ(Text("#refused"), "2 refused");
  EXPECT_THAT(Text("#window .time"), testing::MatchesRegex("20..-..-.. ..:..:.."));
  EXPECT_THAT(Text("#window .duration"), testing::MatchesRegex("[0-9.]+ m?s"));
}

TEST_F(LivePage, KeepsFewElementsAndAStretchOfTheRowsHoweverFarOneScrolls) {
  Miss(4000);
  Open();
  // To the oldest row, and to the newest again: each step scrolls on when the last one's rows came.
  const auto scroll = [](const std::string& to, const std::string& until) {
    return s_browser->RunAsync("const [to, ends] = [() => " + to + ", text => " + until + R"(];
      const done = arguments[0];
      let steps = 2000, elements = 0, height = 0;
      const step = () => {
        grid.scrollTop = to();
        elements = Math.max(elements, document.querySelectorAll('*').length);
        height = Math.max(height, byId('rows').offsetHeight);
        if (ends(byId('range').textContent) || --steps === 0) {
          done([elements, height, steps]);
        } else {
          requestAnimationFrame(step);
        }
      };
      step();)");
  };
  const Json down = scroll("grid.scrollHeight", "text.endsWith('\u20134,000 of 4,000')");
  EXPECT_GT(down[2], 0) << Text("#range");
  EXPECT_LT(down[0], 1000);
  EXPECT_EQ(down[1], 34 * 3000);
  const Json up = scroll("0", "text.startsWith('1\u2013')");
  EXPECT_GT(up[2], 0) << Text("#range");
  EXPECT_LT(up[0], 1000);
  // What was let go came back, and nothing is missing or twice.
  EXPECT_EQ(Number("rows.every((row, i) => row.id === 4000 - i) && rows.length"), 3000);
}

TEST_F(LivePage, StaysWithTheNewestUntilOneScrollsAway) {
  Miss(100);
  Open();
  EXPECT_EQ(Text("#follow[aria-pressed=true]"), "Follow");
  Miss();
  ASSERT_TRUE(Await("document.querySelector('#window .row').id === 'x101'"));
  Run("grid.scrollTop = 340;");
  ASSERT_TRUE(Await("document.querySelector('#follow[aria-pressed=false]')"));
  const std::string before = Text("#range");
  EXPECT_THAT(before, StartsWith("11\u2013"));
  Miss(3);
  // The rows stay where they are; only their numbers grow.
  ASSERT_TRUE(AwaitRange("of 104"));
  EXPECT_THAT(Text("#range"), StartsWith("14\u2013"));
  EXPECT_EQ(Number("grid.scrollTop"), 340);
  EXPECT_EQ(Text("#newer"), "3 newer \u2191");
  Click("#newer");
  ASSERT_TRUE(Await("document.querySelector('#window .row').id === 'x104'"));
  EXPECT_EQ(Text("#follow[aria-pressed=true]"), "Follow");
  EXPECT_FALSE(IsShown("#newer"));
}

TEST_F(LivePage, PausesAndShowsAfterwardsWhatCameInMeanwhile) {
  Miss();
  Open();
  Click("#pause");
  EXPECT_EQ(Text("#state"), "paused");
  Miss(2);
  EXPECT_EQ(Rows().size(), 1u);
  Click("#pause");
  ASSERT_TRUE(AwaitRange("of 3"));
  EXPECT_EQ(Rows().size(), 3u);
  EXPECT_EQ(Text("#state"), "live");
}

TEST_F(LivePage, ClearsTheViewAndNothingElse) {
  Miss(2);
  Open();
  Click("#clear");
  ASSERT_TRUE(AwaitRange("0 of 0 since the view was cleared, 2 kept"));
  EXPECT_THAT(Text("#empty"), HasSubstr("Everything is still kept."));
  Report("1");
  ASSERT_TRUE(AwaitRange("1\u20131 of 1 since the view was cleared, 3 kept"));
  EXPECT_THAT(Rows(), ElementsAre(StartsWith("200 POST /report")));
  Click("#all");
  ASSERT_TRUE(AwaitRange("1\u20133 of 3"));
}

TEST_F(LivePage, FiltersAllThatIsKept) {
  Report(R"({"accessId": "robot-7", "topic_name": "engine", "note": "needle"})");
  Report(R"({"accessId": "robot-8", "topic_name": "door"})");
  Miss(300);
  Open();
  ASSERT_TRUE(AwaitRange("of 302"));
  for (const auto& [input, text, device] : {std::tuple("#text", "needle", "robot-7"),
                                            {"#device", "robot-8", "robot-8"},
                                            {"#topic", "engine", "robot-7"}}) {
    SCOPED_TRACE(input);
    Type(input, text);
    ASSERT_TRUE(AwaitRange("1\u20131 of 1 that match, 302 kept"));
    EXPECT_THAT(Rows(), ElementsAre(HasSubstr(device)));
    Click("[type=reset]");
    ASSERT_TRUE(AwaitRange("of 302"));
  }
  Click("[value=report]");
  ASSERT_TRUE(AwaitRange("1\u20132 of 2 that match, 302 kept"));
  EXPECT_EQ(Text("label:has([value=refusal]) b"), "300");
  Run("const status = byId('status'); status.value = '4';"
      "status.dispatchEvent(new Event('input', {bubbles: true}));");
  ASSERT_TRUE(AwaitRange("0 of 0 that match, 302 kept"));
  EXPECT_THAT(Text("#empty"), HasSubstr("No exchange matches the filter"));
  // News pass the filter, too, or do not.
  Click("[type=reset]");
  ASSERT_TRUE(AwaitRange("of 302"));
  Click("[value=report]");
  ASSERT_TRUE(AwaitRange("of 2 that match, 302 kept"));
  Miss();
  Report("3");
  ASSERT_TRUE(AwaitRange("1\u20133 of 3 that match, 304 kept"));
  EXPECT_THAT(Rows(), Each(StartsWith("200 POST /report")));
}

TEST_F(LivePage, CountsWhatIsKeptThoughTheFilteredRowsCameFirst) {
  Report("1", 2);
  Open("?kind=report");
  Run("source.close();");
  Report("2");
  Run("update();");
  ASSERT_TRUE(AwaitRange("1\u20133 of 3 that match, 2 kept"));
  Run("listen();");
  EXPECT_TRUE(AwaitRange("1\u20133 of 3 that match, 3 kept"));
}

TEST_F(LivePage, HasItsFilterInTheUrl) {
  Report(R"({"topic_name": "engine"})");
  Miss(2);
  Open("?kind=report&topic=engine");
  ASSERT_TRUE(AwaitRange("1\u20131 of 1 that match, 3 kept"));
  EXPECT_EQ(Text("label:has(:checked)"), "Reports 1");
  EXPECT_EQ(String("byId('topic').value"), "engine");
  Click("[value=refusal]");
  ASSERT_TRUE(AwaitRange("0 of 0 that match, 3 kept"));
  EXPECT_EQ(String("location.search"), "?kind=refusal&topic=engine");
  Run("history.back();");
  ASSERT_TRUE(AwaitRange("1\u20131 of 1 that match, 3 kept"));
  EXPECT_EQ(Text("label:has(:checked)"), "Reports 1");
}

TEST_F(LivePage, SaysThatNothingWasRefusedOnlyWhenThatIsSo) {
  Report("1");
  Open("?kind=refusal");
  EXPECT_THAT(Text("#empty"), HasSubstr("Nothing refused"));
  EXPECT_EQ(Text("#refused"), "nothing refused");
  Miss();
  ASSERT_TRUE(AwaitRange("1\u20131 of 1 that match, 2 kept"));
  EXPECT_FALSE(IsShown("#empty"));
  EXPECT_EQ(Text("#refused"), "1 refused");
  Open("?kind=refusal&text=other");
  EXPECT_THAT(Text("#empty"), HasSubstr("No exchange matches the filter"));
}

TEST_F(LivePage, AnnouncesARefusalOnce) {
  Miss();
  Open();
  EXPECT_EQ(Text("#announce"), "");  // what was refused before is no news
  Run("window.told = [];"
      "const node = byId('announce');"
      "new MutationObserver(() => told.push(node.textContent)).observe(node, {childList: true});");
  Miss();
  ASSERT_TRUE(AwaitRange("of 2"));
  // The page goes on drawing and counting, and says no more of it.
  Report("1");
  ASSERT_TRUE(AwaitRange("of 3"));
  Report("2");
  ASSERT_TRUE(AwaitRange("of 4"));
  EXPECT_EQ(String("told.join()"), "Refused: GET /files/none, 404, no such file");
  EXPECT_EQ(String("byId('announce').ariaLive"), "polite");
}

TEST_F(LivePage, DrawsTheLastTenMinutes) {
  Report("1", 3);
  Miss();
  Open();
  ASSERT_TRUE(Await("byId('reports').textContent === '3 reports'"));
  EXPECT_EQ(Text("#refusals"), "1 refusal");
  EXPECT_THAT(String("byId('chart').ariaLabel"), HasSubstr("3 reports, 1 refusal"));
  // Reports stand on the line and refusals hang from it, on one scale.
  const std::vector<double> sums = Run(R"(
    return ['.reports', '.refusals'].map(part => [...document.querySelector('#chart ' + part)
        .getAttribute('d').matchAll(/v([^h]+)/g)].reduce((sum, bar) => sum + Number(bar[1]), 0));)");
  EXPECT_LT(sums.at(0), 0);
  EXPECT_NEAR(sums.at(0), -3 * sums.at(1), 0.01);
}

TEST_F(LivePage, HasEverythingAfterARestart) {
  Report("1");
  Miss();
  Open();
  const std::string port = std::to_string(m_backend.Port());
  ASSERT_EQ(m_backend.Process().Stop().exitStatus, 0);
  ASSERT_TRUE(Await("byId('state').className === 'gone'"));
  EXPECT_EQ(Text("#state"), "the back end does not answer");
  EXPECT_EQ(Rows().size(), 2u);
  Picture("gone");
  m_backend.Start({"--port", port, "--open"});
  ASSERT_TRUE(Await("byId('state').className === 'live'"));
  Report("2");
  ASSERT_TRUE(AwaitRange("1\u20133 of 3"));
}

TEST_F(LivePage, StartsOverWhereAnotherRootAnswers) {
  const std::string port = std::to_string(m_backend.Port());
  Miss(3);
  Open();
  ASSERT_TRUE(AwaitRange("of 3"));
  m_backend.Process().Stop();
  ASSERT_TRUE(Await("byId('state').className === 'gone'"));
  BackendProcess second({"--port", port, "--open"});
  Curl({"-d", "1", second.Url("/report")});
  ASSERT_TRUE(AwaitRange("1\u20131 of 1"));
  EXPECT_THAT(Rows(), ElementsAre(StartsWith("200 POST /report")));
}

TEST_F(LivePage, MisbehaviourSparesThePage) {
  m_backend.Start({"--port", "0", "--status", "500", "--cut-after", "10"});
  Open();
  Curl({Url("/echo")});
  ASSERT_TRUE(AwaitRange("of 1"));
}

TEST_F(LivePage, HostileTextIsShownAsText) {
  Open();
  const std::string file = m_temp.Write("file", "x");
  Curl({"-T", file, Url("/objects/%3Cimg%20src%3Dx%20onerror%3Dalert(1)%3E")});
  Curl({"-T", file, Url("/objects/a%1B%5B31m%E2%80%AEb%FF")});
  Report(R"({"<script>alert(2)</script>": "</td><svg onload=alert(3)>"})");
  Curl({"-g", Url("/configs/a/%3Cb%3Ebold/%3Csvg%20onload=alert(4)%3E")});
  ASSERT_TRUE(AwaitRange("of 4"));
  EXPECT_THAT(Rows(), Contains(HasSubstr("<img src=x onerror=alert(1)> | unsigned")));
  EXPECT_THAT(Rows(), Contains(HasSubstr("a\\x1b[31m\\xe2\\x80\\xaeb\\xff | unsigned")));
  EXPECT_THAT(Rows(),
              Contains(HasSubstr(R"({"<script>alert(2)</script>":"</td><svg onload=alert(3)>"})")));
  EXPECT_THAT(Rows(), Contains(HasSubstr("no namespace '<svg onload=alert(4)>'")));
  for (int id = 1; id <= 4; ++id) {
    Click("#x" + std::to_string(id));
    ASSERT_TRUE(Await("location.search === '?open=" + std::to_string(id) +
                      "' && document.querySelector('#detail .inside dl')"));
  }
  EXPECT_EQ(
      Number("document.querySelectorAll('main :is(img, svg, script, b), #detail svg').length"), 0);
}

}  // namespace
}  // namespace lumtest

// One exchange on the page, and the commands that repeat it.
#include <LumSafeText.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <regex>

#include "LivePage.h"

namespace lumtest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class OneExchange : public LivePage {
 protected:
  // What a fact of the detail says, or "none".
  static std::string Fact(const std::string& name) {
    return String("[...document.querySelectorAll('#detail dt')].find(dt => dt.innerText === '" +
                  name + "')?.nextElementSibling.innerText ?? 'none'");
  }

  static std::string Block(const std::string& label) {
    return String("document.querySelector('#detail pre[aria-label=\"" + label +
                  "\"]').textContent");
  }

  // The head without the length of the body: of a report that is JSON, the compact form is kept.
  static std::string Head() {
    return std::regex_replace(Block("Head of the request"), std::regex("Content-Length: [0-9]+"),
                              "");
  }

  static void Press(const std::string& label) {
    Run("[...document.querySelectorAll('#detail :is(button, a)')].find(button => button.innerText "
        "=== '" +
        label + "').click();");
  }

  // Runs a command of the page in a shell, beside the programs of this build.
  static ProcessResult Shell(const std::string& command, const std::string& directory) {
    ProcessOptions options;
    options.directory = directory;
    options.environment = {std::string("PATH=") + LUM_PROGRAMS + ":" + std::getenv("PATH"),
                           "LUMCURL_TOKEN=secret", "no_proxy=*"};
    return RunCommand({"bash", "-c", command}, options);
  }
};

TEST_F(OneExchange, OpensWithItsFactsBodyAndHead) {
  m_backend.Start({"--port", "0"});
  Curl({"-H", "X-Auth-Token: secret-of-mine", "-d", R"({"a": [1, {}], "b": 12345678901234567890})",
        Url("/report")});
  Miss();
  Open();
  Click("#x1");
  ASSERT_TRUE(AwaitDetail());
  EXPECT_EQ(String("location.search"), "?open=1");
  EXPECT_EQ(Text("#detail-title"), "POST /report");
  EXPECT_EQ(Fact("Refused"), "the token is unknown");
  EXPECT_EQ(Fact("Status"), "401");
  EXPECT_THAT(Fact("Duration"), testing::MatchesRegex("[0-9.]+ m?s"));
  EXPECT_THAT(Fact("Time"), testing::MatchesRegex("20..-..-.. ..:..:..[.]..."));
  EXPECT_THAT(Block("Head of the request"), HasSubstr("X-Auth-Token: ***"));
  EXPECT_THAT(Text("body"), Not(HasSubstr("secret-of-mine")));
  EXPECT_THAT(Block("Answer"), HasSubstr("\"error\": \"the token is unknown\""));
  // The last one closes, and the URL with it.
  Run("history.back();");
  ASSERT_TRUE(Await("!byId('detail').open"));
}

TEST_F(OneExchange, ShowsABodyPrettyAndRaw) {
  const std::string body = R"({"a":[1,{}],"b":12345678901234567890,"c":"x\"{ y","a":1e2})";
  Curl({"-d", body, Url("/echo")});
  Show(1);
  EXPECT_EQ(Fact("Body in"), "58 bytes");
  EXPECT_EQ(Block("Body"),
            "{\n  \"a\": [\n    1,\n    {}\n  ],\n  \"b\": 12345678901234567890,\n"
            "  \"c\": \"x\\\"{ y\",\n  \"a\": 1e2\n}");
  Press("Raw");
  EXPECT_EQ(Block("Body"), body);
  Press("Raw");
  EXPECT_THAT(Block("Body"), HasSubstr("\n    1,\n"));
}

TEST_F(OneExchange, ShowsABodyByTheRuleOfTheLog) {
  // The first and the last of each range that is spelled out, and what lies beside them; bytes that
  // are no UTF-8, too long forms, surrogates.
  const std::string body =
      "no JSON \x01\x1f \x7f \xc2\x80 \xc2\x9f\xc2\xa0 \xd8\x9b\xd8\x9c\xd8\x9d "
      "\xe2\x80\x8d\xe2\x80\x8e\xe2\x80\x8f\xe2\x80\x90 "
      "\xe2\x80\xa7\xe2\x80\xa8\xe2\x80\xae\xe2\x80\xaf "
      "\xe2\x81\xa5\xe2\x81\xa6\xe2\x81\xa9\xe2\x81\xaa \xff \x85 \xc0\x80 \xed\xa0\x80 "
      "\xf4\x90\x80\x80 "
      "\xf0\x9f\x98\x80 \xe2\x82 \x1b[31m Gr\xc3\xbc\xc3\x9f\x65\t\n" +
      std::string(1, '\0');
  Curl({"--data-binary", "@" + m_temp.Write("body", body), Url("/report")});
  Show(1);
  EXPECT_EQ(Block("Body"), LumSafeText(body, "\n\t"));
}

TEST_F(OneExchange, FetchesALargeBodyOnlyWhenAskedTo) {
  const std::string document = "[\"" + std::string(500'000, 'x') + "\",\"the end\"]";
  Curl({"--data-binary", "@" + m_temp.Write("body", document), Url("/report")});
  Show(1);
  EXPECT_LT(Block("Body").size(), 70'000u);
  EXPECT_THAT(Text("#detail"), HasSubstr("64 KiB of 488 KiB are shown."));
  Press("Show more");
  ASSERT_TRUE(Await("document.querySelector('#detail pre').textContent.endsWith('the end\"\\n]')"));
  EXPECT_THAT(Text("#detail"), Not(HasSubstr("are shown.")));
  // The whole of it is one click away as well.
  EXPECT_EQ(String("document.querySelector('#detail a[download]').getAttribute('href')"),
            "/exchanges/1/body");
}

TEST_F(OneExchange, OffersTheObjectForDownload) {
  Curl({"-T", m_temp.Write("a", "content"), Url("/objects/logs/a%20b.txt")});
  Show(1);
  EXPECT_EQ(Fact("Object"), "logs/a b.txt");
  const Json link = s_browser->RunAsync(R"(
    const link = document.querySelector('#detail a[download]');
    fetch(link.href).then(answer => answer.text()).then(text => arguments[0]([link.download, text]));
    )");
  EXPECT_EQ(link, Json({"a b.txt", "content"}));
}

TEST_F(OneExchange, SaysWhatIsNotKeptAnyMore) {
  Open("?open=17");
  ASSERT_TRUE(Await("document.querySelector('#detail[open] .inside p') !== null"));
  EXPECT_EQ(Text("#detail-title"), "Exchange 17");
  EXPECT_THAT(Text("#detail .inside"), HasSubstr("kept"));
  s_browser->Console();  // where the browser notes the 404
}

// What the copied command sends is what was sent: nothing is lost, added or run by the shell.
TEST_F(OneExchange, ItsCurlCommandSendsTheSameAgain) {
  const std::vector<std::string> bodies = {
      R"({"it's": "$(touch owned) `touch owned` \\ ! \" ; touch owned"})",
      "@/etc/passwd is no file's name here",
      "\x1B]0;owned\x07 \xE2\x80\xAE \x01\x03\x15 \xFF",
      "line\n'; touch owned; '\nline",
      std::string(20'000, '7'),
  };
  int id = 0;
  for (const std::string& body : bodies) {
    Curl({"-H", "Content-Type: text/plain", "-H", "X-Odd: it's $HOME \"q\" \\ `x`", "-H", "Empty;",
          "-H", "X-Auth-Token: secret", "-g", "--data-binary", "@" + m_temp.Write("body", body),
          Url("/report?it='$x'&a[]={1}")});
    Show(++id);
    const std::string head = Head();
    const std::string command = Block("Again with curl");
    EXPECT_THAT(command, Not(HasSubstr("secret")));
    const ProcessResult result = Shell(command, m_temp.Path());
    ASSERT_EQ(result.exitStatus, 0) << command << result.Describe();
    Show(++id);
    EXPECT_EQ(Head(), head) << command;
    const std::string url = Url("/exchanges/");
    EXPECT_EQ(Curl({url + std::to_string(id) + "/body"}).body,
              Curl({url + std::to_string(id - 1) + "/body"}).body)
        << command;
    EXPECT_FALSE(Exists(m_temp.Path("owned")));
  }
}

TEST_F(OneExchange, ItsCurlCommandPacksAgainWhatWasPacked) {
  m_temp.Write("body", R"({"accessId": "robot-7"})");
  ASSERT_TRUE(RunCommand({"gzip", m_temp.Path("body")}).Succeeded());
  Curl({"-H", "Content-Encoding: gzip", "-H", "Content-Type: application/json", "--data-binary",
        "@" + m_temp.Path("body.gz"), Url("/report")});
  Show(1);
  ASSERT_TRUE(Shell(Block("Again with curl"), m_temp.Path()).Succeeded());
  Show(2);
  EXPECT_THAT(Fact("Body in"), HasSubstr(", gzip"));
  EXPECT_EQ(Fact("Device"), "robot-7");
}

TEST_F(OneExchange, ItsCurlCommandUploadsAFileAgain) {
  Curl({"-T", m_temp.Write("file", "content"), Url("/objects/it's.txt")});
  Show(1);
  EXPECT_THAT(Text("#detail"), HasSubstr("Needs the file."));
  m_temp.Write("it's.txt", "other content");
  ASSERT_TRUE(Shell(Block("Again with curl"), m_temp.Path()).Succeeded());
  EXPECT_EQ(Curl({Url("/objects/it's.txt")}).body, "other content");
}

TEST_F(OneExchange, ItsLumcurlCommandSendsTheSameAgain) {
  m_temp.Write("request.json", "{}");
  const auto newest = [this] { return Curl({Url("/totals")}).Json()["last"].AsInt64(); };
  const std::string json = "Content-Type: application/json";
  const std::pair<const char*, std::vector<std::string>> kCases[] = {
      {"lumcurl report",
       {"-H", json, "-d", "{\"accessId\": \"it's\", \"topic_name\": \"$(id)\"}", Url("/report")}},
      {"| lumcurl service-post",
       {"-H", json, "-d", "[\"" + std::string(3000, '7') + "\"]", Url("/echo")}},
      {"lumcurl service-get", {"-H", "X-Odd: $HOME", Url("/echo?a=1&b='")}},
      {"lumcurl token", {"-d", "{}", Url("/token")}},
      {"lumcurl log-address", {Url("/log-address?access_id=robot-7&file_name=a.zip")}},
      {"lumcurl log-address", {Url("/log-address?access_id=--quiet&file_name=--help")}},
      {"lumcurl upload-log", {"-T", m_temp.Write("a.zip", "content"), Url("/objects/a.zip")}},
      {"lumcurl download", {Url("/objects/a.zip")}},
  };
  for (const auto& [start, arguments] : kCases) {
    Curl(arguments);
    const auto id = newest();
    Show(id);
    const std::string title = Text("#detail-title");
    const std::string object = Fact("Object") + Fact("Device") + Fact("Topic");
    const std::string command = Block("Again with lumcurl");
    EXPECT_THAT(command, HasSubstr(start));
    SCOPED_TRACE(command);
    const ProcessResult result = Shell(command, m_temp.Path());
    EXPECT_EQ(result.exitStatus, 0) << result.Describe();
    Show(id + 1);
    EXPECT_EQ(Text("#detail-title"), title);
    EXPECT_EQ(Fact("Object") + Fact("Device") + Fact("Topic"), object);
  }
  Curl({"-X", "DELETE", Url("/echo")});
  Show(newest());
  EXPECT_THAT(String("byId('detail').textContent"),
              HasSubstr("lumcurl has no command for such a request."));
}

TEST_F(OneExchange, CopiesItsCommand) {
  Miss();
  Show(1);
  // Headless browsers have a clipboard of their own, but ask before they hand it out.
  Run("navigator.clipboard.writeText = text => { window.copied = text; return Promise.resolve(); "
      "};");
  Press("Copy");
  ASSERT_TRUE(
      Await("[...document.querySelectorAll('#detail button')].some(b => b.textContent === "
            "'Copied')"));
  EXPECT_EQ(String("copied"), Block("Again with curl"));
  // Over plain HTTP from another machine there is none.
  Run("navigator.clipboard.writeText = () => Promise.reject(); document.execCommand = () => {"
      "  window.selected = document.activeElement.value; return true; };");
  Press("Copy");
  ASSERT_TRUE(
      Await("[...document.querySelectorAll('#detail button')].filter(b => b.textContent === "
            "'Copied').length === 2"));
  EXPECT_EQ(String("selected"), Block("Again with lumcurl"));
}

}  // namespace
}  // namespace lumtest

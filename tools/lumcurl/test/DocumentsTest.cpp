// The man page and the completion, as made from the option table.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>

#include "Lumcurl.h"
#include "support/Files.h"

namespace lumtest {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

// The commands, or the long options of one, as --help lists them.
std::set<std::string> Listed(const Words& arguments, const std::string& regex) {
  const std::string help = Lumcurl(arguments).out;
  std::set<std::string> names;
  const std::regex pattern(regex);
  for (std::sregex_iterator match(help.begin(), help.end(), pattern), end; match != end; ++match) {
    names.insert((*match)[1]);
  }
  return names;
}

std::set<std::string> Commands() {
  const std::string page = Lumcurl({"--help"}).out;
  const std::size_t begin = page.find("\nHTTP:\n");
  std::set<std::string> names;
  const std::regex pattern("\n  ([a-z][a-z-]+) ");
  for (std::sregex_iterator
           match(page.begin() + static_cast<std::ptrdiff_t>(begin), page.end(), pattern),
       end;
       match != end; ++match) {
    if ((*match)[1] != "lumcurl") {
      names.insert((*match)[1]);
    }
  }
  return names;
}

// What the man page looks like to a reader, without bold and underline.
ProcessResult Rendered() {
  ProcessOptions options;
  options.input = Lumcurl({"--help-man"}).out;
  options.environment = {"GROFF_NO_SGR=1"};
  return RunCommand({"groff", "-man", "-ww", "-Tascii", "-P-c", "-P-b", "-P-u", "-rLL=200n"},
                    options);
}

TEST(ManPage, IsCleanTroff) {
  const ProcessResult result = Rendered();
  EXPECT_TRUE(result.Succeeded()) << result.Describe();
  EXPECT_THAT(result.err, IsEmpty());
  for (const char* section : {"NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "COMMANDS",
                              "EXIT STATUS", "ENVIRONMENT", "SEE ALSO"}) {
    EXPECT_THAT(result.out, HasSubstr(std::string("\n") + section + "\n")) << section;
  }
}

TEST(ManPage, HoldsEveryCommandAndOption) {
  const std::string page = Rendered().out;
  ASSERT_EQ(Commands().size(), 16u);
  for (const std::string& command : Commands()) {
    EXPECT_THAT(page, HasSubstr("lumcurl " + command + " [OPTIONS]"));
    for (const std::string& option : Listed({command, "--help"}, "(--[a-z][a-z-]+)")) {
      EXPECT_THAT(page, HasSubstr(option)) << command;
    }
  }
}

TEST(ManPage, ExplainsExitStatusesAndVariables) {
  const std::string page = Rendered().out;
  EXPECT_THAT(page, testing::ContainsRegex("\n +130 +Interrupted"));
  EXPECT_THAT(page, HasSubstr("LUMCURL_TOKEN"));
  EXPECT_THAT(page, HasSubstr("LUMCURL_KEY_PASS"));
}

class BashCompletion : public testing::Test {
 protected:
  BashCompletion() { m_directory.Write("script", Lumcurl({"completion", "bash"}).out); }

  // The words offered behind `line`, whose last word is being typed.
  std::vector<std::string> Offered(const Words& line) {
    const std::string script =
        "source ./script\n"
        "COMP_WORDS=(" +
        ShellWords(line) +
        ")\n"
        "COMP_CWORD=" +
        std::to_string(line.size() - 1) +
        "\n"
        "_lumcurl\n"
        "printf '%s\\n' \"${COMPREPLY[@]}\"\n";
    ProcessOptions options;
    options.directory = m_directory.Path();
    const ProcessResult result = RunCommand({"bash", "--norc", "-u", "-e", "-c", script}, options);
    EXPECT_TRUE(result.Succeeded()) << result.Describe();
    EXPECT_THAT(result.err, IsEmpty());
    std::vector<std::string> words;
    std::istringstream lines(result.out);
    for (std::string word; std::getline(lines, word);) {
      words.push_back(word);
    }
    return words;
  }

  TempDir m_directory;
};

TEST_F(BashCompletion, OffersTheCommands) {
  EXPECT_THAT(Offered({"lumcurl", ""}), IsSupersetOf(Commands()));
  EXPECT_THAT(Offered({"lumcurl", "upload-f"}), testing::ElementsAre("upload-file"));
}

TEST_F(BashCompletion, OffersEachCommandsOwnOptions) {
  for (const std::string& command : Commands()) {
    EXPECT_THAT(Offered({"lumcurl", command, "--"}),
                IsSupersetOf(Listed({command, "--help"}, "\n  (?:-[a-zA-Z],)?(--[a-z][a-z-]+)")))
        << command;
  }
  EXPECT_THAT(Offered({"lumcurl", "get", "--"}), Not(Contains("--gzip")));
}

TEST_F(BashCompletion, OffersFilesWhereAFileIsWanted) {
  m_directory.Write("some.pem", "");
  m_directory.MakeDir("some-dir");
  EXPECT_THAT(Offered({"lumcurl", "get", "--cacert", "some."}), testing::ElementsAre("some.pem"));
  EXPECT_THAT(Offered({"lumcurl", "upload-file", "http://h/", "some."}),
              testing::ElementsAre("some.pem"));
  EXPECT_THAT(Offered({"lumcurl", "report", "--topic", "some."}), testing::ElementsAre(""));
}

TEST_F(BashCompletion, OffersTheShells) {
  EXPECT_THAT(Offered({"lumcurl", "completion", "b"}), Contains("bash"));
}

TEST_F(BashCompletion, IsInstalledForLumcurl) {
  EXPECT_THAT(Lumcurl({"completion", "bash"}).out, HasSubstr("-F _lumcurl lumcurl\n"));
}

}  // namespace
}  // namespace lumtest

// The man page and the completions, as made from the option table.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "Lumcurl.h"
#include "support/Files.h"

namespace lumtest {
namespace {

using testing::Contains;
using testing::ContainsRegex;
using testing::IsSupersetOf;

// The long options of a command, as its --help lists them.
Words OptionsOf(const std::string& command) {
  return Matches(Lumcurl({command, "--help"}).out, "\n  (?:-[a-zA-Z],)?(--[a-z][a-z-]+)");
}

// What the man page looks like to a reader, without bold and underline.
ProcessResult Rendered() {
  ProcessOptions options;
  options.input = RunCommand({LUM_DOCUMENT_LUMCURL, "man"}).out;
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
  for (const std::string& command : Commands()) {
    EXPECT_THAT(page, HasSubstr("lumcurl " + command + " [OPTIONS]"));
    for (const std::string& option : OptionsOf(command)) {
      EXPECT_THAT(page, HasSubstr(option)) << command;
    }
  }
}

TEST(ManPage, ExplainsExitStatusesAndVariables) {
  const std::string page = Rendered().out;
  EXPECT_THAT(page, HasSubstr("129, 130, 143\n"));
  EXPECT_THAT(page, HasSubstr("LUMCURL_TOKEN"));
  EXPECT_THAT(page, HasSubstr("LUMCURL_KEY_PASS"));
  for (const char* variable : {"http_proxy", "https_proxy, HTTPS_PROXY", "all_proxy, ALL_PROXY",
                               "no_proxy, NO_PROXY", "NO_COLOR"}) {
    EXPECT_THAT(page, ContainsRegex(std::string("\n +") + variable + "\n")) << variable;
  }
}

// bash or fish that has read the completion, in a directory of its own.
class ShellCompletion : public testing::TestWithParam<const char*> {
 protected:
  ShellCompletion() { m_directory.Write("script", Lumcurl({"completion", GetParam()}).out); }

  // The words offered behind `line`, whose last word is being typed; descriptions cut off.
  Words Offered(const Words& line) const {
    static const std::string kBash =
        "source ./script; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _lumcurl\n"
        "for word in \"${COMPREPLY[@]}\"; do printf '%s\\n' \"$word\"; done\n";
    static const std::string kFish = "source ./script; complete -C \"$argv\"";
    Words argv = {"bash", "--norc", "-u", "-e", "-c", kBash, "bash"};
    if (GetParam() == std::string("fish")) {
      argv = {"fish", "--no-config", "-c", kFish};
    }
    ProcessOptions options;
    options.directory = m_directory.Path();
    options.environment = {"HOME=" + m_directory.Path(), "XDG_CONFIG_HOME=", "XDG_DATA_HOME="};
    const ProcessResult result = RunCommand(Joined(argv, line), options);
    EXPECT_THAT(result, Ends(0, IsEmpty()));
    Words words = LinesOf(result.out);
    for (std::string& word : words) {
      word.erase(std::min(word.find('\t'), word.size()));
    }
    return words;
  }

  TempDir m_directory;
};

TEST_P(ShellCompletion, OffersTheCommands) {
  EXPECT_THAT(Offered({"lumcurl", ""}), IsSupersetOf(Commands()));
  EXPECT_THAT(Offered({"lumcurl", "upload-f"}), ElementsAre("upload-file"));
}

TEST_P(ShellCompletion, OffersEachCommandsOwnOptions) {
  for (const std::string& command : Commands()) {
    EXPECT_THAT(Offered({"lumcurl", command, "--"}), IsSupersetOf(OptionsOf(command))) << command;
  }
  EXPECT_THAT(Offered({"lumcurl", "get", "--"}), Not(Contains("--gzip")));
}

TEST_P(ShellCompletion, OffersFilesAndChoices) {
  m_directory.Write("some.pem", "");
  m_directory.MakeDir("some-dir");
  EXPECT_THAT(Offered({"lumcurl", "get", "--cacert", "some."}), ElementsAre("some.pem"));
  EXPECT_THAT(Offered({"lumcurl", "upload-file", "http://h/", "some."}), ElementsAre("some.pem"));
  EXPECT_THAT(Offered({"lumcurl", "report", "--topic", "some."}), IsEmpty());
  EXPECT_THAT(Offered({"lumcurl", "completion", ""}), IsSupersetOf({"bash", "zsh", "fish"}));
  EXPECT_THAT(Offered({"lumcurl", "get", "--color", ""}),
              UnorderedElementsAre("auto", "always", "never"));
}

INSTANTIATE_TEST_SUITE_P(All, ShellCompletion, testing::Values("bash", "fish"),
                         [](const auto& test) { return std::string(test.param); });

TEST(BashCompletion, IsInstalledForLumcurl) {
  EXPECT_THAT(Lumcurl({"completion", "bash"}).out, HasSubstr("-F _lumcurl lumcurl\n"));
}

// An interactive zsh that has read the completion.
class ZshCompletion : public testing::Test {
 protected:
  ZshCompletion()
      : m_script(Lumcurl({"completion", "zsh"}).out),
        m_zsh({"zsh", "-f", "-i"}, {"TERM=dumb", "PS1=", "ZDOTDIR=" + m_directory.Path()}) {
    m_zsh.Type("cd '" + m_directory.Path() + "'; autoload -U compinit; compinit -u -D; source '" +
               m_directory.Write("script", m_script) + "'; print 'rea''dy'\n");
    EXPECT_TRUE(m_zsh.WaitFor("ready")) << m_zsh.Shown();
  }

  // Types `keys`, has them completed, and waits until `text` shows.
  bool Completes(const std::string& keys, const std::string& text) {
    m_zsh.Type(keys + "\t");
    const bool found = m_zsh.WaitFor(text);
    m_zsh.Type("\x15");  // empties the line
    return found;
  }

  TempDir m_directory;
  std::string m_script;
  OnTerminal m_zsh;
};

TEST_F(ZshCompletion, CompletesCommandsOptionsFilesAndChoices) {
  m_directory.Write("some.pem", "");
  EXPECT_TRUE(Completes("lumcurl upload-v", "upload-video ")) << m_zsh.Shown();
  EXPECT_TRUE(Completes("lumcurl refresh-token --toke", "--token-file")) << m_zsh.Shown();
  EXPECT_TRUE(Completes("lumcurl get --cacert so", "some.pem")) << m_zsh.Shown();
  EXPECT_TRUE(Completes("lumcurl upload-dir --color ne", "never")) << m_zsh.Shown();
  EXPECT_TRUE(Completes("lumcurl completion z", "completion zsh")) << m_zsh.Shown();
}

TEST_F(ZshCompletion, HoldsEachCommandsOwnOptions) {
  for (const std::string& command : Commands()) {
    const std::size_t begin = m_script.find("        " + command + ")\n");
    ASSERT_NE(begin, std::string::npos) << command;
    const std::string part = m_script.substr(begin, m_script.find("return ;;", begin) - begin);
    for (const std::string& option : OptionsOf(command)) {
      EXPECT_THAT(part, testing::ContainsRegex("'" + option + "=?'")) << command;
    }
  }
}

}  // namespace
}  // namespace lumtest

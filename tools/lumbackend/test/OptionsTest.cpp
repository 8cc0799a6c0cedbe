// The command line.
#include "Options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <CLI/CLI.hpp>

#include <cstring>
#include <sstream>

#include "Embedded.h"
#include "OptionTexts.h"
#include "Paths.h"
#include "support/Files.h"

namespace {

using testing::HasSubstr;

Options Parse(const std::string& line) {
  Options options;
  MakeParser(options)->parse(line);
  return options;
}

std::string ProblemOf(const std::string& line) {
  try {
    Parse(line);
  } catch (const CLI::ParseError& problem) {
    return problem.what();
  }
  return "";
}

// As the man page writes it.
std::string Troff(const std::string& text) {
  std::string escaped;
  for (const char character : text) {
    escaped += (character == '-' || character == '\\' ? "\\" : "") + std::string(1, character);
  }
  return escaped;
}

TEST(Options, Defaults) {
  const Options options = Parse("--root r");
  EXPECT_EQ(options.root, "r");
  EXPECT_EQ(options.bind, "127.0.0.1");
  EXPECT_FALSE(options.port);
  EXPECT_FALSE(options.tlsPort);
  EXPECT_EQ(options.tokenLifetime, 3600u);
  EXPECT_FALSE(options.open);
  EXPECT_FALSE(options.maxBody);
  EXPECT_EQ(options.failRate, 0);
  EXPECT_EQ(options.seed, 0u);
  EXPECT_FALSE(options.status);
  EXPECT_EQ(options.delay, 0u);
  EXPECT_FALSE(options.cutAfter);
  EXPECT_EQ(options.keep, 1'000'000u);
  EXPECT_TRUE(options.hosts.empty());
}

TEST(Options, EveryOptionArrives) {
  const Options options = Parse(
      "--root r --port 0 --tls-port 65535 --bind ::1 --tls-dir t --cert c --key k --client-ca a "
      "--token-lifetime 0 --open --sign-key-file s --max-body 2KB --fail-rate 0.25 --seed 9 "
      "--status 503 --delay 10 --cut-after 7 --keep 8 --host a.example --host b.example");
  EXPECT_EQ(options.port, 0);
  EXPECT_EQ(options.tlsPort, 65535);
  EXPECT_EQ(options.bind, "::1");
  EXPECT_EQ(options.tlsDir, "t");
  EXPECT_EQ(options.cert, "c");
  EXPECT_EQ(options.key, "k");
  EXPECT_EQ(options.clientCa, "a");
  EXPECT_EQ(options.tokenLifetime, 0u);
  EXPECT_TRUE(options.open);
  EXPECT_EQ(options.signKeyFile, "s");
  EXPECT_EQ(options.maxBody, 2048u);
  EXPECT_EQ(options.failRate, 0.25);
  EXPECT_EQ(options.seed, 9u);
  EXPECT_EQ(options.status, 503);
  EXPECT_EQ(options.delay, 10u);
  EXPECT_EQ(options.cutAfter, 7u);
  EXPECT_EQ(options.keep, 8u);
  EXPECT_EQ(options.hosts, (std::vector<std::string>{"a.example", "b.example"}));
}

TEST(Options, RefusalsNameTheOption) {
  EXPECT_THAT(ProblemOf(""), HasSubstr("--root"));
  const std::pair<const char*, const char*> kBad[] = {
      {"--port", "65536"},     {"--port", "-1"},        {"--port", "x"},
      {"--tls-port", "99999"}, {"--bind", "localhost"}, {"--bind", "1.2.3"},
      {"--fail-rate", "1.1"},  {"--fail-rate", "-0.1"}, {"--fail-rate", "nan"},
      {"--fail-rate", "half"}, {"--status", "199"},     {"--status", "600"},
      {"--delay", "-1"},       {"--delay", "600001"},   {"--token-lifetime", "-1"},
      {"--max-body", "ten"},   {"--cut-after", "-1"},   {"--seed", "-1"},
      {"--max-body", "-1"},    {"--keep", "-1"},        {"--keep", "x"},

      {"--cert", "c"},         {"--key", "k"},          {"--token-lifetime", "1000000001"},
  };
  for (const auto& [option, value] : kBad) {
    EXPECT_THAT(ProblemOf(std::string("--root r ") + option + " " + value), HasSubstr(option))
        << option << " " << value;
  }
  EXPECT_THAT(ProblemOf("--root r --nonsense"), HasSubstr("--nonsense"));
  EXPECT_THAT(ProblemOf("--root r word"), HasSubstr("word"));
}

TEST(Options, HelpListsEveryPathWithinItsWidth) {
  Options options;
  const std::string help = MakeParser(options, 60)->help();
  for (const Path& path : kPaths) {
    EXPECT_THAT(help, HasSubstr(std::string("  ") + path.method +
                                std::string(5 - std::strlen(path.method), ' ') + path.path + "\n"));
  }
  std::istringstream lines(help.substr(0, help.find("Example:")));
  for (std::string line; std::getline(lines, line);) {
    EXPECT_TRUE(line.size() <= 60 || line.find(' ', 29) == std::string::npos) << line;
  }
}

TEST(Options, TheManPageKnowsEveryOptionPathAndTable) {
  Options options;
  const auto parser = MakeParser(options);
  const std::string page = lumtest::ReadFile(LUM_MAN_PAGE);
  for (const CLI::Option* option : parser->get_options()) {
    EXPECT_THAT(page, HasSubstr("\\fB\\-\\-" + Troff(option->get_lnames()[0])));
  }
  for (const OptionText& option : kOptionTexts) {
    EXPECT_EQ(parser->get_option(option.name)->get_description(), option.text);
    EXPECT_THAT(page, HasSubstr("\n" + Troff(option.text) + ".\n"));
  }
  for (const Path& path : kPaths) {
    EXPECT_THAT(page, HasSubstr(std::string("\\fB") + path.method + " " + Troff(path.path)));
    EXPECT_THAT(page, HasSubstr(Troff(path.answers)));
  }
  EXPECT_THAT(page, HasSubstr("\n" + Troff(kTablesSql)));
}

TEST(Options, TheExampleIsAValidCommandLine) {
  Options unused;
  const std::string help = MakeParser(unused)->help();
  std::string example = help.substr(help.rfind("\n  lumbackend ") + 14);
  example.erase(std::remove(example.begin(), example.end(), '\\'), example.end());
  std::replace(example.begin(), example.end(), '\n', ' ');
  EXPECT_EQ(ProblemOf(example), "");
  EXPECT_EQ(Parse(example).seed, 7u);
}

}  // namespace

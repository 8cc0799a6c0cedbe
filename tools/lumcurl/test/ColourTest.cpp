#include "Colour.h"

#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <cstdlib>

namespace {

// A terminal, whose descriptor it has; and an environment in which it has colours.
class Colour : public testing::Test {
 protected:
  Colour() {
    EXPECT_EQ(openpty(&m_master, &m_terminal, nullptr, nullptr, nullptr), 0);
    setenv("TERM", "xterm", 1);
    unsetenv("NO_COLOR");
  }
  ~Colour() override {
    close(m_master);
    close(m_terminal);
  }

  int m_master = -1;
  int m_terminal = -1;
};

TEST_F(Colour, IsOnForATerminalOnly) {
  EXPECT_TRUE(HasColours("auto", m_terminal));
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  EXPECT_FALSE(HasColours("auto", ends[1]));
  EXPECT_TRUE(HasColours("always", ends[1]));
  close(ends[0]);
  close(ends[1]);
}

TEST_F(Colour, IsOffWhereTheUserWantsNone) {
  EXPECT_FALSE(HasColours("never", m_terminal));
  setenv("NO_COLOR", "1", 1);
  EXPECT_FALSE(HasColours("auto", m_terminal));
  EXPECT_TRUE(HasColours("always", m_terminal));
  setenv("NO_COLOR", "", 1);
  EXPECT_TRUE(HasColours("auto", m_terminal));
}

TEST_F(Colour, IsOffWhereTheTerminalHasNone) {
  for (const char* terminal : {"dumb", ""}) {
    setenv("TERM", terminal, 1);
    EXPECT_FALSE(HasColours("auto", m_terminal)) << terminal;
  }
}

// "name" for a colour, in place of its escape sequence.
std::string Named(std::string text) {
  for (const auto& [sequence, name] : {std::pair{"\x1b[1;34m", "<name>"},
                                       {"\x1b[32m", "<text>"},
                                       {"\x1b[36m", "<number>"},
                                       {"\x1b[35m", "<word>"},
                                       {"\x1b[0m", "</>"}}) {
    for (std::size_t at = 0; (at = text.find(sequence)) != std::string::npos;) {
      text.replace(at, std::string(sequence).size(), name);
    }
  }
  return text;
}

TEST(ColouredJson, PaintsEachKindOfValue) {
  EXPECT_EQ(Named(ColouredJson("{\n  \"a\": \"b\",\n  \"c\": [-1.5e+3, true, null, \"d\"]\n}\n")),
            "{\n  <name>\"a\"</>: <text>\"b\"</>,\n  <name>\"c\"</>: [<number>-1.5e+3</>, "
            "<word>true</>, <word>null</>, <text>\"d\"</>]\n}\n");
}

TEST(ColouredJson, FindsTheEndOfAString) {
  EXPECT_EQ(Named(ColouredJson(R"({"a\"\\": "\\", "b: ":1})")),
            R"({<name>"a\"\\"</>: <text>"\\"</>, <name>"b: "</>:<number>1</>})");
  EXPECT_EQ(Named(ColouredJson("\"open")), "<text>\"open</>");
  EXPECT_EQ(Named(ColouredJson("\"open\\")), "<text>\"open\\</>");
  EXPECT_EQ(ColouredJson(""), "");
}

}  // namespace

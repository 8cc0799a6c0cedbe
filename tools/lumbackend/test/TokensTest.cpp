// Life and death of tokens.
#include "Tokens.h"

#include <gmock/gmock.h>

#include <set>

#include "BackendFixture.h"

namespace {

using std::chrono::seconds;

class TokensTest : public testing::Test {
 protected:
  // Why a request with this token is refused, "" when it is not.
  std::string ProblemWith(const std::string& token) const {
    const auto refusal = m_tokens.Refuse(lumtest::MakeCall("GET", "/", {"X-Auth-Token: " + token}));
    return refusal ? lumtest::ErrorOf(*refusal) : "";
  }

  Tokens::Clock::time_point m_now;
  Tokens m_tokens{seconds(10), [this] { return m_now; }};
};

TEST_F(TokensTest, ATokenIsValidForItsLifetime) {
  const std::string token = m_tokens.Issue();
  m_now += seconds(10) - Tokens::Clock::duration(1);
  EXPECT_EQ(ProblemWith(token), "");
  m_now += Tokens::Clock::duration(1);
  EXPECT_EQ(ProblemWith(token), "the token has expired");
}

TEST_F(TokensTest, TokensAre32HexDigitsAndDiffer) {
  std::set<std::string> tokens;
  for (int i = 0; i < 1000; ++i) {
    const std::string token = m_tokens.Issue();
    EXPECT_THAT(token, testing::MatchesRegex("[0-9a-f]{32}"));
    EXPECT_TRUE(tokens.insert(token).second);
  }
}

TEST_F(TokensTest, TheTableDoesNotGrowForever) {
  const std::string first = m_tokens.Issue();
  m_now += seconds(1);
  const std::string second = m_tokens.Issue();
  for (int i = 0; i < 9999; ++i) {
    m_tokens.Issue();
  }
  EXPECT_EQ(ProblemWith(first), "the token is unknown");
  EXPECT_EQ(ProblemWith(second), "");
}

}  // namespace

// Life and death of tokens.
#include "Tokens.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using std::chrono::seconds;

class TokensTest : public testing::Test {
 protected:
  Tokens::Clock::time_point m_now;
  Tokens m_tokens{seconds(10), [this] { return m_now; }};
};

TEST_F(TokensTest, ATokenIsValidForItsLifetime) {
  const std::string token = m_tokens.Issue();
  EXPECT_EQ(m_tokens.Check(token), Tokens::State::kValid);
  m_now += seconds(10) - Tokens::Clock::duration(1);
  EXPECT_EQ(m_tokens.Check(token), Tokens::State::kValid);
  m_now += Tokens::Clock::duration(1);
  EXPECT_EQ(m_tokens.Check(token), Tokens::State::kExpired);
}

TEST_F(TokensTest, ARevokedTokenIsUnknown) {
  const std::string token = m_tokens.Issue();
  m_tokens.Revoke(token);
  EXPECT_EQ(m_tokens.Check(token), Tokens::State::kUnknown);
  EXPECT_EQ(m_tokens.Check(""), Tokens::State::kUnknown);
}

TEST_F(TokensTest, TokensAre32HexDigitsAndDiffer) {
  std::set<std::string> tokens;
  for (int i = 0; i < 1000; ++i) {
    const std::string token = m_tokens.Issue();
    EXPECT_EQ(token.size(), 32u);
    EXPECT_EQ(token.find_first_not_of("0123456789abcdef"), std::string::npos);
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
  EXPECT_EQ(m_tokens.Check(first), Tokens::State::kUnknown);
  EXPECT_EQ(m_tokens.Check(second), Tokens::State::kValid);
}

TEST_F(TokensTest, WithoutALifetimeATokenHasExpiredAtOnce) {
  Tokens tokens(seconds(0));
  EXPECT_EQ(tokens.Check(tokens.Issue()), Tokens::State::kExpired);
}

}  // namespace

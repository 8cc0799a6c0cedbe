// The embedded page.
#include <gmock/gmock.h>

#include "BackendFixture.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::Field;
using testing::HasSubstr;
using testing::Not;

class PageTest : public lumtest::BackendFixture {
 protected:
  const Reply m_page = Ask("GET", "/");
};

TEST_F(PageTest, HoldsItsFilesByteForByte) {
  for (const char* file : {"page.css", "text.js", "list.js", "exchange.js", "controls.js"}) {
    EXPECT_THAT(m_page.body,
                HasSubstr("\n" + lumtest::ReadFile(std::string(LUM_PAGE_FILES) + file)));
  }
}

TEST_F(PageTest, IsSmallAndNeedsNothingFromElsewhere) {
  EXPECT_LT(m_page.body.size(), 64u << 10);
  for (const char* reference : {"://", "src=", "url(", "@import", "innerHTML"}) {
    EXPECT_THAT(m_page.body, Not(HasSubstr(reference)));
  }
}

TEST_F(PageTest, MayLoadAndRunNothingButItself) {
  const auto policy = AllOf(HasSubstr("default-src 'none'"), HasSubstr("script-src 'sha256-"),
                            Not(HasSubstr("unsafe")));
  EXPECT_THAT(m_page.headers, Contains(AllOf(Field(&HeaderField::name, "Content-Security-Policy"),
                                             Field(&HeaderField::value, policy))));
}

}  // namespace

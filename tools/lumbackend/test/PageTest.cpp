// The embedded page.
#include <gmock/gmock.h>

#include "BackendFixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class PageTest : public lumtest::BackendFixture {};

TEST_F(PageTest, HoldsItsFilesByteForByte) {
  for (const char* file : {"page.css", "text.js", "list.js", "exchange.js", "controls.js"}) {
    EXPECT_THAT(Ask("GET", "/").body,
                HasSubstr("\n" + lumtest::ReadFile(std::string(LUM_PAGE_FILES) + file)));
  }
}

TEST_F(PageTest, IsSmall) {
  EXPECT_LT(Ask("GET", "/").body.size(), 64u << 10);
}

TEST_F(PageTest, NeedsNothingFromElsewhere) {
  for (const char* reference : {"://", "src=", "url(", "@import", "innerHTML"}) {
    EXPECT_THAT(Ask("GET", "/").body, Not(HasSubstr(reference)));
  }
}

TEST_F(PageTest, MayLoadAndRunNothingButItself) {
  std::string policy;
  for (const HeaderField& field : Ask("GET", "/").headers) {
    if (field.name == "Content-Security-Policy") {
      policy = field.value;
    }
  }
  EXPECT_THAT(policy, HasSubstr("default-src 'none'"));
  EXPECT_THAT(policy, HasSubstr("script-src 'sha256-"));
  EXPECT_THAT(policy, Not(HasSubstr("unsafe")));
}

}  // namespace

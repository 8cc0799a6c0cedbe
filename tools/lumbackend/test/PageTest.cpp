// The embedded page.
#include "Routes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/Files.h"

namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Page, HoldsItsFilesByteForByte) {
  for (const char* file : {"page.css", "text.js", "list.js", "exchange.js", "controls.js"}) {
    EXPECT_THAT(PageReply().body,
                HasSubstr("\n" + lumtest::ReadFile(std::string(LUM_PAGE_FILES) + file)));
  }
}

TEST(Page, IsSmall) {
  EXPECT_LT(PageReply().body.size(), 64u << 10);
}

TEST(Page, NeedsNothingFromElsewhere) {
  for (const char* reference : {"://", "src=", "url(", "@import", "innerHTML"}) {
    EXPECT_THAT(PageReply().body, Not(HasSubstr(reference)));
  }
}

TEST(Page, MayLoadAndRunNothingButItself) {
  std::string policy;
  for (const HeaderField& field : PageReply().headers) {
    if (field.name == "Content-Security-Policy") {
      policy = field.value;
    }
  }
  EXPECT_THAT(policy, HasSubstr("default-src 'none'"));
  EXPECT_THAT(policy, HasSubstr("script-src 'sha256-"));
  EXPECT_THAT(policy, Not(HasSubstr("unsafe")));
}

}  // namespace

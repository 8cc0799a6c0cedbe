// memset_s, memcpy_s and sprintf_s: what they write, what they refuse, and what a refusal leaves
// behind.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <string>
#include <type_traits>

#include "LumBoundsCheck.h"

extern "C" int CallAllFromC(char* buffer, rsize_t capacity);

namespace {

static_assert(std::is_same<rsize_t, std::size_t>::value, "C11 K.3.3");
static_assert(std::is_same<errno_t, int>::value, "C11 K.3.2");

constexpr rsize_t kLargest = SIZE_MAX / 2;
constexpr rsize_t kTooLarge = kLargest + 1;

std::string Zeros(std::size_t count) {
  return std::string(count, '\0');
}

TEST(HeaderTest, ServesCallersInC) {
  char buffer[8];
  EXPECT_EQ(7, CallAllFromC(buffer, sizeof(buffer)));
  EXPECT_STREQ("12345-6", buffer);
}

// ---- memset_s ----

TEST(MemsetTest, SetsTheCountOrAfterAViolationTheCapacity) {
  const struct {
    rsize_t capacity;
    int value;
    rsize_t count;
    errno_t result;
    std::string after;  // of four bytes "xxxx"
  } kCases[] = {
      {4, 'a', 3, 0, "aaax"},
      {3, 'a', 3, 0, "aaax"},
      {4, 0, 4, 0, Zeros(4)},
      {4, 0x1AB, 1, 0, "\xABxxx"},
      {4, -1, 1, 0, "\xFFxxx"},
      {4, 'a', 0, 0, "xxxx"},
      {0, 'a', 0, 0, "xxxx"},
      {kLargest, 'a', 2, 0, "aaxx"},
      {2, 'a', 3, ERANGE, "aaxx"},
      {0, 'a', 1, ERANGE, "xxxx"},
      {3, 'a', kTooLarge, ERANGE, "aaax"},
      {kTooLarge, 'a', 0, ERANGE, "xxxx"},
      {kTooLarge, 'a', 1, ERANGE, "xxxx"},
      {SIZE_MAX, 'a', SIZE_MAX, ERANGE, "xxxx"},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(testing::Message() << row.capacity << ' ' << row.value << ' ' << row.count);
    std::string buffer(4, 'x');
    EXPECT_EQ(row.result, memset_s(&buffer[0], row.capacity, row.value, row.count));
    EXPECT_EQ(row.after, buffer);
    EXPECT_EQ(EINVAL, memset_s(nullptr, row.capacity, row.value, row.count));
  }
}

// ---- memcpy_s ----

TEST(MemcpyTest, CopiesTheCountOrAfterAViolationLeavesZeros) {
  const std::string source("ab\0def", 6);
  const struct {
    rsize_t capacity;
    rsize_t count;
    errno_t result;
    std::string after;     // of six bytes "xxxxxx"
    std::string fromNull;  // the same when the source is a null pointer
  } kCases[] = {
      {6, 5, 0, source.substr(0, 5) + "x", Zeros(6)},
      {5, 5, 0, source.substr(0, 5) + "x", Zeros(5) + "x"},
      {4, 0, 0, "xxxxxx", Zeros(4) + "xx"},
      {0, 0, 0, "xxxxxx", "xxxxxx"},
      {kLargest, 2, 0, "abxxxx", ""},  // so many zeros have no room here
      {4, 5, ERANGE, Zeros(4) + "xx", Zeros(4) + "xx"},
      {0, 1, ERANGE, "xxxxxx", "xxxxxx"},
      {3, kTooLarge, ERANGE, Zeros(3) + "xxx", Zeros(3) + "xxx"},
      {kTooLarge, 4, ERANGE, "xxxxxx", "xxxxxx"},
      {kTooLarge, kTooLarge, ERANGE, "xxxxxx", "xxxxxx"},
      {SIZE_MAX, SIZE_MAX, ERANGE, "xxxxxx", "xxxxxx"},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(testing::Message() << row.capacity << ' ' << row.count);
    std::string buffer(6, 'x');
    EXPECT_EQ(row.result, memcpy_s(&buffer[0], row.capacity, source.data(), row.count));
    EXPECT_EQ(row.after, buffer);
    EXPECT_EQ(EINVAL, memcpy_s(nullptr, row.capacity, source.data(), row.count));
    if (!row.fromNull.empty()) {
      buffer.assign(6, 'x');
      EXPECT_EQ(EINVAL, memcpy_s(&buffer[0], row.capacity, nullptr, row.count));
      EXPECT_EQ(row.fromNull, buffer);
    }
  }
}

TEST(MemcpyTest, RangesThatOverlapAreRefused) {
  const struct {
    std::size_t to;
    rsize_t capacity;
    std::size_t from;
    rsize_t count;
    errno_t result;
    std::string after;  // of "abcdefgh"
  } kCases[] = {
      {3, 5, 0, 4, EINVAL, "abc" + Zeros(5)},     // by one byte
      {0, 4, 3, 4, EINVAL, Zeros(4) + "efgh"},    // and from the other side
      {0, 2, 0, 1, EINVAL, Zeros(2) + "cdefgh"},  // onto itself
      {0, 4, 0, 0, 0, "abcdefgh"},
      {4, 4, 0, 4, 0, "abcdabcd"},  // neighbours
      {0, 4, 4, 4, 0, "efghefgh"},
      {0, 8, 4, 3, 0, "efgdefgh"},  // only the bytes that are copied count
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(testing::Message() << row.from << " to " << row.to);
    std::string buffer("abcdefgh");
    EXPECT_EQ(row.result, memcpy_s(&buffer[row.to], row.capacity, &buffer[row.from], row.count));
    EXPECT_EQ(row.after, buffer);
  }
}

// ---- sprintf_s ----

// Calls through this pointer reach the function unchecked by the compiler.
using Formatter = int (*)(char*, rsize_t, const char*, ...);
const Formatter kUnchecked = sprintf_s;

// In the "C" locale, which every program starts with, the second character has no multibyte form.
const wchar_t kUnwritable[] = {L'a', static_cast<wchar_t>(0x4E2D), L'\0'};

TEST(SprintfTest, FormatsItsArguments) {
  char buffer[64];
  EXPECT_EQ(34, sprintf_s(buffer, sizeof(buffer), "https://%s:%d/%05.1f/%x%%/%c%s/%*d", "host",
                          8080, 2.5, 255U, 'q', "", 4, 7));
  EXPECT_STREQ("https://host:8080/002.5/ff%/q/   7", buffer);
}

// The length for a text that fits, and the text with its end; else the error and the empty string.
TEST(SprintfTest, WritesAWholeTextOrNone) {
  const std::string fits(4095, 'u');
  const struct {
    rsize_t capacity;
    std::string text;
    int result;
  } kCases[] = {
      {32, "%n%s%d", 6},
      {1, "", 0},
      {6, "abcde", 5},
      {6, "abcdef", -ERANGE},
      {1, "a", -ERANGE},
      {4096, fits, 4095},
      {4096, fits + "u", -ERANGE},
      {kLargest, "ab", 2},
      {0, "", -ERANGE},
      {kTooLarge, "", -ERANGE},
      {SIZE_MAX, "", -ERANGE},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(testing::Message() << row.capacity << ' ' << row.text);
    const bool isUsable = row.capacity > 0 && row.capacity <= kLargest;
    const char refused = isUsable ? '\0' : 'x';
    std::string buffer(5000, 'x');
    EXPECT_EQ(row.result, kUnchecked(&buffer[0], row.capacity, "%s", row.text.c_str()));
    if (row.result >= 0) {
      EXPECT_EQ(row.text + '\0' + 'x', buffer.substr(0, row.text.size() + 2));
    } else {
      EXPECT_EQ(refused, buffer[0]);
      EXPECT_EQ('x', buffer[isUsable ? row.capacity : 1]);
    }
    EXPECT_EQ(-EINVAL, kUnchecked(nullptr, row.capacity, "%s", row.text.c_str()));
    buffer.assign(5000, 'x');
    EXPECT_EQ(-EINVAL, kUnchecked(&buffer[0], row.capacity, nullptr));
    EXPECT_EQ(refused, buffer[0]);
    EXPECT_EQ('x', buffer[1]);
  }
}

TEST(SprintfTest, ATextWithAZeroCharacterCountsItsWholeLength) {
  char buffer[8] = "xxxxxxx";
  EXPECT_EQ(3, sprintf_s(buffer, 4, "a%cb", '\0'));
  EXPECT_EQ(std::string("a\0b\0xxx", 7), std::string(buffer, 7));
}

TEST(SprintfTest, TextThatCannotBeConvertedLeavesTheEmptyString) {
  std::string buffer(16, 'x');
  EXPECT_EQ(-EINVAL, sprintf_s(&buffer[0], 16, "%ls", kUnwritable));
  EXPECT_EQ('\0', buffer[0]);
  EXPECT_EQ(-ERANGE, sprintf_s(&buffer[0], 0, "%ls", kUnwritable));  // whatever the text
}

}  // namespace

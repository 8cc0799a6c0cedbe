// Texts that the operations are called with, and results as text.

#ifndef LUM_TEST_TORTURE_TEXTS_H
#define LUM_TEST_TORTURE_TEXTS_H

#include <string>

#include "LumJson.h"

namespace lumtest {

constexpr char kBody[] = R"({"a body": "of more than fifteen characters"})";
// Longer than what a string holds in itself: it has to be allocated.
constexpr char kLongText[] = "a text of more than fifteen characters";

inline std::string Text(const LumJson::Value& value) {
  return value.IsNull() ? "null" : value.JsonValueToString();
}

inline std::string Text(int number, const LumJson::Value& value) {
  return std::to_string(number) + " " + Text(value);
}

}  // namespace lumtest

#endif  // LUM_TEST_TORTURE_TEXTS_H

// Reading in one step, and how values show in failure messages.
#ifndef LUM_JSON_TEST_CASES_H
#define LUM_JSON_TEST_CASES_H

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <string_view>

#include "LumJson.h"

namespace LumJson {

inline std::ostream& operator<<(std::ostream& out, const Value& value) {
  return out << value.ToStyledString();
}

}  // namespace LumJson

namespace lumtest {

// The value of a document that is one.
inline LumJson::Value Read(std::string_view text) {
  LumJson::Value value;
  EXPECT_TRUE(value.Parse(std::string(text))) << text;
  return value;
}

// The document of a string as the second library writes it.
std::string WrittenElsewhere(const std::string& text);

// Whether a text is a document.
inline bool Accepts(const std::string& text) {
  LumJson::Value value;
  const bool accepted = value.Parse(text);
  EXPECT_TRUE(accepted || value.IsNull());
  return accepted;
}

}  // namespace lumtest

#endif  // LUM_JSON_TEST_CASES_H

// One document of a table of documents, and how values show in failure messages.
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

// The texts may hold zero bytes: write them as literals with the suffix sv.
struct Accepted {
  std::string_view name;
  std::string_view text;
  std::string_view written;  // the same document without blanks
};

struct Refused {
  std::string_view name;
  std::string_view text;
};

// For failure messages and for the names of the cases.
inline std::ostream& operator<<(std::ostream& out, const Accepted& item) {
  return out << item.text;
}
inline std::ostream& operator<<(std::ostream& out, const Refused& item) {
  return out << item.text;
}

template <typename Case>
std::string NameOf(const testing::TestParamInfo<Case>& info) {
  return std::string(info.param.name);
}

}  // namespace lumtest

#endif  // LUM_JSON_TEST_CASES_H

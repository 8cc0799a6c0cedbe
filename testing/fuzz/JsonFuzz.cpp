// LumJson against a second parser: the same verdict and the same value, and a text of ours reads
// back as what was written. LumJsonTest has its own documents checked here, too.

#include <LumJson.h>

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

#include "Fuzz.h"

namespace {

using Other = nlohmann::ordered_json;

// The depth of nesting that a reader meets at most, and whether some exponent has more than nine
// digits. Texts need no more care: a quote ends them unless a backslash stands before it.
struct Shape {
  int depth = 0;
  bool longExponent = false;
};

Shape ShapeOf(const std::string& text) {
  Shape shape;
  int depth = 0;
  bool inText = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (inText) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        inText = false;
      }
    } else if (c == '"') {
      inText = true;
    } else if (c == '[' || c == '{') {
      shape.depth = std::max(shape.depth, ++depth);
    } else if (c == ']' || c == '}') {
      --depth;
    } else if (c == 'e' || c == 'E') {
      std::size_t digits = i + 1;
      digits += digits < text.size() && (text[digits] == '+' || text[digits] == '-') ? 1 : 0;
      const std::size_t end = std::min(text.find_first_not_of("0123456789", digits), text.size());
      shape.longExponent |= end - digits > 9;
    }
  }
  return shape;
}

bool SameDouble(double a, double b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

bool Same(const LumJson::Value& ours, const Other& theirs) {
  switch (theirs.type()) {
    case Other::value_t::null:
      return ours.IsNull();
    case Other::value_t::boolean:
      return ours.IsBool() && ours.AsBool() == theirs.get<bool>();
    case Other::value_t::string:
      return ours.IsString() && ours.AsString() == theirs.get_ref<const std::string&>();
    case Other::value_t::number_integer:
      if (theirs.get<std::int64_t>() == 0 && ours.IsDouble()) {
        return SameDouble(ours.AsDouble(), -0.0);  // "-0", an integer without a sign to others
      }
      return ours.IsInteger() && ours.AsInt64() == theirs.get<std::int64_t>();
    case Other::value_t::number_unsigned:
      return ours.IsUnsigned() && ours.AsUint64() == theirs.get<std::uint64_t>();
    case Other::value_t::number_float:
      return ours.IsDouble() && SameDouble(ours.AsDouble(), theirs.get<double>());
    case Other::value_t::array: {
      if (!ours.IsArray() || ours.Size() != theirs.size()) {
        return false;
      }
      auto their = theirs.begin();
      for (const LumJson::Value& our : ours.Elements()) {
        if (!Same(our, *their++)) {
          return false;
        }
      }
      return true;
    }
    case Other::value_t::object: {
      if (!ours.IsObject() || ours.Size() != theirs.size()) {
        return false;
      }
      auto their = theirs.begin();
      for (const LumJson::Member& our : ours.Members()) {
        if (our.Name() != their.key() || !Same(our.Item(), *their)) {
          return false;
        }
        ++their;
      }
      return true;
    }
    default:
      return false;
  }
}

void RequireRoundTrip(const LumJson::Value& value, const std::string& written) {
  LumJson::Value read;
  LUM_REQUIRE(read.Parse(written));
  LUM_REQUIRE(read == value);
  LUM_REQUIRE(Same(read, Other::parse(written)));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  LumJson::Value ours("not null");
  const bool accepted = ours.Parse(text);
  LUM_REQUIRE(accepted || ours.IsNull());

  // The other parser lets a byte order mark pass and takes a zero for the end.
  const bool misread =
      text.compare(0, 3, "\xEF\xBB\xBF") == 0 || text.find('\0') != std::string::npos;
  const Other theirs = misread ? Other(Other::value_t::discarded)
                               : Other::parse(text, nullptr, /*allow_exceptions=*/false);
  const bool acceptedThere = !theirs.is_discarded();
  LUM_REQUIRE(acceptedThere || !accepted);
  if (acceptedThere && !accepted) {
    // Ours has limits of its own.
    const Shape shape = ShapeOf(text);
    LUM_REQUIRE(shape.depth > LumJson::Value::kMaxDepth || shape.longExponent);
  }
  if (!accepted) {
    return 0;
  }
  LUM_REQUIRE(Same(ours, theirs));

  const std::string styled = ours.ToStyledString();
  LUM_REQUIRE(styled.back() == '\n');
  RequireRoundTrip(ours, styled);
  LumJson::Value again;
  LUM_REQUIRE(again.Parse(styled) && again.ToStyledString() == styled);
  const std::string compact = ours.JsonValueToString();
  if (ours.IsString()) {
    LUM_REQUIRE(compact == ours.AsString());
  } else if (ours.IsNull()) {
    LUM_REQUIRE(compact.empty());
  } else {
    RequireRoundTrip(ours, compact);
  }
  LUM_REQUIRE(LumJson::Value(ours) == ours);
  return 0;
}

// A plain tree that RapidJSON's event reader fills: values that own their parts, as in LumJson.
#ifndef LUM_JSON_BENCH_RAPID_TREE_H
#define LUM_JSON_BENCH_RAPID_TREE_H

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace lumbench {

struct Node {
  using Elements = std::vector<Node>;
  using Members = std::vector<std::pair<std::string, Node>>;
  std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double, std::string, Elements,
               Members>
      value;
};

// By rapidjson::Reader, with its check of UTF-8, and with exact doubles when asked for.
bool ReadByRapidEvents(const std::string& text, bool exactDoubles, Node& root);

}  // namespace lumbench

#endif  // LUM_JSON_BENCH_RAPID_TREE_H

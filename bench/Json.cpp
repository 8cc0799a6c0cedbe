// Reading and writing, by LumJson and by its peers, of documents from 1 KiB on.
//
//   LumBenchJson LARGEST ROUNDS SLICE-SECONDS
//
// A case is a shape and a nominal size of up to LARGEST bytes; "bytes" are those of the text that
// is read, or of the one that is written, which has its blanks and line ends besides. Reading
// includes giving the tree back.

#include <LumJson.h>
#include <json/json.h>
#include <rapidjson/document.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Documents.h"
#include "Rounds.h"

namespace {

using lumbench::Candidate;
using lumbench::Shape;

// A plain tree that RapidJSON's event reader fills: values that own their parts, as in LumJson.
struct Node {
  using Elements = std::vector<Node>;
  using Members = std::vector<std::pair<std::string, Node>>;
  std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double, std::string, Elements,
               Members>
      value;
};

// Stacks up values that arrays and objects take in when they end.
class TreeBuilder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, TreeBuilder> {
 public:
  bool Null() { return Push({nullptr}); }
  bool Bool(bool boolean) { return Push({boolean}); }
  bool Int(int number) { return Push({std::int64_t{number}}); }
  bool Uint(unsigned number) { return Push({std::int64_t{number}}); }
  bool Int64(std::int64_t number) { return Push({number}); }
  bool Uint64(std::uint64_t number) { return Push({number}); }
  bool Double(double number) { return Push({number}); }
  bool String(const char* text, rapidjson::SizeType size, bool) {
    return Push({std::string(text, size)});
  }
  bool Key(const char* text, rapidjson::SizeType size, bool) {
    m_names.emplace_back(text, size);
    return true;
  }
  bool StartArray() { return true; }
  bool StartObject() { return true; }
  bool EndArray(rapidjson::SizeType count) {
    Node::Elements elements(std::make_move_iterator(m_values.end() - count),
                            std::make_move_iterator(m_values.end()));
    m_values.erase(m_values.end() - count, m_values.end());
    return Push({std::move(elements)});
  }
  bool EndObject(rapidjson::SizeType count) {
    Node::Members members;
    members.reserve(count);
    for (rapidjson::SizeType i = count; i != 0; --i) {
      members.emplace_back(std::move(*(m_names.end() - i)), std::move(*(m_values.end() - i)));
    }
    m_names.erase(m_names.end() - count, m_names.end());
    m_values.erase(m_values.end() - count, m_values.end());
    return Push({std::move(members)});
  }

 private:
  bool Push(Node&& node) {
    m_values.push_back(std::move(node));
    return true;
  }

  std::vector<Node> m_values;
  std::vector<std::string> m_names;
};

constexpr unsigned kChecked = rapidjson::kParseValidateEncodingFlag;
constexpr unsigned kExact = kChecked | rapidjson::kParseFullPrecisionFlag;

template <unsigned kFlags>
bool ReadRapidEvents(const std::string& text) {
  rapidjson::MemoryStream bytes(text.data(), text.size());
  rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> stream(bytes);
  TreeBuilder builder;
  return !rapidjson::Reader().Parse<kFlags>(stream, builder).IsError();
}

using Reader = std::unique_ptr<Json::CharReader>;

void MeasureReading(const std::string& name, const std::string& text, const lumbench::Plan& plan) {
  const Reader jsoncpp(Json::CharReaderBuilder().newCharReader());
  lumbench::Measure(
      "read", name, static_cast<double>(text.size()), plan,
      {{"LumJson",
        [&](int) {
          LumJson::Value value;
          return value.Parse(text);
        }},
       {"RapidEvents", [&](int) { return ReadRapidEvents<kChecked>(text); }},
       {"RapidEventsExact", [&](int) { return ReadRapidEvents<kExact>(text); }},
       {"nlohmann",
        [&](int) { return !nlohmann::json::parse(text, nullptr, false).is_discarded(); }},
       {"jsoncpp", [&](int) {
          Json::Value value;
          return jsoncpp->parse(text.data(), text.data() + text.size(), &value, nullptr);
        }}});
}

// `write` gives the size of the text.
Candidate Writer(const char* name, const std::function<std::size_t()>& write) {
  return {name, [write](int) { return write() > 0; }, static_cast<double>(write())};
}

void MeasureWriting(const std::string& name, const std::string& text, const lumbench::Plan& plan) {
  LumJson::Value ours;
  ours.Parse(text);
  const nlohmann::json nlohmann = nlohmann::json::parse(text);
  rapidjson::Document rapid;
  rapid.Parse<kExact>(text.c_str());
  Json::Value jsoncpp;
  Reader(Json::CharReaderBuilder().newCharReader())
      ->parse(text.data(), text.data() + text.size(), &jsoncpp, nullptr);
  const Json::StreamWriterBuilder jsoncppWriter;
  lumbench::Measure(
      "write", name, 0, plan,
      {Writer("LumJson", [&] { return ours.ToStyledString().size(); }),
       Writer("RapidPretty",
              [&] {
                rapidjson::StringBuffer buffer;
                rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
                rapid.Accept(writer);
                return buffer.GetSize();
              }),
       Writer("nlohmann", [&] { return nlohmann.dump(4).size(); }),
       Writer("jsoncpp", [&] { return Json::writeString(jsoncppWriter, jsoncpp).size(); })});
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: LumBenchJson LARGEST ROUNDS SLICE-SECONDS\n");
    return 2;
  }
  const std::size_t largest = std::strtoull(argv[1], nullptr, 10);
  const lumbench::Plan plan = {std::atoi(argv[2]), std::atof(argv[3]), 1};
  // Records, the shape of what is reported, in all sizes; the other shapes in the two middle ones.
  const std::pair<const char*, Shape> shapes[] = {{"records", Shape::kRecords},
                                                  {"text", Shape::kText},
                                                  {"escapes", Shape::kEscapes},
                                                  {"numbers", Shape::kNumbers}};
  for (const auto& [shapeName, shape] : shapes) {
    for (const std::size_t size : {1 << 10, 64 << 10, 4 << 20, 64 << 20}) {
      const bool middle = size == 64 << 10 || size == 4 << 20;
      if (size > largest || (shape != Shape::kRecords && !middle)) {
        continue;
      }
      const std::string name = std::string(shapeName) + "/" + std::to_string(size);
      MeasureReading(name, lumbench::MakeDocument(shape, size), plan);
      MeasureWriting(name, lumbench::MakeDocumentToWrite(shape, size), plan);
    }
  }
  return 0;
}

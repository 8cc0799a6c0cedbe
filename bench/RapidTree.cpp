// RapidJSON's events stack up values that arrays and objects take in when they end.
#include "RapidTree.h"

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <iterator>

namespace lumbench {

namespace {

class Handler : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Handler> {
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

  Node TakeRoot() { return std::move(m_values.back()); }

 private:
  bool Push(Node&& node) {
    m_values.push_back(std::move(node));
    return true;
  }

  std::vector<Node> m_values;
  std::vector<std::string> m_names;
};

template <unsigned kFlags>
bool Read(const std::string& text, Node& root) {
  rapidjson::MemoryStream bytes(text.data(), text.size());
  rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> stream(bytes);
  Handler handler;
  if (rapidjson::Reader().Parse<kFlags>(stream, handler).IsError()) {
    return false;
  }
  root = handler.TakeRoot();
  return true;
}

}  // namespace

bool ReadByRapidEvents(const std::string& text, bool exactDoubles, Node& root) {
  return exactDoubles
             ? Read<rapidjson::kParseValidateEncodingFlag | rapidjson::kParseFullPrecisionFlag>(
                   text, root)
             : Read<rapidjson::kParseValidateEncodingFlag>(text, root);
}

}  // namespace lumbench

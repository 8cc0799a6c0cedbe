// Makes the documents out of one pseudo-random sequence.
#include "Documents.h"

#include <LumJson.h>

#include <cstdio>
#include <iterator>
#include <random>

namespace lumbench {

namespace {

class Maker {
 public:
  std::string Make(Shape shape, std::size_t size) {
    m_text = "{\"version\":3,\"source\":\"bench\",\"items\":[";
    while (true) {
      switch (shape) {
        case Shape::kRecords:
          AddRecord();
          break;
        case Shape::kText:
          AddMessage(100);
          break;
        case Shape::kEscapes:
          AddMessage(8);
          break;
        case Shape::kNumbers:
          AddMeasurement();
          break;
      }
      if (m_text.size() >= size) {
        break;
      }
      m_text += ',';
    }
    m_text += "]}";
    return m_text;
  }

 private:
  unsigned Below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }

  template <typename... Arguments>
  void Add(const char* format, Arguments... arguments) {
    char piece[512];
    const int length = std::snprintf(piece, sizeof(piece), format, arguments...);
    m_text.append(piece, static_cast<std::size_t>(length));
  }

  void AddRecord() {
    Add("{\"id\":%u,\"device\":\"vehicle-%05u\",\"time\":%llu,\"active\":%s,\"speed\":%.1f,",
        Below(1000000), Below(100000), 1700000000000ULL + Below(1000000000),
        Below(2) == 0 ? "true" : "false", Below(2000) / 10.0);
    Add("\"position\":{\"latitude\":%.6f,\"longitude\":%.6f},", 40 + Below(10000000) / 1e6,
        116 + Below(10000000) / 1e6);
    Add("\"errors\":[%u,%u],\"tags\":[],\"owner\":null,\"note\":\"%s\",\"state\":\"%s\"}",
        Below(100), Below(100), Below(3) == 0 ? "" : "no obstacle found on the planned path",
        kStates[Below(4)]);
  }

  // About every `rarity`th word is none of the plain ones.
  void AddMessage(unsigned rarity) {
    Add("{\"id\":\"%016llx\",\"user\":\"user_%u\",\"text\":\"",
        static_cast<unsigned long long>(m_random()), Below(100000));
    for (unsigned words = 10 + Below(40); words != 0; --words) {
      m_text += Below(rarity) == 0 ? kOtherWords[Below(std::size(kOtherWords))]
                                   : kWords[Below(std::size(kWords))];
    }
    m_text += "\",\"lang\":\"en\"}";
  }

  void AddMeasurement() {
    m_text += '[';
    for (int i = 0; i < 8; ++i) {
      Add("%.17g,", static_cast<double>(m_random()) / 1e15 - 9000);
    }
    for (int i = 0; i < 4; ++i) {
      Add("%.*f,", 1 + static_cast<int>(Below(4)), Below(1000000) / 1e2);
    }
    Add("%u,%d,%llu]", Below(100), -static_cast<int>(Below(1000000)),
        static_cast<unsigned long long>(m_random() >> 8));
  }

  static constexpr const char* kStates[] = {"idle", "driving", "charging", "out of service"};
  static constexpr const char* kWords[] = {
      "the ", "quick ",  "brown ", "fox ", "jumps ",   "over ",      "lazy ", "dogs ",
      "and ", "writes ", "of ",    "a ",   "reports ", "carefully ", "in ",   "measurements, "};
  static constexpr const char* kOtherWords[] = {"\\n",
                                                "\\\"so\\\" ",
                                                "\\u00fc",
                                                "\xC3\xA9t\xC3\xA9 ",
                                                "\xE4\xBD\xA0\xE5\xA5\xBD",
                                                "\xF0\x9F\x98\x80 "};

  std::mt19937_64 m_random{20240601};
  std::string m_text;
};

}  // namespace

std::string MakeDocument(Shape shape, std::size_t size) {
  return Maker().Make(shape, size);
}

std::string MakeDocumentToWrite(Shape shape, std::size_t size) {
  LumJson::Value value;
  const std::string compact = MakeDocument(shape, size);
  value.Parse(compact);
  return MakeDocument(shape, size * compact.size() / value.ToStyledString().size());
}

}  // namespace lumbench

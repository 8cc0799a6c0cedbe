// Reading and writing, by LumJson and by its peers, of documents from 1 KiB to 64 MiB.
//
// The sizes and rates are those of the text that is read, or of the one that is written, which has
// its blanks and line ends besides. Reading includes giving the tree back.
#include <benchmark/benchmark.h>
#include <json/json.h>
#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <new>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>

#include "Documents.h"
#include "LumJson.h"
#include "RapidTree.h"

namespace {

std::size_t allocations = 0;

}  // namespace

// Counts what the libraries allocate through operator new (RapidJSON goes to malloc directly).
void* operator new(std::size_t size) {
  ++allocations;
  void* const memory = std::malloc(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

using lumbench::Shape;

constexpr unsigned kChecked = rapidjson::kParseValidateEncodingFlag;
constexpr unsigned kExact = kChecked | rapidjson::kParseFullPrecisionFlag;

const std::string& Document(Shape shape, std::size_t size) {
  static std::map<std::pair<Shape, std::size_t>, std::string> documents;
  std::string& text = documents[{shape, size}];
  if (text.empty()) {
    text = lumbench::MakeDocument(shape, size);
  }
  return text;
}

// A document that has about the wanted size when it is written with its blanks.
const std::string& DocumentToWrite(Shape shape, std::size_t size) {
  LumJson::Value value;
  value.Parse(Document(shape, size));
  return Document(shape, size * size / value.ToStyledString().size());
}

void SetRate(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

void Check(benchmark::State& state, bool good) {
  if (!good) {
    state.SkipWithError("the document was refused");
  }
}

void ReadLumJson(benchmark::State& state, Shape shape) {
  const std::string& text = Document(shape, static_cast<std::size_t>(state.range(0)));
  allocations = 0;
  for (auto _ : state) {
    LumJson::Value value;
    Check(state, value.Parse(text));
  }
  state.counters["allocations"] =
      benchmark::Counter(static_cast<double>(allocations), benchmark::Counter::kAvgIterations);
  SetRate(state, text.size());
}

void ReadNlohmann(benchmark::State& state, Shape shape) {
  const std::string& text = Document(shape, static_cast<std::size_t>(state.range(0)));
  allocations = 0;
  for (auto _ : state) {
    const auto value = nlohmann::json::parse(text, nullptr, false);
    Check(state, !value.is_discarded());
  }
  state.counters["allocations"] =
      benchmark::Counter(static_cast<double>(allocations), benchmark::Counter::kAvgIterations);
  SetRate(state, text.size());
}

template <bool kExactDoubles>
void ReadRapidEvents(benchmark::State& state, Shape shape) {
  const std::string& text = Document(shape, static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    lumbench::Node root;
    Check(state, lumbench::ReadByRapidEvents(text, kExactDoubles, root));
  }
  SetRate(state, text.size());
}

template <unsigned kFlags>
void ReadRapidDocument(benchmark::State& state, Shape shape) {
  const std::string& text = Document(shape, static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    rapidjson::Document document;
    Check(state, !document.Parse<kFlags>(text.data(), text.size()).HasParseError());
  }
  SetRate(state, text.size());
}

void ReadJsonCpp(benchmark::State& state, Shape shape) {
  const std::string& text = Document(shape, static_cast<std::size_t>(state.range(0)));
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  for (auto _ : state) {
    Json::Value value;
    Check(state, reader->parse(text.data(), text.data() + text.size(), &value, nullptr));
  }
  SetRate(state, text.size());
}

void WriteLumJson(benchmark::State& state, Shape shape) {
  LumJson::Value value;
  Check(state, value.Parse(DocumentToWrite(shape, static_cast<std::size_t>(state.range(0)))));
  std::size_t size = 0;
  for (auto _ : state) {
    size = value.ToStyledString().size();
  }
  SetRate(state, size);
}

void WriteNlohmann(benchmark::State& state, Shape shape) {
  const auto value =
      nlohmann::json::parse(DocumentToWrite(shape, static_cast<std::size_t>(state.range(0))));
  std::size_t size = 0;
  for (auto _ : state) {
    size = value.dump(4).size();
  }
  SetRate(state, size);
}

void WriteRapid(benchmark::State& state, Shape shape) {
  rapidjson::Document document;
  document.Parse<kExact>(DocumentToWrite(shape, static_cast<std::size_t>(state.range(0))).c_str());
  std::size_t size = 0;
  for (auto _ : state) {
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    Check(state, document.Accept(writer));
    size = buffer.GetSize();
  }
  SetRate(state, size);
}

void WriteJsonCpp(benchmark::State& state, Shape shape) {
  Json::Value value;
  std::istringstream text(DocumentToWrite(shape, static_cast<std::size_t>(state.range(0))));
  Check(state, Json::parseFromStream(Json::CharReaderBuilder(), text, &value, nullptr));
  const Json::StreamWriterBuilder builder;
  std::size_t size = 0;
  for (auto _ : state) {
    size = Json::writeString(builder, value).size();
  }
  SetRate(state, size);
}

using Run = void (*)(benchmark::State&, Shape);

void Register(const std::string& name, Run run) {
  const std::pair<const char*, Shape> shapes[] = {{"records", Shape::kRecords},
                                                  {"text", Shape::kText},
                                                  {"escapes", Shape::kEscapes},
                                                  {"numbers", Shape::kNumbers}};
  for (const auto& [shapeName, shape] : shapes) {
    benchmark::RegisterBenchmark((name + "/" + shapeName).c_str(), run, shape)
        ->Arg(1 << 10)
        ->Arg(64 << 10)
        ->Arg(4 << 20)
        ->Arg(64 << 20)
        ->Unit(benchmark::kMicrosecond);
  }
}

}  // namespace

int main(int argc, char** argv) {
  Register("read/LumJson", ReadLumJson);
  Register("read/RapidEvents", ReadRapidEvents<false>);
  Register("read/RapidEventsExact", ReadRapidEvents<true>);
  Register("read/RapidDocument", ReadRapidDocument<kChecked>);
  Register("read/RapidDocumentExact", ReadRapidDocument<kExact>);
  Register("read/nlohmann", ReadNlohmann);
  Register("read/jsoncpp", ReadJsonCpp);
  Register("write/LumJson", WriteLumJson);
  Register("write/RapidPretty", WriteRapid);
  Register("write/nlohmann", WriteNlohmann);
  Register("write/jsoncpp", WriteJsonCpp);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 2;
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

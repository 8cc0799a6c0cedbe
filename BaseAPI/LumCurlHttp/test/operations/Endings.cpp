// Reads endings.txt, puts an ending's facts into it, and compares.

#include "Endings.h"

#include <LumLogger.h>
#include <curl/curl.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>

namespace lumtest {

namespace {

thread_local std::vector<std::string>* t_lines = nullptr;

// What stands below one head of a block.
struct Case {
  std::string head;
  std::vector<std::string> texts;  // what is returned, then the log lines
};

using Block = std::vector<Case>;

std::map<std::string, Block> ReadBlocks() {
  std::map<std::string, Block> blocks;
  std::vector<std::string> names;
  Block block;
  std::ifstream file(LUM_ENDINGS);
  for (std::string line; std::getline(file, line);) {
    const std::size_t indent = line.find_first_not_of(' ');
    if (line.empty() || line[0] == '#') {
      continue;
    }
    const std::string text = line.substr(indent);
    if (indent == 0) {
      if (!block.empty()) {
        names.clear();
        block.clear();
      }
      names.push_back(text);
    } else if (indent == 2) {
      block.push_back({text, {}});
    } else {
      block.back().texts.push_back(text);
    }
    for (const std::string& name : names) {
      blocks[name] = block;
    }
  }
  return blocks;
}

const Block& BlockOf(const Operation& operation) {
  static const std::map<std::string, Block> kBlocks = ReadBlocks();
  const auto found = kBlocks.find(operation.name);
  if (found == kBlocks.end()) {
    throw std::runtime_error(std::string("endings.txt has no block ") + operation.name);
  }
  return found->second;
}

const Case& CaseFor(const Operation& operation, const Ending& ending) {
  const std::string status = std::to_string(ending.status);
  LumJson::Value value;
  std::vector<std::string> heads = {"broken behind " + status, "broken"};
  if (ending.code == 0) {
    heads = {status, "any status"};
    if (value.Parse(ending.received)) {
      heads = {status + ", a document", status, "any status, a document", "any status"};
    }
  }
  const Block& block = BlockOf(operation);
  for (const std::string& head : heads) {
    for (const Case& each : block) {
      if (each.head == head) {
        return each;
      }
    }
  }
  throw std::runtime_error(std::string(operation.name) + " has no ending \"" + heads[0] + "\"");
}

// The values of the names in braces.
using Facts = std::map<std::string, std::string>;

std::string Filled(const std::string& text, const Facts& facts) {
  std::string filled;
  std::size_t at = 0;
  for (std::size_t open; (open = text.find('{', at)) != std::string::npos;) {
    const std::size_t end = text.find('}', open);
    filled += text.substr(at, open - at) + facts.at(text.substr(open + 1, end - open - 1));
    at = end + 1;
  }
  return filled + text.substr(at);
}

// The other way round, as far as that is possible: for texts that tell themselves from others.
std::string Emptied(std::string text, const Facts& facts) {
  constexpr std::size_t kTellsItself = 4;
  for (const char* name : {"url", "host", "path", "error", "reason", "request", "body"}) {
    const std::string& value = facts.at(name);
    for (std::size_t at = 0;
         value.size() >= kTellsItself && (at = text.find(value, at)) != std::string::npos;) {
      const std::string placeholder = std::string("{") + name + "}";
      text.replace(at, value.size(), placeholder);
      at += placeholder.size();
    }
  }
  return text;
}

// What stands behind `before` in one of the lines, up to its end.
std::string Behind(const std::string& before, const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    const std::size_t at = line.find(before);
    if (at != std::string::npos) {
      return line.substr(at + before.size());
    }
  }
  return "";
}

// The blanks between the last two quotes.
std::string QuotedBlanks(const std::string& text) {
  const std::size_t end = text.rfind('"');
  const std::size_t last = end == std::string::npos || end == 0
                               ? std::string::npos
                               : text.find_last_not_of(' ', end - 1);
  const bool some = last != std::string::npos && text[last] == '"' && last + 1 < end;
  return some ? text.substr(last + 1, end - last - 1) : "no blanks";
}

Facts FactsOf(const std::string& url, const Outcome& outcome, const Ending& ending) {
  const std::string request = Caller::UsualDocument().ToStyledString();
  const std::string body =
      ending.received == Ending::kBlanks ? QuotedBlanks(outcome.value) : ending.received;
  LumJson::Value document;
  document.Parse(body);
  // Any compressed length but one that holds no document.
  const std::string gzip = Behind(", gzip length=", outcome.lines);
  const bool plausible = !gzip.empty() && std::stoi(gzip) > 18;
  return {{"url", url},
          {"host", HostOf(url)},
          {"path", DownloadPath(outcome.directory)},
          {"status", std::to_string(ending.status)},
          {"body", body},
          {"document", document.JsonValueToString()},
          {"curl", std::to_string(ending.code)},
          {"reason", curl_easy_strerror(static_cast<CURLcode>(ending.code))},
          {"error", Behind(", errorBuf: ", outcome.lines)},
          {"request", request},
          {"length", std::to_string(request.size())},
          {"gzip", plausible ? gzip : "more than 18"}};
}

// The value as it is without a look at the last error.
std::string Comparable(const std::string& value, bool looked) {
  const std::size_t at = value.find(", last error");
  return looked || at == std::string::npos ? value : value.substr(0, at);
}

std::vector<std::string> TextsOf(const Outcome& outcome) {
  std::vector<std::string> texts = {outcome.value};
  texts.insert(texts.end(), outcome.lines.begin(), outcome.lines.end());
  return texts;
}

std::string Shown(const std::string& head, const std::vector<std::string>& texts) {
  std::string shown = "  " + head + "\n";
  for (const std::string& text : texts) {
    shown += "    " + text + "\n";
  }
  return shown;
}

}  // namespace

ThreadLogs::ThreadLogs() {
  LumLogger::GetInstance().SetSink([](const LumLogger::Record& record) {
    static const char* const kLevels[] = {"", "error", "warning", "info"};
    const std::string directory = "BaseAPI/LumCurlHttp/src/";
    std::string file = record.file;
    if (file.compare(0, directory.size(), directory) == 0) {
      file.erase(0, directory.size());
    }
    if (t_lines != nullptr) {
      t_lines->push_back(file + " " + record.function + " " + kLevels[record.level] + ": " +
                         std::string(record.message, record.messageLength));
    }
  });
}

ThreadLogs::~ThreadLogs() {
  LumLogger::GetInstance().SetSink(nullptr);
}

Outcome RunOperation(Caller& caller, const Operation& operation, const std::string& url,
                     const std::string& owner) {
  Outcome outcome;
  outcome.directory = caller.MakeFiles(owner + operation.name);
  t_lines = &outcome.lines;
  const auto start = std::chrono::steady_clock::now();
  outcome.value = operation.run(caller, url, outcome.directory);
  outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  t_lines = nullptr;
  if (operation.kind == Kind::kDownload) {
    outcome.value += ", file \"" + ReadFile(DownloadPath(outcome.directory)) + "\"";
  } else if (operation.kind == Kind::kArchive) {
    bool left = false;
    for (const char* archive : {"/a.log.tar.gz", "/logs.tar.gz", "/group.tar.gz"}) {
      left = std::filesystem::remove(outcome.directory + archive) || left;
    }
    outcome.value += left ? ", archive" : ", no archive";
  }
  return outcome;
}

const Ending& ExpectEnding(const Operation& operation, const std::string& url,
                           const Outcome& outcome, const std::vector<Ending>& endings) {
  const bool looked = outcome.value.find(", last error") != std::string::npos;
  const std::vector<std::string> seen = TextsOf(outcome);
  std::string failure;
  for (const Ending& ending : endings) {
    const Case& expected = CaseFor(operation, ending);
    const Facts facts = FactsOf(url, outcome, ending);
    std::vector<std::string> texts;
    for (const std::string& text : expected.texts) {
      texts.push_back(Filled(texts.empty() ? Comparable(text, looked) : text, facts));
    }
    const bool saysWhy =
        ending.code == 0 || operation.kind == Kind::kDownload ||
        ::testing::Matches(::testing::MatchesRegex(ending.error))(facts.at("error"));
    if (saysWhy && seen == texts) {
      return ending;
    }
    if (failure.empty()) {
      std::vector<std::string> block;
      for (const std::string& text : seen) {
        block.push_back(Emptied(text, facts));
      }
      failure = std::string("the block that was seen:\n") + operation.name + "\n" +
                Shown(expected.head, block) + "not among those of endings.txt:\n";
    }
    failure += Shown(expected.head, texts) +
               (saysWhy ? "" : "    with an error text like " + ending.error + "\n");
  }
  ADD_FAILURE() << failure;
  return endings.front();
}

std::vector<std::string> HeadsOf(const Operation& operation) {
  std::vector<std::string> heads;
  for (const Case& each : BlockOf(operation)) {
    heads.push_back(each.head);
  }
  return heads;
}

const std::string& HeadFor(const Operation& operation, const Ending& ending) {
  return CaseFor(operation, ending).head;
}

}  // namespace lumtest

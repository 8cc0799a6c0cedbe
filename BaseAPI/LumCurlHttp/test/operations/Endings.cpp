// Reads endings.txt, puts an ending's facts into it, and compares.

#include "Endings.h"

#include <curl/curl.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>

namespace lumtest {

namespace {

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
  if (!ending.lacks.empty()) {
    heads = {"no " + ending.lacks};
  } else if (ending.code == 0) {
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

// At the end of the last line, where it stands. A document cannot take so little as an empty one.
std::string GzipLengthIn(const std::vector<std::string>& lines) {
  const std::string before = ", gzip length=";
  const std::size_t at = lines.empty() ? std::string::npos : lines.back().rfind(before);
  if (at == std::string::npos) {
    return "";
  }
  const std::string length = lines.back().substr(at + before.size());
  return std::atoi(length.c_str()) > 18 ? length : "more than 18";
}

Facts FactsOf(const std::string& url, const Outcome& outcome, const Ending& ending) {
  const std::string request = Caller::UsualDocument().ToStyledString();
  const std::string body =
      ending.received == Ending::kBlanks ? QuotedBlanks(outcome.value) : ending.received;
  LumJson::Value document;
  document.Parse(body);
  const std::string gzip = GzipLengthIn(outcome.lines);
  return {{"url", url},
          {"host", HostOf(url)},
          {"path", DownloadPath(outcome.directory)},
          {"status", std::to_string(ending.status)},
          {"body", body},
          {"document", TextOf(document)},
          {"curl", std::to_string(ending.code)},
          {"reason", curl_easy_strerror(static_cast<CURLcode>(ending.code))},
          {"error", ErrorTextOf(outcome)},
          {"request", request},
          {"length", std::to_string(request.size())},
          {"gzip", gzip}};
}

// The value as it is without a look at the last error.
std::string Comparable(const std::string& value, bool looked) {
  const std::size_t at = value.find(", last error");
  return looked || at == std::string::npos ? value : value.substr(0, at);
}

// What the block of the ending says of this run.
std::vector<std::string> Expected(const Operation& operation, const Outcome& outcome,
                                  const Ending& ending, Facts facts) {
  const bool looked = outcome.value.find(", last error") != std::string::npos;
  std::vector<std::string> texts;
  for (const std::string& text : CaseFor(operation, ending).texts) {
    texts.push_back(Filled(texts.empty() ? Comparable(text, looked) : text, facts));
    facts["body"] = facts["body"].c_str();  // a log line has it up to its first zero byte
  }
  return texts;
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

std::string LogText(const std::string& file, const std::string& function, int level,
                    const std::string& message) {
  static const char* const kLevels[] = {"", "error", "warning", "info"};
  return file.substr(file.rfind('/') + 1) + " " + function + " " + kLevels[level] + ": " + message;
}

void AddFiles(const Operation& operation, Outcome& outcome) {
  if (operation.kind == Kind::kDownload) {
    const std::string path = DownloadPath(outcome.directory);
    outcome.value += Exists(path) ? ", file \"" + ReadFile(path) + "\"" : ", no file";
  } else if (operation.kind == Kind::kArchive) {
    bool left = false;
    for (const char* archive : {"/a.log.tar.gz", "/logs.tar.gz", "/group.tar.gz"}) {
      left = std::filesystem::remove(outcome.directory + archive) || left;
    }
    outcome.value += left ? ", archive" : ", no archive";
  }
}

bool Fits(const Operation& operation, const std::string& url, const Outcome& outcome,
          const Ending& ending) {
  return TextsOf(outcome) == Expected(operation, outcome, ending, FactsOf(url, outcome, ending));
}

std::string ErrorTextOf(const Outcome& outcome) {
  return Behind(", errorBuf: ", outcome.lines);
}

std::string ShownBlocks(const Operation& operation, const std::string& url, const Outcome& outcome,
                        const Ending& ending) {
  const Facts facts = FactsOf(url, outcome, ending);
  const std::string& head = HeadFor(operation, ending);
  std::vector<std::string> seen;
  for (const std::string& text : TextsOf(outcome)) {
    seen.push_back(Emptied(text, facts));
  }
  return std::string("the block that was seen:\n") + operation.name + "\n" + Shown(head, seen) +
         "endings.txt has for this ending:\n" +
         Shown(head, Expected(operation, outcome, ending, facts));
}

std::vector<std::string> HeadsOf(const Operation& operation) {
  std::vector<std::string> heads;
  for (const Case& each : BlockOf(operation)) {
    if (each.head.compare(0, 3, "no ") != 0) {
      heads.push_back(each.head);
    }
  }
  return heads;
}

const std::string& HeadFor(const Operation& operation, const Ending& ending) {
  return CaseFor(operation, ending).head;
}

}  // namespace lumtest

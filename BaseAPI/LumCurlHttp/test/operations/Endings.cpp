// Reads endings.txt, puts an ending's facts into it, and compares.

#include "Endings.h"

#include <curl/curl.h>

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

struct Block {
  std::string transfer;  // the name of the block of its transfer, if that has one
  std::vector<Case> cases;
};

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
      if (!block.cases.empty()) {
        names.clear();
        block.cases.clear();
      }
      const std::size_t by = text.find(" by ");
      names.push_back(text.substr(0, by));
      block.transfer = by == std::string::npos ? "" : text.substr(by + 4);
    } else if (indent == 2) {
      block.cases.push_back({text, {}});
    } else {
      block.cases.back().texts.push_back(text);
    }
    for (const std::string& name : names) {
      blocks[name] = block;
    }
  }
  return blocks;
}

const Block& BlockNamed(const std::string& name) {
  static const std::map<std::string, Block> kBlocks = ReadBlocks();
  const auto found = kBlocks.find(name);
  if (found == kBlocks.end()) {
    throw std::runtime_error("endings.txt has no block " + name);
  }
  return found->second;
}

// The first case of the block that fits the ending; null: there is none.
const Case* Find(const Block& block, const Ending& ending) {
  const std::string status = std::to_string(ending.status);
  LumJson::Value value;
  std::vector<std::string> heads = {"broken"};
  if (!ending.lacks.empty()) {
    heads = {"no " + ending.lacks};
  } else if (ending.code == 0) {
    heads = {status, "any status"};
    if (value.Parse(ending.received)) {
      heads = {status + ", a document", status, "any status, a document", "any status"};
    }
  }
  for (const std::string& head : heads) {
    for (const Case& each : block.cases) {
      if (each.head == head) {
        return &each;
      }
    }
  }
  return nullptr;
}

// What the transfer itself makes of the ending, where it has a block and that a case; null:
// nothing.
const Case* TransferCaseFor(const Operation& operation, const Ending& ending) {
  const std::string& transfer = BlockNamed(operation.name).transfer;
  return transfer.empty() ? nullptr : Find(BlockNamed(transfer), ending);
}

// The ending as the operation sees it behind its transfer.
Ending SeenBy(const Operation& operation, const Ending& ending) {
  const Case* const transfer = TransferCaseFor(operation, ending);
  if (transfer == nullptr) {
    return ending;
  }
  const std::string& quoted = transfer->texts.at(0);
  return {0, ending.lacks.empty() ? ending.status : -1, quoted.substr(1, quoted.size() - 2)};
}

const Case& CaseFor(const Operation& operation, const Ending& ending) {
  const Case* const found = Find(BlockNamed(operation.name), SeenBy(operation, ending));
  if (found == nullptr) {
    throw std::runtime_error(std::string("endings.txt has no such ending of ") + operation.name);
  }
  return *found;
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

Facts FactsOf(const Operation& operation, const std::string& url, const Outcome& outcome,
              const Ending& ending) {
  const std::string request = Caller::UsualDocument().ToStyledString();
  std::string body = operation.Uploads() ? "" : ending.received;
  if (body == Ending::kBlanks) {
    body = QuotedBlanks(outcome.value);
  }
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

// What endings.txt says of this run.
std::vector<std::string> Expected(const Operation& operation, const std::string& url,
                                  const Outcome& outcome, const Ending& ending) {
  Facts facts = FactsOf(operation, url, outcome, ending);
  std::vector<std::string> transferLines;
  if (const Case* const transfer = TransferCaseFor(operation, ending)) {
    for (const std::string& text : transfer->texts) {
      transferLines.push_back(Filled(text, facts));
    }
    transferLines.erase(transferLines.begin());
    const Ending seen = SeenBy(operation, ending);
    facts["status"] = std::to_string(seen.status);
    facts["body"] = Filled(seen.received, facts);
  }
  const bool looked = outcome.value.find(", last error") != std::string::npos;
  std::vector<std::string> texts;
  for (const std::string& text : CaseFor(operation, ending).texts) {
    texts.push_back(Filled(texts.empty() ? Comparable(text, looked) : text, facts));
    facts["body"] = facts["body"].c_str();  // a log line has it up to its first zero byte
  }
  texts.insert(texts.begin() + 1, transferLines.begin(), transferLines.end());
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
  return TextsOf(outcome) == Expected(operation, url, outcome, ending);
}

std::string ErrorTextOf(const Outcome& outcome) {
  return Behind(", errorBuf: ", outcome.lines);
}

std::string ShownBlocks(const Operation& operation, const std::string& url, const Outcome& outcome,
                        const Ending& ending) {
  const std::string& head = HeadFor(operation, ending);
  return std::string(operation.name) + " came to\n" + Shown(head, TextsOf(outcome)) +
         "endings.txt has for this ending\n" +
         Shown(head, Expected(operation, url, outcome, ending));
}

std::vector<std::string> HeadsOf(const Operation& operation) {
  std::vector<std::string> heads;
  for (const Case& each : BlockNamed(operation.name).cases) {
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

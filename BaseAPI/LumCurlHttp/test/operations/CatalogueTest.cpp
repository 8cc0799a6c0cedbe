// The catalogue against the library: nothing public is missing, and nothing else is listed.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>

#include "Operations.h"
#include "support/Process.h"

namespace lumtest {
namespace {

void Replace(std::string& text, const std::string& what, const std::string& by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
}

// What the library exports, std's names shortened. A destructor runs with its constructor.
std::set<std::string> Exported() {
  const ProcessResult nm =
      RunCommand({LUM_NM, "--dynamic", "--defined-only", "--demangle", LUM_LIBRARY});
  EXPECT_TRUE(nm.Succeeded()) << nm.Describe();
  std::istringstream lines(nm.out);
  std::set<std::string> symbols;
  for (std::string line; std::getline(lines, line);) {
    std::string symbol = line.substr(line.find(' ', line.find(' ') + 1) + 1);
    Replace(symbol, "std::__cxx11::", "");
    Replace(symbol, "basic_string<char, std::char_traits<char>, std::allocator<char> >", "string");
    Replace(symbol, "list<string, std::allocator<string > >", "list<string>");
    Replace(symbol, "list<string, std::allocator<string> >", "list<string>");
    Replace(symbol, "[abi:cxx11]", "");
    if (symbol.find('~') == std::string::npos) {
      symbols.insert(symbol);
    }
  }
  return symbols;
}

TEST(CatalogueTest, ListsEveryPublicOperation) {
  std::set<std::string> listed;
  for (const auto* operations : {&Operations(), &Settings()}) {
    for (const Operation& operation : *operations) {
      listed.insert(operation.signature);
    }
  }
  EXPECT_EQ(listed, Exported());
}

TEST(CatalogueTest, NamesAreUnique) {
  std::set<std::string> names;
  for (const auto* operations : {&Operations(), &Settings()}) {
    for (const Operation& operation : *operations) {
      EXPECT_TRUE(names.insert(operation.name).second) << operation.name;
    }
  }
}

TEST(CatalogueTest, EverySettingStoresWhatItIsGiven) {
  Caller caller;
  for (const Operation& setting : Settings()) {
    SCOPED_TRACE(setting.name);
    const std::string signature = setting.signature;
    const bool takesText = signature.find("(string const&)") != std::string::npos;
    if (setting.prepare != nullptr) {
      setting.prepare(caller);
    }
    const std::string stored = setting.run(caller, "", "");
    EXPECT_NE(stored, "");
    if (takesText && signature.find("GetDomain") == std::string::npos) {
      EXPECT_EQ(stored, caller.text);
    }
  }
}

}  // namespace
}  // namespace lumtest

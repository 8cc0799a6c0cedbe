// The seed of the hash by which large objects find their members: nobody can prepare a document
// whose names all collide.
#include <gtest/gtest.h>
#include <sys/random.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include "../src/Storage.h"
#include "LumJson.h"
#include "support/Process.h"

namespace {

const char* const kVariable = "LUM_TEST_HASH_SEED";

}  // namespace

// What the library asks for its seed when it is loaded. Where the variable is set it gives the
// words in there and then fails.
std::random_device::result_type std::random_device::_M_getval() {
  static const char* rest = std::getenv(kVariable);
  result_type word = 0;
  if (rest == nullptr) {
    return getrandom(&word, sizeof word, 0) == sizeof word ? word
                                                           : throw std::runtime_error("getrandom");
  }
  char* end = nullptr;
  word = static_cast<result_type>(std::strtoul(rest, &end, 10));
  return std::exchange(rest, end) != end ? word : throw std::runtime_error("no randomness");
}

namespace {

using LumJson::Value;

// The names of an object in the order of its index.
std::string IndexedNames(const std::string& prefix) {
  Value value;
  for (int i = 0; i < 100; ++i) {
    value[prefix + std::to_string(i)] = i;
  }
  const LumJson::detail::Growth& growth = *LumJson::detail::Access::Of(value).block->growth;
  std::string names;
  for (std::size_t place = 0; place <= growth.mask; ++place) {
    if (growth.index[place] != nullptr) {
      names += std::string(LumJson::detail::TextOf(*growth.index[place])) + ' ';
    }
  }
  return names;
}

// What a process that gets `words` of randomness makes of them.
struct Process {
  std::string library;  // where it is loaded
  std::string shortNames;
  std::string longNames;

  explicit Process(const std::string& words) {
    lumtest::ProcessOptions options;
    options.environment = {kVariable + ('=' + words)};
    const lumtest::ProcessResult result = lumtest::RunCommand(
        {"/proc/self/exe", "--gtest_filter=HashSeedTest.EveryWordOfItCounts"}, options);
    EXPECT_TRUE(result.Succeeded()) << result.Describe();
    library = Behind("library: ", result.out);
    shortNames = Behind("short: ", result.out);
    longNames = Behind("long: ", result.out);
  }

  static std::string Behind(const std::string& head, const std::string& out) {
    const std::size_t at = out.find(head);
    EXPECT_NE(std::string::npos, at) << out;
    return out.substr(at, out.find('\n', at) - at);
  }
};

// To its last bit: none is shifted out, and none is covered by a neighbour's.
TEST(HashSeedTest, EveryWordOfItCounts) {
  if (std::getenv(kVariable) != nullptr) {  // in a process that was started below
    std::printf("library: %p\nshort: %s\nlong: %s\n", reinterpret_cast<void*>(&Value::Array),
                IndexedNames("m").c_str(), IndexedNames("a name of many bytes ").c_str());
    return;
  }
  std::set<std::string> shortNames;
  std::set<std::string> longNames;
  for (const char* words : {"1 1 1 1", "1 1 1 1", "2147483649 1 1 1", "1 2147483649 1 1",
                            "1 1 2147483649 1", "1 1 1 2147483649"}) {
    const Process process(words);
    shortNames.insert(process.shortNames);
    longNames.insert(process.longNames);
  }
  EXPECT_EQ(5U, shortNames.size());
  EXPECT_EQ(5U, longNames.size());
}

TEST(HashSeedTest, PlaceInMemoryStandsForRandomnessThatIsMissing) {
  for (const char* words : {"", "1 2 3"}) {
    const Process one(words);
    const Process other(words);  // at another place, unless the system is told to use one only
    EXPECT_EQ(one.library == other.library, one.shortNames == other.shortNames);
    EXPECT_EQ(one.library == other.library, one.longNames == other.longNames);
  }
}

}  // namespace

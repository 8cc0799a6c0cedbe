#include "UnpackedArchive.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "support/Process.h"

namespace lumtest {

bool Inflate(std::string_view packed, const std::function<void(std::string_view)>& take) {
  std::string piece(1 << 18, '\0');
  z_stream stream = {};
  inflateInit2(&stream, 15 + 16);
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
  stream.avail_in = static_cast<uInt>(packed.size());
  int result = Z_OK;
  while (result == Z_OK) {
    stream.next_out = reinterpret_cast<Bytef*>(piece.data());
    stream.avail_out = static_cast<uInt>(piece.size());
    result = inflate(&stream, Z_NO_FLUSH);
    take(std::string_view(piece).substr(0, piece.size() - stream.avail_out));
  }
  const bool isOneMember = result == Z_STREAM_END && stream.avail_in == 0;
  inflateEnd(&stream);
  return isOneMember;
}

UnpackedArchive::UnpackedArchive(const std::string& archive,
                                 const std::vector<std::string>& tarOptions) {
  EXPECT_TRUE(Inflate(ReadFile(archive), [](std::string_view) {})) << archive;
  const ProcessResult test = RunCommand({"gzip", "-t", "-v", archive});
  EXPECT_TRUE(test.Succeeded()) << test.Describe();

  const ProcessResult list = RunCommand({"tar", "--quoting-style=literal", "-tzf", archive});
  EXPECT_TRUE(list.Succeeded() && list.err.empty()) << list.Describe();
  m_names = LinesOf(list.out);

  std::vector<std::string> command = {"tar", "-xpzf", archive, "-C", m_directory.Path()};
  command.insert(command.begin() + 1, tarOptions.begin(), tarOptions.end());
  const ProcessResult unpack = RunCommand(command);
  EXPECT_TRUE(unpack.Succeeded() && unpack.err.empty()) << unpack.Describe();
}

std::string Listing(const std::string& path) {
  const ProcessResult found = RunCommand({"find", path, "-type", "d", "-printf", "%P|%y|%m|%Ts\\0",
                                          "-o", "-printf", "%P|%y|%m|%Ts|%l|%s\\0"});
  EXPECT_TRUE(found.Succeeded()) << found.Describe();
  std::vector<std::string> lines = LinesOf(found.out, '\0');
  std::sort(lines.begin(), lines.end());
  std::string listing;
  for (const std::string& line : lines) {
    listing += line + '\n';
  }
  return listing;
}

void ExpectSameTree(const std::string& expected, const std::string& actual) {
  EXPECT_EQ(Listing(expected), Listing(actual));
  const ProcessResult difference = RunCommand({"diff", "-r", "--no-dereference", expected, actual});
  EXPECT_TRUE(difference.Succeeded()) << difference.Describe();
}

std::vector<std::string> NamesIn(const std::string& directory) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string Noise(std::size_t size) {
  std::mt19937 random(static_cast<unsigned>(size));
  std::string noise(size, '\0');
  for (char& byte : noise) {
    byte = static_cast<char>(random());
  }
  return noise;
}

}  // namespace lumtest

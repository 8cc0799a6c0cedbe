// Archives as GNU tar and gzip see them.

#ifndef LUM_TEST_UNPACKED_ARCHIVE_H
#define LUM_TEST_UNPACKED_ARCHIVE_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "support/Files.h"

namespace lumtest {

// Hands what one gzip member unpacks to, as zlib has it, on in pieces. False when `packed` is
// anything but one whole member from its first byte to its last; gunzip would take several.
bool Inflate(std::string_view packed, const std::function<void(std::string_view piece)>& take);

// An archive that GNU tar has unpacked, with permissions, into a directory that goes with this
// object. A complaint of gzip's or tar's, be it a warning, is a failed expectation, and so is
// anything but one gzip member.
class UnpackedArchive {
 public:
  explicit UnpackedArchive(const std::string& archive,
                           const std::vector<std::string>& tarOptions = {});

  // The names of the members, in the archive's order.
  const std::vector<std::string>& Names() const { return m_names; }

  // Where the member `name` lies now.
  std::string Path(const std::string& name) const { return m_directory.Path(name); }

 private:
  TempDir m_directory;
  std::vector<std::string> m_names;
};

// One line for `path` and for each file below it, sorted: relative name, type, permissions, time in
// whole seconds, what a link points to, and the size of regular files.
std::string Listing(const std::string& path);

// Expects that two trees have the same listing and the same contents.
void ExpectSameTree(const std::string& expected, const std::string& actual);

// The names in a directory, sorted, with hidden ones.
std::vector<std::string> NamesIn(const std::string& directory);

// Bytes that do not compress, the same ones for each size.
std::string Noise(std::size_t size);

}  // namespace lumtest

#endif  // LUM_TEST_UNPACKED_ARCHIVE_H

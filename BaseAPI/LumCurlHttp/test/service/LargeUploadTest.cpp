// One upload beyond what 32 bits count, from a sparse file.

#include <gtest/gtest.h>

#include <fstream>
#include <utility>

#include "LumCurlOrvOps.h"
#include "support/Files.h"
#include "support/ProcessState.h"
#include "wire/WireServer.h"

namespace lumtest {
namespace {

// Five gigabytes of zeros but for four bytes: the first, the last, and those on both sides of the
// fourth gigabyte's end.
//
//   truncate -s 5G f
//   for mark in 0:a 4294967295:b 4294967296:c 5368709119:d; do
//     printf ${mark#*:} | dd of=f bs=1 seek=${mark%:*} conv=notrunc
//   done
//   sha256sum f
constexpr std::uint64_t kLargeSize = 5368709120;
constexpr char kLargeSha256[] = "3e70fe14b45b5154f526caaafd76ff1428f6b079be809af03f0679463dff2741";

void MakeLargeFile(const std::string& path) {
  MakeSparseFile(path, kLargeSize);
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  for (const auto& [offset, mark] : {std::pair<std::int64_t, char>{0, 'a'},
                                     {4294967295, 'b'},
                                     {4294967296, 'c'},
                                     {5368709119, 'd'}}) {
    file.seekp(offset);
    file.put(mark);
  }
}

TEST(LargeUploadLiveTest, FiveGigabytesGoOutInFlatMemory) {
  WireOptions options;
  options.keptBodyBytes = 0;
  options.receiveBuffer = 4 << 20;
  WireServer server(options);
  server.SetHandler([](const WireRequest&) { return StatusReply(200); });
  TempDir directory;
  const std::string path = directory.Path("large");
  MakeLargeFile(path);
  LumCurlOrvOps client;
  client.CurlGlobalInit();
  EXPECT_TRUE(ResetPeakResident());
  const std::size_t before = ResidentBytes();

  EXPECT_EQ(client.UploadLog(server.Url("/large"), path, 0), 0);

  EXPECT_LT(PeakResidentBytes(), before + (32U << 20));
  const WireRequest request = server.Request(0);
  EXPECT_EQ(request.Header("Content-Length"), std::to_string(kLargeSize));
  EXPECT_EQ(request.bodyBytes, kLargeSize);
  EXPECT_EQ(request.bodySha256, kLargeSha256);
}

}  // namespace
}  // namespace lumtest

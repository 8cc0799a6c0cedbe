// TLS material that several want at once.
#include "Tls.h"

#include <gmock/gmock.h>

#include "support/Files.h"
#include "support/Threads.h"

namespace {

TEST(Tls, SeveralMayAskForOneDirectory) {
  const lumtest::TempDir temp;
  std::vector<std::string> certificates(4);
  lumtest::OnThreads(4, [&](int i) {
    MakeServerFiles(temp.Path("tls"), "127.0.0.1");
    certificates[static_cast<std::size_t>(i)] = lumtest::ReadFile(temp.Path("tls/server.pem"));
  });
  EXPECT_THAT(certificates, testing::Each(certificates[0]));
}

}  // namespace

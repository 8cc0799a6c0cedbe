// Ends a program whose test does not end, and says which test that is, before ctest's own limit
// ends it without a name: a lock that nobody releases, a loop that goes round for ever.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/uio.h>
#include <unistd.h>

#include <csignal>
#include <string>

namespace {

constexpr unsigned kSeconds = 90;  // ample for one test on a machine that is busy

std::string g_message;
int g_standardError = -1;  // the program's own, wherever a test leads descriptor 2 to

void EndProgram(int) {
  const iovec message = {&g_message[0], g_message.size()};
  (void)!writev(g_standardError, &message, 1);  // a test may have replaced write(2)
  _exit(1);
}

class TimeLimit final : public ::testing::EmptyTestEventListener {
 public:
  void OnTestStart(const ::testing::TestInfo& test) override {
    g_message = std::string(test.test_suite_name()) + '.' + test.name() + " has not ended within " +
                std::to_string(kSeconds) + " s\n";
    alarm(kSeconds);
  }
  void OnTestEnd(const ::testing::TestInfo&) override { alarm(0); }
};

const bool g_armed = [] {
  g_standardError = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
  (void)std::signal(SIGALRM, EndProgram);
  ::testing::UnitTest::GetInstance()->listeners().Append(new TimeLimit);
  return g_standardError >= 0;
}();

}  // namespace

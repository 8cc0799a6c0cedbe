// Runs the real lumcurl: plainly, or on a terminal.

#ifndef LUM_LUMCURL_TEST_LUMCURL_H
#define LUM_LUMCURL_TEST_LUMCURL_H

#include <gmock/gmock.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "support/Files.h"
#include "support/Process.h"
#include "wire/WireReply.h"

namespace lumtest {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;

using Words = std::vector<std::string>;

// `words` with `more` behind them.
Words Joined(Words words, const Words& more);

// The arguments of a process that runs lumcurl; proxies of the machine take no part.
Words LumcurlCommand(const Words& arguments);
ProcessOptions LumcurlOptions(ProcessOptions options = {});

// lumcurl to its end, without a terminal.
ProcessResult Lumcurl(const Words& arguments, const ProcessOptions& options = {});

// Likewise, started by a shell with `redirections`, such as "> /dev/full".
ProcessResult LumcurlInShell(const Words& arguments, const std::string& redirections);

// How it must come out: with this exit status, and on standard error with what `err` matches.
MATCHER_P2(Ends, exitStatus, err, "") {
  *result_listener << arg.Describe();
  return arg.exitStatus == exitStatus && testing::Value(arg.err, err);
}

// Likewise, with what `out` matches on standard output.
MATCHER_P3(Ends, exitStatus, out, err, "") {
  *result_listener << arg.Describe();
  return arg.exitStatus == exitStatus && testing::Value(arg.out, out) &&
         testing::Value(arg.err, err);
}

// What it shows holds one warning, which begins so.
MATCHER_P(WarnsOnceOf, text, "") {
  const std::string warning = std::string("lumcurl: warning: ") + text;
  const std::size_t at = arg.find(warning);
  return at != std::string::npos && arg.find(warning, at + 1) == std::string::npos;
}

// A program on a pseudo-terminal of its own, which is its standard input, output and error. Not
// for use by two threads.
class OnTerminal {
 public:
  // Starts `argv` with the "NAME=value" of `environment`; without any, colours are off. Throws
  // std::runtime_error.
  explicit OnTerminal(const Words& argv, const Words& environment = {"NO_COLOR=1"});
  // Kills it if it still runs.
  ~OnTerminal();
  OnTerminal(const OnTerminal&) = delete;
  OnTerminal& operator=(const OnTerminal&) = delete;

  // Waits until what the terminal shows holds `text`. False when the program ends or a minute
  // passes first.
  bool WaitFor(const std::string& text);

  // Likewise for anything that can be seen in it.
  bool WaitUntil(const std::function<bool(const std::string&)>& seen);

  void Type(const std::string& keys);

  // Waits for the end; the exit status, or -1 when a signal ended it or a minute passed.
  int Wait();

  // Types the interrupt character and waits; the signal that ended it, 0: none.
  int Interrupt();

  // What was shown so far, with the terminal's "\r\n" line ends.
  const std::string& Shown() const { return m_shown; }

 private:
  bool Read(std::chrono::steady_clock::time_point until);

  int m_terminal = -1;
  pid_t m_pid = -1;
  int m_signal = 0;
  std::string m_shown;
};

// A script for a server that speaks something else than TLS.
WireReply NoTls();

// "'a' 'b'" for a shell.
std::string ShellWords(const Words& argv);

// The names that GNU tar finds in an archive.
Words MembersOf(const std::string& archive);

// What the first group of `regex` finds in a text, one time after the other.
Words Matches(const std::string& text, const std::string& regex);

// lumcurl's commands, as --help lists them.
const Words& Commands();

// A directory for files that their owner alone may read.
class SecretDir : public TempDir {
 public:
  // Writes one and returns its path.
  std::string Secret(const std::string& name, const std::string& content) const;
};

}  // namespace lumtest

#endif  // LUM_LUMCURL_TEST_LUMCURL_H

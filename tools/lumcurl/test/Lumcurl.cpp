#include "Lumcurl.h"

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <regex>
#include <stdexcept>

namespace lumtest {

constexpr std::chrono::minutes kDeadline{1};

Words Joined(Words words, const Words& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

Words LumcurlCommand(const Words& arguments) {
  return Joined({LUMCURL}, arguments);
}

ProcessOptions LumcurlOptions(ProcessOptions options) {
  for (const char* setting : {"no_proxy=*", "NO_PROXY=*", "LUMCURL_TOKEN=", "LUMCURL_KEY_PASS="}) {
    const std::string name = std::string(setting).substr(0, std::string(setting).find('=') + 1);
    if (std::none_of(options.environment.begin(), options.environment.end(),
                     [&name](const std::string& own) { return own.rfind(name, 0) == 0; })) {
      options.environment.emplace_back(setting);
    }
  }
  return options;
}

ProcessResult Lumcurl(const Words& arguments, const ProcessOptions& options) {
  return RunCommand(LumcurlCommand(arguments), LumcurlOptions(options));
}

ProcessResult LumcurlInShell(const Words& arguments, const std::string& redirections) {
  return RunCommand({"sh", "-c", ShellWords(LumcurlCommand(arguments)) + " " + redirections},
                    LumcurlOptions());
}

OnTerminal::OnTerminal(const Words& argv, const Words& environment) {
  std::vector<char*> words;
  for (const std::string& word : argv) {
    words.push_back(const_cast<char*>(word.c_str()));
  }
  words.push_back(nullptr);
  m_pid = forkpty(&m_terminal, nullptr, nullptr, nullptr);
  if (m_pid < 0) {
    throw std::runtime_error("forkpty failed");
  }
  if (m_pid == 0) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
      signal(number, SIG_DFL);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    setenv("no_proxy", "*", 1);
    setenv("TERM", "xterm", 1);
    unsetenv("NO_COLOR");
    for (const std::string& setting : environment) {
      const std::size_t equals = setting.find('=');
      setenv(setting.substr(0, equals).c_str(), setting.c_str() + equals + 1, 1);
    }
    execvp(words[0], words.data());
    _exit(127);
  }
}

OnTerminal::~OnTerminal() {
  if (m_pid > 0) {
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
  }
  close(m_terminal);
}

// Reads what there is, waiting for it until `until`. False at the end of the program's output.
bool OnTerminal::Read(std::chrono::steady_clock::time_point until) {
  pollfd wait = {m_terminal, POLLIN, 0};
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      until - std::chrono::steady_clock::now());
  if (left.count() <= 0 || poll(&wait, 1, static_cast<int>(left.count())) <= 0) {
    return false;
  }
  std::array<char, 4096> buffer;
  const ssize_t count = read(m_terminal, buffer.data(), buffer.size());
  if (count <= 0) {
    return count < 0 && errno == EINTR;  // EIO: nobody holds the terminal any more
  }
  m_shown.append(buffer.data(), static_cast<std::size_t>(count));
  return true;
}

bool OnTerminal::WaitFor(const std::string& text) {
  return WaitUntil(
      [&text](const std::string& shown) { return shown.find(text) != std::string::npos; });
}

bool OnTerminal::WaitUntil(const std::function<bool(const std::string&)>& seen) {
  const auto until = std::chrono::steady_clock::now() + kDeadline;
  while (!seen(m_shown)) {
    if (!Read(until)) {
      return false;
    }
  }
  return true;
}

void OnTerminal::Type(const std::string& keys) {
  if (write(m_terminal, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
    throw std::runtime_error("cannot type");
  }
}

int OnTerminal::Interrupt() {
  Type("\x03");
  Wait();
  return m_signal;
}

int OnTerminal::Wait() {
  const auto until = std::chrono::steady_clock::now() + kDeadline;
  while (Read(until)) {
  }
  if (std::chrono::steady_clock::now() >= until) {
    return -1;
  }
  int status = 0;
  const pid_t ended = waitpid(m_pid, &status, 0);
  m_pid = -1;
  m_signal = ended > 0 && WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  return ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

WireReply NoTls() {
  return WireReply("220 welcome\r\n").At(WireStart::kHandshake).Close();
}

std::string ShellWords(const Words& argv) {
  std::string text;
  for (const std::string& word : argv) {
    text += (text.empty() ? "'" : " '") + word + "'";  // no word of these tests holds a quote
  }
  return text;
}

Words MembersOf(const std::string& archive) {
  ProcessOptions options;
  options.input = archive;
  return LinesOf(RunCommand({"tar", "-tzf", "-"}, options).out);
}

Words Matches(const std::string& text, const std::string& regex) {
  const std::regex pattern(regex);
  Words found;
  for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match) {
    found.push_back((*match)[1]);
  }
  return found;
}

const Words& Commands() {
  static const Words commands = [] {
    const std::string help = Lumcurl({"--help"}).out;
    const std::size_t first = help.find("\nHTTP:\n");
    return Matches(help.substr(first, help.find("\nExit status:\n") - first),
                   "\n  ([a-z][a-z-]+) ");
  }();
  return commands;
}

std::string SecretDir::Secret(const std::string& name, const std::string& content) const {
  const std::string path = Write(name, content);
  chmod(path.c_str(), S_IRUSR | S_IWUSR);
  return path;
}

}  // namespace lumtest

#include "Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "Help.h"

const CLI::App* CommandNamed(const CLI::App& parser, const std::string& name) {
  const auto named = parser.get_subcommands(
      [&name](const CLI::App* command) { return command->get_name() == name; });
  return named.empty() ? nullptr : named.front();
}

std::string OptionProblem(const CLI::App& parser, const std::vector<std::string>& words) {
  const CLI::App* command = &parser;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (word == "--") {
      break;
    }
    if (word.size() < 2 || word[0] != '-') {
      if (command == &parser) {
        command = CommandNamed(parser, word);
        if (command == nullptr) {
          break;  // what follows belongs to nothing
        }
      }
      continue;
    }
    const bool isLong = word[1] == '-';
    // Of "-vqH LINE" each letter is an option, up to one that takes a value.
    for (std::size_t at = 1; at < word.size(); ++at) {
      const std::size_t end = isLong ? std::min(word.find('='), word.size()) : at + 1;
      const std::string name = isLong ? word.substr(0, end) : std::string("-") + word[at];
      const CLI::Option* option = command->get_option_no_throw(name);
      if (option == nullptr || option->get_positional()) {
        return "unknown option " + name;
      }
      if (option->get_items_expected_min() > 0 && end == word.size()) {
        if (++i == words.size()) {
          return "the option " + name + " needs a value: " + ValueName(option);
        }
      }
      if (isLong || option->get_items_expected_max() > 0) {
        break;
      }
    }
  }
  return {};
}

const std::vector<ManualEntry> kExitStatuses = {
    {"0", "Done."},
    {"1", "Anything that has no number of its own, an answer that is not JSON among it."},
    {"2", "The command line is wrong, or asks to send what cannot be sent."},
    {"4", "The server answered with a 4xx status."},
    {"5", "The server answered with a 5xx status."},
    {"6", "No connection, or one that broke."},
    {"7", "The time limit of the operation has passed."},
    {"8", "TLS: certificates, keys, pass phrases, handshakes."},
    {"9", "A local file could not be read or written."},
    {"129, 130, 143",
     "Interrupted by SIGHUP, SIGINT or SIGTERM: the number by which a shell calls a command that "
     "the signal ended."},
};

const std::vector<ManualEntry> kEnvironmentVariables = {
    {kTokenVariable, "The access token, where no --token-file is given."},
    {kKeyPassVariable, "The pass phrase of the private key, where no --pass-file is given."},
    {"TMPDIR", "Directory for the archive of upload-group (default: /tmp)."},
    {"NO_COLOR", "No colours when it is set and not empty, unless --color always is given."},
    {"TERM", "No colours when it is dumb, empty or not set, likewise."},
    {"http_proxy", "The proxy for http URLs; libcurl reads it in small letters only."},
    {"https_proxy, HTTPS_PROXY", "The proxy for https URLs."},
    {"all_proxy, ALL_PROXY", "The proxy for both, where neither of the others is set."},
    {"no_proxy, NO_PROXY", "Hosts and domains that are reached without one; * is all."},
};

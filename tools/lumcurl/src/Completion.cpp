// The bash completion of lumcurl.

#include "Completion.h"

#include <CLI/CLI.hpp>
#include <sstream>
#include <vector>

#include "HelpFormatter.h"

namespace {

using Names = std::vector<std::string>;

Names NamesOf(const CLI::Option* option) {
  Names names;
  for (const std::string& name : option->get_snames()) {
    names.push_back("-" + name);
  }
  for (const std::string& name : option->get_lnames()) {
    names.push_back("--" + name);
  }
  return names;
}

std::string Join(const Names& names, const char* separator) {
  std::string text;
  for (const std::string& name : names) {
    text += (text.empty() ? "" : separator) + name;
  }
  return text;
}

void Append(Names& names, const Names& more) {
  names.insert(names.end(), more.begin(), more.end());
}

// What bash offers for one command line up to the command's name, or for the command's operands.
struct Words {
  Names options;
  Names withFile;       // options whose value is a file
  Names withDirectory;  // likewise a directory
  Names withText;       // likewise something that cannot be guessed
};

Words WordsOf(const CLI::App& app) {
  Words words;
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_positional() || option->get_group().empty()) {
      continue;
    }
    const Names names = NamesOf(option);
    Append(words.options, names);
    const std::string type = ValueName(option);
    if (type.empty()) {
      continue;
    }
    Append(type == "FILE" || type == "BASE" ? words.withFile
           : type == "DIR"                  ? words.withDirectory
                                            : words.withText,
           names);
  }
  return words;
}

void Case(std::ostream& out, const Names& previous, const char* action) {
  if (!previous.empty()) {
    out << "        " << Join(previous, "|") << ") " << action << "; return ;;\n";
  }
}

}  // namespace

std::string BashCompletion(const CLI::App& app) {
  const auto commands = app.get_subcommands([](const CLI::App*) { return true; });
  Names names;
  for (const CLI::App* command : commands) {
    names.push_back(command->get_name());
  }
  std::ostringstream out;
  out << "# bash completion for lumcurl\n"
         "_lumcurl() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}\n"
         "  local command=${COMP_WORDS[1]} words=\n"
         "  COMPREPLY=()\n"
         "  [ \"$COMP_CWORD\" -gt 1 ] || command=\n"
         "  case $command in\n"
         "    '') words='"
      << Join(names, " ") << " " << Join(WordsOf(app).options, " ") << "' ;;\n";
  for (const CLI::App* command : commands) {
    const Words words = WordsOf(*command);
    out << "    " << command->get_name() << ")\n"
        << "      case $previous in\n";
    Case(out, words.withFile, "mapfile -t COMPREPLY < <(compgen -f -- \"$current\")");
    Case(out, words.withDirectory, "mapfile -t COMPREPLY < <(compgen -d -- \"$current\")");
    Case(out, words.withText, ":");
    out << "      esac\n"
        << "      words='" << Join(words.options, " ")
        << (command->get_name() == "completion" ? " bash" : "") << "' ;;\n";
  }
  out << "  esac\n"
         "  mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
         "  # Operands are files, or URLs that nobody can guess.\n"
         "  if [[ -n $command && $current != -* ]]; then\n"
         "    mapfile -t -O \"${#COMPREPLY[@]}\" COMPREPLY < <(compgen -f -- \"$current\")\n"
         "  fi\n"
         "}\n"
         "complete -o filenames -F _lumcurl lumcurl\n";
  return out.str();
}

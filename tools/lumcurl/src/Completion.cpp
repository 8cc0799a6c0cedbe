// The shell completions of lumcurl.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <sstream>
#include <vector>

#include "Help.h"
#include "Options.h"

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

// The first clause of a description, without its example.
std::string Brief(const std::string& description) {
  return description.substr(0, description.find_first_of(";("));
}

// `text` between single quotes, with `escape` in front of each of `special`.
std::string Quote(const std::string& text, const char* special, const char* quote) {
  std::string out = "'";
  for (const char c : text) {
    if (c == '\'') {
      out += quote;
      continue;
    }
    if (std::string(special).find(c) != std::string::npos) {
      out += '\\';
    }
    out += c;
  }
  return out + "'";
}

// --- What an option or operand takes ---

std::string BashGenerate(const std::string& what) {
  return "mapfile -t COMPREPLY < <(compgen " + what + " -- \"$current\")";
}

// How each shell completes it.
struct Value {
  Names names;       // that help has for it; none: any other
  Names choices;     // what it can be; none: anything
  std::string bash;  // fills COMPREPLY
  std::string zsh;   // an action of _arguments
  std::string fish;  // options of "complete"
};

const std::vector<Value>& Values() {
  static const std::string colours = Join(kColours, " ");
  static const std::string shells = Join(kShells, " ");
  static const std::vector<Value> values = {
      {{"FILE", "BASE", "PATH"}, {}, BashGenerate("-f"), "_files", " -r -F"},
      {{"DIR"}, {}, BashGenerate("-d"), "_files -/", " -r -F"},
      {{kColourValue},
       kColours,
       BashGenerate("-W '" + colours + "'"),
       "(" + colours + ")",
       " -x -a '" + colours + "'"},
      {{"SHELL"}, kShells, ":", "(" + shells + ")", " -a '" + shells + "'"},
      {{}, {}, ":", " ", " -x"}};  // nothing can be guessed
  return values;
}

// Null for an option that takes nothing.
const Value* ValueOf(const CLI::Option* option) {
  const std::string name = ValueName(option);
  const auto isNamed = [&name](const Value& value) {
    return value.names.empty() || std::count(value.names.begin(), value.names.end(), name) != 0;
  };
  return name.empty() ? nullptr : &*std::find_if(Values().begin(), Values().end(), isNamed);
}

// --- bash ---

void BashCase(std::ostream& out, const Names& previous, const std::string& action) {
  if (!previous.empty()) {
    out << "        " << Join(previous, "|") << ") " << action << "; return ;;\n";
  }
}

// What bash offers for one command line up to the command's name, or behind the command.
struct BashWords {
  Names options;
  std::map<const Value*, Names> taking;  // options by what stands behind them
};

BashWords BashWordsOf(const CLI::App& app) {
  BashWords words;
  for (const CLI::Option* option : OptionsOf(app)) {
    Append(words.options, NamesOf(option));
    Append(words.taking[ValueOf(option)], NamesOf(option));
  }
  for (const CLI::Option* operand : OperandsOf(app)) {
    Append(words.options, ValueOf(operand)->choices);
  }
  return words;
}

std::string BashCompletion(const CLI::App& app) {
  Names names;
  for (const CLI::App* command : app.get_subcommands({})) {
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
      << Join(names, " ") << " " << Join(BashWordsOf(app).options, " ") << "' ;;\n";
  for (const CLI::App* command : app.get_subcommands({})) {
    BashWords words = BashWordsOf(*command);
    out << "    " << command->get_name() << ")\n"
        << "      case $previous in\n";
    for (const Value& value : Values()) {
      BashCase(out, words.taking[&value], value.bash);
    }
    out << "      esac\n"
        << "      words='" << Join(words.options, " ") << "' ;;\n";
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

// --- zsh ---

std::string ZshQuote(const std::string& text) {
  return Quote(text, "", "'\\''");
}

// ":FILE:_files", what follows an option that takes a value.
std::string ZshValue(const CLI::Option* option) {
  const Value* value = ValueOf(option);
  return value == nullptr ? "" : ":" + ValueName(option) + ":" + value->zsh;
}

void ZshOptions(std::ostream& out, const CLI::App& app, const char* indent) {
  for (const CLI::Option* option : OptionsOf(app)) {
    const Names names = NamesOf(option);
    const bool repeats = option->get_items_expected_max() > 1;
    for (const std::string& name : names) {
      const bool isLong = name.size() > 2;
      const char* join = ValueOf(option) == nullptr ? "" : isLong ? "=" : "+";
      out << indent << ZshQuote(repeats ? "*" : "(" + Join(names, " ") + ")")
          << ZshQuote(name + join)
          << ZshQuote("[" + Brief(option->get_description()) + "]" + ZshValue(option)) << " \\\n";
    }
  }
}

std::string ZshCompletion(const CLI::App& app) {
  std::ostringstream out;
  out << "#compdef lumcurl\n"
         "# zsh completion for lumcurl\n"
         "_lumcurl() {\n"
         "  local curcontext=$curcontext state line\n"
         "  typeset -A opt_args\n"
         "  _arguments -C \\\n";
  ZshOptions(out, app, "    ");
  out << "    '1:command:->command' \\\n"
         "    '*::argument:->argument'\n"
         "  case $state in\n"
         "    command)\n"
         "      local -a commands=(\n";
  for (const CLI::App* command : app.get_subcommands({})) {
    out << "        " << ZshQuote(command->get_name() + ":" + command->get_description()) << "\n";
  }
  out << "      )\n"
         "      _describe -t commands command commands ;;\n"
         "    argument)\n"
         "      case $words[1] in\n";
  for (const CLI::App* command : app.get_subcommands({})) {
    out << "        " << command->get_name() << ")\n"
        << "          _arguments \\\n";
    ZshOptions(out, *command, "            ");
    int position = 0;
    for (const CLI::Option* operand : OperandsOf(*command)) {
      ++position;
      const bool repeats = operand->get_items_expected_max() > 1;
      out << "            "
          << ZshQuote((repeats ? "*" : std::to_string(position)) + ZshValue(operand)) << " \\\n";
    }
    out << "            && return ;;\n";
  }
  out << "      esac ;;\n"
         "  esac\n"
         "}\n"
         "if [[ $funcstack[1] == _lumcurl ]]; then\n"
         "  _lumcurl \"$@\"\n"
         "else\n"
         "  compdef _lumcurl lumcurl\n"
         "fi\n";
  return out.str();
}

// --- fish ---

std::string FishQuote(const std::string& text) {
  return Quote(text, "\\", "\\'");
}

void FishOptions(std::ostream& out, const CLI::App& app, const std::string& condition) {
  for (const CLI::Option* option : OptionsOf(app)) {
    out << "complete -c lumcurl -n " << FishQuote(condition);
    for (const std::string& name : option->get_snames()) {
      out << " -s " << name;
    }
    for (const std::string& name : option->get_lnames()) {
      out << " -l " << name;
    }
    const Value* value = ValueOf(option);
    out << (value == nullptr ? "" : value->fish) << " -d "
        << FishQuote(Brief(option->get_description())) << "\n";
  }
}

std::string FishCompletion(const CLI::App& app) {
  static constexpr char kNoCommand[] = "__fish_use_subcommand";
  std::ostringstream out;
  out << "# fish completion for lumcurl\n"
         "complete -c lumcurl -f\n";
  FishOptions(out, app, kNoCommand);
  for (const CLI::App* command : app.get_subcommands({})) {
    out << "complete -c lumcurl -n " << FishQuote(kNoCommand) << " -a " << command->get_name()
        << " -d " << FishQuote(command->get_description()) << "\n";
  }
  for (const CLI::App* command : app.get_subcommands({})) {
    const std::string condition = "__fish_seen_subcommand_from " + command->get_name();
    FishOptions(out, *command, condition);
    for (const CLI::Option* operand : OperandsOf(*command)) {
      const Value* value = ValueOf(operand);
      const std::string files = value->names.empty() ? "" : " -F";
      const std::string offered = value->choices.empty() ? files : value->fish;
      if (!offered.empty()) {
        out << "complete -c lumcurl -n " << FishQuote(condition) << offered << "\n";
      }
    }
  }
  return out.str();
}

}  // namespace

std::string Completion(const std::string& shell, const CLI::App& app) {
  if (shell == "zsh") {
    return ZshCompletion(app);
  }
  return shell == "fish" ? FishCompletion(app) : BashCompletion(app);
}

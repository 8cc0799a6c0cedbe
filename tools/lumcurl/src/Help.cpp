#include "Help.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "Options.h"

namespace {

constexpr std::size_t kWidth = 79;
constexpr std::size_t kColumn = 30;  // where descriptions begin

std::string Row(const std::string& name, const std::string& description) {
  std::string row = "  " + name;
  if (row.size() + 2 > kColumn) {
    row += '\n';
    row.append(kColumn, ' ');
  } else {
    row.append(kColumn - row.size(), ' ');
  }
  return row + Wrap(description, kWidth, kColumn) + "\n";
}

}  // namespace

std::string Wrap(const std::string& text, std::size_t width, std::size_t indent) {
  const std::string newLine = "\n" + std::string(indent, ' ');
  std::string out;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const bool isFixed = line.empty() || line.front() == ' ';
    if (!out.empty()) {
      out += isFixed ? "\n" : newLine;
    }
    if (isFixed) {
      out += line;
      continue;
    }
    std::size_t column = indent;
    std::istringstream words(line);
    for (std::string word; words >> word;) {
      if (column > indent && column + 1 + word.size() > width) {
        out += newLine;
        column = indent;
      } else if (column > indent) {
        out += ' ';
        ++column;
      }
      out += word;
      column += word.size();
    }
  }
  return out;
}

Footer SplitFooter(const std::string& footer) {
  const std::size_t mark = footer.rfind(kExampleMark);
  return {footer.substr(0, mark),
          mark == std::string::npos ? "" : footer.substr(mark + sizeof(kExampleMark) - 1)};
}

std::vector<const CLI::Option*> OptionsOf(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) {
    return !option->get_positional() && !option->get_group().empty();
  });
}

std::vector<const CLI::Option*> OperandsOf(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

std::string ValueName(const CLI::Option* option) {
  if (option->get_positional()) {
    return option->get_name(true, false);
  }
  if (option->get_items_expected_max() == 0) {
    return {};
  }
  const std::string name = option->get_type_name();  // what checks it is named behind a colon
  return name.substr(0, name.find(':'));
}

std::string OptionSynopsis(const CLI::Option* option) {
  std::string value = ValueName(option);
  if (option->get_positional()) {
    return value;
  }
  return option->get_name(false, true) + (value.empty() ? "" : " " + value);
}

std::string CommandSynopsis(const CLI::App* command) {
  std::string synopsis = "lumcurl ";
  if (command->get_parent() == nullptr) {
    return synopsis + "COMMAND [OPTIONS] ...";
  }
  synopsis += command->get_name() + " [OPTIONS]";
  for (const CLI::Option* operand : OperandsOf(*command)) {
    synopsis += " " + ValueName(operand) + (operand->get_expected_max() > 1 ? "..." : "");
  }
  return synopsis;
}

std::string Description(const CLI::Option* option) {
  const bool saysSo = option->get_required() && !option->get_positional();
  return option->get_description() + (saysSo ? " (required)" : "");
}

std::string Help(const CLI::App* app) {
  const bool isCommand = app->get_parent() != nullptr;
  std::vector<std::pair<std::string, std::string>> sections;  // title and rows
  const auto add = [&sections](const std::string& title, const std::string& row) {
    const auto sameTitle = [&title](const auto& section) { return section.first == title; };
    auto section = std::find_if(sections.begin(), sections.end(), sameTitle);
    if (section == sections.end()) {
      section = sections.insert(section, {title, ""});
    }
    section->second += row;
  };
  for (const CLI::Option* operand : OperandsOf(*app)) {
    add("Operands", Row(ValueName(operand), Description(operand)));
  }
  for (const CLI::Option* option : OptionsOf(*app)) {
    add(option->get_group(), Row(OptionSynopsis(option), Description(option)));
  }
  for (const CLI::App* command : app->get_subcommands({})) {
    add(command->get_group(), Row(command->get_name(), command->get_description()));
  }
  if (!isCommand) {
    for (const ManualEntry& entry : kExitStatuses) {
      add("Exit status", Row(entry.name, entry.text));
    }
  }
  std::string text = Wrap(app->get_description() + (isCommand ? "." : ""), kWidth, 0) +
                     "\n\nUsage: " + CommandSynopsis(app) + "\n";
  for (const auto& [title, rows] : sections) {
    text.append("\n").append(title).append(":\n").append(rows);
  }
  return text + "\n" + Wrap(app->get_footer(), kWidth, 0) + "\n";
}

// document-lumcurl man|bash|zsh|fish: prints lumcurl's man page, or one of its completions, out of
// the option table. Runs where lumcurl is built, which lumcurl for another machine cannot.

#include <CLI/CLI.hpp>
#include <iostream>
#include <map>

#include "Help.h"
#include "Options.h"

namespace {

// Text that troff prints as it stands, hyphens as the ASCII character.
std::string Escaped(const std::string& text) {
  static const std::map<char, const char*> kEscapes = {
      {'\\', "\\e"}, {'-', "\\-"}, {'\'', "\\(aq"}, {'"', "\\(dq"}, {'~', "\\(ti"}, {'^', "\\(ha"}};
  std::string out;
  for (const char c : text) {
    const bool startsLine = out.empty() || out.back() == '\n';
    if (startsLine && (c == '.' || c == '\'')) {
      out += "\\&";
    }
    const auto escape = kEscapes.find(c);
    out += escape == kEscapes.end() ? std::string(1, c) : escape->second;
  }
  return out;
}

void Entry(std::ostream& out, const std::string& name, const std::string& text) {
  out << ".TP\n\\fB" << Escaped(name) << "\\fR\n" << Escaped(text) << "\n";
}

// "-H, --header LINE" with the value in italics.
std::string OptionHeading(const CLI::Option* option) {
  const std::string synopsis = OptionSynopsis(option);
  const std::size_t blank = synopsis.find(' ');
  std::string names = Escaped(synopsis.substr(0, blank));
  const std::size_t comma = names.find(',');
  if (comma != std::string::npos) {
    names.replace(comma, 1, "\\fR, \\fB");
  }
  std::string heading = (option->get_positional() ? "\\fI" : "\\fB") + names + "\\fR";
  if (blank != std::string::npos) {
    heading += " \\fI" + Escaped(synopsis.substr(blank + 1)) + "\\fR";
  }
  return heading;
}

void Describe(std::ostream& out, const CLI::Option* option) {
  out << ".TP\n" << OptionHeading(option) << "\n" << Escaped(Description(option)) << "\n";
}

void Describe(std::ostream& out, const CLI::App* command) {
  out << ".SS " << Escaped(command->get_name()) << "\n"
      << Escaped(command->get_description()) << ".\n.PP\n\\fB" << Escaped(CommandSynopsis(command))
      << "\\fR\n";
  for (const CLI::Option* operand : OperandsOf(*command)) {
    Describe(out, operand);
  }
  for (const CLI::Option* option : OptionsOf(*command)) {
    Describe(out, option);
  }
  const Footer footer = SplitFooter(command->get_footer());
  if (!footer.notes.empty()) {
    out << ".PP\n" << Escaped(footer.notes) << "\n";
  }
  out << ".PP\nExample:\n.PP\n.nf\n" << Escaped(footer.example) << "\n.fi\n";
}

// In troff; groff_man(7) has the macros.
void ManPage(std::ostream& out, const CLI::App& app) {
  out << ".TH LUMCURL 1 \"\" \"lumcurl " LUM_VERSION "\" \"User Commands\"\n"
      << ".SH NAME\nlumcurl \\- requests, downloads and uploads over libLumCurlHttp\n"
      << ".SH SYNOPSIS\n.B lumcurl\n.I COMMAND\n[\\fIOPTIONS\\fR] ...\n.br\n"
      << "\\fBlumcurl \\-\\-help\\fR | \\fB\\-\\-version\\fR\n"
      << ".SH DESCRIPTION\n"
      << Escaped(app.get_description()) << "\n.PP\n"
      << Escaped(SplitFooter(app.get_footer()).notes) << "\n.SH OPTIONS\n";
  for (const CLI::Option* option : OptionsOf(app)) {
    Describe(out, option);
  }
  out << ".SH COMMANDS\n";
  for (const CLI::App* command : app.get_subcommands({})) {
    Describe(out, command);
  }
  out << ".SH EXIT STATUS\n";
  for (const ManualEntry& entry : kExitStatuses) {
    Entry(out, entry.name, entry.text);
  }
  out << ".SH ENVIRONMENT\n";
  for (const ManualEntry& entry : kEnvironmentVariables) {
    Entry(out, entry.name, entry.text);
  }
  out << ".SH SEE ALSO\n.BR curl (1),\n.BR lumbackend (1)\n";
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc == 2 ? argv[1] : "";
  Options options;
  const auto table = MakeParser(options);
  if (what == "man") {
    ManPage(std::cout, *table);
  } else {
    std::cout << Completion(what, *table);
  }
}
